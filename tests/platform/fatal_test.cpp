#include "platform/fatal.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"

#include <gtest/gtest.h>

static std::vector<std::string> steps;

static void note_event(void *, bool, uint32_t, const char *message) {
    steps.push_back("event " + std::string(message));
}
static void note_cleanup() {
    steps.push_back("cleanup");
}
static void note_exit(int status) {
    steps.push_back("exit " + std::to_string(status));
    throw process_ended{status};
}
static void note_line(int32_t level, const char *message) {
    steps.push_back("log " + std::to_string(level) + " " + message);
}

class fatals : public testing::Test {
protected:
    test_host host;

    void SetUp() override { steps.clear(); }
};

TEST_F(fatals, log_then_report_then_clean_up_then_end) {
    event_ops events = *event_host;
    events.ReportEventA = note_event;
    event_host = &events;
    process_ops process = *process_host;
    process.exit = note_exit;
    process_host = &process;
    fatal_cleanup = note_cleanup;
    agent_log_observer = note_line;
    EXPECT_THROW(fatal("no way on"), process_ended);
    EXPECT_EQ(steps, (std::vector<std::string>{"log 3 Fatal error: no way on", "event no way on", "cleanup",
                                               "exit 1"}));
}

TEST_F(fatals, need_no_cleanup) {
    expect_fatal([] { fatal("no way on"); }, "no way on");
}

TEST_F(fatals, report_one_error) {
    expect_fatal([] { fatal("no way on"); }, "no way on");
    ASSERT_EQ(host.events.size(), 1U);
    EXPECT_TRUE(host.events[0].error);
    EXPECT_EQ(host.events[0].id, 0xC0000004U);
    EXPECT_EQ(host.events[0].message, "no way on");
}

TEST_F(fatals, end_without_an_event_log_too) {
    host.event_source_opens = false;
    expect_fatal([] { fatal("no way on"); }, "no way on");
    EXPECT_TRUE(host.events.empty());
}

static int closed_sources;
static void count_closed(void *source) {
    EXPECT_EQ(source, the_host);
    closed_sources++;
}

TEST(event_report, tells_information_apart) {
    test_host host;
    event_report("all is well", 1);
    ASSERT_EQ(host.events.size(), 1U);
    EXPECT_FALSE(host.events[0].error);
    EXPECT_EQ(host.events[0].id, 0x80000005U);
}

TEST(event_report, closes_the_source_that_it_opened) {
    test_host host;
    event_ops events = *event_host;
    events.DeregisterEventSource = count_closed;
    event_host = &events;
    closed_sources = 0;
    event_report("one", 0);
    EXPECT_EQ(closed_sources, 1);
    host.event_source_opens = false;
    event_report("two", 0);
    EXPECT_EQ(closed_sources, 1);
}

TEST(process_exit, does_not_return_where_the_host_did) {
    test_host host;
    process_ops process = *process_host;
    process.exit = [](int) {};
    process_host = &process;
    EXPECT_DEATH(process_exit(0), "");
}
