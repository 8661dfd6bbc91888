#include "probes/os/name_index.h"

#include "fakes/test_host.h"

#include <algorithm>
#include <cstring>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

TEST(name_index, numbers_equal_names) {
    test_host host;
    name_index index = {};
    uint32_t number = 9;
    std::vector<uint32_t> numbers;
    for (const char *name : {"a", "a", "b", "a", "", ""}) {
        ASSERT_TRUE(index_name(&index, name, &number));
        numbers.push_back(number);
    }
    EXPECT_EQ(numbers, (std::vector<uint32_t>{0, 1, 0, 2, 0, 1}));
    EXPECT_EQ(find_indexed_name(&index, "ab", 1, 2)->position, 3U);
    EXPECT_EQ(find_indexed_name(&index, "a", 1, 3), nullptr);
    EXPECT_EQ(find_indexed_name(&index, "c", 1, 0), nullptr);
    free_name_index(&index);
    EXPECT_EQ(find_indexed_name(&index, "a", 1, 0), nullptr) << "an empty one";
    EXPECT_EQ(host.blocks, 0);
}

TEST(name_index, agrees_with_counting) {
    std::mt19937 chance(3);
    std::vector<std::string> names;
    for (int i = 0; i < 3000; i++)
        names.push_back(std::to_string(chance() % 200));
    name_index index = {};
    for (uint32_t i = 0; i < names.size(); i++) {
        uint32_t number = 0;
        ASSERT_TRUE(index_name(&index, names[i].c_str(), &number));
        EXPECT_EQ(number, std::count(names.begin(), names.begin() + i, names[i]));
        const indexed_name *found = find_indexed_name(&index, names[i].c_str(), names[i].size(), number);
        ASSERT_NE(found, nullptr);
        EXPECT_EQ(found->position, i);
        EXPECT_EQ(found->name, names[i].c_str());
    }
    free_name_index(&index);
}

TEST(name_index, stays_as_it_was_when_memory_is_out) {
    test_host host;
    name_index index = {};
    uint32_t number = 0;
    host.fail_allocation = 1;
    EXPECT_FALSE(index_name(&index, "a", &number));
    ASSERT_TRUE(index_name(&index, "a", &number));
    for (int i = 0; i < 31; i++)
        ASSERT_TRUE(index_name(&index, "b", &number));
    host.fail_allocation = 1;
    EXPECT_FALSE(index_name(&index, "a", &number)) << "it had to grow";
    ASSERT_TRUE(index_name(&index, "a", &number));
    EXPECT_EQ(number, 1U);
    free_name_index(&index);
    EXPECT_EQ(host.blocks, 0);
}
