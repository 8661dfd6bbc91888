#include "platform/errors.h"

#include <gtest/gtest.h>
#include <string>
#include <windows.h>

static std::string words_for(uint32_t code, uint32_t size = 256) {
    char buffer[256];
    uint32_t error = 0;
    if (!error_ops_host.FormatMessageA(code, buffer, size, &error))
        return "no words, " + std::to_string(error);
    return buffer;
}

TEST(error_ops_host, has_words_for_its_errors) {
    EXPECT_EQ(words_for(ERROR_FILE_NOT_FOUND).substr(0, 5), "File ");
    EXPECT_NE(words_for(WSAECONNREFUSED).substr(0, 8), "no words");
}

TEST(error_ops_host, leaves_the_parameters_of_its_words_alone) {
    // "%1 is not a valid Win32 application" and its like would take arguments that nobody has.
    EXPECT_NE(words_for(ERROR_BAD_EXE_FORMAT).substr(0, 8), "no words");
}

TEST(error_ops_host, has_no_words_for_what_is_no_error) {
    EXPECT_EQ(words_for(0x0FFFFFF0), "no words, 317");
}

TEST(error_ops_host, says_where_words_do_not_fit) {
    EXPECT_EQ(words_for(ERROR_FILE_NOT_FOUND, 2), "no words, " + std::to_string(ERROR_INSUFFICIENT_BUFFER));
}

TEST(error_ops_host, tells_the_last_error) {
    SetLastError(ERROR_ACCESS_DENIED);
    EXPECT_EQ(error_ops_host.GetLastError(), uint32_t{ERROR_ACCESS_DENIED});
}
