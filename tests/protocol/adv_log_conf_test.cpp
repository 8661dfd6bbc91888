#include "fakes/hex.h"
#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "logcheck/clause.h"
#include "platform/agent_log.h"
#include "protocol/lists.h"
#include "protocol/server_tree.h"

#include <cstring>
#include <gtest/gtest.h>

// The host's engine, with the patterns that came to it.
static std::vector<std::string> compiled;

static int compile(tn_regex *out, const char *pattern) {
    compiled.push_back(pattern);
    return regex_ops_host.regcomp(out, pattern);
}

class adv_log_reader : public testing::Test {
protected:
    adv_log_reader() {
        watched = regex_ops_host;
        watched.regcomp = compile;
        regex_host = &watched;
        compiled.clear();
    }
    ~adv_log_reader() override {
        device.reset();
        EXPECT_EQ(host.blocks, 0);
    }

    // Reads a check of this kind with the id x.
    std::string read(const std::string &kind, const std::string &behind = "") {
        device.reset(alloc_devnode());
        memory_io stream(wire_check(60, "x", kind, behind));
        std::string failure = noted_failure(read_devnode(stream, device.get(), 0));
        left = hex(stream.left());
        return failure;
    }
    std::string read_rules(const std::string &rules) { return read(wire_adv_log("", rules, SILENCES)); }
    std::string read_silences(const std::string &silences) { return read(wire_adv_log("", "", silences)); }

    const std::string SILENCES = wire_null() + wire_null();

    test_host host;
    regex_ops watched;
    devnode_guard device;
    std::string left;
};

TEST_F(adv_log_reader, takes_separator_and_inclusion) {
    EXPECT_EQ(read(wire_adv_log("^[0-9]+(a|b)", "", SILENCES)), "(none)");
    EXPECT_EQ(device->type, TYPE_ADV_LOG);
    EXPECT_EQ(device->lognode->separatorInclusion, 1U);
    EXPECT_EQ(device->lognode->separator.re_nsub, 1U);
    EXPECT_EQ(tn_regexec(&device->lognode->separator, "12b", 0, nullptr), 0);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Separator: \"^[0-9]+(a|b)\""));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Configured AdvLOG check"));
    EXPECT_EQ(left, "");
}

TEST_F(adv_log_reader, takes_any_inclusion_as_it_is) {
    for (uint32_t inclusion : {0U, 1U, 2U, 0xFFFFFFFFU}) {
        EXPECT_EQ(
            read(wire_record("A4", wire_text("x") + wire_enumerated(inclusion) + wire_list("") + SILENCES)),
            "(none)");
        EXPECT_EQ(device->lognode->separatorInclusion, inclusion);
    }
}

TEST_F(adv_log_reader, compiles_no_empty_separator) {
    EXPECT_EQ(read(wire_adv_log("", "", SILENCES)), "(none)");
    EXPECT_TRUE(compiled.empty());
    EXPECT_EQ(device->lognode->separator.compiled, nullptr);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Separator: \"\""));
}

TEST_F(adv_log_reader, fails_in_the_words_of_the_engine) {
    tn_regex regex;
    int code = tn_regcomp(&regex, "(");
    char words[80];
    tn_regerror(code, &regex, words, sizeof words);
    EXPECT_EQ(read(wire_adv_log("(", "", SILENCES)), words);
}

TEST_F(adv_log_reader, cuts_the_words_of_the_engine_at_80_bytes) {
    watched.regerror = [](int, const tn_regex *, char *buffer, size_t size) {
        EXPECT_EQ(size, 80U);
        memset(buffer, 'w', size - 1);
        buffer[size - 1] = '\0';
        return size;
    };
    EXPECT_EQ(read(wire_adv_log("(", "", SILENCES)), std::string(79, 'w'));
}

TEST_F(adv_log_reader, keeps_the_rules_in_the_order_received) {
    EXPECT_EQ(read_rules(wire_rule("'error'", 2, 1, "mail") + wire_rule("not 'debug'", 0, 0, "")), "(none)");
    const logrule *first = device->lognode->rules;
    EXPECT_EQ(first->status, 2U);
    EXPECT_EQ(first->decision, 1U);
    EXPECT_STREQ(first->destination, "mail");
    EXPECT_EQ(first->target, nullptr);
    EXPECT_TRUE(log_clause_match("an error", first->clause));
    EXPECT_FALSE(log_clause_match("a note", first->clause));
    const logrule *second = first->next;
    EXPECT_EQ(second->decision, 0U);
    EXPECT_STREQ(second->destination, "");
    EXPECT_TRUE(log_clause_match("a note", second->clause));
    EXPECT_EQ(second->next, nullptr);
}

TEST_F(adv_log_reader, passes_over_what_a_newer_server_appends_to_a_rule) {
    std::string rule = wire_list(wire_text("'a'") + wire_enumerated(0) + wire_enumerated(0) + wire_text("") +
                                 wire_text("new"));
    EXPECT_EQ(read_rules(rule), "(none)");
}

TEST_F(adv_log_reader, tells_a_clause_that_does_not_parse) {
    EXPECT_EQ(read_rules(wire_rule("'good'", 0, 0, "") + wire_rule("'unended", 2, 1, "mail")),
              "Unexpected parse error in read_devnode");
    EXPECT_TRUE(host.logged(LOG_ERROR, "Parse error: line 0 column 9: Unterminated character string"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Input was: \"'unended\""));
    EXPECT_EQ(host.told().back(), "Input was: \"'unended\"");
}

TEST_F(adv_log_reader, wants_a_sound_list_of_rules) {
    auto with = [](const std::string &list) {
        return wire_record("A4", wire_text("") + wire_enumerated(0) + list);
    };
    EXPECT_EQ(read(with(wire_null())), "Expected BE_SEQ");
    EXPECT_EQ(read(with("")), "Expected BE_SEQ");
    EXPECT_EQ(read(with(bytes("30 00"))), "List not started correctly in read_devnode_list");
    EXPECT_EQ(read(with(bytes("30 80 00 01"))), "List not terminated correctly in read_devnode_list");
    EXPECT_EQ(read(with(bytes("30 80 00 80"))), "List not terminated correctly in read_devnode_list");
    EXPECT_EQ(read(with(wire_list(wire_null()))), "Wrong tag (40) encountered in read_rule");
    EXPECT_EQ(read(with(wire_list(wire_rule("'a'", 0, 0, std::string(33, 'd'))))),
              "rule.destination: data out of range in read_string");
}

TEST_F(adv_log_reader, takes_at_most_16384_rules) {
    watched.regcomp = [](tn_regex *out, const char *) {
        *out = {};
        return 0;
    };
    agent_log_observer = nullptr;
    log_set_level(LOG_ERROR);
    std::string rules;
    for (int i = 0; i < 16384; i++)
        rules += wire_rule("''", 0, 0, "");
    EXPECT_EQ(read_rules(rules), "(none)");
    EXPECT_EQ(read_rules(rules + wire_rule("''", 0, 0, "")), "Out of memory in read_devtree_list");
}

// The times of silence.

TEST_F(adv_log_reader, takes_both_times_of_silence) {
    EXPECT_EQ(read_silences(wire_integer(600) + wire_integer(3600)), "(none)");
    EXPECT_EQ(device->lognode->warningSilence, 600);
    EXPECT_EQ(device->lognode->alertSilence, 3600);
    EXPECT_EQ(device->conf_id, nullptr);
    EXPECT_EQ(left, "");
}

TEST_F(adv_log_reader, turns_a_null_time_off) {
    EXPECT_EQ(read_silences(wire_null() + wire_integer(5)), "(none)");
    EXPECT_EQ(device->lognode->warningSilence, -1);
    EXPECT_EQ(device->lognode->alertSilence, 5);
}

TEST_F(adv_log_reader, passes_over_what_a_newer_server_appends_to_the_times) {
    EXPECT_EQ(read(wire_adv_log("", "", SILENCES + wire_text("new")), wire_text("id")), "(none)");
    EXPECT_STREQ(device->conf_id, "id");
}

TEST_F(adv_log_reader, wants_both_times_or_none) {
    EXPECT_EQ(read_silences(wire_integer(5)), "Unexpected tag in read_check_value_time");
    EXPECT_EQ(read_silences(wire_text("5")), "Unexpected tag in read_check_value_time");
    EXPECT_EQ(read_silences(wire_integer(5) + wire_text("5")), "Unexpected tag in read_check_value_time");
}

// Without the times the end of the enclosing record is taken for that of this one. The reader then looks for
// a conf_id in what follows; a server that appends the right thing there makes it visible.
TEST_F(adv_log_reader, without_times_takes_the_end_of_the_check_as_well) {
    std::string form = wire_open("30", wire_integer(60) + wire_text("x") + wire_adv_log("", "", "")) +
                       wire_text("passed over") + WIRE_END + wire_text("found as id") + WIRE_END;
    device.reset(alloc_devnode());
    memory_io stream(form);
    EXPECT_SUCCESS(read_devnode(stream, device.get(), 0));
    EXPECT_STREQ(device->conf_id, "found as id");
    EXPECT_EQ(device->type, TYPE_ADV_LOG);
    EXPECT_EQ(hex(stream.left()), "");
}

TEST_F(adv_log_reader, without_times_has_them_off) {
    std::string form = wire_check(60, "x", wire_adv_log("", "", "")) + WIRE_END;
    device.reset(alloc_devnode());
    EXPECT_SUCCESS(read_devnode(memory_io(form), device.get(), 0));
    EXPECT_EQ(device->lognode->warningSilence, -1);
    EXPECT_EQ(device->lognode->alertSilence, -1);
}

TEST_F(adv_log_reader, wants_a_sound_end_where_the_times_are_missing) {
    auto ending = [](const std::string &end) {
        return wire_open("A4", wire_text("") + wire_enumerated(0) + wire_list("")) + bytes(end);
    };
    EXPECT_EQ(read(ending("00 01")), "Record not terminated correctly in AdvLogConf");
    EXPECT_EQ(read(ending("00 80")), "Record not terminated correctly in AdvLogConf");
    EXPECT_EQ(read(ending("00 85")), "data out of range in read_length");
}

TEST_F(adv_log_reader, fails_wherever_the_stream_ends_and_keeps_nothing) {
    std::string form = wire_check(
        60, "x",
        wire_adv_log("^x", wire_rule("'a' and ('b' or 'c')", 1, 1, "d"), wire_integer(1) + wire_integer(2)),
        wire_text("id"));
    for (size_t length = 0; length < form.size(); length++) {
        device.reset(alloc_devnode());
        memory_io stream(form.substr(0, length));
        EXPECT_TRUE(noted_failure(read_devnode(stream, device.get(), 0)).ends_with(MEMORY_IO_EMPTY))
            << length;
        device.reset();
        EXPECT_EQ(host.blocks, 0) << length;
    }
}

TEST_F(adv_log_reader, ends_the_agent_when_memory_for_the_rules_is_out) {
    std::string form = wire_check(60, "x", wire_adv_log("", wire_rule("'a'", 0, 0, ""), SILENCES));
    device.reset(alloc_devnode());
    host.fail_allocation = 2; // behind the id
    expect_fatal([&] { static_cast<void>(read_devnode(memory_io(form), device.get(), 0)); },
                 "alloc_lognode() ran out of memory!");
    device.reset(alloc_devnode());
    host.fail_allocation = 6; // behind the lognode, the separator, and a rule's two texts
    expect_fatal([&] { static_cast<void>(read_devnode(memory_io(form), device.get(), 0)); },
                 "alloc_logrule() ran out of memory!");
}
