// The counter gateway above the host's own calls, with a library behind them that the test scripts. The table
// of English names does not come from that library but from the registry, in which Wine has a fixed one; it
// alone is given here.

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/counter_names.h"
#include "probes/os/perf_counter.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/system_load.h"
#include "scripted/scripted_pdh.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <windows.h>

static constexpr char ENGLISH_NAMES[] = "2\0System\0"
                                        "6\0% Processor Time\0"
                                        "146\0Context Switches/sec\0"
                                        "238\0Processor\0"
                                        "674\0System Up Time\0"
                                        "900\0Only English\0";

static uint32_t english_names(const char *, char *buffer, uint32_t *size) {
    memcpy(buffer, ENGLISH_NAMES, sizeof ENGLISH_NAMES);
    *size = sizeof ENGLISH_NAMES;
    return 0;
}

static const scripted_pdh *find_script() {
    HMODULE library = GetModuleHandleA("pdh.dll");
    auto *found = reinterpret_cast<void *>(GetProcAddress(library, "the_script"));
    return static_cast<const scripted_pdh *>(found);
}

class counter_gateway : public testing::Test {
protected:
    test_host host;
    const scripted_pdh *script = find_script();
    perf_counter_ops ops = perf_counter_ops_host;

    void SetUp() override {
        ASSERT_NE(script, nullptr) << "the host's own library was loaded";
        script->reset();
        error_host = &error_ops_host;
        ops.RegQueryValueExA = english_names;
        perf_counter_host = &ops;
        counter_names_reset();
    }
    void TearDown() override {
        counter_names_reset();
        perf_counter_host = nullptr;
        EXPECT_EQ(host.blocks, 0);
        if (script == nullptr) return;
        EXPECT_EQ(script->open_queries(), 0);
        EXPECT_EQ(script->open_counters(), 0);
    }

    static perf_counter_guard uptime() {
        return perf_counter_guard(create_counter_english("System", nullptr, "System Up Time", true));
    }
    static perf_counter_guard switches() {
        return perf_counter_guard(create_counter_english("System", nullptr, "Context Switches/sec", true));
    }
};

TEST_F(counter_gateway, turns_english_names_into_national_ones) {
    auto counter = switches();
    ASSERT_NE(counter, nullptr);
    EXPECT_STREQ(counter->path, "\\System\\Kontextwechsel/s");
    auto of_instance =
        perf_counter_guard(create_counter_english("Processor", "_Total", "% Processor Time", true));
    ASSERT_NE(of_instance, nullptr);
    EXPECT_STREQ(of_instance->path, "\\Prozessor(_Total)\\Prozessorzeit (%)");
}

TEST_F(counter_gateway, turns_national_names_into_english_ones) {
    char english[COUNTER_NAME_SIZE];
    EXPECT_TRUE(translate_counter_name_to_english(english, sizeof english, "Kontextwechsel/s"));
    EXPECT_STREQ(english, "Context Switches/sec");
    EXPECT_FALSE(translate_counter_name_to_english(english, sizeof english, "Unbekannt"));
    EXPECT_STREQ(english, "");
    EXPECT_TRUE(host.logged(
        LOG_WARNING, "translate_counter_name_to_english \"Unbekannt\": error from PdhLookupPerfIndexByName"));
}

TEST_F(counter_gateway, finds_no_counter_that_its_host_has_no_name_for) {
    EXPECT_EQ(create_counter_english("System", nullptr, "Only English", true), nullptr);
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_national \"Only English\": error from "
                                         "PdhLookupPerfNameByIndex (index 900)"));
}

TEST_F(counter_gateway, reads_a_level_at_once) {
    auto counter = uptime();
    script->show(4711);
    double value = -1;
    EXPECT_SUCCESS(get_counter_value(&value, counter.get()));
    EXPECT_EQ(value, 4711);
    EXPECT_TRUE(host.sleeps.empty());
}

TEST_F(counter_gateway, takes_a_second_for_the_first_value_of_a_rate_alone) {
    auto counter = switches();
    double value = -1;
    EXPECT_SUCCESS(get_counter_value(&value, counter.get()));
    EXPECT_EQ(value, 50);
    EXPECT_EQ(host.sleeps, std::vector<uint32_t>{1000});
    EXPECT_SUCCESS(get_counter_value(&value, counter.get()));
    EXPECT_EQ(host.sleeps.size(), 1U);
}

TEST_F(counter_gateway, tells_each_reason_why_a_counter_is_refused) {
    struct row {
        uint32_t status;
        const char *name;
    };
    for (row each : {row{PDH_MEMORY_ALLOCATION_FAILURE, "PDH_MEMORY_ALLOCATION_FAILURE"},
                     {PDH_INVALID_HANDLE, "PDH_INVALID_HANDLE"},
                     {PDH_INVALID_ARGUMENT, "PDH_INVALID_ARGUMENT"},
                     {PDH_FUNCTION_NOT_FOUND, "PDH_FUNCTION_NOT_FOUND"},
                     {PDH_CSTATUS_NO_COUNTERNAME, "PDH_CSTATUS_NO_COUNTERNAME"},
                     {PDH_CSTATUS_BAD_COUNTERNAME, "PDH_CSTATUS_BAD_COUNTERNAME"},
                     {PDH_CSTATUS_NO_COUNTER, "PDH_CSTATUS_NO_COUNTER"},
                     {PDH_CSTATUS_NO_MACHINE, "PDH_CSTATUS_NO_MACHINE"},
                     {0xC0000BFFU, "Unknown error"}}) {
        script->fail_next("PdhAddCounterA", each.status);
        EXPECT_EQ(uptime(), nullptr);
        EXPECT_TRUE(
            host.logged(LOG_WARNING, std::string("Error (") + each.name +
                                         ") adding counter \"\\System\\Systembetriebszeit\" to query"));
    }
}

TEST_F(counter_gateway, says_where_there_is_no_query) {
    script->fail_next("PdhOpenQueryA", PDH_MEMORY_ALLOCATION_FAILURE);
    EXPECT_EQ(uptime(), nullptr);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error creating query for counter"));
}

TEST_F(counter_gateway, words_each_failure_of_a_sample) {
    auto counter = uptime();
    double value = -1;
    script->fail_next("PdhCollectQueryData", PDH_INVALID_HANDLE);
    EXPECT_FAILURE(
        get_counter_value(&value, counter.get()),
        "Couldn't collect query data for \\System\\Systembetriebszeit: The query handle is not valid.");
    script->fail_next("PdhCollectQueryData", 5);
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   std::string("Couldn't collect query data for \\System\\Systembetriebszeit: ") +
                       error_text(5));
    script->fail_next("PdhCollectQueryData", PDH_NO_DATA);
    const char *failure = get_counter_value(&value, counter.get());
    EXPECT_TRUE(is_no_data_failure(failure));
    EXPECT_EQ(value, -1);
}

TEST_F(counter_gateway, words_each_failure_of_a_value) {
    auto counter = uptime();
    double value = -1;
    script->fail_next("PdhGetFormattedCounterValue", PDH_INVALID_HANDLE);
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Get INVALID_HANDLE from GetFormattedCounterValue() in get_counter_value()");
    script->fail_next("PdhGetFormattedCounterValue", PDH_INVALID_ARGUMENT);
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Got INVALID_ARGUMENT from GetFormattedCounterValue() in get_counter_value()");
    script->fail_next("PdhGetFormattedCounterValue", 7);
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Got unknown error (7) from GetFormattedCounterValue() in get_counter_value()");
    EXPECT_EQ(value, -1);
}

TEST_F(counter_gateway, takes_a_counter_without_data_away_and_makes_a_new_one) {
    devnode_guard device(alloc_devnode());
    device->id = text_copy("uptime");
    resnode result = {};
    script->show(100.4);
    EXPECT_SUCCESS(check_system(device.get(), &result));
    EXPECT_EQ(result.value, 100);
    EXPECT_EQ(script->open_queries(), 1);
    script->fail_next("PdhCollectQueryData", PDH_NO_DATA);
    const char *failure = check_system(device.get(), &result);
    ASSERT_NE(failure, nullptr);
    EXPECT_NE(std::string(failure).find("The query does not currently contain any counters."),
              std::string::npos);
    EXPECT_SUCCESS(check_system(device.get(), &result));
}

TEST_F(counter_gateway, offers_what_the_library_has) {
    devtree root = {};
    EXPECT_SUCCESS(scan_system(&root));
    devtree_guard group(root.children);
    ASSERT_NE(group, nullptr);
    std::string ids;
    for (const devnode *device = group->devices; device != nullptr; device = device->next)
        ids += std::string(device->id) + " ";
    EXPECT_EQ(ids, "uptime cswitch idle ");
}
