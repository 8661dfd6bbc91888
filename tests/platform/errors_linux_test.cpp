#include "platform/errors.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>

static std::string words_for(uint32_t code) {
    char buffer[64];
    uint32_t error = 0;
    if (!error_ops_host.FormatMessageA(code, buffer, sizeof buffer, &error))
        return "no words, " + std::to_string(error);
    return buffer;
}

TEST(error_ops_host, has_words_for_its_errors) {
    EXPECT_EQ(words_for(ENOENT), "No such file or directory");
    EXPECT_EQ(words_for(ECONNREFUSED), "Connection refused");
}

TEST(error_ops_host, has_no_words_for_what_is_no_error) {
    EXPECT_EQ(words_for(99999), "no words, " + std::to_string(EINVAL));
}

TEST(error_ops_host, cuts_words_at_the_buffer) {
    char buffer[5] = {'x', 'x', 'x', 'x', 'x'};
    uint32_t error = 0;
    EXPECT_TRUE(error_ops_host.FormatMessageA(ENOENT, buffer, 4, &error));
    EXPECT_EQ(std::string(buffer, 5), std::string("No \0x", 5));
}

TEST(error_ops_host, tells_the_last_error) {
    errno = EACCES;
    EXPECT_EQ(error_ops_host.GetLastError(), static_cast<uint32_t>(EACCES));
}
