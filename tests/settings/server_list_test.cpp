#include "fakes/test_host.h"
#include "settings/settings.h"

#include <algorithm>
#include <gtest/gtest.h>

class server_lists : public testing::Test {
protected:
    test_host host;

    void TearDown() override { EXPECT_EQ(host.blocks, 0); }

    // The servers as "name:port name:port", their end mark checked.
    static std::string parse(const char *text) {
        server_entry *servers = parse_server_list(text);
        std::string found;
        server_entry *server = servers;
        for (; server->name != nullptr; server++)
            found +=
                (found.empty() ? "" : " ") + std::string(server->name) + ":" + std::to_string(server->port);
        EXPECT_EQ(server->port, 0);
        free_server_list(servers);
        return found;
    }

    static std::string of_many(int count) {
        std::string text;
        for (int i = 0; i < count; i++)
            text += "s" + std::to_string(i) + ",";
        return text;
    }
};

TEST_F(server_lists, are_split_at_commas_and_blanks) {
    EXPECT_EQ(parse("a,b c"), "a:0 b:0 c:0");
    EXPECT_EQ(parse(" ,, a ,\tb, "), "a:0 \tb:0"); // no other blank divides them
}

TEST_F(server_lists, may_be_empty) {
    EXPECT_EQ(parse(""), "");
    EXPECT_EQ(parse(" , "), "");
}

TEST_F(server_lists, are_absent_for_an_absent_text) {
    EXPECT_EQ(parse_server_list(nullptr), nullptr);
}

TEST_F(server_lists, read_ports_with_their_base) {
    EXPECT_EQ(parse("a:1,b 0x10:0x20"), "a:1 b:0 0x10:32");
    EXPECT_EQ(parse("a:010"), "a:8");
}

TEST_F(server_lists, keep_a_port_within_16_bits) {
    EXPECT_EQ(parse("a:65535 b:65536 c:65537 d:-1"), "a:65535 b:0 c:1 d:65535");
}

TEST_F(server_lists, take_an_empty_port_for_none_and_an_empty_name_for_a_name) {
    EXPECT_EQ(parse("a:"), "a:0");
    EXPECT_EQ(parse(":80"), ":80");
}

TEST_F(server_lists, end_the_agent_with_a_port_that_is_none) {
    for (const char *text : {"a:b", "a:1x", "a:1:2", "a,b:0x", "a:08"})
        expect_fatal([text] { parse_server_list(text); }, "Could not parse port number");
}

TEST_F(server_lists, hold_255_servers) {
    std::string found = parse(of_many(255).c_str());
    EXPECT_EQ(std::count(found.begin(), found.end(), ':'), 255);
    expect_fatal([] { parse_server_list(of_many(256).c_str()); }, "Too many servers in list");
}

TEST_F(server_lists, look_no_further_than_the_256th) {
    expect_fatal([] { parse_server_list((of_many(256) + "a:b").c_str()); }, "Too many servers in list");
}

TEST_F(server_lists, end_the_agent_when_memory_is_out) {
    for (uint32_t n = 1; n <= 5; n++) {
        host.fail_allocation = n; // the array, then two texts a server
        expect_fatal([] { parse_server_list("a,b:17"); }, "Out of memory");
        EXPECT_EQ(host.blocks, 0) << n;
    }
}
