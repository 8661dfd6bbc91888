#include "probes/os/counter_provider.h"

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/counter_names.h"
#include "probes/os/counter_objects.h"
#include "probes/os/perf_counter.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/provider_fixture.h"

#include <gtest/gtest.h>
#include <set>

namespace {

struct provider_paths : provider {
    void expect_refusals_without_memory(const char *path);
};
using provider_levels = provider;
using provider_rates = provider;
using provider_percentages = provider;
using provider_sources = provider;
using provider_names = provider;

void provider_paths::expect_refusals_without_memory(const char *path) {
    int refused = 0;
    for (uint32_t n = 1; n < 100; n++, refused++) {
        counter_sources_reset();
        host.fail_allocation = n;
        uint32_t status = provider_add_counter(query, path, &counter);
        bool came_to_it = host.fail_allocation == 0;
        host.fail_allocation = 0;
        counter_sources_reset();
        if (!came_to_it) {
            EXPECT_EQ(status, PDH_OK);
            provider_remove_counter(counter);
            break;
        }
        // What only was to be kept for the next counter may be missing.
        if (status == PDH_OK) provider_remove_counter(counter);
        EXPECT_TRUE(status == PDH_OK || status == PDH_CSTATUS_NO_COUNTER ||
                    status == PDH_MEMORY_ALLOCATION_FAILURE)
            << n;
        EXPECT_EQ(host.blocks, 1) << "the query";
    }
    EXPECT_GE(refused, 8);
}

} // namespace

// Paths.

// Every counter of every instance is what a browser opens. Of the processes of `numa` and `stacked` an agent
// without root's rights can read neither calls nor open files, and some drives have no device that counts.
TEST_F(provider_paths, finds_every_counter_of_every_instance) {
    const std::set<std::string> counted = {"container(/data)",
                                           "numa(/)",
                                           "numa(/boot/efi)",
                                           "numa(/srv/late)",
                                           "numa(/srv/My Data)",
                                           "numa(/srv/My Data/inner#one)",
                                           "numa(/run/media/operator/Stick)"};
    for (const char *name : {"container", "numa", "stacked"}) {
        machine.use(name);
        int found = 0;
        for (const counter_object *object : counter_objects) {
            std::vector<std::string> instances = {""};
            if (object->list_instances != nullptr) instances = instances_of(object->name);
            for (const std::string &instance : instances) {
                for (const counter_row &row : object->counters) {
                    std::string path = std::string("\\") + object->name + instance + "\\" + row.name;
                    bool of_disk = object == &logical_disk_object && row.is_there != nullptr;
                    bool closed = object == &process_object && row.is_there != nullptr &&
                                  instance != "(_Total)" && !text_equal(name, "container");
                    bool there = of_disk ? counted.contains(name + instance) : !closed;
                    EXPECT_EQ(provider_add_counter(query, path.c_str(), &counter),
                              there ? PDH_OK : PDH_CSTATUS_NO_COUNTER)
                        << name << path;
                    found += there;
                }
            }
        }
        EXPECT_GT(found, 60);
    }
}

TEST_F(provider_paths, refuses_what_is_unknown) {
    for (const char *path :
         {"\\Nothing\\Context Switches/sec", "\\System\\Nothing", "\\Processor(2)\\% Idle Time",
          "\\Processor(00)\\% Idle Time", "\\Processor()\\% Idle Time", "\\system\\Context Switches/sec",
          "\\System\\context switches/sec"})
        EXPECT_EQ(add(path), PDH_CSTATUS_NO_COUNTER) << path;
}

TEST_F(provider_paths, wants_an_instance_exactly_where_the_object_has_some) {
    EXPECT_EQ(add("\\Processor\\% Idle Time"), PDH_CSTATUS_NO_COUNTER);
    EXPECT_EQ(add("\\System(_Total)\\Processes"), PDH_CSTATUS_NO_COUNTER);
}

TEST_F(provider_paths, refuses_what_is_no_path) {
    for (const char *path : {"", "System\\Processes", "\\", "\\System", "\\System(", "\\System(x",
                             "\\System(x)Processes", "\\(x)\\Processes"})
        EXPECT_EQ(add(path), PDH_CSTATUS_BAD_COUNTERNAME) << path;
    EXPECT_EQ(add(("\\" + std::string(600, 'o') + "\\c").c_str()), PDH_CSTATUS_BAD_COUNTERNAME);
    EXPECT_EQ(add(("\\Processor(" + std::string(600, 'i') + ")\\c").c_str()), PDH_CSTATUS_BAD_COUNTERNAME);
    EXPECT_EQ(add("\\System\\"), PDH_CSTATUS_NO_COUNTERNAME);
    EXPECT_EQ(add("\\\\far\\System\\Processes"), PDH_CSTATUS_NO_MACHINE);
}

TEST_F(provider_paths, refuses_handles_and_arguments_that_are_absent) {
    double found = 0;
    EXPECT_EQ(provider_open_query(nullptr), PDH_INVALID_ARGUMENT);
    EXPECT_EQ(provider_add_counter(nullptr, "\\System\\Processes", &counter), PDH_INVALID_HANDLE);
    EXPECT_EQ(provider_add_counter(query, nullptr, &counter), PDH_INVALID_ARGUMENT);
    EXPECT_EQ(provider_add_counter(query, "\\System\\Processes", nullptr), PDH_INVALID_ARGUMENT);
    EXPECT_EQ(provider_remove_counter(nullptr), PDH_INVALID_HANDLE);
    EXPECT_EQ(provider_close_query(nullptr), PDH_INVALID_HANDLE);
    EXPECT_EQ(provider_collect(nullptr), PDH_INVALID_HANDLE);
    EXPECT_EQ(provider_format_value(nullptr, PDH_FMT_DOUBLE, &found), PDH_INVALID_HANDLE);
    ASSERT_EQ(add("\\System\\Processes"), 0U);
    EXPECT_EQ(provider_format_value(counter, 0x100, &found), PDH_INVALID_ARGUMENT);
    EXPECT_EQ(provider_format_value(counter, PDH_FMT_DOUBLE, nullptr), PDH_INVALID_ARGUMENT);
}

TEST_F(provider_paths, refuses_a_counter_that_cannot_be_read_now) {
    machine.unreadable = {"/proc/stat"};
    EXPECT_EQ(add("\\System\\Context Switches/sec"), PDH_CSTATUS_NO_COUNTER);
    EXPECT_EQ(add("\\Processor(_Total)\\% Idle Time"), PDH_CSTATUS_NO_COUNTER);
    machine.texts["/proc/vmstat"] = "nr_free_pages 1\n";
    EXPECT_EQ(add("\\Memory\\Page Faults/sec"), PDH_CSTATUS_NO_COUNTER);
}

TEST_F(provider_paths, tells_when_memory_is_out) {
    expect_refusals_without_memory("\\Processor(1)\\% Idle Time");
    expect_refusals_without_memory("\\Process(sh)\\IO Read Bytes/sec");
    host.fail_allocation = 1;
    pdh_query *other = nullptr;
    EXPECT_EQ(provider_open_query(&other), PDH_MEMORY_ALLOCATION_FAILURE);
}

TEST_F(provider_paths, collects_nothing_without_memory) {
    ASSERT_EQ(add("\\Process(sh)\\Handle Count"), PDH_OK);
    bool came_to_it = true;
    for (uint32_t n = 1; came_to_it; n++) {
        counter_sources_reset();
        int64_t blocks = host.blocks;
        host.fail_allocation = n;
        double found = sample();
        came_to_it = host.fail_allocation == 0;
        host.fail_allocation = 0;
        counter_sources_reset();
        EXPECT_TRUE(found == 3 || found == NO_DATA || found == INVALID_DATA) << n << found;
        EXPECT_LE(host.blocks, blocks) << n;
        ASSERT_LT(n, 100U);
    }
    EXPECT_EQ(sample(), 3);
}

TEST_F(provider_paths, removes_one_counter_of_several) {
    pdh_counter *first = nullptr;
    ASSERT_EQ(provider_add_counter(query, "\\System\\Processes", &first), 0U);
    ASSERT_EQ(add("\\Memory\\Available Bytes"), 0U);
    EXPECT_EQ(provider_remove_counter(first), 0U);
    EXPECT_EQ(sample(), 2514480.0 * 1024);
    EXPECT_EQ(provider_remove_counter(counter), 0U);
    EXPECT_EQ(provider_collect(query), PDH_NO_DATA);
}

// Levels: one sample is enough.

TEST_F(provider_levels, count_processes_by_their_folders) {
    ASSERT_EQ(add("\\System\\Processes"), 0U);
    EXPECT_EQ(sample(), 3);
    machine.texts["/proc/"] = "1\nself\n12x\n-4\n77\n.\n..\n9";
    EXPECT_EQ(sample(), 2) << "names that are no number, and one cut off";
}

TEST_F(provider_levels, tell_the_uptime_in_seconds) {
    ASSERT_EQ(add("\\System\\System Up Time"), 0U);
    EXPECT_DOUBLE_EQ(sample(), 300213.57);
    for (const char *wrong : {"", "12.34", "x\n", "12\n", "12.\n", "12.345\n", "-1.00 2\n"}) {
        machine.texts["/proc/uptime"] = wrong;
        EXPECT_EQ(sample(), NO_DATA) << wrong;
    }
}

TEST_F(provider_levels, count_runnable_threads_beyond_the_processors) {
    ASSERT_EQ(add("\\System\\Processor Queue Length"), 0U);
    EXPECT_EQ(sample(), 6 - 2);
    machine.change("/proc/stat", "procs_running 6", "procs_running 1");
    EXPECT_EQ(sample(), 0);
}

TEST_F(provider_levels, tell_memory_in_bytes) {
    ASSERT_EQ(add("\\Memory\\Available Bytes"), 0U);
    EXPECT_EQ(sample(), 2514480.0 * 1024);
    ASSERT_EQ(add("\\Memory\\Committed Bytes"), 0U);
    EXPECT_EQ(sample(), 2901312.0 * 1024);
}

TEST_F(provider_levels, need_a_sample) {
    ASSERT_EQ(add("\\Memory\\Available Bytes"), 0U);
    EXPECT_EQ(value(), INVALID_DATA);
}

// Rates.

TEST_F(provider_rates, need_two_samples) {
    ASSERT_EQ(add("\\System\\Context Switches/sec"), 0U);
    EXPECT_EQ(sample(), INVALID_DATA);
    machine.change("/proc/stat", "ctxt 115315982", "ctxt 115316982");
    machine.now += 2 * SECOND;
    EXPECT_DOUBLE_EQ(sample(), 500);
}

TEST_F(provider_rates, go_from_the_last_sample_to_this_one) {
    ASSERT_EQ(add("\\System\\Context Switches/sec"), 0U);
    sample();
    machine.now += SECOND;
    EXPECT_EQ(sample(), 0);
    machine.change("/proc/stat", "ctxt 115315982", "ctxt 115315992");
    machine.now += SECOND / 2;
    EXPECT_DOUBLE_EQ(sample(), 20);
    EXPECT_DOUBLE_EQ(value(), 20) << "the value stays until the next sample";
}

TEST_F(provider_rates, give_nothing_for_two_samples_at_one_moment) {
    ASSERT_EQ(add("\\System\\Context Switches/sec"), 0U);
    sample();
    machine.change("/proc/stat", "ctxt 115315982", "ctxt 115316982");
    EXPECT_EQ(sample(), INVALID_DATA);
    machine.now -= SECOND;
    EXPECT_EQ(sample(), INVALID_DATA);
}

TEST_F(provider_rates, start_over_when_the_counter_goes_back) {
    ASSERT_EQ(add("\\System\\Context Switches/sec"), 0U);
    sample();
    machine.texts["/proc/stat"] = "ctxt 10\n";
    machine.now += SECOND;
    EXPECT_EQ(sample(), INVALID_DATA);
    machine.texts["/proc/stat"] = "ctxt 40\n";
    machine.now += SECOND;
    EXPECT_DOUBLE_EQ(sample(), 30);
}

TEST_F(provider_rates, go_on_over_a_wrap_of_64_bits) {
    machine.texts["/proc/stat"] = "ctxt 18446744073709551610\n";
    ASSERT_EQ(add("\\System\\Context Switches/sec"), 0U);
    sample();
    machine.texts["/proc/stat"] = "ctxt 14\n";
    machine.now += SECOND;
    EXPECT_DOUBLE_EQ(sample(), 20);
}

TEST_F(provider_rates, start_over_behind_a_gap) {
    ASSERT_EQ(add("\\System\\Context Switches/sec"), 0U);
    sample();
    std::string whole = machine.text("/proc/stat");
    machine.texts["/proc/stat"] = "cpu  1 2 3 4\n";
    machine.now += SECOND;
    EXPECT_EQ(sample(), NO_DATA);
    machine.texts["/proc/stat"] = whole;
    machine.now += SECOND;
    EXPECT_EQ(sample(), INVALID_DATA) << "one sample since";
    machine.now += SECOND;
    EXPECT_EQ(sample(), 0);
}

TEST_F(provider_rates, tell_interrupts_of_all_processors_and_of_one) {
    pdh_counter *total = nullptr;
    ASSERT_EQ(provider_add_counter(query, "\\Processor(_Total)\\Interrupts/sec", &total), 0U);
    ASSERT_EQ(add("\\Processor(1)\\Interrupts/sec"), 0U);
    provider_collect(query);
    machine.change("/proc/stat", "intr 1462898", "intr 1462998");
    machine.change("/proc/interrupts", "188221", "188228");
    machine.now += SECOND;
    provider_collect(query);
    EXPECT_DOUBLE_EQ(value(), 7);
    counter = total;
    EXPECT_DOUBLE_EQ(value(), 100);
}

TEST_F(provider_rates, tell_page_faults_and_swapped_pages) {
    pdh_counter *faults = nullptr;
    ASSERT_EQ(provider_add_counter(query, "\\Memory\\Page Faults/sec", &faults), 0U);
    ASSERT_EQ(add("\\Memory\\Pages/sec"), 0U);
    provider_collect(query);
    machine.change("/proc/vmstat", "pgfault 190112233", "pgfault 190112333");
    machine.change("/proc/vmstat", "pswpin 0", "pswpin 3");
    machine.change("/proc/vmstat", "pswpout 0", "pswpout 4");
    machine.now += SECOND;
    provider_collect(query);
    EXPECT_DOUBLE_EQ(value(), 7);
    counter = faults;
    EXPECT_DOUBLE_EQ(value(), 100);
}

TEST_F(provider_rates, take_a_kernel_without_swap_for_one_that_never_swaps) {
    machine.texts["/proc/vmstat"] = "pgfault 5\n";
    ASSERT_EQ(add("\\Memory\\Pages/sec"), 0U);
    sample();
    machine.now += SECOND;
    EXPECT_EQ(sample(), 0);
}

// Percentages. The kinds of time are user, nice, system, idle, iowait, irq, softirq, steal.

TEST_F(provider_percentages, share_the_time_between_two_samples) {
    const std::pair<const char *, double> shares[] = {
        {"\\Processor(_Total)\\% Processor Time", 40 + 4},
        {"\\System\\% Total Processor Time", 40 + 4},
        {"\\Processor(_Total)\\% User Time", 10 + 5},
        {"\\Processor(_Total)\\% Privileged Time", 20 + 2 + 3},
        {"\\Processor(_Total)\\% Idle Time", 50 + 6},
    };
    for (auto [path, share] : shares) {
        set_times("100 100 100 100 100 100 100 100");
        ASSERT_EQ(add(path), 0U);
        EXPECT_EQ(sample(), INVALID_DATA) << "one sample";
        set_times("110 105 120 150 106 102 103 104");
        EXPECT_DOUBLE_EQ(sample(), share) << path;
        provider_remove_counter(counter);
    }
}

TEST_F(provider_percentages, share_the_time_of_one_processor) {
    ASSERT_EQ(add("\\Processor(1)\\% Processor Time"), 0U);
    sample();
    machine.change("/proc/stat", "cpu1 5066078", "cpu1 5066178");
    machine.change("/proc/stat", "23414242", "23414542");
    EXPECT_DOUBLE_EQ(sample(), 25);
}

TEST_F(provider_percentages, give_nothing_where_no_time_has_passed) {
    ASSERT_EQ(add("\\Processor(_Total)\\% Processor Time"), 0U);
    sample();
    machine.now += SECOND;
    EXPECT_EQ(sample(), INVALID_DATA);
}

TEST_F(provider_percentages, give_nothing_where_time_has_gone_back) {
    set_times("100 100 100 100 100 100 100 100");
    ASSERT_EQ(add("\\Processor(_Total)\\% Idle Time"), 0U);
    sample();
    set_times("0 0 0 10 0 0 0 0");
    EXPECT_EQ(sample(), INVALID_DATA);
    set_times("0 0 0 20 0 0 0 0");
    EXPECT_EQ(sample(), 100);
}

TEST_F(provider_percentages, never_fall_below_0) {
    set_times("100 0 0 100 100 0 0 0");
    ASSERT_EQ(add("\\Processor(_Total)\\% Idle Time"), 0U);
    sample();
    set_times("200 0 0 100 98 0 0 0");
    EXPECT_EQ(sample(), 0) << "the kernel took back two ticks of waiting";
}

TEST_F(provider_percentages, never_rise_above_100) {
    set_times("100 0 0 100 100 0 0 0");
    ASSERT_EQ(add("\\Processor(_Total)\\% Processor Time"), 0U);
    sample();
    set_times("200 0 0 100 98 0 0 0");
    EXPECT_EQ(sample(), 100);
}

TEST_F(provider_percentages, go_on_over_a_counter_below_zero) {
    set_times("100 0 0 100 18446744073709551615 0 0 0");
    ASSERT_EQ(add("\\Processor(_Total)\\% Idle Time"), 0U);
    sample();
    set_times("150 0 0 149 0 0 0 0");
    EXPECT_DOUBLE_EQ(sample(), 50);
}

TEST_F(provider_percentages, have_no_data_of_a_processor_that_was_switched_off) {
    ASSERT_EQ(add("\\Processor(1)\\% Idle Time"), 0U);
    sample();
    machine.change("/proc/stat", "cpu1 ", "cpu2 ");
    EXPECT_EQ(sample(), NO_DATA);
    EXPECT_EQ(sample(), NO_DATA);
}

// Sources.

TEST_F(provider_sources, are_read_once_for_all_counters_of_a_collection) {
    ASSERT_EQ(add("\\System\\Context Switches/sec"), 0U);
    ASSERT_EQ(add("\\Memory\\Available Bytes"), 0U);
    ASSERT_EQ(add("\\Processor(0)\\% Idle Time"), 0U);
    ASSERT_EQ(add("\\Memory\\Committed Bytes"), 0U);
    machine.reads.clear();
    EXPECT_EQ(provider_collect(query), 0U);
    EXPECT_EQ(machine.reads, (std::vector<std::string>{"/proc/meminfo", "/proc/stat"}));
}

TEST_F(provider_sources, are_asked_about_each_question) {
    auto yes = [](const char *, const char *) { return true; };
    auto no = [](const char *, const char *) { return false; };
    const counter_row rows[] = {{.name = "a", .source = "/proc/stat", .is_there = yes},
                                {.name = "b", .source = "/proc/stat", .is_there = no}};
    for (int i = 0; i < 2; i++) {
        EXPECT_TRUE(has_instance_source(&processor_object, &rows[0], "/proc/stat", "1"));
        EXPECT_FALSE(has_instance_source(&processor_object, &rows[1], "/proc/stat", "1"));
    }
    EXPECT_EQ(machine.reads, std::vector<std::string>{"/proc/stat"});
}

TEST_F(provider_sources, are_not_read_without_need) {
    ASSERT_EQ(add("\\System\\System Up Time"), 0U);
    EXPECT_EQ(machine.reads, std::vector<std::string>{"/proc/uptime"});
    machine.reads.clear();
    sample();
    EXPECT_EQ(machine.reads, std::vector<std::string>{"/proc/uptime"});
}

TEST_F(provider_sources, leave_no_data_when_none_can_be_read) {
    pdh_counter *other = nullptr;
    ASSERT_EQ(provider_add_counter(query, "\\System\\System Up Time", &other), 0U);
    ASSERT_EQ(add("\\Memory\\Available Bytes"), 0U);
    machine.unreadable = {"/proc/meminfo"};
    EXPECT_EQ(sample(), INVALID_DATA) << "the other one has come";
    machine.unreadable.insert("/proc/uptime");
    EXPECT_EQ(sample(), NO_DATA);
}

TEST_F(provider_sources, leave_no_data_when_none_holds_what_is_counted) {
    pdh_counter *other = nullptr;
    ASSERT_EQ(provider_add_counter(query, "\\Processor(0)\\% Idle Time", &other), 0U);
    ASSERT_EQ(add("\\Processor(1)\\% Idle Time"), 0U);
    machine.change("/proc/stat", "cpu1 ", "cpu2 ");
    EXPECT_EQ(sample(), INVALID_DATA) << "the other one has come";
    machine.change("/proc/stat", "cpu0 ", "cpu3 ");
    EXPECT_EQ(sample(), NO_DATA);
}

TEST_F(provider_sources, leave_no_data_for_a_query_without_counters) {
    EXPECT_EQ(provider_collect(query), PDH_NO_DATA);
}

TEST_F(provider_sources, may_be_larger_than_expected) {
    machine.texts["/proc/stat"] = std::string(100000, '#') + "\nctxt 7\n";
    ASSERT_EQ(add("\\System\\Context Switches/sec"), 0U);
    size_t first = machine.reads.size();
    sample();
    EXPECT_EQ(machine.reads.size(), first + 1) << "the size is known by now";
}

TEST_F(provider_sources, may_fill_a_buffer_to_its_last_byte) {
    std::string text = "ctxt 1234567890\n";
    machine.texts["/proc/stat"] = std::string(4096 - text.size() - 1, '#') + "\n" + text;
    EXPECT_EQ(add("\\System\\Context Switches/sec"), 0U);
    EXPECT_EQ(machine.reads.size(), 2U) << "a full buffer may not be all";
}

TEST_F(provider_sources, without_an_end_are_given_up) {
    machine.texts["/proc/stat"] = std::string((size_t{16} << 20) + 1, 'x');
    EXPECT_EQ(add("\\System\\Context Switches/sec"), PDH_CSTATUS_NO_COUNTER);
    EXPECT_EQ(add("\\System\\System Up Time"), 0U);
}

// Names.

TEST_F(provider_names, are_numbered_by_even_numbers) {
    uint32_t index = 0;
    char name[64];
    uint32_t size = sizeof name;
    EXPECT_EQ(provider_index_by_name("System", &index), 0U);
    EXPECT_EQ(index, 2U);
    EXPECT_EQ(provider_name_by_index(2, name, &size), 0U);
    EXPECT_STREQ(name, "System");
    EXPECT_EQ(size, 7U);
}

TEST_F(provider_names, lead_back_to_themselves) {
    for (const counter_object *object : counter_objects) {
        for (const counter_row &row : object->counters) {
            uint32_t index = 0;
            char name[64];
            uint32_t size = sizeof name;
            ASSERT_EQ(provider_index_by_name(row.name, &index), 0U);
            ASSERT_EQ(provider_name_by_index(index, name, &size), 0U);
            EXPECT_STREQ(name, row.name);
        }
    }
}

TEST_F(provider_names, refuse_what_is_unknown) {
    uint32_t index = 0;
    char name[64];
    uint32_t size = sizeof name;
    EXPECT_EQ(provider_index_by_name("Nothing", &index), PDH_STRING_NOT_FOUND);
    for (uint32_t unknown : {0U, 1U, 3U, 2000U, UINT32_MAX})
        EXPECT_EQ(provider_name_by_index(unknown, name, &size), PDH_INVALID_ARGUMENT) << unknown;
}

TEST_F(provider_names, tell_the_size_of_a_name_that_does_not_fit) {
    char name[6];
    uint32_t size = sizeof name;
    EXPECT_EQ(provider_name_by_index(2, name, &size), PDH_MORE_DATA);
    EXPECT_EQ(size, 7U);
    EXPECT_STREQ(name, "Syste");
}

TEST_F(provider_names, fill_the_table_of_english_names) {
    std::vector<char> buffer(64, 'x');
    auto size = static_cast<uint32_t>(buffer.size());
    EXPECT_EQ(provider_query_value("Counter 009", buffer.data(), &size), ERROR_MORE_DATA);
    buffer.assign(size, 'x');
    EXPECT_EQ(provider_query_value("Counter 009", buffer.data(), &size), 0U);
    std::string table(buffer.data(), size);
    EXPECT_TRUE(table.starts_with(std::string("2\0System\0"
                                              "4\0% Total",
                                              18)))
        << table;
    EXPECT_TRUE(table.ends_with(std::string("Datagrams Received Errors\0\0", 27)));
    EXPECT_NE(provider_query_value("Counter 007", buffer.data(), &size), 0U);
}

TEST_F(provider_names, do_not_write_behind_a_small_buffer) {
    for (uint32_t limit = 0; limit < 100; limit++) {
        std::string buffer(400, 'x');
        uint32_t size = limit;
        EXPECT_EQ(provider_query_value("Counter 009", buffer.data(), &size), ERROR_MORE_DATA);
        EXPECT_EQ(buffer.find_first_not_of('x', limit), std::string::npos) << limit;
    }
}
