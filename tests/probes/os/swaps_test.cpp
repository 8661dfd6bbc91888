#include "probes/os/swaps.h"

#include "probes/os/machine.h"

#include <gtest/gtest.h>

namespace {

std::vector<std::string> names_in_text(const std::string &text) {
    std::vector<std::string> names;
    swap_line line;
    for (const char *at = text.c_str(); next_swap_line(&at, &line);)
        names.emplace_back(line.name);
    return names;
}

std::string swaps_of(const char *machine) {
    return recorded_machine(machine).text("/proc/swaps");
}

} // namespace

TEST(swap_lines, name_each_place) {
    EXPECT_TRUE(names_in_text(swaps_of("container")).empty()) << "the headline is none";
    EXPECT_EQ(names_in_text(swaps_of("numa")),
              (std::vector<std::string>{"/dev/dm-3", "/srv/My\\040Data/swap\\040file"}));
}

TEST(swap_lines, pass_over_what_is_none) {
    for (const char *text : {"", "/a file 1 2", "/a file 1\n", "/a file\n", "/a\n", "\n", " file 1 2\n",
                             "/a file -1 2\n", "/a file 1 x\n", "/a file 99999999999999999999 2\n"})
        EXPECT_TRUE(names_in_text(text).empty()) << text;
    EXPECT_TRUE(names_in_text("/" + std::string(256, 'a') + " file 1 2 3\n").empty());
}

TEST(swap_use, is_told_of_one_place_and_of_all) {
    std::string text = swaps_of("numa");
    uint64_t used = 0;
    uint64_t size = 0;
    ASSERT_TRUE(parse_swap_use(text.c_str(), "/dev/dm-3", &used, &size));
    EXPECT_EQ(used, 5123456U);
    EXPECT_EQ(size, 33554428U);
    ASSERT_TRUE(parse_swap_use(text.c_str(), "_Total", &used, &size));
    EXPECT_EQ(used, 5123456U + 1873171U);
    EXPECT_EQ(size, 33554428U + 33554432U);
    EXPECT_FALSE(parse_swap_use(text.c_str(), "/dev/dm", &used, &size));
    EXPECT_FALSE(parse_swap_use("", "_Total", &used, &size));
}

TEST(swap_use, never_exceeds_the_size) {
    uint64_t used = 0;
    uint64_t size = 0;
    ASSERT_TRUE(parse_swap_use("/a file 10 11 -2\n", "/a", &used, &size));
    EXPECT_EQ(used, 10U);
}
