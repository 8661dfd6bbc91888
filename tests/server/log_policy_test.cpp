// What a policy says of logs and forward groups.
#include "server/policy.h"

#include "fakes/test_host.h"
#include "logcheck/clause.h"
#include "platform/regex.h"

#include <gtest/gtest.h>

namespace {

class policy_of_logs : public testing::Test {
protected:
    policy_of_logs() { regex_host = &regex_ops_host; }

    static policy read(const std::string &text) {
        policy rules;
        EXPECT_SUCCESS(read_policy(text, &rules));
        return rules;
    }
    // Behind the built-in one.
    static policy read_over(const std::string &text) {
        policy rules;
        EXPECT_SUCCESS(read_policy(BUILT_IN_POLICY, &rules));
        EXPECT_SUCCESS(read_policy(text, &rules));
        return rules;
    }
    static std::string failure_of(const std::string &text) {
        policy rules;
        const char *failure = read_policy(text, &rules);
        return failure != nullptr ? failure : "(none)";
    }
    // What is wrong with a log of this path that has one more key, which stands in line 3.
    static std::string failure_of_log(const std::string &more) {
        return failure_of("[[log]]\npath = \"*\"\n" + more);
    }
    // What is wrong with a rule of these keys, which stand from line 4 on.
    static std::string failure_of_rule(const std::string &keys) {
        return failure_of_log("[[log.rules]]\n" + keys);
    }
};

const std::string ONE_GROUP = "[[forward]]\nname = \"ops\"\n";

std::string toml_text(const std::string &text) {
    return "\"" + text + "\"";
}

} // namespace

TEST_F(policy_of_logs, takes_every_key_of_a_log) {
    policy rules = read(R"([[log]]
path = "/var/log/app.log"
enabled = false
frequency = "10 s"
separator = "\n\n"
inclusion = "closes"
warn_silence = "1 h"
alert_silence = 7200
rules = [{clause = "'a'"}])");
    ASSERT_EQ(rules.logs.size(), 1U);
    const log_policy &log = rules.logs[0];
    EXPECT_EQ(log.name, "/var/log/app.log");
    EXPECT_EQ(log.enabled, false);
    EXPECT_EQ(log.frequency, 10);
    EXPECT_EQ(log.separator, "\n\n");
    EXPECT_EQ(log.inclusion, uint32_t{SEPARATOR_CLOSES});
    EXPECT_EQ(log.warn_silence, 3600);
    EXPECT_EQ(log.alert_silence, 7200);
    ASSERT_EQ(log.rules->size(), 1U);
}

TEST_F(policy_of_logs, knows_the_three_places_of_a_separator) {
    for (auto &[word, place] : {std::pair("closes", SEPARATOR_CLOSES), std::pair("opens", SEPARATOR_OPENS),
                                std::pair("dropped", SEPARATOR_DROPPED)})
        EXPECT_EQ(read("[[log]]\npath = \"*\"\ninclusion = " + toml_text(word)).logs[0].inclusion,
                  uint32_t{place});
    EXPECT_EQ(failure_of_log("inclusion = \"kept\""), "line 3: inclusion is to be closes, opens or dropped");
}

TEST_F(policy_of_logs, takes_every_key_of_a_rule) {
    policy rules = read(ONE_GROUP + R"([[log]]
path = "*"
[[log.rules]]
clause = "'a'"
[[log.rules]]
clause = "'b'"
decision = "quiet"
status = "warn"
[[log.rules]]
clause = "'c'"
decision = "log"
status = "alert"
[[log.rules]]
clause = "'d'"
decision = "moveto"
destination = "ops"
[[log.rules]]
clause = "'e'"
decision = "copyto"
destination = "ops"
[[log.rules]]
clause = "'f'"
decision = "call"
destination = "ops")");
    const std::vector<log_rule> &list = *rules.logs[0].rules;
    ASSERT_EQ(list.size(), 6U);
    std::string told;
    for (const log_rule &rule : list)
        told += rule.clause + std::to_string(rule.decision) + std::to_string(rule.status) + rule.destination;
    EXPECT_EQ(told, "'a'00'b'11'c'02'd'20ops'e'30ops'f'40ops");
}

TEST_F(policy_of_logs, takes_every_key_of_a_forward_group) {
    policy rules = read(R"([[forward]]
name = "ops"
frequency = "5 min"
warn_silence = "1 d"
alert_silence = "2 d"
rules = [{clause = "'a'", status = "alert"}, {clause = "'b'", decision = "call", destination = "last"}]
[[forward]]
name = "last")");
    ASSERT_EQ(rules.forwards.size(), 2U);
    const log_policy &group = rules.forwards[0];
    EXPECT_EQ(group.name, "ops");
    EXPECT_EQ(group.frequency, 300);
    EXPECT_EQ(group.warn_silence, 86400);
    EXPECT_EQ(group.alert_silence, 172800);
    ASSERT_EQ(group.rules->size(), 2U);
    EXPECT_EQ((*group.rules)[1].destination, "last"); // which comes later
    EXPECT_FALSE(rules.forwards[1].rules);
}

TEST_F(policy_of_logs, holds_a_group_by_its_name) {
    EXPECT_EQ(failure_of("[[forward]]\nname = " + toml_text(std::string(32, 'x'))), "(none)");
    EXPECT_EQ(failure_of("[[forward]]\nname = " + toml_text(std::string(33, 'x'))),
              "line 2: name is to be a name of at most 32 characters");
    EXPECT_EQ(failure_of("[[forward]]\nfrequency = 5"), "line 1: \"name\" is missing");
    EXPECT_EQ(failure_of(ONE_GROUP + ONE_GROUP), "line 3: there are two forward groups \"ops\"");
    EXPECT_EQ(failure_of(ONE_GROUP + "separator = \"x\""), "line 3: nothing is called \"separator\" here");
    EXPECT_EQ(failure_of(ONE_GROUP + "warn_silence = 0"),
              "line 3: warn_silence is to be 1 s or more, or \"off\"");
    EXPECT_EQ(failure_of(ONE_GROUP + "[[forward.rules]]\nclause = \"'a\""),
              "line 4: the clause, column 1: a quote is not closed");
}

TEST_F(policy_of_logs, switches_silence_off) {
    policy rules = read("[[log]]\npath = \"*\"\nwarn_silence = \"off\"\nalert_silence = 1");
    EXPECT_EQ(rules.logs[0].warn_silence, SILENCE_OFF);
    EXPECT_EQ(rules.logs[0].alert_silence, 1);
    for (const char *value : {"0", "-1", "\"never\"", "2147483648", "true"})
        EXPECT_EQ(failure_of_log("alert_silence = " + std::string(value)),
                  "line 3: alert_silence is to be 1 s or more, or \"off\"");
    EXPECT_EQ(failure_of_log("alert_silence = 2147483647"), "(none)");
}

TEST_F(policy_of_logs, holds_a_frequency_within_a_day) {
    EXPECT_EQ(failure_of_log("frequency = 0"), "line 3: frequency is to be 1 s to 1 d");
    EXPECT_EQ(failure_of_log("frequency = \"25 h\""), "line 3: frequency is to be 1 s to 1 d");
    EXPECT_EQ(failure_of_log("frequency = \"24 h\""), "(none)");
}

TEST_F(policy_of_logs, needs_a_path) {
    EXPECT_EQ(failure_of("[[log]]\nfrequency = 5"), "line 1: \"path\" is missing");
    EXPECT_EQ(failure_of("[[log]]\npath = \"\""),
              "line 2: path is to be the path of a log, which may hold *");
    EXPECT_EQ(failure_of("[log]\npath = \"*\""), "line 1: log is to be a list of tables");
    EXPECT_EQ(failure_of_log("colour = 5"), "line 3: nothing is called \"colour\" here");
    EXPECT_EQ(failure_of_log("enabled = 5"), "line 3: enabled is to be true or false");
}

TEST_F(policy_of_logs, holds_a_separator_by_its_length_and_its_sense) {
    EXPECT_EQ(failure_of_log("separator = " + toml_text(std::string(1024, 'x'))), "(none)");
    EXPECT_EQ(failure_of_log("separator = " + toml_text(std::string(1025, 'x'))),
              "line 3: separator is to be an expression of at most 1024 characters");
    EXPECT_EQ(failure_of_log("separator = \"\""),
              "line 3: separator is to be an expression of at most 1024 characters");
    EXPECT_EQ(failure_of_log("separator = \"x*\""), "line 3: the separator: it can match nothing at all");
    EXPECT_NE(failure_of_log("separator = \"(\""), "(none)");
}

TEST_F(policy_of_logs, holds_a_clause_by_its_length_and_its_grammar) {
    std::string longest = "'" + std::string(1022, 'x') + "'";
    EXPECT_EQ(failure_of_rule("clause = " + toml_text(longest)), "(none)");
    EXPECT_EQ(failure_of_rule("clause = " + toml_text(longest + " ")),
              "line 4: clause is to be a text of at most 1024 characters");
    EXPECT_EQ(failure_of_rule("status = \"ok\"\nclause = \"'a' or ('b'\""),
              "line 5: the clause, column 12: a parenthesis is not closed");
    EXPECT_EQ(failure_of_rule("status = \"ok\""), "line 3: \"clause\" is missing");
    EXPECT_EQ(failure_of_rule("clause = 5"), "line 4: clause is to be a text of at most 1024 characters");
}

TEST_F(policy_of_logs, knows_no_other_words_for_decision_and_status) {
    EXPECT_EQ(failure_of_rule("clause = \"'a'\"\ndecision = \"drop\""),
              "line 5: decision is to be log, quiet, moveto, copyto or call");
    EXPECT_EQ(failure_of_rule("clause = \"'a'\"\nstatus = \"error\""),
              "line 5: status is to be ok, warn or alert");
    EXPECT_EQ(failure_of_rule("clause = \"'a'\"\nregex = \"a\""), "line 5: nothing is called \"regex\" here");
    EXPECT_EQ(failure_of_log("rules = 5"), "line 3: rules is to be a list of tables");
    EXPECT_EQ(failure_of_log("rules = [5]"), "line 3: rules is to be a list of tables");
}

TEST_F(policy_of_logs, lets_rules_name_groups_that_exist) {
    std::string rule = "clause = \"'a'\"\ndecision = \"call\"\n";
    EXPECT_EQ(failure_of_rule(rule + "destination = \"ops\""), "line 6: no forward group is called \"ops\"");
    EXPECT_EQ(failure_of_rule(rule + "destination = \"ops\"\n" + ONE_GROUP), "(none)");
    EXPECT_EQ(failure_of_rule(rule + "destination = \"op\"\n" + ONE_GROUP),
              "line 6: no forward group is called \"op\"");
    EXPECT_EQ(failure_of_rule(rule), "line 3: \"destination\" is missing");
    EXPECT_EQ(failure_of_rule(rule + "destination = " + toml_text(std::string(33, 'x'))),
              "line 6: destination is to be a name of at most 32 characters");
}

TEST_F(policy_of_logs, takes_no_word_that_would_have_no_effect) {
    EXPECT_EQ(failure_of_rule("clause = \"'a'\"\ndestination = \"ops\"\n" + ONE_GROUP),
              "line 5: only moveto, copyto and call have a destination");
    EXPECT_EQ(failure_of_rule("clause = \"'a'\"\ndecision = \"copyto\"\nstatus = \"warn\"\n"
                              "destination = \"ops\"\n" +
                              ONE_GROUP),
              "line 6: only log and quiet have a status");
}

TEST_F(policy_of_logs, lets_the_first_match_count) {
    policy rules = read(R"([[log]]
path = "/var/log/app*"
frequency = 5
[[log]]
path = "/var/log/app.log"
frequency = 6
[[log]]
path = "*"
frequency = 7)");
    EXPECT_EQ(log_policy_for(rules, "/var/log/app.log").frequency, 5);
    EXPECT_EQ(log_policy_for(rules, "/var/log/other").frequency, 7);
}

TEST_F(policy_of_logs, stands_ahead_of_the_built_in_one) {
    policy rules = read_over("[[log]]\npath = \"/a\"\nfrequency = 5\n[[log]]\npath = \"/b\"\nfrequency = 6");
    EXPECT_EQ(log_policy_for(rules, "/a").frequency, 5);
    EXPECT_EQ(log_policy_for(rules, "/b").frequency, 6);
    EXPECT_EQ(log_policy_for(rules, "/c").frequency, 30);
}

TEST_F(policy_of_logs, takes_the_built_in_words_for_those_that_are_missing) {
    policy rules = read_over("[[log]]\npath = \"/a\"\nwarn_silence = 60");
    log_policy found = log_policy_for(rules, "/a");
    EXPECT_EQ(found.warn_silence, 60);
    EXPECT_EQ(found.alert_silence, SILENCE_OFF);
    EXPECT_EQ(found.frequency, 30);
    EXPECT_EQ(found.separator, "\r?\n");
    EXPECT_EQ(found.inclusion, uint32_t{SEPARATOR_DROPPED});
    EXPECT_EQ(found.rules->size(), 2U);
    EXPECT_EQ(found.enabled, true);
}

TEST_F(policy_of_logs, may_leave_a_log_without_rules) {
    policy rules = read_over("[[log]]\npath = \"/a\"\nrules = []");
    EXPECT_TRUE(log_policy_for(rules, "/a").rules->empty());
}

TEST_F(policy_of_logs, asks_for_nothing_where_nothing_matches) {
    policy rules = read("[[log]]\npath = \"/a\"");
    EXPECT_EQ(log_policy_for(rules, "/b").enabled, false);
}

// The default

namespace {

// What the built-in rules make of a line, by the agent's own reading of their clauses.
class built_in_rules : public policy_of_logs {
protected:
    static std::string status_of(const std::string &line) {
        policy rules = read_over("");
        log_policy found = log_policy_for(rules, "/var/log/syslog");
        for (const log_rule &rule : *found.rules) {
            log_check_cond *parsed = nullptr;
            EXPECT_SUCCESS(log_clause_parse(rule.clause.c_str(), &parsed));
            log_clause_guard clause(parsed);
            if (log_clause_match(line.c_str(), clause.get()))
                return rule.status == STATUS_ALERT ? "alert" : "warn";
        }
        return "quiet";
    }

    test_host host;
};

} // namespace

TEST_F(built_in_rules, take_what_looks_like_an_error_for_an_alert) {
    for (const char *line :
         {"kernel: I/O error, dev sda", "2024-05-01 ERROR cannot open", "Failed password for root",
          "job failed", "<2>panic: out of memory", "app[7]: segfault at 0", "level=critical", "[FATAL] no",
          "power supply failure", "CRITICAL: disk", "Error:Disk:0:7:N/A:HOST:The device has a bad block."})
        EXPECT_EQ(status_of(line), "alert") << line;
}

TEST_F(built_in_rules, take_what_looks_like_a_warning_for_one) {
    for (const char *line :
         {"warning: deprecated", "WARN slow", "3 warnings", "Warning:W32Time:0:36:N/A:H:x"})
        EXPECT_EQ(status_of(line), "warn") << line;
}

TEST_F(built_in_rules, leave_the_rest_quiet) {
    for (const char *line : {"started", "0 errors found", "done, no errors", "the terror of it", "warned him",
                             "forewarning", "failover done", "with 0 failures", "errorless"})
        EXPECT_EQ(status_of(line), "quiet") << line;
}
