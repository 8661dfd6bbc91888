#include "logcheck/log_match.h"

#include "fakes/test_host.h"
#include "logcheck/log_path.h"
#include "platform/agent_log.h"
#include "platform/text.h"

#include <gtest/gtest.h>
#include <set>

struct log_matches : testing::Test {
    test_host host;
    log_match_list list = {};

    ~log_matches() override {
        free_log_matches(&list);
        log_path_style_in_force = &ROOT_PATHS;
        EXPECT_EQ(host.blocks, 0);
    }

    // Adds a match whose line is this path, or without a line where it is absent.
    void add(uint32_t kind, uint32_t strict, const char *name, const char *path = nullptr) {
        log_conf_guard line(path != nullptr ? log_conf_parse(path, strlen(path)) : nullptr);
        add_log_match(&list, kind, strict, name, line != nullptr ? line->parts->next : nullptr);
    }
    // "kind strict name: line line", from the front.
    std::vector<std::string> shown() const {
        std::vector<std::string> all;
        for (const log_match *match = list.first; match != nullptr; match = match->next) {
            std::string text =
                std::to_string(match->kind) + " " + std::to_string(match->strict) + " " + match->name + ":";
            for (const log_conf_line *line = match->lines; line != nullptr; line = line->next)
                for (const log_path_part *part = line->parts; part != nullptr; part = part->next)
                    text += (part == line->parts ? " " : "/") + std::string(part->text);
            all.push_back(text);
        }
        return all;
    }
};

using names = std::vector<std::string>;

TEST_F(log_matches, new_ones_stand_in_front) {
    add(MATCH_FOLDER, 0, "a", "/x");
    add(MATCH_FILE, 1, "b");
    EXPECT_EQ(shown(), (names{"2 1 b:", "1 0 a: x"}));
}

TEST_F(log_matches, of_one_name_become_the_first_one_with_the_lines_of_all) {
    add(MATCH_FOLDER, 0, "a", "/x/y");
    add(MATCH_FILE, 1, "a");
    add(MATCH_FOLDER, 1, "a", "/z");
    EXPECT_EQ(shown(), names{"1 0 a: x/y z"});
}

TEST_F(log_matches, of_one_name_take_lines_where_the_first_had_none) {
    add(MATCH_FILE, 0, "a");
    add(MATCH_FOLDER, 1, "a", "/x");
    add(MATCH_FOLDER, 1, "a", "/y");
    EXPECT_EQ(shown(), names{"2 0 a: x y"});
}

TEST_F(log_matches, names_of_drive_paths_have_no_case) {
    log_path_style_in_force = &DRIVE_PATHS;
    add_log_match(&list, MATCH_FILE, 0, "App.Log", nullptr);
    add_log_match(&list, MATCH_FILE, 0, "aPP.lOG", nullptr);
    EXPECT_EQ(shown(), names{"2 0 App.Log:"});
}

TEST_F(log_matches, names_below_a_root_compare_exactly) {
    add(MATCH_FILE, 0, "App.Log");
    add(MATCH_FILE, 0, "aPP.lOG");
    EXPECT_EQ(shown(), (names{"2 0 aPP.lOG:", "2 0 App.Log:"}));
}

TEST_F(log_matches, keep_a_recursive_line_once) {
    add(MATCH_FOLDER, 1, "a", "/**/x");
    add(MATCH_FOLDER, 1, "a", "/**/x");
    add(MATCH_FOLDER, 1, "a", "/**/y");
    EXPECT_EQ(shown(), names{"1 1 a: **/x **/y"});
}

TEST_F(log_matches, keep_their_order_and_find_each_other_in_any_number) {
    for (int i = 0; i < 5000; i++)
        add_log_match(&list, MATCH_FILE, 1, std::to_string(i).c_str(), nullptr);
    for (int i = 0; i < 5000; i++)
        add_log_match(&list, MATCH_FILE, 1, std::to_string(i).c_str(), nullptr);
    int expected = 4999;
    for (const log_match *match = list.first; match != nullptr; match = match->next)
        ASSERT_EQ(match->name, std::to_string(expected--));
    EXPECT_EQ(expected, -1);
}

TEST_F(log_matches, are_left_out_without_memory_which_is_told) {
    const std::set<std::string> texts = {
        "Out of memory attempting to allocate match component for \"a\"",
        "Out of memory when copying log check node chain",
        "Out of memory, allocating new log check node list entry",
    };
    const log_conf_guard line(log_conf_parse("/x", 2));
    std::set<std::string> told;
    for (uint32_t n = 1;; n++) {
        host.log.clear();
        host.fail_allocation = n;
        add_log_match(&list, MATCH_FOLDER, 1, "a", line->parts->next);
        if (list.first != nullptr) break;
        ASSERT_EQ(host.log.size(), 1U) << n;
        EXPECT_EQ(host.log[0].level, LOG_ERROR);
        told.insert(host.log[0].text);
    }
    host.fail_allocation = 0;
    EXPECT_EQ(told, texts);
    EXPECT_EQ(shown(), names{"1 1 a: x"});
}
