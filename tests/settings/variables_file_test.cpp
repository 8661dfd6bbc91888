#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "settings/value_list.h"

#include <gtest/gtest.h>

class variables_files : public testing::Test {
protected:
    test_host host;
    value_list list = {};

    void TearDown() override {
        host.fail_allocation = 0;
        free_values(&list);
        EXPECT_EQ(host.blocks, 0);
    }

    std::string print(const std::string &key, const std::string &value) {
        free_values(&list);
        EXPECT_TRUE(set_value(&list, key.c_str(), value.c_str()));
        text_guard text(print_variables(&list));
        return text.get();
    }
    // The pairs as "key=value|key=value".
    std::string parse(const std::string &text) {
        free_values(&list);
        EXPECT_TRUE(parse_variables(text.data(), text.size(), "/vars", &list));
        std::string pairs;
        for (uint32_t i = 0; i < list.count; i++)
            pairs += std::string(i != 0 ? "|" : "") + list.values[i].key + "=" + list.values[i].value;
        return pairs;
    }
};

TEST_F(variables_files, hold_key_tab_and_value_a_line) {
    EXPECT_EQ(print("host_id", "17 = x"), "host_id\t17 = x\n");
    EXPECT_EQ(parse("host_id\t17 = x\nname_conf\t\n"), "host_id=17 = x|name_conf=");
}

TEST_F(variables_files, keep_their_order) {
    set_value(&list, "b", "1");
    set_value(&list, "a", "2");
    text_guard text(print_variables(&list));
    EXPECT_STREQ(text.get(), "b\t1\na\t2\n");
}

TEST_F(variables_files, escape_backslash_and_control_bytes) {
    EXPECT_EQ(print("a\\b\tc", "d\ne\rf"), "a\\\\b\\tc\td\\ne\\rf\n");
    EXPECT_EQ(print("k", "\x01\x1f\x7f \x80\xff~"), "k\t\\x01\\x1f\\x7f \x80\xff~\n");
}

TEST_F(variables_files, read_escapes_of_either_case) {
    EXPECT_EQ(parse("a\\\\b\\tc\td\\ne\\rf\\x1F\\x1f\\xaB\n"), "a\\b\tc=d\ne\rf\x1f\x1f\xab");
}

TEST_F(variables_files, read_back_every_byte) {
    std::string bytes;
    for (int c = 1; c < 256; c++)
        bytes += static_cast<char>(c);
    std::string text = print("key" + bytes, bytes);
    EXPECT_EQ(parse(text), "key" + bytes + "=" + bytes);
    EXPECT_TRUE(host.log.empty());
}

TEST_F(variables_files, read_back_long_values) {
    std::string value(5000, '\x01');
    EXPECT_EQ(parse(print("k", value)), "k=" + value);
}

TEST_F(variables_files, pass_over_what_is_no_variable) {
    for (const char *bad : {"no tab", "", "k\tv\\", "k\tv\\q", "k\tv\\x", "k\tv\\x1", "k\tv\\xg1",
                            "k\tv\\x1g", "k\tv\\x00", "k\\\tv", "\\z\tv"}) {
        host.log.clear();
        EXPECT_EQ(parse("a\t1\n" + std::string(bad) + "\nb\t2\n"), "a=1|b=2") << bad;
        EXPECT_TRUE(host.logged(LOG_WARNING, "/vars, line 2: no variable, passed over")) << bad;
        EXPECT_EQ(host.log.size(), 1U) << bad;
    }
}

TEST_F(variables_files, hold_the_last_value_of_a_key) {
    EXPECT_EQ(parse("a\t1\nb\t2\na\t3\n"), "a=3|b=2");
}

TEST_F(variables_files, may_end_without_a_line_end) {
    EXPECT_EQ(parse("a\t1\nb\t2"), "a=1|b=2");
    EXPECT_EQ(parse(""), "");
}

TEST_F(variables_files, take_a_further_tab_into_the_value) {
    EXPECT_EQ(parse("a\t1\t2\n"), "a=1\t2");
}

TEST_F(variables_files, print_nothing_when_memory_is_out) {
    set_value(&list, "a", "1");
    host.fail_allocation = 1;
    EXPECT_EQ(print_variables(&list), nullptr);
}

TEST_F(variables_files, cannot_be_read_when_memory_is_out) {
    std::string text = "a\t1\nb\t2\n";
    uint32_t n = 1;
    for (;; n++) {
        host.fail_allocation = n;
        bool parsed = parse_variables(text.data(), text.size(), "/vars", &list);
        free_values(&list);
        if (host.fail_allocation != 0) break;
        EXPECT_FALSE(parsed) << n;
    }
    EXPECT_EQ(n, 9U);
}
