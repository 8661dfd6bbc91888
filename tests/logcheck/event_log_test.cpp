#include "logcheck/event_log.h"

#include "fakes/scripted_event_log.h"
#include "fakes/scripted_registry.h"
#include "fakes/test_host.h"
#include "logcheck/clause.h"
#include "logcheck/log_check.h"
#include "logcheck/log_state.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "state/variables.h"

#include <cinttypes>
#include <gtest/gtest.h>

namespace {

constexpr const char *SYSTEM_KEY = "SYSTEM\\CurrentControlSet\\Services\\Eventlog\\System\\";

using texts_of = std::vector<std::string>;

} // namespace

class event_log_reader : public testing::Test {
protected:
    test_host host;
    scripted_registry registry;
    scripted_event_log log;
    devtree_guard top;
    devnode *device = nullptr;

    void SetUp() override {
        var_reset();
        regex_host = &regex_ops_host;
        log.set_last_error = [this](uint32_t code) { host.last_error = code; };
        registry.set(MACHINE_HIVE, SYSTEM_KEY + std::string("Disk"), "EventMessageFile", "m.dll");
        log.modules["m.dll"] = {{7, u"%1"}};
        top.reset(heap_new<devtree>());
        top->id = text_copy("log");
        devtree *group = devtree_child(top.get(), "eventlog", "eventlog");
        device = alloc_devnode();
        device->id = text_copy("System");
        device->lognode = alloc_lognode();
        devtree_add_devices(group, device);
        report_lines_with("e");
    }
    void TearDown() override {
        var_reset();
        top.reset();
        registry_host = nullptr;
        EXPECT_EQ(host.blocks, 0);
        EXPECT_EQ(log.open_logs, 0);
        EXPECT_EQ(log.open_modules, 0);
        EXPECT_EQ(registry.open_keys, 0);
    }

    // A rule that reports the lines of which this is a part.
    void report_lines_with(const std::string &part) const {
        free_logrule_list(device->lognode->rules);
        device->lognode->rules = nullptr;
        logrule *rule = alloc_logrule();
        EXPECT_SUCCESS(log_clause_parse(("'" + part + "'").c_str(), &rule->clause));
        lognode_add_rule(device->lognode, rule);
    }
    static std::string record(const std::u16string &text) { return event_bytes{.inserts = {text}}.make(); }
    static std::string line(const std::string &text) { return "Information:Disk:3:7:N/A:HOST:" + text; }

    log_state *state() const {
        bool is_new;
        return log_state_of(device, &is_new);
    }
    int64_t offset() const { return state()->offset; }
    static void stored(const char *position) {
        EXPECT_SUCCESS(var_set(var_make("log.eventlog.System", position)));
    }
    void check_from(int64_t position) const {
        state()->offset = position;
        EXPECT_SUCCESS(read_event_log(device, false));
    }
    // What the rules have reported, taken away.
    texts_of reported() const {
        texts_of all;
        while (resnode *result = device->results) {
            all.push_back(result->log_text);
            device->results = result->next;
            free_resnode(result);
        }
        device->results_tail = &device->results;
        return all;
    }
    bool checked(const std::string &counts) const {
        return host.logged(LOG_DETAIL, "Checked event log System, " + counts);
    }
};

using event_log_position = event_log_reader;
using event_log_read = event_log_reader;

// ---- the position

TEST_F(event_log_position, is_the_end_of_a_log_that_is_new) {
    log.oldest = 5;
    log.records = {record(u"one"), record(u"two")};
    EXPECT_SUCCESS(read_event_log(device, true));
    EXPECT_EQ(offset(), 7);
    EXPECT_EQ(reported(), texts_of{});
    EXPECT_TRUE(log.reads.empty());
    EXPECT_TRUE(checked("0 lines of which 0 matched"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Oldest event: 5, number of events: 2"));
    log.records.push_back(record(u"three"));
    EXPECT_SUCCESS(read_event_log(device, false));
    EXPECT_EQ(reported(), texts_of{line("three")});
    EXPECT_EQ(offset(), 8);
    EXPECT_EQ(log.opened, (texts_of{"System", "System"}));
}

TEST_F(event_log_position, goes_on_where_it_was_stored) {
    stored("2");
    log.records = {record(u"one"), record(u"the"), record(u"three")};
    EXPECT_SUCCESS(read_event_log(device, true));
    EXPECT_EQ(reported(), (texts_of{line("the"), line("three")}));
    EXPECT_EQ(offset(), 4);
    EXPECT_TRUE(checked("2 lines of which 2 matched"));
    EXPECT_EQ(log.reads[0], "6 2 256");
}

TEST_F(event_log_position, is_stored_under_the_plain_name_too) {
    text_replace(&device->id, text_copy("My.Log"));
    EXPECT_SUCCESS(var_set(var_make("log.eventlog.My.Log", "0x2")));
    log.records = {record(u"one"), record(u"the"), record(u"three")};
    EXPECT_SUCCESS(read_event_log(device, true));
    EXPECT_EQ(log.reads[0], "6 2 256"); // the base was found out
    EXPECT_SUCCESS(var_set(var_make("log.eventlog.My\\.Log", "3")));
    log.reads.clear();
    EXPECT_SUCCESS(read_event_log(device, true));
    EXPECT_EQ(log.reads[0], "6 3 256");
}

TEST_F(event_log_position, is_read_at_the_first_check_alone) {
    stored("1");
    log.records = {record(u"one")};
    check_from(2);
    EXPECT_TRUE(log.reads.empty());
}

TEST_F(event_log_position, is_stored_with_32_bits_and_a_sign) {
    log.oldest = 1;
    log.records = {record(u"one")};
    stored("4294967298"); // 2 behind 32 bits
    EXPECT_SUCCESS(read_event_log(device, true));
    EXPECT_TRUE(log.reads.empty());
    stored("4294967295"); // -1
    EXPECT_SUCCESS(read_event_log(device, true));
    EXPECT_EQ(log.reads[0], "6 1 256");
}

TEST_F(event_log_position, falls_back_to_the_oldest_in_a_log_that_was_cleared) {
    log.records = {record(u"one"), record(u"the")};
    check_from(100);
    EXPECT_EQ(reported(), (texts_of{line("one"), line("the")}));
    EXPECT_EQ(offset(), 3);
}

TEST_F(event_log_position, falls_back_to_the_oldest_one_behind_the_end) {
    log.oldest = 10;
    log.records = {record(u"one"), record(u"the")};
    check_from(12);
    EXPECT_TRUE(log.reads.empty());
    check_from(13);
    EXPECT_EQ(log.reads[0], "6 10 256");
    EXPECT_EQ(reported().size(), 2U);
}

TEST_F(event_log_position, moves_on_to_the_oldest_where_records_were_overwritten) {
    log.oldest = 10;
    log.records = {record(u"one"), record(u"the")};
    check_from(9);
    EXPECT_EQ(log.reads[0], "6 10 256");
    EXPECT_EQ(offset(), 12);
    EXPECT_EQ(host.log.end(), std::find_if(host.log.begin(), host.log.end(), [](const logged_line &each) {
                  return each.level > LOG_DETAIL;
              })); // nobody is told
    check_from(10);
    EXPECT_EQ(reported().size(), 4U);
}

TEST_F(event_log_position, passes_32_bits) {
    log.oldest = 0xFFFFFFFF;
    log.records = {record(u"one"), record(u"the")};
    check_from(0xFFFFFFFF);
    EXPECT_EQ(log.reads[0], "6 4294967295 256");
    EXPECT_EQ(offset(), 0x100000001);
}

TEST_F(event_log_position, is_all_that_a_check_changes_in_the_state) {
    log.records = {record(u"one")};
    check_from(1);
    EXPECT_EQ(state()->size, -1);
    EXPECT_EQ(state()->first_data_len, 0U);
    EXPECT_EQ(state()->last_data_len, 0U);
}

TEST_F(event_log_position, is_all_that_is_stored) {
    stored("1");
    EXPECT_SUCCESS(var_set(var_make("size:log.eventlog.System", "4711")));
    log.records = {record(u"one"), record(u"two")};
    EXPECT_SUCCESS(check_log(device, nullptr));
    EXPECT_STREQ(var_get("log.eventlog.System")->value, "3");
    EXPECT_EQ(var_get("size:log.eventlog.System"), nullptr);
    EXPECT_STREQ(var_get("first_bin:log.eventlog.System")->value, "");
    EXPECT_STREQ(var_get("last_bin:log.eventlog.System")->value, "");
    EXPECT_EQ(reported(), texts_of{line("one")});
    log.records.push_back(record(u"three"));
    EXPECT_SUCCESS(check_log(device, nullptr));
    EXPECT_EQ(reported(), texts_of{line("three")});
}

TEST_F(event_log_position, needs_a_state_of_its_own) {
    device->state = heap_new<int>();
    device->state_magic = 4711;
    device->state_free = [](devnode *of) { heap_free(of->state); };
    expect_fatal([this] { static_cast<void>(read_event_log(device, false)); }, "Check state corrupt");
}

// ---- failures ahead of the first read

TEST_F(event_log_reader, tells_that_a_log_cannot_be_opened) {
    log.broken = "open";
    host.error_words[5] = "denied";
    state()->offset = 3;
    EXPECT_FAILURE(read_event_log(device, false), "Could not open event log: denied");
    EXPECT_EQ(offset(), 3);
    EXPECT_EQ(host.count_logged("OpenEventLog(NULL, \"System\") = "), 1);
    EXPECT_EQ(host.log.back().level, LOG_TRACE);
}

TEST_F(event_log_reader, tells_what_it_opened) {
    EXPECT_SUCCESS(read_event_log(device, true));
    char opened[100];
    snprintf(opened, sizeof opened, "OpenEventLog(NULL, \"System\") = %p", static_cast<void *>(&log));
    EXPECT_TRUE(host.logged(LOG_TRACE, opened));
}

TEST_F(event_log_reader, tells_that_a_log_cannot_be_asked) {
    host.error_words[5] = "denied";
    for (const char *operation : {"oldest", "count"}) {
        log.broken = operation;
        state()->offset = 3;
        EXPECT_FAILURE(read_event_log(device, true), "Error reading event log: denied");
        EXPECT_EQ(offset(), 3);
        EXPECT_EQ(log.open_logs, 0);
    }
}

TEST_F(event_log_reader, tells_that_its_host_has_no_logs) {
    event_log_host = nullptr;
    EXPECT_FAILURE(read_event_log(device, true), "Could not open event log: this host has no event logs");
}

TEST_F(event_log_reader, tells_that_memory_is_out) {
    log.records = {record(u"one"), record(std::u16string(300, u'e'))};
    state()->offset = 1;
    for (uint32_t allocation : {1U, 2U}) { // texts, buffer
        host.fail_allocation = allocation;
        EXPECT_FAILURE(read_event_log(device, false), "Out of memory");
        EXPECT_EQ(offset(), 1);
        EXPECT_EQ(log.open_logs, 0);
    }
}

TEST_F(event_log_reader, tells_that_memory_is_out_for_a_larger_buffer) {
    log.records = {record(std::u16string(300, u'e'))};
    state()->offset = 1;
    host.fail_allocation = 3;
    EXPECT_FAILURE(read_event_log(device, false), "Out of memory");
    EXPECT_EQ(offset(), 1);
    EXPECT_EQ(log.open_logs, 0);
}

// ---- reading

TEST_F(event_log_read, seeks_until_something_came_and_goes_on_from_there) {
    log.records = {record(u"one"), record(u"the")};
    log.answers[1] = {}; // nothing, and that is no failure
    check_from(1);
    EXPECT_EQ(log.reads, (texts_of{"6 1 256", "6 1 256", "5 3 256"}));
    EXPECT_EQ(reported(), (texts_of{line("one"), line("the")}));
    EXPECT_EQ(host.count_logged("Invoking ReadEventLog("), 1);
}

TEST_F(event_log_read, tells_each_call) {
    log.records = {record(u"one")};
    check_from(1);
    auto size = static_cast<int>(log.records[0].size());
    EXPECT_TRUE(host.logged(LOG_TRACE, "read=" + std::to_string(size) + ", needed=0"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "read=0, needed=0"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Failed: system error 38"));
    char start[100];
    snprintf(start, sizeof start, "Invoking ReadEventLog(0x%p, 0x0006, 1, 0x", static_cast<void *>(&log));
    EXPECT_EQ(host.count_logged(start), 1);
    EXPECT_EQ(host.count_logged("[256], 256, 0x"), 1);
    EXPECT_EQ(host.count_logged("Scan ended"), 0);
}

TEST_F(event_log_read, repeats_the_seek_with_a_larger_buffer) {
    log.records = {record(std::u16string(300, u'e')), record(u"one")};
    std::string needed = std::to_string(log.records[0].size());
    ASSERT_GT(log.records[0].size(), 512U);
    check_from(1);
    EXPECT_EQ(log.reads, (texts_of{"6 1 256", "6 1 " + needed, "5 2 " + needed, "5 3 " + needed}));
    EXPECT_EQ(reported().size(), 2U);
    EXPECT_TRUE(host.logged(LOG_TRACE, "read=0, needed=" + needed));
    EXPECT_TRUE(host.logged(LOG_TRACE, "buf_size=256, needed=" + needed));
    EXPECT_EQ(host.count_logged("Invoking ReadEventLog("), 2);
    EXPECT_EQ(host.count_logged("[" + needed + "], " + needed + ", 0x"), 1);
}

TEST_F(event_log_read, doubles_a_buffer_that_is_little_too_small) {
    log.records = {record(std::u16string(90, u'e'))};
    ASSERT_GT(log.records[0].size(), 256U);
    ASSERT_LT(log.records[0].size(), 512U);
    check_from(1);
    EXPECT_EQ(log.reads[1], "6 1 512");
}

TEST_F(event_log_read, grows_in_the_middle_of_a_log) {
    log.records = {record(u"one"), record(std::u16string(300, u'e'))};
    check_from(1);
    EXPECT_EQ(log.reads[1], "5 2 256");
    EXPECT_EQ(log.reads[2], "5 2 " + std::to_string(log.records[1].size()));
    EXPECT_EQ(reported().size(), 2U);
    EXPECT_EQ(offset(), 3);
}

TEST_F(event_log_read, does_not_read_again_for_a_record_that_came_meanwhile) {
    log.records = {record(u"one")};
    log.answers[2] = {.error = 122, .needed = 1000};
    check_from(1);
    EXPECT_EQ(log.reads.size(), 2U);
    EXPECT_TRUE(host.logged(LOG_TRACE, "buf_size=256, needed=1000"));
    EXPECT_EQ(offset(), 2);
    EXPECT_TRUE(checked("1 lines of which 1 matched"));
}

TEST_F(event_log_read, takes_records_that_came_meanwhile) {
    log.records = {record(u"one")};
    log.answers[1] = {.bytes = record(u"one") + record(u"the")};
    log.answers[2] = {.bytes = record(u"three")};
    log.answers[3] = {.error = 38};
    check_from(1);
    EXPECT_EQ(reported(), (texts_of{line("one"), line("the"), line("three")}));
    EXPECT_EQ(offset(), 4);
}

TEST_F(event_log_read, takes_a_buffer_beyond_its_limit_as_one_without_memory) {
    log.records = {record(u"one")};
    log.answers[1] = {.error = 122, .needed = READ_BUFFER_LIMIT + 1};
    state()->offset = 1;
    EXPECT_FAILURE(read_event_log(device, false), "Out of memory");
    log.answers[2] = {.error = 122, .needed = READ_BUFFER_LIMIT};
    EXPECT_SUCCESS(read_event_log(device, false));
}

TEST_F(event_log_read, ends_at_a_buffer_that_is_always_too_small) {
    log.records = {record(u"one")};
    log.answer_all = [] { return scripted_read{.error = 122}; };
    state()->offset = 1;
    EXPECT_FAILURE(read_event_log(device, false), "Out of memory");
    EXPECT_EQ(log.reads.back(), "6 1 " + std::to_string(READ_BUFFER_LIMIT));
}

TEST_F(event_log_read, ends_at_an_error_with_what_was_handled_so_far) {
    log.records = {record(u"one"), record(u"the")};
    log.answers[1] = {.bytes = log.records[0]};
    log.answers[2] = {.error = 1500};
    host.error_words[1500] = "the event log file is corrupt";
    check_from(1);
    EXPECT_TRUE(host.logged(LOG_TRACE, "Failed: the event log file is corrupt"));
    EXPECT_TRUE(host.logged(LOG_ERROR, "Scan ended with error: the event log file is corrupt"));
    EXPECT_TRUE(checked("1 lines of which 1 matched"));
    EXPECT_EQ(offset(), 2);
}

TEST_F(event_log_read, ends_where_nothing_comes_for_ever) {
    log.records = {record(u"one")};
    log.answer_all = [] { return scripted_read{}; };
    check_from(1);
    EXPECT_EQ(log.reads.size(), EMPTY_READ_LIMIT);
    EXPECT_TRUE(host.logged(LOG_ERROR, "Scan ended with error: the host delivers nothing"));
    EXPECT_EQ(offset(), 1);
}

TEST_F(event_log_read, goes_on_where_nothing_came_almost_as_long) {
    log.records = {record(u"one"), record(u"the")};
    uint32_t reads = 0;
    log.answer_all = [&] {
        if (++reads % EMPTY_READ_LIMIT != 0) return scripted_read{};
        return reads < 3 * EMPTY_READ_LIMIT ? scripted_read{.bytes = record(u"one")}
                                            : scripted_read{.error = 38};
    };
    check_from(1);
    EXPECT_EQ(reported().size(), 2U);
    EXPECT_EQ(host.count_logged("Scan ended"), 0);
}

TEST_F(event_log_read, ends_at_a_broken_record_and_passes_it_over) {
    for (uint32_t length : {0U, 55U, 10'000U, 0xFFFFFFFFU}) {
        std::string broken = record(u"broken");
        put_number(broken, 0, length, 4);
        log.records = {record(u"one"), record(u"the"), record(u"three")};
        log.answers = {{1, {.bytes = log.records[0] + broken + log.records[2]}}};
        log.reads.clear();
        check_from(1);
        EXPECT_EQ(reported(), texts_of{line("one")});
        EXPECT_TRUE(host.logged(LOG_ERROR, "Scan ended with error: the host delivered a broken record"));
        EXPECT_TRUE(checked("1 lines of which 1 matched"));
        EXPECT_EQ(offset(), 3);
        EXPECT_SUCCESS(read_event_log(device, false));
        EXPECT_EQ(reported(), texts_of{line("three")});
    }
}

TEST_F(event_log_read, looks_at_no_more_than_its_buffer) {
    log.records = {record(u"one")};
    log.answers[1] = {.bytes = std::string(10'000, '\0')};
    put_number(log.answers[1].bytes, 0, 10'000, 4);
    check_from(1);
    EXPECT_TRUE(host.logged(LOG_ERROR, "Scan ended with error: the host delivered a broken record"));
}

// ---- lines and rules

TEST_F(event_log_reader, counts_what_the_rules_handled) {
    report_lines_with("two");
    log.records = {record(u"one"), record(u"two"), record(u"three")};
    check_from(1);
    EXPECT_EQ(reported(), texts_of{line("two")});
    EXPECT_TRUE(checked("3 lines of which 1 matched"));
    EXPECT_EQ(host.count_logged("* Run line through checker"), 3);
    EXPECT_EQ(host.log.front().level, LOG_TRACE);
    EXPECT_TRUE(host.logged(LOG_TRACE, "* Run line through checker"));
}

TEST_F(event_log_reader, keeps_a_record_of_a_provider_from_the_rules) {
    registry.keys.clear();
    registry.set(MACHINE_HIVE, SYSTEM_KEY + std::string("Disk"), "ProviderGuid", "{0}");
    log.records = {record(u"one")};
    check_from(1);
    EXPECT_EQ(reported(), texts_of{});
    EXPECT_TRUE(checked("1 lines of which 0 matched"));
    EXPECT_EQ(offset(), 2);
    EXPECT_TRUE(host.logged(LOG_TRACE, "* Did not run line through checker because we could not decode it"));
    EXPECT_EQ(host.count_logged("Got entry"), 0);
}

TEST_F(event_log_reader, shows_the_rules_a_message_that_cannot_be_found) {
    registry.keys.clear();
    report_lines_with("<Cannot format message");
    log.records = {record(u"one")};
    check_from(1);
    EXPECT_EQ(reported(), texts_of{line("<Cannot format message (2)>")});
}

TEST_F(event_log_reader, goes_on_behind_a_record_without_memory) {
    log.records = {record(u"one"), record(u"the")};
    state()->offset = 1;
    host.fail_allocation = 3; // texts, buffer, arguments
    EXPECT_SUCCESS(read_event_log(device, false));
    EXPECT_EQ(reported(), (texts_of{line("<FormatMessage(\"m.dll\", 7): Out of memory>"), line("the")}));
}
