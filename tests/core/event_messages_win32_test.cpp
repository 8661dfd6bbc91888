// The texts in the program from which the event viewer takes its own.

#include "platform/fatal.h"

#include <gtest/gtest.h>
#include <string>
#include <windows.h>

static std::string shown(uint32_t event_id) {
    HMODULE program = LoadLibraryExA(TNAGENT, nullptr, LOAD_LIBRARY_AS_DATAFILE);
    char text[] = "100% of the words";
    char *inserts[] = {text};
    char buffer[256] = "";
    DWORD options = FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY;
    FormatMessageA(options, program, event_id, 0, buffer, sizeof buffer,
                   reinterpret_cast<va_list *>(inserts));
    FreeLibrary(program);
    return buffer;
}

TEST(event_messages, show_the_text_that_comes_with_an_event) {
    EXPECT_EQ(shown(EVENT_ID_ERROR), "100% of the words\r\n");
    EXPECT_EQ(shown(EVENT_ID_INFORMATION), "100% of the words\r\n");
    EXPECT_EQ(shown(0xC0000006), "");
}
