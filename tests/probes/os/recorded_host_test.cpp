// The families of a host, over what Wine answers to each of their calls.

#include "probes/os/recorded_host.h"

#include "platform/agent_log.h"
#include "platform/text.h"
#include "platform/version.h"
#include "probes/os/counter_names.h"
#include "probes/os/disks.h"
#include "probes/os/drives.h"
#include "probes/os/host_info.h"
#include "probes/os/interfaces.h"
#include "probes/os/memory.h"
#include "probes/os/perf_browse.h"
#include "probes/os/perf_counter.h"
#include "probes/os/processes.h"
#include "probes/os/services.h"
#include "probes/os/system_load.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

namespace {

struct wine_host : testing::Test {
    recorded_host recorded{"wine_calls.txt"};
    agent_config config = {.use_psapi = true, .perf_cnt_level = 200};
    devtree root = {};

    wine_host() { config_in_force = &config; }
    ~wine_host() override {
        free_devtree(root.children);
        config_in_force = nullptr;
    }

    // "id: comment" of what the scan offered in its first group.
    std::vector<std::string> offered() const {
        std::vector<std::string> found;
        const devnode *device = root.children != nullptr ? root.children->devices : nullptr;
        for (; device != nullptr; device = device->next)
            found.push_back(std::string(device->id) + ": " + device->comment);
        return found;
    }
};

struct wine_check : wine_host {
    devnode_guard device{alloc_devnode()};
    resnode result = {};

    std::string check(const char *(*run)(devnode *, resnode *), const char *id) {
        text_replace(&device->id, text_copy(id));
        return noted_failure(run(device.get(), &result));
    }
    ~wine_check() override { heap_free(result.comment); }
};

using texts = std::vector<std::string>;

constexpr double FREE_KILOBYTES = 60481318912.0 / 1024;

} // namespace

TEST_F(wine_host, offers_its_two_fixed_drives) {
    EXPECT_SUCCESS(scan_mounts(&root));
    EXPECT_EQ(offered(), (texts{"Z:\\: Fixed drive", "C:\\: Fixed drive"}));
    EXPECT_EQ(root.children->devices->limits.hint.hint_value, 60480696320.0 / 1024);
    EXPECT_EQ(root.children->devices->limits.hint.hint_max, 270553174016.0 / 1024);
}

TEST_F(wine_check, reads_the_space_of_a_drive) {
    EXPECT_EQ(check(check_fs, "C:\\"), "(none)");
    EXPECT_EQ(result.real_value, FREE_KILOBYTES);
    EXPECT_EQ(check(check_fs, "D:\\"), "system error 3");
    EXPECT_EQ(check(check_fs, "C:\\no such folder\\"), "system error 2");
}

TEST_F(wine_host, offers_three_kinds_of_memory) {
    EXPECT_SUCCESS(scan_meminfo(&root));
    EXPECT_EQ(offered(), (texts{"virt: Virtual memory", "swap: Pagefile space", "phys: Physical memory"}));
}

// It counts 8 kB of page file above the memory, and none of them free.
TEST_F(wine_check, reads_the_memory) {
    EXPECT_EQ(check(check_mem, "phys"), "(none)");
    EXPECT_EQ(result.value, 23324428);
    EXPECT_EQ(check(check_mem, "swap"), "(none)");
    EXPECT_EQ(result.value, 0);
    EXPECT_EQ(check(check_mem, "virt"), "(none)");
    EXPECT_EQ(result.value, 23324428);
}

// The name servers do not fit into the usual buffer. An adapter without an address or a gateway has zeros for
// one, and each is said to lease its address from nobody.
TEST_F(wine_host, describes_itself) {
    texts lines;
    clinfo_guard list(collect_host_info());
    for (const clinfo *line = list.get(); line != nullptr; line = line->next)
        lines.push_back(std::string(line->label != nullptr ? line->label : "-") + "=" +
                        (line->value != nullptr ? line->value : "-"));
    texts expected = {"Hardware=-",
                      "Architecture=x64 (AMD or Intel)",
                      "Number of CPUs=2",
                      "CPU 0 status=Enabled",
                      "CPU 1 status=Enabled",
                      "Installed Memory=  23.59GB",
                      "Software=-",
                      "OS Id=Windows 7",
                      "Platform=NT",
                      "Version=6.1",
                      "Build=7601",
                      "Updates=Service Pack 1",
                      std::string("Tarnix agent=") + version_text,
                      "Identification=-",
                      "Hostname=recorder",
                      "NetBIOS name=RECORDER",
                      "DNS Servers=192.0.2.53, 192.0.2.54",
                      "Routing=Disabled",
                      "ARP Proxy=Disabled"};
    auto expect_adapter = [&expected](const std::string &name, const std::string &address,
                                      const std::string &gateway, const std::string &hardware) {
        expected.insert(expected.end(),
                        {"Network Interface=" + name, "-=Ethernet interface", "-=IP: " + address,
                         "-=Gateway: " + gateway, "-=DHCP server: ", "-=Primary WINS server: ",
                         "-=Secondary WINS server: ", "-=MAC address: " + hardware});
    };
    expect_adapter("ifb0", "0.0.0.0/0.0.0.0", "0.0.0.0", "52:81:20:B3:CC:BC");
    expect_adapter("ifb1", "0.0.0.0/0.0.0.0", "0.0.0.0", "A2:1B:69:7E:0B:6D");
    expect_adapter("eth0", "192.0.2.2/255.255.255.0", "192.0.2.1", "02:FC:00:00:00:01");
    EXPECT_EQ(lines, expected);
}

// Its table of English names is all but empty, so that even the counters that it has cannot be asked for.
TEST_F(wine_host, offers_the_uptime_alone_of_its_load) {
    EXPECT_SUCCESS(scan_system(&root));
    EXPECT_EQ(offered(), texts{"uptime: System uptime"});
    EXPECT_TRUE(recorded.host.logged(LOG_WARNING, "Could not locate Context Switches performance counter"));
    EXPECT_TRUE(
        recorded.host.logged(LOG_WARNING, "translate_counter_name_to_national \"Processor\": not found"));
}

TEST_F(wine_check, finds_no_counter_by_its_english_name) {
    EXPECT_EQ(check(check_system, "idle"), "Could not find counter in check_load");
    EXPECT_EQ(check(check_system, "uptime"), "Could not locate performance counter in check_uptime");
}

// It stores whole seconds in the place of a floating point number, which then reads as next to nothing.
TEST_F(wine_host, counts_next_to_no_time_by_national_names) {
    perf_counter_guard counter(create_counter("System", nullptr, "System Up Time", true));
    ASSERT_NE(counter, nullptr);
    double value = -1;
    EXPECT_SUCCESS(get_counter_value(&value, counter.get()));
    EXPECT_GT(value, 0);
    EXPECT_LT(value, 1e-300);
    EXPECT_TRUE(recorded.host.sleeps.empty()) << "and one sample is enough";
}

TEST_F(wine_host, has_no_counter_of_a_disk) {
    perf_counter_guard counter(create_counter("PhysicalDisk", "0 C:", "% Idle Time", true));
    EXPECT_EQ(counter, nullptr);
    EXPECT_TRUE(recorded.host.logged(LOG_WARNING, "Error (PDH_CSTATUS_NO_COUNTER) adding counter "
                                                  "\"\\PhysicalDisk(0 C:)\\% Idle Time\" to query"));
}

TEST_F(wine_host, translates_no_name) {
    char name[COUNTER_NAME_SIZE];
    EXPECT_FALSE(translate_counter_name_to_english(name, sizeof name, "System Up Time"));
    EXPECT_TRUE(
        recorded.host.logged(LOG_WARNING, "translate_counter_name_to_english \"System Up Time\": not found"));
    EXPECT_FALSE(translate_counter_name_to_english(name, sizeof name, "System"));
    EXPECT_TRUE(recorded.host.logged(
        LOG_WARNING, "translate_counter_name_to_english \"System\": error from PdhLookupPerfIndexByName"));
    EXPECT_FALSE(translate_counter_name_to_national(name, sizeof name, "End Marker"));
    EXPECT_TRUE(recorded.host.logged(LOG_WARNING, "translate_counter_name_to_national \"End Marker\": error "
                                                  "from PdhLookupPerfNameByIndex (index 1846)"));
}

TEST_F(wine_host, cannot_list_its_counters) {
    EXPECT_FAILURE(scan_perfcnts(&root),
                   "Error getting size for performance counter objects: system error 3221228478");
}

TEST_F(wine_host, has_no_counters_of_interfaces_and_disks) {
    EXPECT_FAILURE(scan_ifthroughput(&root),
                   "Couldn't enumerate Network Interface objects: system error 3221228499");
    EXPECT_FAILURE(scan_block_devices(&root),
                   "Couldn't enumerate PhysicalDisk objects: system error 3221228499");
}

TEST_F(wine_host, offers_its_processes_by_their_modules) {
    EXPECT_SUCCESS(scan_processes(&root));
    EXPECT_EQ(offered(), (texts{"probes_os_tests.exe: ", "svchost.exe: ", "plugplay.exe: ",
                                "winedevice.exe: ", "winedevice.exe: ", "services.exe: "}));
}

TEST_F(wine_check, finds_a_process_by_its_module) {
    EXPECT_EQ(check(check_process, "SERVICES.EXE"), "(none)");
    EXPECT_EQ(result.value, 1);
    EXPECT_EQ(check(check_process, "no such.exe"), "(none)");
    EXPECT_EQ(result.value, 0);
}

TEST_F(wine_host, offers_its_services) {
    EXPECT_SUCCESS(scan_services(&root));
    texts expected = {"Winedevice2: The service is running", "Winedevice1: The service is running"};
    for (const char *stopped :
         {"wuauserv", "Winmgmt", "TermService", "StiSvc", "Spooler", "Schedule", "RpcSs"})
        expected.push_back(std::string(stopped) + ": The service is stopped");
    expected.emplace_back("PlugPlay: The service is running");
    for (const char *stopped : {"MSIServer", "LanmanServer", "FontCache3.0.0.0", "FontCache"})
        expected.push_back(std::string(stopped) + ": The service is stopped");
    expected.emplace_back("Eventlog: The service is running");
    expected.emplace_back("BITS: The service is stopped");
    EXPECT_EQ(offered(), expected);
}

TEST_F(wine_check, reads_the_state_of_a_service) {
    EXPECT_EQ(check(check_service, "PlugPlay"), "(none)");
    EXPECT_EQ(result.value, 1);
    EXPECT_STREQ(result.comment, "The service is running");
    EXPECT_EQ(check(check_service, "RpcSs"), "(none)");
    EXPECT_EQ(result.value, 0);
    EXPECT_STREQ(result.comment, "The service is stopped");
    EXPECT_EQ(check(check_service, "No Such Service"), "Error opening the service: system error 1060");
    EXPECT_EQ(check(check_service, ""), "Error opening the service: system error 123");
}
