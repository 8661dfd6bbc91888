#include "probes/os/os_release.h"

#include "probes/os/machine.h"

#include <gtest/gtest.h>

static std::string parsed(const std::string &text, size_t size = 128) {
    std::string out(size, 'x');
    bool found = parse_os_release(text.c_str(), out.data(), size);
    EXPECT_EQ(found, out[0] != '\0');
    return out.c_str();
}

TEST(parse_os_release, takes_the_name_out_of_either_quotes) {
    EXPECT_EQ(parsed(recorded_machine("container").text("/etc/os-release")), "Small Linux v3.19");
    EXPECT_EQ(parsed(recorded_machine("numa").text("/etc/os-release")), "Large Linux Server 15 SP5 (x86_64)");
    EXPECT_EQ(parsed(recorded_machine("relay").text("/etc/os-release")), "Relay Linux 12 \"Router\"");
}

TEST(parse_os_release, takes_a_bare_word) {
    EXPECT_EQ(parsed("PRETTY_NAME=Plain more\n"), "Plain");
    EXPECT_EQ(parsed("PRETTY_NAME=Plain"), "Plain");
}

TEST(parse_os_release, resolves_backslashes_outside_single_quotes) {
    EXPECT_EQ(parsed("PRETTY_NAME=\"a \\\"b\\\" \\$c\"\n"), "a \"b\" $c");
    EXPECT_EQ(parsed("PRETTY_NAME='a \\b'\n"), "a \\b");
}

TEST(parse_os_release, counts_the_last_line_as_the_shell_does) {
    EXPECT_EQ(parsed("PRETTY_NAME=one\nPRETTY_NAME=two\n"), "two");
}

TEST(parse_os_release, ends_an_open_quote_with_its_line) {
    EXPECT_EQ(parsed("PRETTY_NAME=\"open\nNAME=x\n"), "open");
    EXPECT_EQ(parsed("PRETTY_NAME=\"open\\"), "open\\");
}

TEST(parse_os_release, cuts_at_the_size_of_the_buffer) {
    EXPECT_EQ(parsed("PRETTY_NAME=\"123456789\"\n", 6), "12345");
}

TEST(parse_os_release, gives_nothing_where_the_name_is_missing) {
    EXPECT_EQ(parsed(""), "");
    EXPECT_EQ(parsed("MY_PRETTY_NAME=x\n"), "");
    EXPECT_EQ(parsed("PRETTY_NAME=\n"), "");
}
