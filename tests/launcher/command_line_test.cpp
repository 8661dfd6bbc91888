#include "launcher/command_line.h"

#include "fakes/test_host.h"
#include "platform/heap.h"

#include <gtest/gtest.h>

static std::string joined(std::vector<const char *> words) {
    words.push_back(nullptr);
    text_guard text(join_words(words.data()));
    return text.get();
}

TEST(join_words, leaves_plain_words_as_they_are) {
    test_host host;
    EXPECT_EQ(joined({"tnagent.exe"}), "tnagent.exe");
    EXPECT_EQ(joined({"tnagent.exe", "--parent-pipes", "88", "92"}), "tnagent.exe --parent-pipes 88 92");
    EXPECT_EQ(joined({"it's", "C:\\a\\", "\\\\host\\share", "*.txt"}), "it's C:\\a\\ \\\\host\\share *.txt");
    EXPECT_EQ(host.blocks, 0);
}

TEST(join_words, puts_marks_around_blanks_and_around_nothing) {
    test_host host;
    EXPECT_EQ(joined({"C:\\Program Files\\x.exe", "", "a\tb"}), "\"C:\\Program Files\\x.exe\" \"\" \"a\tb\"");
}

TEST(join_words, tells_marks_of_the_words_own) {
    test_host host;
    EXPECT_EQ(joined({"x", "say \"yes\""}), "x \"say \\\"yes\\\"\"");
    EXPECT_EQ(joined({"x", "\""}), "x \"\\\"\"");
}

TEST(join_words, doubles_backslashes_ahead_of_a_mark_alone) {
    test_host host;
    EXPECT_EQ(joined({"x", "a\\\\\"b"}), "x \"a\\\\\\\\\\\"b\"");
    EXPECT_EQ(joined({"x", "C:\\my folder\\"}), "x \"C:\\my folder\\\\\"");
    EXPECT_EQ(joined({"x", "a\\b \\c"}), "x \"a\\b \\c\"");
}

TEST(join_words, has_room_for_the_worst_of_words) {
    test_host host;
    std::string marks(500, '"');
    EXPECT_EQ(joined({"x", marks.c_str()}).size(), 2 + 2 + 2 * marks.size());
}

TEST(join_words, needs_memory) {
    test_host host;
    host.fail_allocation = 1;
    const char *words[] = {"x", nullptr};
    EXPECT_EQ(join_words(words), nullptr);
}
