// Every reader of host text against texts that are cut off anywhere, and against texts with random faults:
// whatever it makes of them has to hold together.
#include "fakes/test_host.h"
#include "probes/os/counter_objects.h"
#include "probes/os/counter_provider.h"
#include "probes/os/drives_ops.h"
#include "probes/os/host_text.h"
#include "probes/os/machine.h"
#include "probes/os/meminfo.h"
#include "probes/os/mount_table.h"
#include "probes/os/network_text.h"
#include "probes/os/os_release.h"
#include "probes/os/perf_counter_ops.h"
#include "probes/os/proc_stat.h"
#include "probes/os/processor_list.h"
#include "probes/os/recorded_ops.h"
#include "probes/os/task_files.h"

#include <functional>
#include <gtest/gtest.h>
#include <random>

namespace {

using reader = std::function<void(const std::string &text)>;

// Each text of the container cut behind every byte.
void cut_everywhere(const char *path, const reader &read) {
    std::string text = recorded_text(TEST_DATA "/machines/container" + std::string(path));
    for (size_t length = 0; length <= text.size(); length++)
        read(text.substr(0, length));
}

// Bytes exchanged, pieces doubled and taken out, by a fixed seed.
std::string spoil(std::string text, std::mt19937 &chance) {
    static const std::string bytes = std::string("\0\n \t-:./\\09\x80\xFF", 13);
    for (int faults = 1 + static_cast<int>(chance() % 4); faults > 0 && !text.empty(); faults--) {
        size_t at = chance() % text.size();
        size_t length = 1 + chance() % 40;
        switch (chance() % 4) {
        case 0:
            text[at] = bytes[chance() % bytes.size()];
            break;
        case 1:
            text.erase(at, length);
            break;
        case 2:
            text.insert(at, text.substr(at, length));
            break;
        default:
            text.insert(at, std::string(length, static_cast<char>('0' + chance() % 10)));
        }
    }
    return text;
}

void spoil_often(const char *path, const reader &read) {
    std::mt19937 chance(1);
    for (const char *machine : {"container", "numa"}) {
        std::string text = recorded_machine(machine).text(path).substr(0, 8192);
        for (int i = 0; i < 1500; i++)
            read(spoil(text, chance));
    }
}

void break_everyhow(const char *path, const reader &read) {
    cut_everywhere(path, read);
    spoil_often(path, read);
}

void check_mounts(const std::string &text) {
    mount_table_guard table(parse_mounts(text.c_str(), [](const char *) { return true; }));
    ASSERT_NE(table, nullptr);
    for (uint32_t i = 0; i < table->count; i++) {
        const mount_point &point = table->points[i];
        EXPECT_EQ(point.path[0], '/');
        EXPECT_TRUE(point.drive_type != DRIVE_FIXED || mount_is_drive(table.get(), point.path)) << point.path;
    }
    for (uint32_t i = 0; const char *root = mount_root(table.get(), i); i++) {
        char path[128];
        for (uint32_t position = 0; next_mount_below(table.get(), root, &position, path, sizeof path);)
            EXPECT_LT(strlen(path), sizeof path);
    }
}

} // namespace

TEST(broken_meminfo, keeps_parts_within_their_wholes) {
    break_everyhow("/proc/meminfo", [](const std::string &text) {
        meminfo memory;
        if (!parse_meminfo(text.c_str(), &memory)) return;
        EXPECT_LE(memory.available, memory.total);
        EXPECT_LE(memory.swap_free, memory.swap_total);
    });
}

TEST(broken_mount_table, gives_whole_paths) {
    break_everyhow("/proc/self/mountinfo", check_mounts);
}

TEST(broken_interrupts, tell_nothing_of_other_processors) {
    break_everyhow("/proc/interrupts", [](const std::string &text) {
        uint64_t sum = 0;
        bool found = parse_processor_interrupts(text.c_str(), "1", &sum);
        EXPECT_TRUE(!found || text.find("CPU1") != std::string::npos);
    });
}

TEST(broken_stat, gives_shares_between_0_and_100) {
    test_host host;
    pdh_query *query = nullptr;
    pdh_counter *counter = nullptr;
    ASSERT_EQ(provider_open_query(&query), 0U);
    std::mt19937 chance(2);
    recorded_machine machine("container");
    ASSERT_EQ(provider_add_counter(query, "\\Processor(_Total)\\% Processor Time", &counter), 0U);
    std::string sound = machine.text("/proc/stat");
    int valid = 0;
    for (int i = 0; i < 3000; i++) {
        machine.texts["/proc/stat"] = spoil(sound, chance);
        machine.now += 1000000;
        if (provider_collect(query) != PDH_OK) continue;
        double value = 0;
        if (provider_format_value(counter, PDH_FMT_DOUBLE, &value) != 0) continue;
        EXPECT_GE(value, 0);
        EXPECT_LE(value, 100);
        valid++;
    }
    EXPECT_GT(valid, 10) << "else nothing was tested";
    provider_close_query(query);
    counter_sources_reset();
    EXPECT_EQ(host.blocks, 0);
}

TEST(broken_sources, give_every_counter_a_sample_or_none) {
    recorded_machine machine("container");
    drives_host = &recorded_drives_ops;
    for (const counter_object *object : counter_objects) {
        for (const counter_row &row : object->counters) {
            if (strpbrk(row.source, "*:") != nullptr || std::string(row.source).ends_with('/')) continue;
            cut_everywhere(row.source, [&](const std::string &text) {
                counter_sample sample = {};
                const char *instance = object->list_instances == nullptr ? nullptr
                                       : object == &logical_disk_object  ? "/data"
                                                                         : "1";
                bool read = row.read(text.c_str(), instance, &sample);
                EXPECT_TRUE(!read || text.find('\n') != std::string::npos) << row.name;
            });
        }
    }
    drives_host = nullptr;
}

TEST(broken_task_files, give_whole_records_or_none) {
    for (const char *path : {"/proc/7/io", "/proc/7/statm", "/proc/7/status"}) {
        std::mt19937 chance(3);
        std::string sound = recorded_text(TEST_DATA "/machines/container" + std::string(path));
        auto read = [](const std::string &text) {
            task_io io;
            task_pages pages;
            task_memory memory;
            for (const char *at = text.c_str(); next_task_io(&at, &io);)
                EXPECT_EQ(at[-1], '\n');
            for (const char *at = text.c_str(); next_task_pages(&at, &pages);)
                EXPECT_EQ(at[-1], '\n');
            for (const char *at = text.c_str(); next_task_memory(&at, &memory);)
                EXPECT_NE(text.find("Threads:"), std::string::npos);
        };
        cut_everywhere(path, read);
        for (int i = 0; i < 1500; i++)
            read(spoil(sound, chance));
    }
}

TEST(broken_small_files, are_read_to_their_ends) {
    break_everyhow("/etc/resolv.conf", [](const std::string &text) {
        alignas(8) char room[256];
        record_buffer buffer = {.start = room, .size = sizeof room, .used = 0};
        address_entry *servers = nullptr;
        char domain[20];
        parse_resolver(text.c_str(), domain, sizeof domain, &buffer, &servers);
        EXPECT_LT(strlen(domain), sizeof domain);
        for (; servers != nullptr; servers = servers->next)
            EXPECT_EQ(strspn(servers->address, "0123456789."), strlen(servers->address));
    });
    break_everyhow("/proc/net/route", [](const std::string &text) {
        alignas(8) char room[256];
        record_buffer buffer = {.start = room, .size = sizeof room, .used = 0};
        address_entry *gateways = nullptr;
        parse_gateways(text.c_str(), "eth0", &buffer, &gateways);
        for (; gateways != nullptr; gateways = gateways->next)
            EXPECT_EQ(strspn(gateways->address, "0123456789."), strlen(gateways->address));
    });
    break_everyhow("/etc/os-release", [](const std::string &text) {
        char name[10];
        bool found = parse_os_release(text.c_str(), name, sizeof name);
        EXPECT_EQ(found, name[0] != '\0');
        EXPECT_LT(strlen(name), sizeof name);
    });
    break_everyhow("/sys/devices/system/cpu/online", [](const std::string &text) {
        uint64_t mask = 0;
        uint32_t count = parse_processor_list(text.c_str(), &mask);
        EXPECT_TRUE(count > 0 || mask == 0);
    });
}
