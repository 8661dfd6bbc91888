#include "logcheck/rule_index.h"

#include "logcheck/log_fixture.h"
#include "platform/agent_log.h"
#include "platform/random_regex.h"

class rule_indexes : public log_fixture {
protected:
    void SetUp() override {
        log_fixture::SetUp();
        log_set_level(LOG_DETAIL); // records are looked at one by one where each is traced
    }

    // What the rules report of these lines, behind a check that has seen the file empty.
    std::string follow(const std::string &lines) {
        host.write_file(PATH, "");
        EXPECT_SUCCESS(check_log(file, nullptr));
        results(file);
        host.write_file(PATH, lines);
        EXPECT_SUCCESS(check_log(file, nullptr));
        return results(file);
    }
    uint32_t count_found(const std::string &lines) {
        std::vector<uint16_t> places(lines.size() / 2 + RUN_SLACK);
        return find_reported_records(file->lognode, lines.data(), lines.data() + lines.size(), false,
                                     places.data());
    }
    void start_rules_anew(uint32_t inclusion) {
        file->state_free(file);
        file->state_free = free_no_state;
        var_reset();
        free_lognode(file->lognode);
        file->lognode = alloc_lognode();
        separate(file, "\n", inclusion);
    }
};

TEST_F(rule_indexes, stop_only_at_what_a_rule_may_report) {
    add_rule(file, "'a'", LOG_ENTRY, 1);
    add_rule(file, "'b'", QUIET, 0);
    add_rule(file, "'c'", QUIET, 2);
    EXPECT_EQ(count_found("x\na\nb\nc\nbc\nx\n"), 2U);
    EXPECT_EQ(follow("x\na\nb\nc\nbc\nx\n"), "1 a|2");
}

TEST_F(rule_indexes, stop_at_nothing_without_rules) {
    EXPECT_EQ(follow("x\na\n"), "0");
}

TEST_F(rule_indexes, look_behind_a_silent_rule_that_may_not_hold) {
    add_rule(file, "'(a|b)c\\1'", QUIET, 0);
    add_rule(file, "'d'", LOG_ENTRY, 1);
    EXPECT_EQ(follow("acad\nacbd\nd\naca\n"), "1 acbd|1 d");
}

TEST_F(rule_indexes, ask_the_engine_where_they_cannot_tell) {
    add_rule(file, "'(a|b)c\\1'", LOG_ENTRY, 1);
    add_rule(file, "not '(d|e)f\\1' and 'f'", LOG_ENTRY, 2);
    EXPECT_EQ(follow("aca\nacb\ndfd\ndfe\n"), "1 aca|2 dfe");
}

TEST_F(rule_indexes, leave_a_pattern_of_other_bytes_to_the_engine) {
    add_rule(file, "'[\x80-\xFF]'", LOG_ENTRY, 1);
    add_rule(file, "'a'", LOG_ENTRY, 2);
    EXPECT_EQ(count_found("x\n"), RECORDS_NOT_KNOWN);
    EXPECT_EQ(follow("\xE4\na\nx\n"), "1 \xE4|2 a");
}

TEST_F(rule_indexes, hold_for_a_clause_of_every_form) {
    add_rule(file, "'a' and not 'b' or ('c' and 'd')", LOG_ENTRY, 1);
    EXPECT_EQ(follow("a\nab\nc\ncd\nabcd\n"), "1 a|1 cd|1 abcd");
}

TEST_F(rule_indexes, tell_a_condition_of_no_kind) {
    add_rule(file, "'a'", LOG_ENTRY, 1)->clause->type = 9;
    EXPECT_EQ(follow("a\n"), "0");
    EXPECT_TRUE(host.logged(3, "Uninitialized log_check_cond"));
    file->lognode->rules->clause->type = COND_REGEX;
}

TEST_F(rule_indexes, take_up_a_rule_that_comes_later) {
    add_rule(file, "'a'", LOG_ENTRY, 1);
    EXPECT_EQ(follow("a\nb\n"), "1 a");
    add_rule(file, "'b'", LOG_ENTRY, 2);
    EXPECT_EQ(follow("a\nb\n"), "1 a|2 b");
}

TEST_F(rule_indexes, see_the_separator_that_belongs_to_a_record) {
    separate(file, "\n", 0);
    add_rule(file, "'a\n$'", LOG_ENTRY, 1);
    EXPECT_EQ(follow("xa\nab\n"), "1 xa\n");
    start_rules_anew(1);
    add_rule(file, "'^\nab'", LOG_ENTRY, 1);
    EXPECT_EQ(follow("ab\nab\nb\nab\n"), "1 \nab|1 \nab");
}

TEST_F(rule_indexes, find_what_starts_with_the_separator_of_the_chunk_before) {
    separate(file, "\n", 1);
    add_rule(file, "'^\nlast'", LOG_ENTRY, 1);
    // The second chunk starts with the record, and its separator stands in the first.
    std::string lines = std::string(16'383, 'x') + "\n";
    EXPECT_EQ(follow(lines + "last\nx\n"), "1 \nlast");
}

TEST_F(rule_indexes, are_done_without_where_memory_is_out) {
    add_rule(file, "'a' or 'b'", LOG_ENTRY, 1);
    for (uint32_t allocation = 1; allocation < 40; allocation++) {
        lognode_changed(file->lognode);
        host.fail_allocation = allocation;
        rule_findings findings;
        find_rules("xb", file->lognode, &findings);
        EXPECT_TRUE(rule_holds(&findings, file->lognode->rules));
        find_rules("x", file->lognode, &findings);
        EXPECT_FALSE(rule_holds(&findings, file->lognode->rules));
    }
    host.fail_allocation = 0;
}

// Random rules over random lines: with the index and without it, the results are the same.
TEST_F(rule_indexes, change_no_answer) {
    host.write_file(PATH, "");
    EXPECT_SUCCESS(check_log(file, nullptr));
    for (uint32_t seed = 0; seed < 400; seed++) {
        random_regex random(seed);
        start_rules_anew(seed % 3);
        for (uint32_t count = 1 + random.below(6); count > 0; count--) {
            std::string clause = (random.below(4) == 0 ? "not '" : "'") + random.pattern() + "'";
            if (clause.find("\\'") != std::string::npos) continue;
            log_check_cond *cond = nullptr;
            bool sound = log_clause_parse(clause.c_str(), &cond) == nullptr;
            log_clause_free(cond);
            if (sound) add_rule(file, clause.c_str(), random.below(2), random.below(3));
        }
        std::string lines;
        for (uint32_t count = random.below(seed % 20 == 0 ? 4'000 : 20); count > 0; count--)
            lines += random.text(10) + "\n";
        log_set_level(LOG_DETAIL);
        std::string found = follow(lines);
        lognode *rules = file->lognode;
        std::string expected;
        size_t start = 0;
        auto take = [&](size_t from, size_t to) {
            std::string record = lines.substr(from, to - from);
            for (const logrule *rule = rules->rules; rule != nullptr; rule = rule->next) {
                if (!log_clause_match(record.c_str(), rule->clause)) continue;
                if (rule->decision == LOG_ENTRY)
                    expected += "|" + std::to_string(rule->status) + " " + record;
                else if (rule->status != 0)
                    expected += "|" + std::to_string(rule->status);
                break;
            }
        };
        uint32_t inclusion = seed % 3;
        for (size_t end; (end = lines.find('\n', start)) != std::string::npos; start = end + 1)
            if (end > start)
                take(inclusion == 1 && start > 0 ? start - 1 : start, inclusion == 0 ? end + 1 : end);
        ASSERT_EQ(found, expected.empty() ? "0" : expected.substr(1)) << "seed " << seed;
    }
}
