#include "probes/os/system_load.h"

#include "fakes/notes.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/os/perf_counter.h"
#include "probes/os/scripted_counters.h"

#include <cmath>
#include <gtest/gtest.h>

namespace {

constexpr const char *TOTAL = "\\System\\% Total Processor Time";
constexpr const char *PROCESSOR = "\\Processor(_Total)\\% Processor Time";
constexpr const char *SWITCHES = "\\System\\Context Switches/sec";
constexpr const char *UPTIME = "\\System\\System Up Time";

struct load_fixture : testing::Test {
    test_host host;
    scripted_counters counters;

    load_fixture() {
        uint32_t index = 2;
        for (const char *name : {"System", "% Total Processor Time", "Processor", "% Processor Time",
                                 "Context Switches/sec", "System Up Time"})
            counters.add(index++, name, name);
        counters.paths = {PROCESSOR, SWITCHES, UPTIME};
    }
};

struct scan_system_test : load_fixture {
    devtree root = {};
    ~scan_system_test() override { free_devtree(root.children); }
    std::vector<std::string> offered() {
        std::vector<std::string> ids;
        for (const devnode *device = root.children->devices; device != nullptr; device = device->next)
            ids.emplace_back(device->id);
        return ids;
    }
};

struct check_system_test : load_fixture {
    devnode_guard device{alloc_devnode()};
    resnode result = {.value = 77};
    const char *check(const char *id) {
        text_replace(&device->id, text_copy(id));
        return check_system(device.get(), &result);
    }
    int32_t value_of(const char *id, double value) {
        counters.values = {{0, value}};
        EXPECT_SUCCESS(check(id));
        return result.value;
    }
};

using ids = std::vector<std::string>;

} // namespace

TEST_F(scan_system_test, offers_what_the_host_counts) {
    EXPECT_SUCCESS(scan_system(&root));
    const devtree *group = root.children;
    EXPECT_STREQ(group->id, "system");
    EXPECT_STREQ(group->name, "System Information");
    EXPECT_STREQ(group->name_template, "%0r");
    EXPECT_EQ(group->group_flags, 0U);
    const struct {
        const char *id, *name, *comment, *unit;
        uint32_t type, description;
    } rows[] = {{"uptime", "System uptime", "System uptime", "s", 4, 7},
                {"cswitch", "Context switches", "Context switches/sec", "/s", 0, 6},
                {"idle", "Idle CPU time", "Idle CPU time", "%", 0, 5}};
    const devnode *device = group->devices;
    for (const auto &row : rows) {
        ASSERT_NE(device, nullptr);
        EXPECT_STREQ(device->id, row.id);
        EXPECT_STREQ(device->name, row.name);
        EXPECT_STREQ(device->comment, row.comment);
        note_text(row.name);
        note_text(row.comment);
        EXPECT_STREQ(device->unit, row.unit);
        EXPECT_EQ(device->type, row.type);
        EXPECT_EQ(device->description, row.description);
        EXPECT_EQ(device->limits.hint.hint_present, row.description == 5);
        device = device->next;
    }
    EXPECT_EQ(device, nullptr);
    for (const char *line : {"In scan_system", "Found idle", "Found context switches"})
        EXPECT_TRUE(host.logged(LOG_TRACE, line)) << line;
}

TEST_F(scan_system_test, hints_at_the_range_of_idle_without_measuring_it) {
    EXPECT_SUCCESS(scan_system(&root));
    const devnode *idle = root.children->devices->next->next;
    EXPECT_EQ(idle->limits.hint.hint_min, 0.0);
    EXPECT_FALSE(std::isfinite(idle->limits.hint.hint_value));
    EXPECT_EQ(idle->limits.hint.hint_max, 10000.0);
    EXPECT_EQ(counters.collections, 0);
}

TEST_F(scan_system_test, asks_for_the_sum_under_two_names_and_quietly) {
    EXPECT_SUCCESS(scan_system(&root));
    EXPECT_EQ(counters.added, (ids{TOTAL, PROCESSOR, SWITCHES}));
    EXPECT_EQ(host.count_logged("Error ("), 0);
}

TEST_F(scan_system_test, takes_the_first_name_where_the_host_has_it) {
    counters.paths.insert(TOTAL);
    EXPECT_SUCCESS(scan_system(&root));
    EXPECT_EQ(counters.added, (ids{TOTAL, SWITCHES}));
}

TEST_F(scan_system_test, always_offers_the_uptime) {
    counters.paths.clear();
    EXPECT_SUCCESS(scan_system(&root));
    EXPECT_EQ(offered(), ids{"uptime"});
    EXPECT_TRUE(host.logged(LOG_WARNING, "Could not locate Context Switches performance counter"));
    EXPECT_EQ(host.count_logged("Error ("), 0);
    EXPECT_EQ(host.count_logged("Found"), 0);
}

TEST_F(scan_system_test, frees_its_devices_where_the_group_cannot_be_made) {
    counters.paths.clear();
    // The table, four records of counters with their paths, the device with its texts, the group.
    host.fail_allocation = 1 + 3 * 2 + 5 + 1;
    EXPECT_FAILURE(scan_system(&root), "Couldn't allocate devtree_child mem");
}

TEST_F(check_system_test, tells_the_idle_time_in_hundredths) {
    EXPECT_EQ(value_of("idle", 40), 6000);
    EXPECT_EQ(value_of("idle", 0), 10000);
    EXPECT_EQ(value_of("idle", 100), 0);
    EXPECT_EQ(result.real_value, 0.0) << "the integer alone is set";
}

TEST_F(check_system_test, rounds_the_idle_time_up) {
    EXPECT_EQ(value_of("idle", 99.991), 1);
    EXPECT_EQ(value_of("idle", 49.995), 5001);
}

TEST_F(check_system_test, has_no_negative_idle_time) {
    EXPECT_EQ(value_of("idle", 100.5), 0);
    EXPECT_EQ(value_of("idle", 400), 0);
}

TEST_F(check_system_test, reads_idle_under_the_first_name_that_the_host_has) {
    value_of("idle", 1);
    EXPECT_EQ(counters.added, (ids{TOTAL, PROCESSOR}));
    EXPECT_EQ(host.count_logged("Error ("), 0);
}

TEST_F(check_system_test, cuts_context_switches_toward_zero) {
    EXPECT_EQ(value_of("cswitch", 1234.99), 1234);
    EXPECT_EQ(counters.added, ids{SWITCHES});
}

TEST_F(check_system_test, rounds_the_uptime_to_seconds) {
    EXPECT_EQ(value_of("uptime", 10.5), 11);
    EXPECT_EQ(value_of("uptime", 10.49), 10);
    EXPECT_EQ(counters.added, ids{UPTIME});
}

TEST_F(check_system_test, refuses_an_unknown_id) {
    EXPECT_FAILURE(check("Idle"), "Unknown system check requested: Idle");
    EXPECT_EQ(counters.added.size(), 0U);
}

TEST_F(check_system_test, tells_each_missing_counter) {
    counters.paths.clear();
    EXPECT_FAILURE(check("idle"), "Could not find counter in check_load");
    EXPECT_EQ(host.count_logged("Error ("), 0);
    EXPECT_FAILURE(check("cswitch"), "Could not find performance counter for context switches");
    EXPECT_TRUE(host.logged(
        LOG_WARNING,
        "Error (PDH_CSTATUS_NO_COUNTER) adding counter \"\\System\\Context Switches/sec\" to query"));
    EXPECT_FAILURE(check("uptime"), "Could not locate performance counter in check_uptime");
    EXPECT_TRUE(host.logged(
        LOG_WARNING, "Error (PDH_CSTATUS_NO_COUNTER) adding counter \"\\System\\System Up Time\" to query"));
    EXPECT_EQ(device->state, nullptr);
    EXPECT_EQ(result.value, 77);
}

TEST_F(check_system_test, tells_each_failure_to_read) {
    const std::pair<const char *, const char *> failures[] = {
        {"idle", "Could not get counter value in check_load: "},
        {"cswitch", "Could not get counter value for context switches: "},
        {"uptime", "Could not get counter value for uptime: "},
    };
    for (auto [id, words] : failures) {
        counters.values = {{PDH_INVALID_ARGUMENT, 0}};
        device.reset(alloc_devnode());
        EXPECT_FAILURE(check(id), std::string(words) +
                                      "Got INVALID_ARGUMENT from GetFormattedCounterValue() in "
                                      "get_counter_value()");
        EXPECT_NE(device->state, nullptr) << "the counter stays for the next check";
        EXPECT_EQ(result.value, 77);
    }
}

TEST_F(check_system_test, keeps_the_counter_between_checks) {
    counters.values = {{PDH_INVALID_DATA, 0}, {0, 5}, {0, 6}};
    EXPECT_SUCCESS(check("cswitch"));
    EXPECT_SUCCESS(check("cswitch"));
    EXPECT_EQ(result.value, 6);
    EXPECT_EQ(counters.added.size(), 1U);
    EXPECT_EQ(host.sleeps.size(), 1U);
}

TEST_F(check_system_test, builds_a_new_counter_after_no_data) {
    counters.collect_statuses = {PDH_NO_DATA};
    EXPECT_FAILURE(
        check("uptime"),
        "Could not get counter value for uptime: Couldn't collect query data for \\System\\System Up "
        "Time: The query does not currently contain any counters.");
    EXPECT_EQ(device->state, nullptr);
    EXPECT_SUCCESS(check("uptime"));
    EXPECT_EQ(counters.added.size(), 2U);
}

TEST_F(check_system_test, frees_the_counter_with_the_device) {
    value_of("uptime", 1);
    EXPECT_EQ(device->state_magic, COUNTER_STATE_MAGIC);
    device.reset();
    EXPECT_EQ(counters.queries, 0);
}
