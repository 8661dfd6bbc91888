#include "settings/value_list.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>

class value_lists : public testing::Test {
protected:
    test_host host;
    value_list list = {};

    void TearDown() override {
        host.fail_allocation = 0;
        free_values(&list);
        EXPECT_EQ(host.blocks, 0);
    }

    std::string value_of(const char *key) {
        const file_value *found = find_value(&list, key);
        return found != nullptr ? found->value : "(absent)";
    }
    std::string keys() {
        std::string all;
        for (uint32_t i = 0; i < list.count; i++)
            all += std::string(i != 0 ? " " : "") + list.values[i].key;
        return all;
    }
};

TEST_F(value_lists, find_what_was_set) {
    EXPECT_EQ(value_of("a"), "(absent)");
    EXPECT_TRUE(set_value(&list, "a", "1"));
    EXPECT_TRUE(set_value(&list, "b", ""));
    EXPECT_TRUE(set_value(&list, "", "empty"));
    EXPECT_EQ(value_of("a"), "1");
    EXPECT_EQ(value_of("b"), "");
    EXPECT_EQ(value_of(""), "empty");
    EXPECT_EQ(value_of("A"), "(absent)");
}

TEST_F(value_lists, keep_the_order_of_the_first_setting) {
    for (const char *key : {"c", "a", "b", "a", "c"})
        EXPECT_TRUE(set_value(&list, key, "x"));
    EXPECT_EQ(keys(), "c a b");
}

TEST_F(value_lists, hold_the_last_value_of_a_key) {
    EXPECT_TRUE(set_value(&list, "a", "1"));
    EXPECT_TRUE(set_value(&list, "a", "2"));
    EXPECT_EQ(value_of("a"), "2");
    EXPECT_EQ(list.count, 1U);
}

TEST_F(value_lists, own_their_texts) {
    char key[] = "key", value[] = "value";
    EXPECT_TRUE(set_value(&list, key, value));
    key[0] = value[0] = '#';
    EXPECT_EQ(value_of("key"), "value");
}

TEST_F(value_lists, hold_thousands) {
    for (int i = 0; i < 5000; i++) {
        std::string number = std::to_string(i);
        ASSERT_TRUE(set_value(&list, ("key" + number).c_str(), number.c_str()));
    }
    for (int i = 0; i < 5000; i++)
        ASSERT_EQ(value_of(("key" + std::to_string(i)).c_str()), std::to_string(i));
    EXPECT_EQ(value_of("key5000"), "(absent)");
    EXPECT_STREQ(list.values[4999].key, "key4999");
}

TEST_F(value_lists, stay_as_they_were_when_memory_is_out) {
    for (int i = 0; i < 32; i++) // full, so that the next one needs room
        ASSERT_TRUE(set_value(&list, std::to_string(i).c_str(), "before"));
    for (uint32_t n = 1; n <= 4; n++) { // value, key, and both tables
        host.fail_allocation = n;
        int64_t blocks = host.blocks;
        EXPECT_FALSE(set_value(&list, "new", "value")) << n;
        EXPECT_EQ(host.blocks, blocks) << n;
        EXPECT_EQ(list.count, 32U);
        EXPECT_EQ(value_of("new"), "(absent)");
        EXPECT_EQ(value_of("31"), "before");
    }
    EXPECT_TRUE(set_value(&list, "new", "value"));
    host.fail_allocation = 1;
    EXPECT_FALSE(set_value(&list, "new", "later"));
    EXPECT_EQ(value_of("new"), "value");
}

TEST_F(value_lists, fail_on_their_first_room_too) {
    for (uint32_t n = 3; n <= 4; n++) {
        host.fail_allocation = n;
        EXPECT_FALSE(set_value(&list, "a", "1"));
        EXPECT_EQ(host.blocks, 0);
    }
}
