#include "probes/os/host_info.h"

#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/sockets_ops.h"
#include "platform/version.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/memory.h"
#include "probes/os/memory_ops.h"
#include "probes/os/network_text.h"

#include <algorithm>
#include <gtest/gtest.h>

namespace {

struct scripted_adapter {
    std::string description = "Some card";
    uint32_t type = 6;
    std::vector<uint8_t> hardware = {0x00, 0x1A, 0xB2, 0xC3, 0xD4, 0xFF};
    std::vector<std::pair<std::string, std::string>> addresses;
    std::vector<std::string> gateways;
    bool lease_known = true;
    bool dhcp = false;
};

struct host_info_fixture : testing::Test {
    test_host host;
    host_info_ops ops = {};
    memory_ops memory = {};
    sockets_ops sockets = {};

    system_facts system = {.processor_architecture = 9, .processors = 2, .active_processor_mask = 3};
    bool version_known = true;
    version_facts version = {
        .major_version = 6, .minor_version = 1, .build_number = 7601, .platform_id = 2, .product_type = 3};
    bool memory_works = true;
    uint64_t total_memory = uint64_t{8} << 30;
    std::string host_name = "box";
    bool host_name_works = true;
    std::string computer_name = "BOX";
    bool computer_name_works = true;
    std::string domain = "a.example";
    std::vector<std::string> dns = {"10.0.0.1", "10.0.0.2"};
    uint32_t routing = 0;
    uint32_t proxy = 0;
    std::vector<uint32_t> params_statuses; // forced, one a call; 0 for what the buffer gives
    std::vector<uint32_t> params_sizes;    // of the buffers
    uint32_t adapters_status = 0;
    std::vector<scripted_adapter> adapters;

    host_info_fixture();
    ~host_info_fixture() override;

    // "label=value" a line; an absent part as "-".
    std::vector<std::string> lines();
    // The values of a label, or of the continuation lines for "-".
    std::vector<std::string> values(const std::string &label) {
        std::vector<std::string> found;
        for (const std::string &line : lines())
            if (line.starts_with(label + "=")) found.push_back(line.substr(label.size() + 1));
        return found;
    }
    std::string value(const std::string &label) {
        auto found = values(label);
        return found.size() == 1 ? found[0] : "(" + std::to_string(found.size()) + " lines)";
    }
};

host_info_fixture *the_info;

void scripted_system(system_facts *out) {
    *out = the_info->system;
}

bool scripted_version(version_facts *out) {
    if (the_info->version_known) *out = the_info->version;
    return the_info->version_known;
}

bool scripted_name(char *buffer, uint32_t size) {
    EXPECT_EQ(size, 256U);
    snprintf(buffer, size, "%s", the_info->computer_name.c_str());
    return the_info->computer_name_works;
}

bool scripted_hostname(char *buffer, size_t size) {
    EXPECT_EQ(size, 256U);
    snprintf(buffer, size, "%s", the_info->host_name.c_str());
    return the_info->host_name_works;
}

bool scripted_memory(memory_status *out) {
    out->total_phys = the_info->total_memory;
    return the_info->memory_works;
}

uint32_t scripted_params(network_params *out, uint32_t *size) {
    the_info->params_sizes.push_back(*size);
    if (size_t call = the_info->params_sizes.size() - 1; call < the_info->params_statuses.size())
        if (uint32_t status = the_info->params_statuses[call]; status != 0) return status;
    record_buffer buffer = {.start = reinterpret_cast<char *>(out), .size = *size, .used = 0};
    auto *params = take_record<network_params>(&buffer);
    snprintf(params->domain_name, sizeof params->domain_name, "%s", the_info->domain.c_str());
    params->enable_routing = the_info->routing;
    params->enable_proxy = the_info->proxy;
    for (const std::string &server : the_info->dns)
        append_address(&buffer, &params->dns_servers, server.c_str(), "");
    return finish_records(buffer, size);
}

uint32_t scripted_adapters(adapter_facts *out, uint32_t *size) {
    EXPECT_EQ(*size, 11264U);
    if (the_info->adapters_status != 0) return the_info->adapters_status;
    record_buffer buffer = {.start = reinterpret_cast<char *>(out), .size = *size, .used = 0};
    adapter_facts *last = nullptr;
    for (const scripted_adapter &adapter : the_info->adapters) {
        auto *facts = take_record<adapter_facts>(&buffer);
        if (facts == nullptr) continue;
        if (last != nullptr) last->next = facts;
        last = facts;
        snprintf(facts->description, sizeof facts->description, "%s", adapter.description.c_str());
        facts->type = adapter.type;
        facts->hardware_length = static_cast<uint32_t>(adapter.hardware.size());
        for (size_t i = 0; i < std::min<size_t>(8, adapter.hardware.size()); i++)
            facts->hardware_address[i] = adapter.hardware[i];
        for (const auto &[address, mask] : adapter.addresses)
            append_address(&buffer, &facts->addresses, address.c_str(), mask.c_str());
        for (const std::string &gateway : adapter.gateways)
            append_address(&buffer, &facts->gateways, gateway.c_str(), "");
        facts->lease_known = adapter.lease_known;
        facts->dhcp_enabled = adapter.dhcp;
        snprintf(facts->dhcp_server, 16, "10.0.0.67");
        snprintf(facts->primary_wins, 16, "10.0.0.137");
        snprintf(facts->secondary_wins, 16, "10.0.0.138");
    }
    if (the_info->adapters.empty()) return 232;
    return finish_records(buffer, size);
}

bool yes(const char *) {
    return true;
}

host_info_fixture::host_info_fixture() {
    the_info = this;
    ops = {.GetSystemInfo = scripted_system,
           .GetVersionExA = scripted_version,
           .GetComputerNameA = scripted_name,
           .GetNetworkParams = scripted_params,
           .GetAdaptersInfo = scripted_adapters};
    memory = {.GetModuleHandleA = yes, .GetProcAddress = yes, .GlobalMemoryStatusEx = scripted_memory};
    sockets = {.gethostname = scripted_hostname};
    host_info_host = &ops;
    memory_host = &memory;
    sockets_host = &sockets;
    memory_reset();
}

host_info_fixture::~host_info_fixture() {
    EXPECT_EQ(host.blocks, 0);
    host_info_host = nullptr;
    memory_host = nullptr;
    sockets_host = nullptr;
    the_info = nullptr;
}

std::vector<std::string> host_info_fixture::lines() {
    std::vector<std::string> found;
    clinfo_guard list(collect_host_info());
    for (const clinfo *line = list.get(); line != nullptr; line = line->next)
        found.push_back(std::string(line->label != nullptr ? line->label : "-") + "=" +
                        (line->value != nullptr ? line->value : "-"));
    return found;
}

using collect_host_info_test = host_info_fixture;
using texts = std::vector<std::string>;

} // namespace

TEST_F(collect_host_info_test, makes_all_lines_in_their_order) {
    adapters = {{.description = "Card 1",
                 .addresses = {{"10.0.0.5", "255.255.255.0"}, {"10.0.0.6", "255.255.0.0"}},
                 .gateways = {"10.0.0.254"},
                 .dhcp = true},
                {.description = "Card 2", .type = 23, .hardware = {}}};
    snprintf(version.service_pack, sizeof version.service_pack, "Service Pack 1");
    EXPECT_EQ(lines(), (texts{"Hardware=-",
                              "Architecture=x64 (AMD or Intel)",
                              "Number of CPUs=2",
                              "CPU 0 status=Enabled",
                              "CPU 1 status=Enabled",
                              "Installed Memory=   8.00GB",
                              "Software=-",
                              "OS Id=Windows Server 2008 R2",
                              "Platform=NT",
                              "Version=6.1",
                              "Build=7601",
                              "Updates=Service Pack 1",
                              std::string("Tarnix agent=") + version_text,
                              "Identification=-",
                              "Hostname=box",
                              "NetBIOS name=BOX",
                              "Domain Name=a.example",
                              "DNS Servers=10.0.0.1, 10.0.0.2",
                              "Routing=Disabled",
                              "ARP Proxy=Disabled",
                              "Network Interface=Card 1",
                              "-=Ethernet interface",
                              "-=IP: 10.0.0.5/255.255.255.0",
                              "-=IP: 10.0.0.6/255.255.0.0",
                              "-=Gateway: 10.0.0.254",
                              "-=DHCP server: 10.0.0.67",
                              "-=Primary WINS server: 10.0.0.137",
                              "-=Secondary WINS server: 10.0.0.138",
                              "-=MAC address: 00:1A:B2:C3:D4:FF",
                              "Network Interface=Card 2",
                              "-=PPP interface",
                              "-=DHCP disabled",
                              "-=WINS disabled",
                              "-=MAC address: "}));
    EXPECT_TRUE(host.logged(LOG_DETAIL, "marker"));
}

TEST_F(collect_host_info_test, names_the_architecture) {
    const std::pair<uint16_t, const char *> names[] = {
        {0, "x86"}, {6, "Intel Itanium"}, {9, "x64 (AMD or Intel)"}, {5, "Unknown"}, {0xFFFF, "Unknown"}};
    for (auto [number, name] : names) {
        system.processor_architecture = number;
        EXPECT_EQ(value("Architecture"), name);
    }
}

TEST_F(collect_host_info_test, takes_the_host_s_own_word_for_another_architecture) {
    system.processor_architecture = 0xFFFF;
    snprintf(system.machine, sizeof system.machine, "aarch64");
    EXPECT_EQ(value("Architecture"), "aarch64");
    system.processor_architecture = 9;
    EXPECT_EQ(value("Architecture"), "x64 (AMD or Intel)");
}

TEST_F(collect_host_info_test, tells_processor_32_by_bit_0_again) {
    system.processors = 40;
    system.active_processor_mask = 0xFF000000FE;
    auto all = lines();
    EXPECT_EQ(value("Number of CPUs"), "40");
    EXPECT_EQ(value("CPU 0 status"), "Disabled");
    EXPECT_EQ(value("CPU 1 status"), "Enabled");
    EXPECT_EQ(value("CPU 31 status"), "Disabled");
    EXPECT_EQ(value("CPU 32 status"), "Disabled");
    EXPECT_EQ(value("CPU 33 status"), "Enabled");
    EXPECT_EQ(value("CPU 39 status"), "Enabled");
    EXPECT_EQ(value("CPU 40 status"), "(0 lines)");
}

TEST_F(collect_host_info_test, scales_the_memory) {
    total_memory = 512;
    EXPECT_EQ(value("Installed Memory"), " 512.00B");
    total_memory = 1536;
    EXPECT_EQ(value("Installed Memory"), "   1.50kB");
    total_memory = 1048576;
    EXPECT_EQ(value("Installed Memory"), "   1.00MB");
    total_memory = UINT64_MAX;
    EXPECT_EQ(value("Installed Memory"), " 17179869184.00GB");
}

TEST_F(collect_host_info_test, leaves_the_memory_out_where_it_is_not_known) {
    memory_works = false;
    EXPECT_EQ(value("Installed Memory"), "(0 lines)");
    EXPECT_EQ(value("OS Id"), "Windows Server 2008 R2") << "the list goes on";
}

TEST_F(collect_host_info_test, knows_each_version) {
    const struct {
        uint32_t major, minor, platform;
        uint8_t product;
        const char *name;
        bool network;
    } rows[] = {
        {3, 51, 2, 1, "Windows NT 3.51", false},
        {4, 0, 2, 1, "Windows NT 4.0", false},
        {4, 0, 1, 1, "Windows 95", false},
        {4, 10, 1, 1, "Windows 98", true},
        {4, 90, 1, 1, "Windows Me", true},
        {5, 0, 2, 1, "Windows 2000", true},
        {5, 1, 2, 1, "Windows XP", true},
        {5, 2, 2, 3, "Windows Server 2003 Family", true},
        {5, 3, 2, 1, "Unknown", true},
        {6, 0, 2, 1, "Windows Vista", true},
        {6, 0, 2, 2, "Windows Server 2008", true},
        {6, 1, 2, 1, "Windows 7", true},
        {6, 1, 2, 3, "Windows Server 2008 R2", true},
        {6, 2, 2, 1, "Unknown", true},
        {3, 50, 2, 1, "Unknown", false},
        {4, 1, 2, 1, "Unknown", false},
        {7, 0, 2, 1, "Unknown", false},
        {10, 0, 2, 1, "Unknown", false},
        {0, 0, 2, 1, "Unknown", false},
    };
    for (const auto &row : rows) {
        version.major_version = row.major;
        version.minor_version = row.minor;
        version.platform_id = row.platform;
        version.product_type = row.product;
        std::string which = std::to_string(row.major) + "." + std::to_string(row.minor);
        EXPECT_EQ(value("OS Id"), row.name) << which;
        EXPECT_EQ(value("Version"), which);
        EXPECT_EQ(values("Routing").size(), row.network ? 1U : 0U) << which;
        EXPECT_EQ(value("Platform"), row.platform == 2 ? "NT" : "non-NT");
    }
}

TEST_F(collect_host_info_test, puts_one_line_for_a_version_that_is_not_known) {
    version_known = false;
    adapters = {{}};
    auto all = lines();
    EXPECT_EQ(texts(all.begin() + 6, all.end()),
              (texts{"Software=-", "System=Unknown", std::string("Tarnix agent=") + version_text,
                     "Identification=-", "Hostname=box", "NetBIOS name=BOX"}));
}

TEST_F(collect_host_info_test, ends_behind_the_names_without_network_facilities) {
    version.major_version = 4;
    version.minor_version = 0;
    adapters = {{}};
    EXPECT_EQ(lines().back(), "NetBIOS name=BOX");
    EXPECT_EQ(params_sizes.size(), 0U);
}

TEST_F(collect_host_info_test, takes_a_version_in_words) {
    version = {.in_words = true,
               .os_id = "Some Linux 1",
               .platform = "Linux",
               .version = "6.1.0-1",
               .build = "#1 SMP"};
    auto all = lines();
    EXPECT_EQ(
        texts(all.begin() + 7, all.begin() + 12),
        (texts{"OS Id=Some Linux 1", "Platform=Linux", "Version=6.1.0-1", "Build=#1 SMP", "Updates= "}));
    EXPECT_EQ(value("Routing"), "Disabled") << "it has network facilities";
}

TEST_F(collect_host_info_test, puts_a_blank_for_no_updates) {
    EXPECT_EQ(value("Updates"), " ");
}

TEST_F(collect_host_info_test, leaves_out_names_that_are_empty_or_unknown) {
    host_name = computer_name = "";
    EXPECT_EQ(value("Hostname"), "(0 lines)");
    EXPECT_EQ(value("NetBIOS name"), "(0 lines)");
    EXPECT_EQ(value("Routing"), "Disabled") << "the list goes on";
    host_name = computer_name = "x";
    host_name_works = computer_name_works = false;
    EXPECT_EQ(value("Hostname"), "(0 lines)");
    EXPECT_EQ(value("NetBIOS name"), "(0 lines)");
    ops.GetComputerNameA = nullptr;
    EXPECT_EQ(value("NetBIOS name"), "(0 lines)");
}

TEST_F(collect_host_info_test, leaves_out_an_empty_domain_and_no_servers) {
    domain = "";
    dns = {};
    EXPECT_EQ(value("Domain Name"), "(0 lines)");
    EXPECT_EQ(value("DNS Servers"), "(0 lines)");
}

TEST_F(collect_host_info_test, tells_routing_and_proxy) {
    routing = 1;
    EXPECT_EQ(value("Routing"), "Enabled");
    EXPECT_EQ(value("ARP Proxy"), "Disabled");
    routing = 0;
    proxy = 2;
    EXPECT_EQ(value("Routing"), "Disabled");
    EXPECT_EQ(value("ARP Proxy"), "Enabled");
}

TEST_F(collect_host_info_test, asks_for_the_network_twice_with_600_bytes) {
    lines();
    EXPECT_EQ(params_sizes, (std::vector<uint32_t>{600, 600})) << "whatever of it the first answer took";
}

TEST_F(collect_host_info_test, asks_again_with_the_size_that_the_host_names) {
    dns.assign(30, "100.100.100.100");
    lines();
    EXPECT_EQ(params_sizes[0], 600U);
    EXPECT_EQ(params_sizes[1], sizeof(network_params) + 30 * sizeof(address_entry));
    EXPECT_EQ(value("DNS Servers").size(), 30 * 15 + 29 * 2U);
}

TEST_F(collect_host_info_test, cuts_the_servers_at_1024_characters) {
    dns.assign(100, "100.100.100.100");
    EXPECT_EQ(value("DNS Servers").size(), 1024U);
}

TEST_F(collect_host_info_test, counts_the_second_answer_about_the_network) {
    params_statuses = {5, 0};
    EXPECT_EQ(value("Routing"), "Disabled");
    params_sizes.clear();
    params_statuses = {0, 0x32};
    adapters = {{}};
    auto all = lines();
    EXPECT_TRUE(host.logged(LOG_DETAIL, "Call to GetNetworkParams failed. Return Value: 00000032"));
    EXPECT_EQ(all[16], "Network Interface=Some card") << "only the four lines are missing";
}

TEST_F(collect_host_info_test, names_each_type_of_adapter) {
    const std::pair<uint32_t, const char *> names[] = {
        {6, "Ethernet interface"},     {9, "Tokenring interface"},    {15, "FDDI interface"},
        {23, "PPP interface"},         {24, "Loopback interface"},    {28, "SLIP interface"},
        {1, "Unknown interface type"}, {71, "Unknown interface type"}};
    for (auto [type, name] : names) {
        adapters = {{.type = type}};
        EXPECT_EQ(values("-")[0], name);
    }
}

TEST_F(collect_host_info_test, tells_dhcp_and_wins_by_dhcp_alone) {
    adapters = {{.dhcp = false}};
    EXPECT_EQ(values("-"), (texts{"Ethernet interface", "DHCP disabled", "WINS disabled",
                                  "MAC address: 00:1A:B2:C3:D4:FF"}));
}

TEST_F(collect_host_info_test, says_nothing_of_leases_that_the_host_does_not_know) {
    adapters = {{.lease_known = false, .dhcp = true}};
    EXPECT_EQ(values("-"), (texts{"Ethernet interface", "MAC address: 00:1A:B2:C3:D4:FF"}));
}

TEST_F(collect_host_info_test, cuts_a_hardware_address_at_eight_bytes) {
    adapters = {{.hardware = std::vector<uint8_t>(20, 0xAB)}};
    EXPECT_EQ(values("-").back(), "MAC address: AB:AB:AB:AB:AB:AB:AB:AB");
}

TEST_F(collect_host_info_test, has_no_adapter_lines_where_they_do_not_fit) {
    size_t fit = 11264 / sizeof(adapter_facts);
    adapters.assign(fit, {});
    EXPECT_EQ(values("Network Interface").size(), fit);
    adapters.assign(fit + 1, {});
    host.log.clear();
    EXPECT_EQ(values("Network Interface").size(), 0U);
    EXPECT_EQ(value("Routing"), "Disabled");
    EXPECT_EQ(host.count_logged("Adapters"), 0) << "without a word in the log";
}

TEST_F(collect_host_info_test, ends_where_the_host_refuses_the_adapters) {
    adapters = {{}};
    adapters_status = 50;
    EXPECT_EQ(lines().back(), "ARP Proxy=Disabled");
}

TEST_F(collect_host_info_test, keeps_nothing_when_memory_runs_out) {
    adapters = {{.addresses = {{"1.2.3.4", "255.0.0.0"}}}};
    dns.assign(30, "100.100.100.100");
    int failed_copies = 0;
    int ended = 0;
    for (uint32_t n = 1;; n++) {
        host.fail_allocation = n;
        try {
            clinfo *list = collect_host_info();
            bool whole = host.fail_allocation != 0;
            host.fail_allocation = 0;
            EXPECT_EQ(list != nullptr, whole) << n;
            free_clinfo_list(list);
            if (whole) break;
            EXPECT_EQ(host.blocks, 0) << n;
            failed_copies++;
        } catch (const process_ended &) {
            EXPECT_TRUE(host.logged(LOG_ERROR, "Fatal error: alloc_clinfo() ran out of memory!")) << n;
            ended++;
            EXPECT_EQ(host.blocks, 0) << n;
        }
    }
    EXPECT_GT(failed_copies, 30);
    EXPECT_GT(ended, 20);
}
