#include "logcheck/log_conf.h"

#include "fakes/test_host.h"
#include "logcheck/log_path.h"
#include "platform/agent_log.h"
#include "platform/text.h"

#include <gtest/gtest.h>

using std::string;
using lines = std::vector<string>;

class log_conf : public testing::Test {
protected:
    test_host host;

    log_conf() { log_path_style_in_force = &DRIVE_PATHS; }
    ~log_conf() override {
        log_path_style_in_force = &ROOT_PATHS;
        host.files.clear();
        EXPECT_EQ(host.blocks, 0);
        EXPECT_TRUE(host.open_files.empty());
    }

    static lines shown(const log_conf_line *list) {
        lines all;
        for (; list != nullptr; list = list->next) {
            string line;
            for (const log_path_part *part = list->parts; part != nullptr; part = part->next)
                line += (line.empty() ? "" : " ") + std::to_string(part->kind) + "<" + part->text + ">";
            all.push_back(line);
        }
        return all;
    }

    // The chains in the order of the list.
    static lines parse(const string &text) {
        log_conf_guard list(log_conf_parse(text.data(), text.size()));
        return shown(list.get());
    }
    static lines read(const char *path) {
        log_conf_guard list(log_conf_read(path));
        return shown(list.get());
    }
};

class log_conf_of_drives : public log_conf {};

class log_conf_of_a_root : public log_conf {
protected:
    log_conf_of_a_root() { log_path_style_in_force = &ROOT_PATHS; }
};

// ---- lines of any style

TEST_F(log_conf, lists_the_last_line_first) {
    EXPECT_EQ(parse("C:\nD:\nE:\n"), (lines{"1<E:>", "1<D:>", "1<C:>"}));
}

TEST_F(log_conf, passes_over_empty_lines_and_comments) {
    EXPECT_EQ(parse("\n  \t\r\n# comment\n  # another\nC:\\a#b\n"), lines{"1<C:> 2<a#b>"});
}

TEST_F(log_conf, cuts_blanks_around_a_line_but_not_within) {
    EXPECT_EQ(parse(" \t\v\f\rC:\\a b\\c d \t\v\f\r\n"), lines{"1<C:> 2<a b> 2<c d>"});
}

TEST_F(log_conf, needs_no_line_feed_at_its_end) {
    EXPECT_EQ(parse("C:\\a"), lines{"1<C:> 2<a>"});
}

TEST_F(log_conf, does_not_see_a_line_behind_a_zero_byte) {
    EXPECT_EQ(parse(string("C:\\a\0\\b\nD:\n", 10)), (lines{"1<D:>", "1<C:> 2<a>"}));
    EXPECT_EQ(parse(string("\0nothing\nC:\n", 12)), lines{"1<C:>"});
}

TEST_F(log_conf, without_a_line_that_counts_has_failed) {
    EXPECT_EQ(parse("# only\n# comments\n"), lines{});
    EXPECT_EQ(parse(""), lines{});
}

TEST_F(log_conf, keeps_an_event_log_line_as_one_part) {
    EXPECT_EQ(parse("eventlog:  Sys?em\\x ** \n"), lines{"0<Sys?em\\x **>"});
    EXPECT_EQ(parse("eventlog:*\n"), lines{"0<*>"});
}

TEST_F(log_conf, fails_for_an_event_log_line_that_names_none) {
    EXPECT_EQ(parse("C:\neventlog:  \n"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Event-log entry did not detail which parts to include"));
}

TEST_F(log_conf, knows_event_logs_in_exactly_that_case) {
    EXPECT_EQ(parse("Eventlog:*\n"), lines{});
    EXPECT_TRUE(host.logged(
        LOG_NORMAL,
        "log check configuration line must start with a drive letter and a colon: \"Eventlog:*\""));
}

TEST_F(log_conf, takes_a_line_of_1023_characters_whole) {
    string name(1020, 'x');
    EXPECT_EQ(parse("C:\\" + name + "\nD:\n"), (lines{"1<D:>", "1<C:> 2<" + name + ">"}));
}

TEST_F(log_conf, takes_a_longer_line_as_two_of_which_the_second_fails) {
    EXPECT_EQ(parse("C:\\" + string(1020, 'x') + "1\nD:\n"), lines{});
    EXPECT_TRUE(
        host.logged(LOG_NORMAL, "log check configuration line did not start with a drive letter: \"1\""));
}

TEST_F(log_conf, takes_what_is_behind_1023_characters_as_a_line_of_its_own) {
    EXPECT_EQ(parse(string(1023, ' ') + "C:\n"), lines{"1<C:>"});
}

TEST_F(log_conf, fails_whole_for_one_bad_line) {
    EXPECT_EQ(parse("C:\\good\nbad\nD:\\good\n"), lines{});
}

// ---- paths with drives

TEST_F(log_conf_of_drives, keep_the_case_of_the_letter) {
    EXPECT_EQ(parse("c:\\a\nZ:\\a\n"), (lines{"1<Z:> 2<a>", "1<c:> 2<a>"}));
}

TEST_F(log_conf_of_drives, fail_without_a_letter) {
    EXPECT_EQ(parse("\\\\server\\logs\n"), lines{});
    EXPECT_TRUE(host.logged(
        LOG_NORMAL, "log check configuration line did not start with a drive letter: \"\\\\server\\logs\""));
    EXPECT_EQ(parse("\xC4:\\a\n"), lines{});
    EXPECT_EQ(parse("[:\\a\n"), lines{});
    EXPECT_EQ(parse("@:\\a\n"), lines{});
    EXPECT_EQ(host.count_logged("did not start with a drive letter"), 4);
}

TEST_F(log_conf_of_drives, fail_without_a_colon) {
    EXPECT_EQ(parse("Clogs\n"), lines{});
    EXPECT_TRUE(host.logged(
        LOG_NORMAL, "log check configuration line must start with a drive letter and a colon: \"Clogs\""));
    EXPECT_EQ(parse("C\n"), lines{});
    EXPECT_TRUE(host.logged(
        LOG_NORMAL, "log check configuration line must start with a drive letter and a colon: \"C\""));
}

TEST_F(log_conf_of_drives, are_cut_at_backslashes_in_any_number) {
    EXPECT_EQ(parse("C:\\\\a\\\\\\b\\\n"), lines{"1<C:> 2<a> 2<b>"});
    EXPECT_EQ(parse("C:a/b\\c\n"), lines{"1<C:> 2<a/b> 2<c>"});
}

TEST_F(log_conf_of_drives, may_be_a_drive_alone) {
    EXPECT_EQ(parse("C:\n"), lines{"1<C:>"});
    EXPECT_EQ(parse("C:\\\n"), lines{"1<C:>"});
}

TEST_F(log_conf_of_drives, know_the_recursive_marker_as_a_level_of_its_own) {
    EXPECT_EQ(parse("C:\\**\\*.log\n"), lines{"1<C:> 3<**> 2<*.log>"});
    EXPECT_EQ(parse("C:\\a\\**\\**\\b\\*\\?\n"), lines{"1<C:> 2<a> 3<**> 3<**> 2<b> 2<*> 2<?>"});
}

TEST_F(log_conf_of_drives, fail_for_the_marker_within_a_level) {
    EXPECT_EQ(parse("C:\\x\\a**b\\c\n"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Found misplaced '**' in log check configuration: \"a**b\\c\""));
    EXPECT_TRUE(host.logged(
        LOG_NORMAL, "Unable to parse components of log check configuration line: \"C:\\x\\a**b\\c\""));
    for (const char *line : {"C:\\a**", "C:\\**a", "C:\\***\\b"})
        EXPECT_EQ(parse(line), lines{}) << line;
    EXPECT_EQ(host.count_logged("Found misplaced"), 4);
}

TEST_F(log_conf_of_drives, do_not_take_a_star_at_each_of_two_levels_for_the_marker) {
    EXPECT_EQ(parse("C:\\a*\\*b\n"), lines{"1<C:> 2<a*> 2<*b>"});
}

TEST_F(log_conf_of_drives, fail_for_the_marker_at_the_end) {
    EXPECT_EQ(parse("C:\\*\\**\n"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "No line must end with '**' - skipping line"));
    EXPECT_EQ(parse("C:\\a\\**\\\n"), lines{});
    EXPECT_EQ(host.count_logged("No line must end with '**'"), 2);
}

// ---- paths with a root

TEST_F(log_conf_of_a_root, start_with_the_root_in_the_place_of_the_drive) {
    EXPECT_EQ(parse("/var/log/**/*.log\n"), lines{"1</> 2<var> 2<log> 3<**> 2<*.log>"});
}

TEST_F(log_conf_of_a_root, are_cut_at_slashes_in_any_number) {
    EXPECT_EQ(parse("///var//log/x/\n"), lines{"1</> 2<var> 2<log> 2<x>"});
    EXPECT_EQ(parse("/a\\b/c:\n"), lines{"1</> 2<a\\b> 2<c:>"});
}

TEST_F(log_conf_of_a_root, may_be_the_root_alone) {
    EXPECT_EQ(parse("/\n"), lines{"1</>"});
}

TEST_F(log_conf_of_a_root, fail_for_what_starts_otherwise) {
    EXPECT_EQ(parse("var/log\n"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL,
                            "log check configuration line did not start with a drive letter: \"var/log\""));
    EXPECT_EQ(parse("C:\\logs\n"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL,
                            "log check configuration line did not start with a drive letter: \"C:\\logs\""));
}

TEST_F(log_conf_of_a_root, fail_for_a_misplaced_marker) {
    EXPECT_EQ(parse("/a**b\n"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Found misplaced '**' in log check configuration: \"a**b\""));
    EXPECT_EQ(parse("/**\n"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "No line must end with '**' - skipping line"));
}

TEST_F(log_conf_of_a_root, take_event_logs_too) {
    EXPECT_EQ(parse("eventlog:System\n"), lines{"0<System>"});
}

// ---- the file

TEST_F(log_conf, is_read_from_its_file) {
    host.write_file("/etc/logs.conf", "C:\\a\r\nD:\\b\r\n");
    EXPECT_EQ(read("/etc/logs.conf"), (lines{"1<D:> 2<b>", "1<C:> 2<a>"}));
}

TEST_F(log_conf, tells_a_file_that_cannot_be_opened) {
    EXPECT_EQ(read("/etc/missing.conf"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Unable to open log configuration \"/etc/missing.conf\""));
    host.write_file("/etc/logs.conf", "C:\n");
    host.broken["open"]["/etc/logs.conf"] = 13;
    EXPECT_EQ(read("/etc/logs.conf"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Unable to open log configuration \"/etc/logs.conf\""));
}

TEST_F(log_conf, does_not_take_a_part_of_a_file_that_cannot_be_read) {
    host.write_file("/etc/logs.conf", "C:\n");
    host.broken["read"]["/etc/logs.conf"] = 5;
    EXPECT_EQ(read("/etc/logs.conf"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Unable to open log configuration \"/etc/logs.conf\""));
}

TEST_F(log_conf, does_not_open_what_is_no_regular_file) {
    host.write_file("/etc/logs.conf/x", "");
    EXPECT_EQ(read("/etc/logs.conf"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Unable to open log configuration \"/etc/logs.conf\""));
    EXPECT_EQ(host.next_handle, 10) << "something was opened";
}

TEST_F(log_conf, may_have_a_mebibyte_and_no_more) {
    string text = "C:\n" + string(1048576 - 3, '\n');
    host.write_file("/logs.conf", text);
    EXPECT_EQ(read("/logs.conf"), lines{"1<C:>"});
    host.write_file("/logs.conf", text + "\n");
    EXPECT_EQ(read("/logs.conf"), lines{});
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Unable to open log configuration \"/logs.conf\""));
}

// ---- memory

TEST_F(log_conf, without_memory_for_a_part_fails_the_file) {
    for (uint32_t n : {1, 2, 3, 4}) { // two blocks a part
        host.log.clear();
        host.fail_allocation = n;
        EXPECT_EQ(parse("C:\\a\n"), lines{});
        EXPECT_TRUE(host.logged(LOG_ERROR, "Out of memory when copying log check node chain")) << n;
    }
    EXPECT_TRUE(
        host.logged(LOG_NORMAL, "Unable to parse components of log check configuration line: \"C:\\a\""));
}

TEST_F(log_conf, without_memory_for_a_line_fails_the_file) {
    host.fail_allocation = 5;
    EXPECT_EQ(parse("C:\\a\n"), lines{});
    EXPECT_TRUE(host.logged(LOG_ERROR, "Out of memory, allocating new log check node list entry"));
}

TEST_F(log_conf, without_memory_for_an_event_log_fails_the_file) {
    host.fail_allocation = 1;
    EXPECT_EQ(parse("eventlog:*\n"), lines{});
    EXPECT_TRUE(host.logged(LOG_ERROR, "Out of memory when copying log check node chain"));
}

// ---- chains

struct log_chain : log_conf {
    log_conf_guard list;
    const log_path_part *chain(const string &line) {
        list.reset(log_conf_parse(line.data(), line.size()));
        return list->parts;
    }
    ~log_chain() override { list.reset(); }
};

TEST_F(log_chain, is_copied_whole) {
    const log_path_part *first = chain("C:\\a\\**\\*.log");
    log_chain_guard copy(log_chain_copy(first));
    EXPECT_TRUE(log_chain_equal(copy.get(), first));
    EXPECT_NE(copy->text, first->text);
    EXPECT_EQ(log_chain_copy(nullptr), nullptr);
}

TEST_F(log_chain, is_not_copied_in_part) {
    const log_path_part *first = chain("C:\\a");
    for (uint32_t n = 1; n <= 4; n++) {
        host.log.clear();
        host.fail_allocation = n;
        EXPECT_EQ(log_chain_copy(first), nullptr);
        EXPECT_TRUE(host.logged(LOG_ERROR, "Out of memory when copying log check node chain"));
    }
}

TEST_F(log_chain, differs_by_length_text_and_kind) {
    log_conf_guard a(log_conf_parse("C:\\a", 4));
    for (const string line : {"C:", "C:\\a\\b", "C:\\A", "c:\\a"}) {
        log_conf_guard b(log_conf_parse(line.data(), line.size()));
        EXPECT_FALSE(log_chain_equal(a->parts, b->parts)) << line;
        EXPECT_FALSE(log_chain_equal(b->parts, a->parts)) << line;
    }
    log_conf_guard event_log(log_conf_parse("eventlog:C:", 11));
    EXPECT_FALSE(log_chain_equal(event_log->parts, chain("C:")));
}

TEST_F(log_chain, is_traced_with_arrows) {
    log_chain_trace(chain("C:\\a\\**\\*.log"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "C: -> a -> ** -> *.log"));
}

TEST_F(log_chain, is_traced_up_to_2048_characters) {
    string line = "C:";
    string expected = "C:";
    for (int i = 0; i < 500; i++) {
        line += "\\x";
        expected += " -> x";
    }
    log_chain_trace(chain(line));
    EXPECT_TRUE(host.logged(LOG_TRACE, expected.substr(0, 2048)));
}
