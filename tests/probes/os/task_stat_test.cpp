#include "probes/os/task_stat.h"

#include "probes/os/machine.h"

#include <gtest/gtest.h>

namespace {

std::string record(const std::string &head) {
    return head + " S 4 5 6 7 -1 9 10 11 12 13 14 15 16 17 -18 -19 20 21 22 23 24 25\n";
}

bool parses(const std::string &text, task_stat *out) {
    const char *at = text.c_str();
    return next_task_stat(&at, out);
}

} // namespace

TEST(task_stat, holds_what_is_counted) {
    task_stat task;
    ASSERT_TRUE(parses(record("4711 (web server)"), &task));
    EXPECT_STREQ(task.id, "4711");
    EXPECT_STREQ(task.name, "web server");
    EXPECT_EQ(task.parent, 4U);
    EXPECT_EQ(task.minor_faults, 10U);
    EXPECT_EQ(task.major_faults, 12U);
    EXPECT_EQ(task.user_time, 14U);
    EXPECT_EQ(task.kernel_time, 15U);
    EXPECT_EQ(task.priority, -18);
    EXPECT_EQ(task.nice, -19);
    EXPECT_EQ(task.threads, 20U);
    EXPECT_EQ(task.start, 22U);
    EXPECT_EQ(task.virtual_bytes, 23U);
    EXPECT_EQ(task.resident_pages, 24U);
}

TEST(task_stat, takes_names_of_any_bytes) {
    const std::pair<const char *, const char *> rows[] = {{"1 (a) R 1 (b)", "a) R 1 (b"},
                                                          {"1 ((sd-pam))", "(sd-pam)"},
                                                          {"1 ()", ""},
                                                          {"1 (\xFC\"')", "\xFC\"'"},
                                                          {"1 ( )", " "}};
    for (auto [head, name] : rows) {
        task_stat task;
        ASSERT_TRUE(parses(record(head), &task)) << head;
        EXPECT_STREQ(task.name, name);
    }
}

TEST(task_stat, shows_a_line_feed_in_a_name_as_a_question_mark) {
    task_stat task;
    std::string text = record("1 (a\nb)");
    ASSERT_TRUE(parse_task_stat(text.c_str(), text.c_str() + text.size() - 1, &task));
    EXPECT_STREQ(task.name, "a?b");
}

TEST(task_stat, passes_over_what_is_none) {
    task_stat task;
    for (const char *text : {"", "\n", "1\n", "1 (\n", "1 (a\n", "1 (a)\n", "1 (a) S\n", "1 (a) S 4 5\n",
                             "x (a) S 4\n", " 1 (a) S 4\n"})
        EXPECT_FALSE(parses(text, &task)) << text;
    EXPECT_FALSE(parses(record("(a)"), &task));
    EXPECT_FALSE(parses(record("1(a)"), &task));
    EXPECT_FALSE(parses(record("1 a)"), &task));
    EXPECT_FALSE(parses(record(std::string(16, '1') + " (a)"), &task));
    EXPECT_FALSE(parses(record("1 (" + std::string(80, 'n') + ")"), &task));
    EXPECT_TRUE(parses(record("1 (" + std::string(79, 'n') + ")"), &task));
    std::string cut = record("1 (a)");
    cut.resize(cut.rfind(" 24 25"));
    EXPECT_FALSE(parses(cut + "\n", &task)) << "a number is missing";
}

TEST(task_stat, goes_from_record_to_record) {
    std::string text = record("1 (a)") + "junk\n" + record("2 (b)") + record("3 (c)").substr(0, 20);
    const char *at = text.c_str();
    task_stat task;
    ASSERT_TRUE(next_task_stat(&at, &task));
    EXPECT_STREQ(task.id, "1");
    ASSERT_TRUE(next_task_stat(&at, &task));
    EXPECT_STREQ(task.id, "2");
    EXPECT_FALSE(next_task_stat(&at, &task));
}

TEST(task_stat, reads_a_record_of_each_recorded_machine) {
    for (const char *path :
         {"/container/proc/4711/stat", "/numa/proc/3999999/stat", "/stacked/proc/504/stat"}) {
        std::string text = recorded_text(std::string(TEST_DATA "/machines") + path);
        task_stat task;
        ASSERT_TRUE(parses(text, &task)) << path;
        EXPECT_EQ(task.virtual_bytes, 2703360U);
        EXPECT_EQ(task.resident_pages, 412U);
    }
}
