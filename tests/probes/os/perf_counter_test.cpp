#include "probes/os/perf_counter.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/os/scripted_counters.h"

#include <gtest/gtest.h>

namespace {

struct counter_fixture : testing::Test {
    test_host host;
    scripted_counters counters;

    counter_fixture() {
        counters.add(2, "System", "System-de");
        counters.add(4, "Load", "Last");
        counters.paths = {"\\System-de\\Last", "\\System-de(eins)\\Last"};
    }
    perf_counter_guard made() {
        return perf_counter_guard(create_counter("System-de", nullptr, "Last", true));
    }
};

using create_counter_test = counter_fixture;
using get_counter_value_test = counter_fixture;
using counter_state = counter_fixture;

// A device in the tree of a server, "perf" / object / counter, or with an instance between.
struct check_perfcnt_test : counter_fixture {
    devtree_guard tree{heap_new<devtree>()};
    devnode *device = nullptr;
    resnode result = {};

    check_perfcnt_test() {
        tree->id = text_copy("perf");
        place({"System"});
    }
    void place(const std::vector<const char *> &groups) {
        devtree *group = tree.get();
        for (const char *id : groups)
            group = devtree_child(group, id, "");
        device = alloc_devnode();
        device->id = text_copy("Load");
        devtree_add_devices(group, device);
    }
};

constexpr const char *NO_DATA_OF_PATH =
    "Couldn't collect query data for \\System-de\\Last: The query does not currently contain any counters.";

} // namespace

// Creating.

TEST_F(create_counter_test, opens_a_query_of_its_own_and_keeps_the_path) {
    auto first = made();
    auto second = made();
    EXPECT_STREQ(first->path, "\\System-de\\Last");
    EXPECT_EQ(counters.queries, 2);
    EXPECT_EQ(counters.counters, 2);
}

TEST_F(create_counter_test, puts_an_instance_in_brackets) {
    perf_counter_guard counter(create_counter("System-de", "eins", "Last", true));
    ASSERT_NE(counter, nullptr);
    EXPECT_STREQ(counter->path, "\\System-de(eins)\\Last");
}

TEST_F(create_counter_test, cuts_the_path_at_200_characters_with_its_end) {
    std::string instance(250, 'i');
    EXPECT_EQ(create_counter("Object", instance.c_str(), "Last", false), nullptr);
    EXPECT_EQ(counters.added[0], "\\Object(" + std::string(199 - 8, 'i'));
}

TEST_F(create_counter_test, gives_back_all_memory) {
    int64_t before = host.blocks;
    made();
    EXPECT_EQ(host.blocks, before);
}

TEST_F(create_counter_test, logs_a_query_that_does_not_open_whatever_the_flag) {
    counters.open_status = 1;
    EXPECT_EQ(create_counter("System-de", nullptr, "Last", false), nullptr);
    EXPECT_TRUE(host.logged(LOG_WARNING, "Error creating query for counter"));
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(create_counter_test, logs_a_refused_counter_when_asked_to) {
    EXPECT_EQ(create_counter("System-de", nullptr, "Nichts", true), nullptr);
    EXPECT_TRUE(host.logged(
        LOG_WARNING, "Error (PDH_CSTATUS_NO_COUNTER) adding counter \"\\System-de\\Nichts\" to query"));
    EXPECT_EQ(counters.queries, 0);
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(create_counter_test, keeps_quiet_about_a_refused_counter_otherwise) {
    EXPECT_EQ(create_counter("System-de", nullptr, "Nichts", false), nullptr);
    EXPECT_EQ(host.log.size(), 0U);
    EXPECT_EQ(counters.queries, 0);
}

TEST_F(create_counter_test, names_each_status) {
    const std::pair<uint32_t, const char *> names[] = {
        {0xC0000BBB, "PDH_MEMORY_ALLOCATION_FAILURE"},
        {0xC0000BBC, "PDH_INVALID_HANDLE"},
        {0xC0000BBD, "PDH_INVALID_ARGUMENT"},
        {0xC0000BBE, "PDH_FUNCTION_NOT_FOUND"},
        {0xC0000BBF, "PDH_CSTATUS_NO_COUNTERNAME"},
        {0xC0000BC0, "PDH_CSTATUS_BAD_COUNTERNAME"},
        {0xC0000BB9, "PDH_CSTATUS_NO_COUNTER"},
        {0x800007D0, "PDH_CSTATUS_NO_MACHINE"},
        {0xC0000BB8, "Unknown error"},
        {5, "Unknown error"},
    };
    for (auto [status, name] : names) {
        counters.add_status = status;
        EXPECT_EQ(create_counter("O", nullptr, "C", true), nullptr);
        EXPECT_EQ(host.log.back().text,
                  std::string("Error (") + name + ") adding counter \"\\O\\C\" to query");
        EXPECT_EQ(host.log.back().level, LOG_WARNING);
    }
}

TEST_F(create_counter_test, logs_that_memory_is_out) {
    for (uint32_t n : {1, 2}) {
        host.log.clear();
        host.fail_allocation = n;
        EXPECT_EQ(create_counter("System-de", nullptr, "Last", false), nullptr);
        EXPECT_TRUE(host.logged(LOG_WARNING, "Out of memory in create_counter")) << n;
        EXPECT_EQ(counters.queries, 0);
        EXPECT_EQ(host.blocks, 0);
    }
}

TEST_F(create_counter_test, translates_object_and_counter_but_not_the_instance) {
    perf_counter_guard counter(create_counter_english("System", "eins", "Load", true));
    ASSERT_NE(counter, nullptr);
    EXPECT_STREQ(counter->path, "\\System-de(eins)\\Last");
}

TEST_F(create_counter_test, has_room_for_names_of_127_characters) {
    std::string longest(127, 'n');
    counters.add(951, "Longest", longest);
    counters.add(952, "Too Long", longest + "n");
    counters.paths = {"\\" + longest + "\\Last"};
    perf_counter_guard counter(create_counter_english("Longest", nullptr, "Load", true));
    ASSERT_NE(counter, nullptr);
    EXPECT_EQ(counter->path, "\\" + longest + "\\Last");
    EXPECT_EQ(create_counter_english("Too Long", nullptr, "Load", true), nullptr);
}

TEST_F(create_counter_test, opens_nothing_for_a_name_without_translation) {
    EXPECT_EQ(create_counter_english("Unknown", nullptr, "Load", true), nullptr);
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_national \"Unknown\": not found"));
    EXPECT_EQ(create_counter_english("System", nullptr, "Last", true), nullptr) << "a national name";
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_national \"Last\": not found"));
    EXPECT_EQ(counters.added.size(), 0U);
    EXPECT_EQ(host.count_logged("Error ("), 0);
}

TEST_F(create_counter_test, finds_nothing_without_the_table_of_names) {
    counters.table_statuses = {5, 5};
    EXPECT_EQ(create_counter_english("System", nullptr, "Load", true), nullptr);
    EXPECT_EQ(create_counter_english("System", nullptr, "Load", true), nullptr);
    EXPECT_EQ(counters.added.size(), 0U);
}

TEST(free_counter, takes_absent) {
    free_counter(nullptr);
}

// Values.

TEST_F(get_counter_value_test, takes_one_sample_where_that_is_enough) {
    auto counter = made();
    counters.values = {{0, 12.5}};
    double value = -1.0;
    EXPECT_SUCCESS(get_counter_value(&value, counter.get()));
    EXPECT_EQ(value, 12.5);
    EXPECT_EQ(counters.collections, 1);
    EXPECT_EQ(host.sleeps.size(), 0U);
}

TEST_F(get_counter_value_test, asks_for_a_double_and_nothing_else) {
    auto counter = made();
    double value = 0;
    EXPECT_SUCCESS(get_counter_value(&value, counter.get()));
    EXPECT_EQ(counters.formats, std::vector<uint32_t>{0x200});
}

TEST_F(get_counter_value_test, sleeps_a_second_for_the_second_sample) {
    auto counter = made();
    counters.values = {{PDH_INVALID_DATA, 0}, {0, 7}};
    double value = -1.0;
    EXPECT_SUCCESS(get_counter_value(&value, counter.get()));
    EXPECT_EQ(value, 7);
    EXPECT_EQ(host.sleeps, std::vector<uint32_t>{1000});
    EXPECT_EQ(counters.collections, 2);
}

TEST_F(get_counter_value_test, gives_up_after_the_second_sample) {
    auto counter = made();
    counters.values = {{PDH_INVALID_DATA, 0}, {PDH_INVALID_DATA, 0}, {0, 7}};
    double value = -1.0;
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Got INVALID_DATA from GetFormattedCounterValue() in get_counter_value()");
    EXPECT_EQ(value, -1.0);
    EXPECT_EQ(host.sleeps.size(), 1U);
    EXPECT_EQ(counters.collections, 2);
}

TEST_F(get_counter_value_test, tells_each_failure_to_collect) {
    auto counter = made();
    host.error_words[0xC0000BC9] = "Words.";
    counters.collect_statuses = {0xC0000BBC, 0xC0000BC9};
    double value = -1.0;
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Couldn't collect query data for \\System-de\\Last: The query handle is not valid.");
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Couldn't collect query data for \\System-de\\Last: Words.");
    EXPECT_EQ(counters.formats.size(), 0U);
}

TEST_F(get_counter_value_test, tells_each_failure_to_format) {
    auto counter = made();
    counters.values = {{0xC0000BBC, 0}, {0xC0000BBD, 0}, {5, 0}, {0x800007D5, 0}};
    double value = -1.0;
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Get INVALID_HANDLE from GetFormattedCounterValue() in get_counter_value()");
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Got INVALID_ARGUMENT from GetFormattedCounterValue() in get_counter_value()");
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Got unknown error (5) from GetFormattedCounterValue() in get_counter_value()");
    EXPECT_FAILURE(get_counter_value(&value, counter.get()),
                   "Got unknown error (-2147481643) from GetFormattedCounterValue() in get_counter_value()");
    EXPECT_EQ(host.sleeps.size(), 0U);
}

TEST_F(get_counter_value_test, tells_no_data_by_its_buffer_and_not_by_its_words) {
    auto counter = made();
    counters.collect_statuses = {PDH_NO_DATA};
    double value = -1.0;
    const char *failure = get_counter_value(&value, counter.get());
    EXPECT_FAILURE(failure, NO_DATA_OF_PATH);
    EXPECT_TRUE(is_no_data_failure(failure));
    EXPECT_FALSE(is_no_data_failure(NO_DATA_OF_PATH));
    EXPECT_FALSE(is_no_data_failure(nullptr));
}

TEST_F(get_counter_value_test, meets_no_data_in_the_second_sample_too) {
    auto counter = made();
    counters.collect_statuses = {0, PDH_NO_DATA};
    counters.values = {{PDH_INVALID_DATA, 0}};
    double value = -1.0;
    EXPECT_TRUE(is_no_data_failure(get_counter_value(&value, counter.get())));
}

TEST_F(get_counter_value_test, gives_no_data_a_longer_text_than_other_failures) {
    auto counter = made();
    std::string path(900, 'p');
    text_replace(&counter->path, text_copy(path.c_str()));
    counters.collect_statuses = {PDH_NO_DATA, PDH_INVALID_HANDLE};
    double value = -1.0;
    EXPECT_EQ(strlen(get_counter_value(&value, counter.get())), strlen(NO_DATA_OF_PATH) - 15 + 900);
    EXPECT_EQ(strlen(get_counter_value(&value, counter.get())), 256U);
    text_replace(&counter->path, text_copy(std::string(2000, 'p').c_str()));
    counters.collect_statuses = {PDH_NO_DATA};
    EXPECT_EQ(strlen(get_counter_value(&value, counter.get())), 1023U);
}

// State.

TEST_F(counter_state, is_freed_with_its_device) {
    devnode_guard device(alloc_devnode());
    set_counter_state(device.get(), made().release());
    EXPECT_EQ(device->state_magic, 0x54AD8921U);
    EXPECT_EQ(find_device_counter(device.get()), device->state);
    device.reset();
    EXPECT_EQ(counters.counters, 0);
    EXPECT_EQ(host.blocks, 0);
}

TEST_F(counter_state, stays_as_it_is_where_there_is_no_counter) {
    devnode_guard device(alloc_devnode());
    set_counter_state(device.get(), nullptr);
    EXPECT_EQ(device->state_magic, NO_STATE_MAGIC);
    EXPECT_EQ(find_device_counter(device.get()), nullptr);
}

TEST_F(counter_state, insists_on_its_magic) {
    devnode_guard device(alloc_devnode());
    set_counter_state(device.get(), made().release());
    device->state_magic = 5;
    expect_fatal([&] { free_counter_state(device.get()); },
                 "Internal consistency error in free_counter_state()");
    expect_fatal([&] { find_device_counter(device.get()); },
                 "Internal consistency error in find_device_counter()");
    device->state_magic = COUNTER_STATE_MAGIC;
}

// The check.

TEST_F(check_perfcnt_test, reads_object_and_counter) {
    counters.values = {{0, 3.25}};
    EXPECT_SUCCESS(check_perfcnt(device, &result));
    EXPECT_EQ(result.real_value, 3.25);
    EXPECT_EQ(result.value, 0);
    EXPECT_EQ(counters.added, std::vector<std::string>{"\\System-de\\Last"});
    EXPECT_TRUE(host.logged(LOG_TRACE, "Creating counter: \"Load\""));
}

TEST_F(check_perfcnt_test, reads_object_instance_and_counter) {
    place({"System", "eins"});
    EXPECT_SUCCESS(check_perfcnt(device, &result));
    EXPECT_EQ(counters.added, std::vector<std::string>{"\\System-de(eins)\\Last"});
}

TEST_F(check_perfcnt_test, survives_a_device_in_the_top_group) {
    place({});
    EXPECT_FAILURE(check_perfcnt(device, &result), "Error creating new counter");
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_national \"perf\": not found"));
}

TEST_F(check_perfcnt_test, keeps_the_counter_for_the_next_check) {
    counters.values = {{PDH_INVALID_DATA, 0}, {0, 1}, {0, 2}};
    EXPECT_SUCCESS(check_perfcnt(device, &result));
    EXPECT_EQ(host.sleeps.size(), 1U);
    EXPECT_SUCCESS(check_perfcnt(device, &result));
    EXPECT_EQ(result.real_value, 2);
    EXPECT_EQ(host.sleeps.size(), 1U) << "the second check does not sleep";
    EXPECT_EQ(counters.added.size(), 1U);
    EXPECT_EQ(host.count_logged("Creating counter"), 1);
}

TEST_F(check_perfcnt_test, tells_a_counter_that_cannot_be_made) {
    text_replace(&device->id, text_copy("Nothing"));
    EXPECT_FAILURE(check_perfcnt(device, &result), "Error creating new counter");
    EXPECT_TRUE(host.logged(LOG_WARNING, "translate_counter_name_to_national \"Nothing\": not found"));
    EXPECT_EQ(device->state, nullptr);
}

TEST_F(check_perfcnt_test, never_finds_a_national_name) {
    text_replace(&device->id, text_copy("Last"));
    EXPECT_FAILURE(check_perfcnt(device, &result), "Error creating new counter");
}

TEST_F(check_perfcnt_test, logs_a_refused_counter) {
    counters.paths.clear();
    EXPECT_FAILURE(check_perfcnt(device, &result), "Error creating new counter");
    EXPECT_TRUE(host.logged(LOG_WARNING,
                            "Error (PDH_CSTATUS_NO_COUNTER) adding counter \"\\System-de\\Last\" to query"));
}

TEST_F(check_perfcnt_test, builds_a_new_counter_after_no_data) {
    counters.collect_statuses = {PDH_NO_DATA};
    EXPECT_FAILURE(check_perfcnt(device, &result),
                   std::string("Get value for counter failed and caused reset of counter state: ") +
                       NO_DATA_OF_PATH);
    EXPECT_EQ(device->state, nullptr);
    EXPECT_EQ(device->state_magic, NO_STATE_MAGIC);
    EXPECT_EQ(counters.queries, 0);
    EXPECT_SUCCESS(check_perfcnt(device, &result));
    EXPECT_EQ(counters.added.size(), 2U);
}

TEST_F(check_perfcnt_test, keeps_the_counter_after_other_failures) {
    counters.values = {{PDH_INVALID_DATA, 0}, {PDH_INVALID_DATA, 0}, {0, 4}};
    EXPECT_FAILURE(check_perfcnt(device, &result),
                   "Could not get counter value: Got INVALID_DATA from GetFormattedCounterValue() in "
                   "get_counter_value()");
    EXPECT_NE(device->state, nullptr);
    EXPECT_EQ(result.real_value, 0) << "the start value does not get into the result";
    EXPECT_SUCCESS(check_perfcnt(device, &result));
    EXPECT_EQ(counters.added.size(), 1U);
}
