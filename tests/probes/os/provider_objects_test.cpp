// What the counters of each object are worked out from.
#include "fakes/test_host.h"
#include "probes/os/provider_fixture.h"

#include <gtest/gtest.h>

namespace {

using disk_counters = provider;
using drive_counters = provider;
using network_counters = provider;
using process_counters = provider;
using memory_counters = provider;
using processor_counters = provider;

// One disk, of which the counts are reads, merged, sectors, ms; writes, merged, sectors, ms; in flight, busy,
// weighted.
std::string disk(const std::string &counts, const std::string &name = "8 0 sda ") {
    return name + counts + "\n";
}

std::string task(const char *head, uint64_t user, uint64_t kernel) {
    return std::string(head) + " S 1 5 6 7 -1 9 100 11 20 13 " + std::to_string(user) + " " +
           std::to_string(kernel) + " 16 17 18 19 3 21 22 8192 2 25\n";
}

} // namespace

TEST_F(disk_counters, tell_the_thirteen_figures_of_a_disk) {
    const std::pair<const char *, double> rows[] = {
        {"Disk Reads/sec", 50},    {"Disk Read Bytes/sec", 400 * 512},  {"Avg. Disk Read Queue Length", 0.1},
        {"Disk Writes/sec", 25},   {"Disk Write Bytes/sec", 200 * 512}, {"Avg. Disk Write Queue Length", 0.3},
        {"% Idle Time", 75},       {"Avg. Disk Queue Length", 0.5},     {"% Disk Read Time", 10},
        {"% Disk Write Time", 30}, {"Avg. Disk sec/Read", 0.002},       {"Avg. Disk sec/Write", 0.012},
        {"Split IO/Sec", 7.5},
    };
    for (auto [name, expected] : rows) {
        machine.texts["/proc/diskstats"] = disk("1000 10 8000 500 500 20 4000 700 0 900 1200");
        ASSERT_EQ(add((std::string("\\PhysicalDisk(2048 sda)\\") + name).c_str()), PDH_OK) << name;
        EXPECT_EQ(sample(), INVALID_DATA) << name;
        // Two seconds later.
        machine.texts["/proc/diskstats"] = disk("1100 15 8800 700 550 30 4400 1300 4 1400 2200");
        machine.now += 2 * SECOND;
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(disk_counters, tell_further_figures) {
    const std::pair<const char *, double> rows[] = {
        {"% Disk Time", 40},
        {"Current Disk Queue Length", 4},
        {"Avg. Disk sec/Transfer", 800.0 / 150 / 1000},
        {"Disk Transfers/sec", 75},
        {"Disk Bytes/sec", 600 * 512},
        {"Avg. Disk Bytes/Transfer", 1200.0 * 512 / 150},
        {"Avg. Disk Bytes/Read", 8 * 512},
        {"Avg. Disk Bytes/Write", 8 * 512},
    };
    for (auto [name, expected] : rows) {
        machine.texts["/proc/diskstats"] = disk("1000 10 8000 500 500 20 4000 700 0 900 1200");
        ASSERT_EQ(add((std::string("\\PhysicalDisk(2048 sda)\\") + name).c_str()), PDH_OK) << name;
        sample();
        machine.texts["/proc/diskstats"] = disk("1100 15 8800 700 550 30 4400 1300 4 1400 2200");
        machine.now += 2 * SECOND;
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(disk_counters, take_the_mean_of_shares_and_the_sum_of_rates) {
    machine.texts["/proc/diskstats"] =
        disk("0 0 0 0 0 0 0 0 0 0 0") + disk("0 0 0 0 0 0 0 0 0 0 0", "8 16 sdb ");
    pdh_counter *idle = nullptr;
    ASSERT_EQ(add("\\PhysicalDisk(_Total)\\% Idle Time"), PDH_OK);
    idle = counter;
    ASSERT_EQ(add("\\PhysicalDisk(_Total)\\Disk Reads/sec"), PDH_OK);
    provider_collect(query);
    machine.texts["/proc/diskstats"] =
        disk("10 0 0 0 0 0 0 0 0 1000 0") + disk("20 0 0 0 0 0 0 0 0 500 0", "8 16 sdb ");
    machine.now += SECOND;
    EXPECT_DOUBLE_EQ(sample(), 30);
    counter = idle;
    EXPECT_DOUBLE_EQ(value(), 25);
}

TEST_F(disk_counters, end_with_their_disk) {
    ASSERT_EQ(add("\\PhysicalDisk(2048 sda)\\Disk Reads/sec"), PDH_OK);
    sample();
    machine.texts["/proc/diskstats"] = disk("1 2 3 4 5 6 7 8 9 10 11", "8 0 sdb ");
    machine.now += SECOND;
    EXPECT_EQ(sample(), NO_DATA);
    EXPECT_EQ(add("\\PhysicalDisk(2048 sda)\\Disk Reads/sec"), PDH_CSTATUS_NO_COUNTER);
    EXPECT_EQ(add("\\PhysicalDisk()\\Disk Reads/sec"), PDH_CSTATUS_NO_COUNTER);
    EXPECT_EQ(add("\\PhysicalDisk(2049 sda1)\\Disk Reads/sec"), PDH_CSTATUS_NO_COUNTER) << "a partition";
}

TEST_F(drive_counters, tell_the_space_on_a_drive) {
    ASSERT_EQ(add("\\LogicalDisk(/data)\\% Free Space"), PDH_OK);
    EXPECT_DOUBLE_EQ(sample(), 200.0 / 3);
    ASSERT_EQ(add("\\LogicalDisk(/)\\Free Megabytes"), PDH_OK);
    EXPECT_DOUBLE_EQ(sample(), 2000.0 / 1048576);
    EXPECT_EQ(add("\\LogicalDisk(/nowhere)\\Free Megabytes"), PDH_CSTATUS_NO_COUNTER);
}

TEST_F(drive_counters, tell_the_figures_of_the_device_below) {
    const std::pair<const char *, double> rows[] = {
        {"Disk Reads/sec", 50},
        {"Disk Read Bytes/sec", 400 * 512},
        {"Avg. Disk Read Queue Length", 0.1},
        {"Disk Writes/sec", 25},
        {"Disk Write Bytes/sec", 200 * 512},
        {"Avg. Disk Write Queue Length", 0.3},
        {"% Idle Time", 75},
        {"Avg. Disk Queue Length", 0.5},
        {"% Disk Read Time", 10},
        {"% Disk Write Time", 30},
        {"Avg. Disk sec/Read", 0.002},
        {"Avg. Disk sec/Write", 0.012},
        {"Split IO/Sec", 7.5},
        {"% Disk Time", 40},
        {"Current Disk Queue Length", 4},
        {"Avg. Disk sec/Transfer", 800.0 / 150 / 1000},
        {"Disk Transfers/sec", 75},
        {"Disk Bytes/sec", 600 * 512},
        {"Avg. Disk Bytes/Transfer", 1200.0 * 512 / 150},
        {"Avg. Disk Bytes/Read", 8 * 512},
        {"Avg. Disk Bytes/Write", 8 * 512},
    };
    std::string other = disk("9 9 9 9 9 9 9 9 9 9 9");
    for (auto [name, expected] : rows) {
        machine.texts["/proc/diskstats"] =
            other + disk("1000 10 8000 500 500 20 4000 700 0 900 1200", "8 1 sda1 ");
        ASSERT_EQ(add((std::string("\\LogicalDisk(/data)\\") + name).c_str()), PDH_OK) << name;
        sample();
        machine.texts["/proc/diskstats"] =
            other + disk("1100 15 8800 700 550 30 4400 1300 4 1400 2200", "8 1 sda1 ");
        machine.now += 2 * SECOND;
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(drive_counters, have_their_space_alone_where_no_device_counts_for_them) {
    EXPECT_EQ(add("\\LogicalDisk(/)\\Disk Reads/sec"), PDH_CSTATUS_NO_COUNTER) << "layers";
    EXPECT_EQ(add("\\LogicalDisk(/nowhere)\\Disk Reads/sec"), PDH_CSTATUS_NO_COUNTER);
    machine.use("numa");
    for (const char *drive : {"/tank", "/tank/db", "/var/lib", "/srv/late/"}) {
        std::string path = std::string("\\LogicalDisk(") + drive + ")\\% Idle Time";
        EXPECT_EQ(add(path.c_str()), PDH_CSTATUS_NO_COUNTER) << drive;
    }
    EXPECT_EQ(add("\\LogicalDisk(/tank)\\% Free Space"), PDH_OK);
    EXPECT_EQ(add("\\LogicalDisk(/)\\% Idle Time"), PDH_OK) << "a volume";
    EXPECT_EQ(add("\\LogicalDisk(/srv/My Data)\\% Idle Time"), PDH_OK) << "a partition";
}

TEST_F(drive_counters, start_over_with_another_device_at_the_path) {
    std::string both =
        disk("10 0 0 0 0 0 0 0 0 0 0", "8 1 sda1 ") + disk("90 0 0 0 0 0 0 0 0 0 0", "8 2 sda2 ");
    machine.texts["/proc/diskstats"] = both;
    ASSERT_EQ(add("\\LogicalDisk(/data)\\Disk Reads/sec"), PDH_OK);
    sample();
    machine.change("/proc/self/mountinfo", "8:1 /srv/volumes", "8:2 /srv/volumes");
    machine.now += SECOND;
    EXPECT_EQ(sample(), INVALID_DATA);
    machine.change("/proc/diskstats", "90 ", "95 ");
    machine.now += SECOND;
    EXPECT_EQ(sample(), 5);
}

TEST_F(drive_counters, end_with_their_mount) {
    ASSERT_EQ(add("\\LogicalDisk(/data)\\Disk Reads/sec"), PDH_OK);
    sample();
    std::string table = machine.text("/proc/self/mountinfo");
    machine.texts["/proc/self/mountinfo"] = table.substr(0, table.find('\n') + 1);
    machine.now += SECOND;
    EXPECT_EQ(sample(), NO_DATA);
    EXPECT_EQ(add("\\LogicalDisk(/data)\\Disk Reads/sec"), PDH_CSTATUS_NO_COUNTER);
    machine.texts["/proc/self/mountinfo"] = table;
    EXPECT_EQ(sample(), INVALID_DATA) << "one sample since";
    machine.now += SECOND;
    EXPECT_EQ(sample(), 0);
}

TEST_F(drive_counters, read_the_disks_once_for_all_drives) {
    machine.use("numa");
    ASSERT_EQ(add("\\LogicalDisk(/)\\Disk Reads/sec"), PDH_OK);
    ASSERT_EQ(add("\\LogicalDisk(/)\\Disk Writes/sec"), PDH_OK);
    ASSERT_EQ(add("\\LogicalDisk(/srv/My Data)\\% Idle Time"), PDH_OK);
    machine.reads.clear();
    provider_collect(query);
    EXPECT_EQ(machine.reads, std::vector<std::string>{"/proc/diskstats"});
}

TEST_F(drive_counters, have_no_data_without_their_drive) {
    ASSERT_EQ(add("\\LogicalDisk(/data)\\Free Megabytes"), PDH_OK);
    std::string table = machine.text("/proc/self/mountinfo");
    machine.texts["/proc/self/mountinfo"] = table.substr(0, table.find('\n') + 1);
    EXPECT_EQ(sample(), NO_DATA);
    machine.texts["/proc/self/mountinfo"] = table;
    EXPECT_DOUBLE_EQ(sample(), 2000.0 / 1048576);
}

TEST_F(network_counters, tell_both_ways_and_their_sum) {
    const std::pair<const char *, double> rows[] = {
        {"Bytes Received/sec", 100},
        {"Packets Received/sec", 10},
        {"Packets Received Errors", 1},
        {"Packets Received Discarded", 2},
        {"Packets Received Non-Unicast/sec", 3},
        {"Packets Received Unicast/sec", 7},
        {"Bytes Sent/sec", 200},
        {"Packets Sent/sec", 20},
        {"Packets Outbound Errors", 4},
        {"Packets Outbound Discarded", 5},
        {"Bytes Total/sec", 300},
        {"Packets/sec", 30},
    };
    for (auto [name, expected] : rows) {
        machine.texts["/proc/net/dev"] = "eth0: 1000 100 10 20 0 0 0 30 2000 200 40 50 0 0 0 0\n";
        ASSERT_EQ(add((std::string("\\Network Interface(eth0)\\") + name).c_str()), PDH_OK) << name;
        EXPECT_EQ(sample(), INVALID_DATA);
        machine.texts["/proc/net/dev"] = "eth0: 1200 120 12 24 9 9 9 36 2400 240 48 60 9 9 9 9\n";
        machine.now += 2 * SECOND;
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(network_counters, start_over_when_a_driver_begins_at_0) {
    ASSERT_EQ(add("\\Network Interface(eth0)\\Bytes Sent/sec"), PDH_OK);
    sample();
    machine.texts["/proc/net/dev"] = "eth0: 0 0 0 0 0 0 0 0 5 0 0 0 0 0 0 0\n";
    machine.now += SECOND;
    EXPECT_EQ(sample(), INVALID_DATA);
    machine.texts["/proc/net/dev"] = "eth0: 0 0 0 0 0 0 0 0 8 0 0 0 0 0 0 0\n";
    machine.now += SECOND;
    EXPECT_EQ(sample(), 3);
}

TEST_F(network_counters, tell_the_bandwidth_in_bits) {
    machine.use("stacked");
    const std::pair<const char *, double> rows[] = {
        {"eth0", 1e9}, {"lan-to-office-1", 1e8}, {"bond0", 2e9}, {"eth0.100", 1e9},
        {"wlan0", 0},  {"br-0f1e2d3c4b5a", 0},   {"ppp0", 0}};
    for (auto [name, expected] : rows) {
        ASSERT_EQ(add((std::string("\\Network Interface(") + name + ")\\Current Bandwidth").c_str()), PDH_OK);
        EXPECT_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(network_counters, give_an_interface_without_a_speed_a_bandwidth_of_0) {
    machine.use("stacked");
    for (const char *name : {"lo", "wg\"0\"", "gr\xFCn(1)", "tap#1", "tun\\0"}) {
        ASSERT_EQ(add((std::string("\\Network Interface(") + name + ")\\Current Bandwidth").c_str()), PDH_OK);
        EXPECT_EQ(sample(), 0) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(network_counters, end_with_their_interface) {
    ASSERT_EQ(add("\\Network Interface(eth0)\\Current Bandwidth"), PDH_OK);
    EXPECT_EQ(sample(), 1e10);
    machine.texts["/proc/net/dev"] = "lo: 0 0 0 0 0 0 0 0 5 0 0 0 0 0 0 0\n";
    machine.unreadable = {"/sys/class/net/eth0/speed"};
    EXPECT_EQ(sample(), NO_DATA);
    EXPECT_EQ(add("\\Network Interface(eth0)\\Current Bandwidth"), PDH_CSTATUS_NO_COUNTER);
}

TEST_F(network_counters, have_no_data_of_an_interface_that_was_renamed) {
    ASSERT_EQ(add("\\Network Interface(eth0)\\Bytes Total/sec"), PDH_OK);
    sample();
    machine.change("/proc/net/dev", "eth0:", "net0:");
    machine.now += SECOND;
    EXPECT_EQ(sample(), NO_DATA);
}

TEST_F(network_counters, tell_of_protocols) {
    const std::pair<const char *, double> levels[] = {{"\\TCPv4\\Connections Established", 16},
                                                      {"\\TCPv4\\Connections Active", 1300},
                                                      {"\\TCPv4\\Connections Passive", 120},
                                                      {"\\TCPv4\\Connection Failures", 14},
                                                      {"\\TCPv4\\Connections Reset", 15},
                                                      {"\\UDPv4\\Datagrams Received Errors", 22},
                                                      {"\\IPv4\\Datagrams Received Header Errors", 1},
                                                      {"\\IPv4\\Datagrams Received Address Errors", 2},
                                                      {"\\IPv4\\Datagrams Received Unknown Protocol", 4},
                                                      {"\\IPv4\\Datagrams Received Discarded", 5},
                                                      {"\\IPv4\\Datagrams Outbound Discarded", 6},
                                                      {"\\IPv4\\Datagrams Outbound No Route", 7},
                                                      {"\\IPv4\\Fragment Re-assembly Failures", 10},
                                                      {"\\IPv4\\Fragmentation Failures", 12}};
    for (auto [path, expected] : levels) {
        ASSERT_EQ(add(path), PDH_OK) << path;
        EXPECT_EQ(sample(), expected) << path;
        provider_remove_counter(counter);
    }
    const struct {
        const char *path, *from, *to;
        double expected;
    } rates[] = {{"\\TCPv4\\Segments/sec", "88001 76001", "88011 76021", 30},
                 {"\\TCPv4\\Segments Received/sec", "88001 76001", "88011 76021", 10},
                 {"\\TCPv4\\Segments Sent/sec", "88001 76001", "88011 76021", 20},
                 {"\\TCPv4\\Segments Retransmitted/sec", "76001 18", "76001 19", 1},
                 {"\\UDPv4\\Datagrams/sec", "9001 21 22 8001", "9003 24 22 8005", 6},
                 {"\\UDPv4\\Datagrams Received/sec", "9001 21 22 8001", "9003 24 22 8005", 2},
                 {"\\UDPv4\\Datagrams Sent/sec", "9001 21 22 8001", "9003 24 22 8005", 4},
                 {"\\UDPv4\\Datagrams No Port/sec", "9001 21 22 8001", "9003 24 22 8005", 3},
                 {"\\IPv4\\Datagrams/sec", "98001 1 2 3 4 5 97000 78001", "98002 1 2 6 4 5 97004 78003", 3},
                 {"\\IPv4\\Datagrams Received/sec", "98001 1", "98002 1", 1},
                 {"\\IPv4\\Datagrams Sent/sec", "97000 78001", "97000 78003", 2},
                 {"\\IPv4\\Datagrams Forwarded/sec", "1 2 3 4", "1 2 6 4", 3},
                 {"\\IPv4\\Datagrams Received Delivered/sec", "5 97000", "5 97004", 4},
                 {"\\IPv4\\Fragments Received/sec", "0 8 9", "0 13 9", 5},
                 {"\\IPv4\\Fragments Re-assembled/sec", "8 9 10", "8 15 10", 6},
                 {"\\IPv4\\Fragmented Datagrams/sec", "10 11 12", "10 18 12", 7},
                 {"\\IPv4\\Fragments Created/sec", "12 13\n", "12 21\n", 8}};
    std::string whole = machine.text("/proc/net/snmp");
    for (const auto &row : rates) {
        machine.texts["/proc/net/snmp"] = whole;
        ASSERT_EQ(add(row.path), PDH_OK) << row.path;
        sample();
        machine.change("/proc/net/snmp", row.from, row.to);
        machine.now += SECOND;
        EXPECT_EQ(sample(), row.expected) << row.path;
        provider_remove_counter(counter);
    }
}

TEST_F(process_counters, tell_of_one_process) {
    machine.texts["/proc/4711/stat"] = task("4711 (sh)", 100, 50);
    const std::pair<const char *, double> levels[] = {{"Working Set", 2 * 4096},
                                                      {"Virtual Bytes", 8192},
                                                      {"Thread Count", 3},
                                                      {"ID Process", 4711},
                                                      {"Creating Process ID", 1}};
    for (auto [name, expected] : levels) {
        ASSERT_EQ(add((std::string("\\Process(sh)\\") + name).c_str()), PDH_OK) << name;
        EXPECT_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
    // Ticks of a hundredth of a second; two seconds.
    const std::pair<const char *, double> shares[] = {
        {"% Processor Time", 15}, {"% User Time", 10}, {"% Privileged Time", 5}};
    for (auto [name, expected] : shares) {
        machine.texts["/proc/4711/stat"] = task("4711 (sh)", 100, 50);
        ASSERT_EQ(add((std::string("\\Process(sh)\\") + name).c_str()), PDH_OK) << name;
        sample();
        machine.texts["/proc/4711/stat"] = task("4711 (sh)", 120, 60);
        machine.now += 2 * SECOND;
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(process_counters, never_rise_above_100) {
    machine.texts["/proc/4711/stat"] = task("4711 (sh)", 100, 50);
    ASSERT_EQ(add("\\Process(sh)\\% Processor Time"), PDH_OK);
    sample();
    machine.texts["/proc/4711/stat"] = task("4711 (sh)", 900, 50);
    machine.now += SECOND;
    EXPECT_EQ(sample(), 100) << "eight processors";
}

TEST_F(process_counters, count_faults_of_both_kinds) {
    ASSERT_EQ(add("\\Process(init)\\Page Faults/sec"), PDH_OK);
    sample();
    machine.change("/proc/1/stat", "1041 0 3", "1046 0 4");
    machine.now += 2 * SECOND;
    EXPECT_EQ(sample(), 3);
}

TEST_F(process_counters, are_summed_over_all) {
    ASSERT_EQ(add("\\Process(_Total)\\Thread Count"), PDH_OK);
    EXPECT_EQ(sample(), 3);
    ASSERT_EQ(add("\\Process(_Total)\\Working Set"), PDH_OK);
    EXPECT_EQ(sample(), 3 * 412 * 4096.0);
    ASSERT_EQ(add("\\Process(_Total)\\ID Process"), PDH_OK);
    EXPECT_EQ(sample(), 0);
}

TEST_F(process_counters, tell_processes_of_one_name_apart) {
    machine.use("stacked");
    const std::pair<const char *, double> rows[] = {{"nginx", 401},  {"nginx#1", 402},  {"nginx#2", 403},
                                                    {"java#1", 504}, {"(sd-pam)", 500}, {"a b)? c", 501}};
    for (auto [name, expected] : rows) {
        ASSERT_EQ(add((std::string("\\Process(") + name + ")\\ID Process").c_str()), PDH_OK) << name;
        EXPECT_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
    for (const char *none : {"nginx#3", "nginx#0", "nginx#01", "nginx#", "nginx#x", "nginx#-1", "Nginx",
                             "java", "nginx#4294967297"})
        EXPECT_EQ(add((std::string("\\Process(") + none + ")\\ID Process").c_str()), PDH_CSTATUS_NO_COUNTER)
            << none;
}

TEST_F(process_counters, go_on_with_the_next_process_of_the_name) {
    ASSERT_EQ(add("\\Process(sh)\\ID Process"), PDH_OK);
    EXPECT_EQ(sample(), 4711);
    machine.unreadable = {"/proc/4711/stat"};
    machine.texts["/proc/"] = "1\n7\n815\n4711\n";
    machine.texts["/proc/815/stat"] = task("815 (sh)", 1, 1);
    EXPECT_EQ(sample(), 815);
    EXPECT_EQ(sample(), 815);
}

TEST_F(process_counters, are_not_taken_from_a_process_of_another_name) {
    ASSERT_EQ(add("\\Process(sh)\\% Processor Time"), PDH_OK);
    sample();
    machine.texts["/proc/4711/stat"] = task("4711 (bash)", 900, 900);
    machine.now += SECOND;
    EXPECT_EQ(sample(), NO_DATA);
    machine.texts["/proc/4711/stat"] = task("4711 (sh)", 900, 900);
    machine.now += SECOND;
    EXPECT_EQ(sample(), INVALID_DATA) << "it starts over";
}

TEST_F(process_counters, take_names_that_share_a_line_feed) {
    machine.use("stacked");
    ASSERT_EQ(add("\\Process(a b)? c)\\Thread Count"), PDH_OK);
    EXPECT_EQ(sample(), 1);
}

TEST_F(process_counters, tell_what_stands_beside_the_times) {
    machine.now = 5000 * SECOND;
    machine.slept = 30 * SECOND;
    const std::pair<const char *, double> levels[] = {{"Elapsed Time", 5030 - 21.03},
                                                      {"Priority Base", 20},
                                                      {"Working Set - Private", (412 - 237) * 4096},
                                                      {"Private Bytes", 133 * 4096},
                                                      {"Working Set Peak", 1900 * 1024},
                                                      {"Virtual Bytes Peak", 3120 * 1024},
                                                      {"Page File Bytes", 96 * 1024},
                                                      {"Handle Count", 6}};
    for (auto [name, expected] : levels) {
        ASSERT_EQ(add((std::string("\\Process(web server)\\") + name).c_str()), PDH_OK) << name;
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(process_counters, tell_calls_and_bytes_a_second) {
    const std::pair<const char *, double> rates[] = {
        {"IO Read Operations/sec", 5}, {"IO Write Operations/sec", 2}, {"IO Data Operations/sec", 7},
        {"IO Read Bytes/sec", 4000},   {"IO Write Bytes/sec", 300},    {"IO Data Bytes/sec", 4300}};
    for (auto [name, expected] : rates) {
        machine.texts["/proc/7/io"] = "rchar: 1000\nwchar: 200\nsyscr: 30\nsyscw: 4\n";
        ASSERT_EQ(add((std::string("\\Process(web server)\\") + name).c_str()), PDH_OK) << name;
        EXPECT_EQ(sample(), INVALID_DATA) << name;
        machine.texts["/proc/7/io"] = "rchar: 9000\nwchar: 800\nsyscr: 40\nsyscw: 8\n";
        machine.now += 2 * SECOND;
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(process_counters, go_on_over_a_wrap_and_start_over_behind_a_fall) {
    machine.texts["/proc/7/io"] = "rchar: 18446744073709551610\nwchar: 0\nsyscr: 0\nsyscw: 0\n";
    ASSERT_EQ(add("\\Process(web server)\\IO Read Bytes/sec"), PDH_OK);
    sample();
    machine.texts["/proc/7/io"] = "rchar: 14\nwchar: 0\nsyscr: 0\nsyscw: 0\n";
    machine.now += SECOND;
    EXPECT_EQ(sample(), 20);
    machine.texts["/proc/7/io"] = "rchar: 4\nwchar: 0\nsyscr: 0\nsyscw: 0\n";
    machine.now += SECOND;
    EXPECT_EQ(sample(), INVALID_DATA);
}

TEST_F(process_counters, rank_urgent_processes_above_others) {
    const struct {
        const char *priority; // and nice
        double expected;
    } rows[] = {
        {"20 0", 20},    {"39 19", 1},    {"0 -20", 40}, {"-2 0", 41},   {"-51 0", 90},
        {"-100 0", 139}, {"-101 0", 140}, {"20 99", 1},  {"20 -99", 40}, {"-9223372036854775808 0", 140}};
    for (const auto &row : rows) {
        machine.texts.clear();
        machine.change("/proc/4711/stat", "0 0 20 0 1 0 2103",
                       std::string("0 0 ") + row.priority + " 1 0 2103");
        ASSERT_EQ(add("\\Process(sh)\\Priority Base"), PDH_OK);
        EXPECT_EQ(sample(), row.expected) << row.priority;
        provider_remove_counter(counter);
    }
}

TEST_F(process_counters, are_never_older_than_the_host) {
    machine.change("/proc/4711/stat", "1 0 2103", "1 0 999999999");
    ASSERT_EQ(add("\\Process(sh)\\Elapsed Time"), PDH_OK);
    EXPECT_EQ(sample(), 0);
}

TEST_F(process_counters, start_over_with_another_process_of_name_and_number) {
    ASSERT_EQ(add("\\Process(sh)\\Page Faults/sec"), PDH_OK);
    sample();
    machine.change("/proc/4711/stat", "1041 0 3", "9041 0 3");
    machine.change("/proc/4711/stat", "1 0 2103", "1 0 2104");
    machine.now += SECOND;
    EXPECT_EQ(sample(), INVALID_DATA);
    machine.change("/proc/4711/stat", "9041 0 3", "9045 0 3");
    machine.now += SECOND;
    EXPECT_EQ(sample(), 4);
}

TEST_F(process_counters, start_over_where_another_file_says_whose_they_are) {
    const auto read_in_all = [this](const char *bytes) {
        machine.texts["/proc/7/io"] = std::string("rchar: ") + bytes + "\nwchar: 0\nsyscr: 0\nsyscw: 0\n";
        machine.now += SECOND;
        return sample();
    };
    ASSERT_EQ(add("\\Process(web server)\\IO Read Bytes/sec"), PDH_OK);
    read_in_all("1000");
    EXPECT_EQ(read_in_all("1500"), 500);
    machine.change("/proc/7/stat", " 2103 ", " 2104 ");
    EXPECT_EQ(read_in_all("9000"), INVALID_DATA);
    EXPECT_EQ(read_in_all("9070"), 70);
}

TEST_F(process_counters, are_0_for_the_memory_of_the_kernel) {
    machine.use("stacked");
    machine.texts["/proc/2/statm"] = "0 0 0 0 0 0 0\n";
    machine.texts["/proc/2/status"] = "Name:\tkthreadd\nKthread:\t1\nThreads:\t1\n";
    machine.texts["/proc/2/io"] = "rchar: 0\nwchar: 0\nsyscr: 0\nsyscw: 0\n";
    machine.texts["/proc/2/fd/"] = "";
    for (const char *name : {"Working Set - Private", "Private Bytes", "Working Set Peak",
                             "Virtual Bytes Peak", "Page File Bytes", "Handle Count"}) {
        ASSERT_EQ(add((std::string("\\Process(kthreadd)\\") + name).c_str()), PDH_OK) << name;
        EXPECT_EQ(sample(), 0) << name;
        provider_remove_counter(counter);
    }
    EXPECT_EQ(add("\\Process(kthreadd)\\IO Data Bytes/sec"), PDH_OK);
}

TEST_F(process_counters, read_only_the_files_that_they_need) {
    const std::pair<const char *, std::vector<std::string>> rows[] = {
        {"Elapsed Time", {"/proc/7/stat"}},
        {"Priority Base", {"/proc/7/stat"}},
        {"Private Bytes", {"/proc/7/statm", "/proc/7/stat"}},
        {"Page File Bytes", {"/proc/7/status", "/proc/7/stat"}},
        {"IO Read Bytes/sec", {"/proc/7/io", "/proc/7/stat"}},
        {"Handle Count", {"/proc/7/fd", "/proc/7/stat"}}};
    for (const auto &[name, expected] : rows) {
        ASSERT_EQ(add((std::string("\\Process(web server)\\") + name).c_str()), PDH_OK) << name;
        machine.reads.clear();
        provider_collect(query);
        EXPECT_EQ(machine.reads, expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(process_counters, read_each_file_once_a_collection) {
    for (const char *name : {"IO Read Bytes/sec", "IO Write Bytes/sec", "% User Time", "Handle Count"})
        ASSERT_EQ(add((std::string("\\Process(web server)\\") + name).c_str()), PDH_OK) << name;
    machine.reads.clear();
    provider_collect(query);
    EXPECT_EQ(machine.reads, (std::vector<std::string>{"/proc/7/fd", "/proc/7/stat", "/proc/7/io"}));
}

TEST_F(process_counters, are_refused_where_a_file_is_closed_to_the_agent) {
    machine.unreadable = {"/proc/7/io", "/proc/7/fd"};
    for (const char *name : {"IO Read Operations/sec", "IO Data Bytes/sec", "Handle Count"}) {
        std::string path = std::string("\\Process(web server)\\") + name;
        EXPECT_EQ(add(path.c_str()), PDH_CSTATUS_NO_COUNTER) << name;
    }
    EXPECT_EQ(add("\\Process(web server)\\% User Time"), PDH_OK);
    EXPECT_EQ(add("\\Process(sh)\\IO Read Operations/sec"), PDH_OK);
}

TEST_F(process_counters, are_refused_to_one_of_several_of_a_name) {
    machine.use("stacked");
    for (const char *number : {"401", "403"})
        machine.texts[std::string("/proc/") + number + "/io"] = "rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\n";
    const std::pair<const char *, uint32_t> rows[] = {
        {"nginx", PDH_OK}, {"nginx#1", PDH_CSTATUS_NO_COUNTER}, {"nginx#2", PDH_OK}};
    for (auto [name, expected] : rows) {
        std::string path = std::string("\\Process(") + name + ")\\IO Data Bytes/sec";
        EXPECT_EQ(provider_add_counter(query, path.c_str(), &counter), expected) << name;
    }
}

TEST_F(process_counters, are_not_below_0_where_the_kernel_counted_at_different_moments) {
    machine.texts["/proc/7/statm"] = "660 412 413 5 0 133 0\n";
    ASSERT_EQ(add("\\Process(web server)\\Working Set - Private"), PDH_OK);
    EXPECT_EQ(sample(), 0);
}

TEST_F(process_counters, have_no_data_once_a_file_is_closed) {
    ASSERT_EQ(add("\\Process(web server)\\IO Read Bytes/sec"), PDH_OK);
    sample();
    machine.unreadable = {"/proc/7/io"};
    machine.now += SECOND;
    EXPECT_EQ(sample(), NO_DATA);
    machine.unreadable = {};
    machine.now += SECOND;
    EXPECT_EQ(sample(), INVALID_DATA) << "one sample since";
}

TEST_F(process_counters, have_no_data_from_a_broken_file) {
    for (const char *name : {"IO Read Bytes/sec", "Private Bytes", "Page File Bytes"}) {
        machine.texts.clear();
        ASSERT_EQ(add((std::string("\\Process(web server)\\") + name).c_str()), PDH_OK);
        for (const char *wrong :
             {"", "rchar: 1\n", "1 2 3\n", "Name:\tweb server\n", "-1 -2 -3 -4 -5 -6 -7\n"}) {
            for (const char *file : {"io", "statm", "status"})
                machine.texts[std::string("/proc/7/") + file] = wrong;
            machine.now += SECOND;
            EXPECT_EQ(sample(), NO_DATA) << name << wrong;
        }
        provider_remove_counter(counter);
    }
    machine.texts["/proc/7/io"] = "rchar: 1\n";
    EXPECT_EQ(add("\\Process(web server)\\IO Read Bytes/sec"), PDH_CSTATUS_NO_COUNTER);
}

TEST_F(process_counters, take_no_files_from_a_process_of_another_name) {
    for (const char *name : {"Private Bytes", "Page File Bytes", "Handle Count", "IO Read Bytes/sec"}) {
        machine.texts.clear();
        ASSERT_EQ(add((std::string("\\Process(sh)\\") + name).c_str()), PDH_OK);
        sample();
        machine.texts["/proc/4711/stat"] = task("4711 (bash)", 1, 1);
        machine.now += SECOND;
        EXPECT_EQ(sample(), NO_DATA) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(process_counters, go_on_with_the_files_of_the_next_process_of_the_name) {
    ASSERT_EQ(add("\\Process(sh)\\Private Bytes"), PDH_OK);
    EXPECT_EQ(sample(), 63 * 4096);
    machine.unreadable = {"/proc/4711/stat"};
    machine.texts["/proc/"] = "1\n7\n815\n4711\n";
    machine.texts["/proc/815/stat"] = task("815 (sh)", 1, 1);
    machine.texts["/proc/815/statm"] = "9 8 7 6 5 4 3\n";
    EXPECT_EQ(sample(), 4 * 4096);
    machine.reads.clear();
    EXPECT_EQ(sample(), 4 * 4096);
    EXPECT_EQ(machine.reads, (std::vector<std::string>{"/proc/815/statm", "/proc/815/stat"}));
}

TEST_F(process_counters, sum_the_files_that_can_be_read) {
    const std::pair<const char *, double> levels[] = {{"Handle Count", 4 + 6 + 3},
                                                      {"Private Bytes", (120 + 133 + 63) * 4096},
                                                      {"Page File Bytes", 100 * 1024},
                                                      {"Working Set Peak", (1712 + 1900 + 1660) * 1024},
                                                      {"Elapsed Time", 0},
                                                      {"Priority Base", 0}};
    for (auto [name, expected] : levels) {
        ASSERT_EQ(add((std::string("\\Process(_Total)\\") + name).c_str()), PDH_OK) << name;
        EXPECT_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
    ASSERT_EQ(add("\\Process(_Total)\\Handle Count"), PDH_OK);
    machine.unreadable = {"/proc/7/fd"};
    EXPECT_EQ(sample(), 4 + 3);
    provider_remove_counter(counter);
    ASSERT_EQ(add("\\Process(_Total)\\IO Data Operations/sec"), PDH_OK);
    machine.unreadable = {"/proc/1/io"};
    sample();
    machine.change("/proc/7/io", "syscr: 90112", "syscr: 90115");
    machine.change("/proc/4711/io", "syscw: 12", "syscw: 14");
    machine.now += SECOND;
    EXPECT_EQ(sample(), 5);
}

TEST_F(process_counters, take_no_memory_from_a_name) {
    machine.texts["/proc/7/status"] = "Name:\tx\\nVmSwap: 9 kB\nVmSwap:\t 2 kB\nThreads:\t1\n";
    ASSERT_EQ(add("\\Process(_Total)\\Page File Bytes"), PDH_OK);
    EXPECT_EQ(sample(), (2 + 4) * 1024);
}

TEST_F(memory_counters, tell_of_memory_in_three_units) {
    ASSERT_EQ(add("\\Memory\\Available KBytes"), PDH_OK);
    EXPECT_EQ(sample(), 2514480);
    ASSERT_EQ(add("\\Memory\\Available MBytes"), PDH_OK);
    EXPECT_EQ(sample(), 2514480 / 1024.0);
    machine.use("stacked");
    const std::pair<const char *, double> rows[] = {{"Commit Limit", 2224084 * 1024.0},
                                                    {"% Committed Bytes In Use", 90112 * 100.0 / 2224084},
                                                    {"Cache Bytes", 150112 * 1024.0},
                                                    {"Pool Nonpaged Bytes", 9000 * 1024.0},
                                                    {"Free & Zero Page List Bytes", 20112 * 1024.0},
                                                    {"Modified Page List Bytes", 0},
                                                    {"Pool Paged Bytes", 0}};
    for (auto [name, expected] : rows) {
        ASSERT_EQ(add((std::string("\\Memory\\") + name).c_str()), PDH_OK);
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
    }
    machine.use("container");
    ASSERT_EQ(add("\\Memory\\Modified Page List Bytes"), PDH_OK);
    EXPECT_EQ(sample(), 244 * 1024);
    ASSERT_EQ(add("\\Memory\\Pool Paged Bytes"), PDH_OK);
    EXPECT_EQ(sample(), 150020 * 1024);
    machine.use("numa");
    ASSERT_EQ(add("\\Memory\\% Committed Bytes In Use"), PDH_OK);
    EXPECT_EQ(sample(), 100) << "more is promised than there is";
}

TEST_F(memory_counters, tell_which_way_pages_go) {
    machine.use("stacked");
    for (auto [name, expected] :
         {std::pair<const char *, double>{"Pages Input/sec", 2}, {"Pages Output/sec", 5}, {"Pages/sec", 7}}) {
        machine.texts.clear();
        ASSERT_EQ(add((std::string("\\Memory\\") + name).c_str()), PDH_OK);
        sample();
        machine.change("/proc/vmstat", "pswpin 12", "pswpin 14");
        machine.change("/proc/vmstat", "pswpout 34", "pswpout 39");
        machine.now += SECOND;
        EXPECT_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(memory_counters, tell_faults_that_waited_for_a_disk) {
    ASSERT_EQ(add("\\Memory\\Page Reads/sec"), PDH_OK);
    sample();
    machine.change("/proc/vmstat", "pgmajfault 12044", "pgmajfault 12050");
    machine.now += 2 * SECOND;
    EXPECT_EQ(sample(), 3);
    machine.texts["/proc/vmstat"] = "pgfault 1\n";
    EXPECT_EQ(add("\\Memory\\Page Reads/sec"), PDH_CSTATUS_NO_COUNTER);
}

TEST_F(memory_counters, tell_the_use_of_swap) {
    machine.use("stacked");
    ASSERT_EQ(add("\\Paging File(/dev/sda2)\\% Usage"), PDH_OK);
    EXPECT_DOUBLE_EQ(sample(), 524287 * 100.0 / 2097148);
    machine.use("numa");
    ASSERT_EQ(add("\\Paging File(_Total)\\% Usage"), PDH_OK);
    EXPECT_DOUBLE_EQ(sample(), (5123456.0 + 1873171) * 100 / (33554428.0 + 33554432));
    machine.use("container");
    EXPECT_EQ(add("\\Paging File(_Total)\\% Usage"), PDH_CSTATUS_NO_COUNTER);
}

TEST_F(memory_counters, count_threads_and_processes) {
    for (const char *path : {"\\System\\Threads", "\\Objects\\Threads"}) {
        ASSERT_EQ(add(path), PDH_OK);
        EXPECT_EQ(sample(), 212);
    }
    ASSERT_EQ(add("\\Objects\\Processes"), PDH_OK);
    EXPECT_EQ(sample(), 3);
    for (const char *wrong : {"", "0 0 0 1 2\n", "0 0 0 1/\n", "0 0 0 1/2"}) {
        machine.texts["/proc/loadavg"] = wrong;
        ASSERT_EQ(add("\\System\\Threads"), PDH_CSTATUS_NO_COUNTER) << wrong;
    }
}

TEST_F(processor_counters, share_the_time_of_interrupts) {
    for (auto [name, expected] :
         {std::pair<const char *, double>{"% Interrupt Time", 2}, {"% DPC Time", 3}}) {
        set_times("100 100 100 100 100 100 100 100");
        ASSERT_EQ(add((std::string("\\Processor(_Total)\\") + name).c_str()), PDH_OK);
        sample();
        set_times("110 105 120 150 106 102 103 104");
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(processor_counters, share_the_time_of_the_whole_host) {
    for (auto [name, expected] : {std::pair<const char *, double>{"% Total User Time", 15},
                                  {"% Total Privileged Time", 25},
                                  {"% Total Interrupt Time", 2},
                                  {"% Total DPC Time", 3}}) {
        set_times("100 100 100 100 100 100 100 100");
        ASSERT_EQ(add((std::string("\\System\\") + name).c_str()), PDH_OK);
        sample();
        set_times("110 105 120 150 106 102 103 104");
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}

TEST_F(processor_counters, count_interrupts_of_the_whole_host) {
    for (auto [name, expected] :
         {std::pair<const char *, double>{"Total Interrupts/sec", 100}, {"Total DPCs Queued/sec", 50}}) {
        machine.texts.clear();
        ASSERT_EQ(add((std::string("\\System\\") + name).c_str()), PDH_OK);
        sample();
        machine.change("/proc/stat", "intr 1462898", "intr 1463098");
        machine.change("/proc/stat", "softirq 1246109", "softirq 1246209");
        machine.now += 2 * SECOND;
        EXPECT_DOUBLE_EQ(sample(), expected) << name;
        provider_remove_counter(counter);
    }
}
