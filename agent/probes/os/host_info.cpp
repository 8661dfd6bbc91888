#include "probes/os/host_info.h"

#include "platform/agent_log.h"
#include "platform/sockets.h"
#include "platform/text.h"
#include "platform/version.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/memory.h"
#include "probes/os/memory_ops.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

const host_info_ops *host_info_host;

namespace {

constexpr size_t VALUE_SIZE = 1025;
constexpr size_t NAME_SIZE = 256;
constexpr uint32_t PARAMS_SIZE = 600;
constexpr uint32_t ADAPTERS_SIZE = 11264;

// The list under way. Once memory has run out nothing is added any more.
struct line_list {
    clinfo **tail;
    bool out_of_memory;
};

enum product_test { ANY_PRODUCT, WORKSTATION, SERVER };
enum platform_test { ANY_PLATFORM, NT, NOT_NT };

constexpr uint32_t ANY_MINOR = UINT32_MAX;

struct os_row {
    uint32_t major, minor;
    platform_test platform;
    product_test product;
    const char *name;
    bool network;
};

// The first row that fits counts.
constexpr os_row OS_NAMES[] = {
    {3, 51, ANY_PLATFORM, ANY_PRODUCT, "Windows NT 3.51", false},
    {4, 0, NT, ANY_PRODUCT, "Windows NT 4.0", false},
    {4, 0, NOT_NT, ANY_PRODUCT, "Windows 95", false},
    {4, 10, ANY_PLATFORM, ANY_PRODUCT, "Windows 98", true},
    {4, 90, ANY_PLATFORM, ANY_PRODUCT, "Windows Me", true},
    {5, 0, ANY_PLATFORM, ANY_PRODUCT, "Windows 2000", true},
    {5, 1, ANY_PLATFORM, ANY_PRODUCT, "Windows XP", true},
    {5, 2, ANY_PLATFORM, ANY_PRODUCT, "Windows Server 2003 Family", true},
    {5, ANY_MINOR, ANY_PLATFORM, ANY_PRODUCT, "Unknown", true},
    {6, 0, ANY_PLATFORM, WORKSTATION, "Windows Vista", true},
    {6, 0, ANY_PLATFORM, SERVER, "Windows Server 2008", true},
    {6, 1, ANY_PLATFORM, WORKSTATION, "Windows 7", true},
    {6, 1, ANY_PLATFORM, SERVER, "Windows Server 2008 R2", true},
    {6, ANY_MINOR, ANY_PLATFORM, ANY_PRODUCT, "Unknown", true},
};

constexpr os_row UNKNOWN_OS = {0, ANY_MINOR, ANY_PLATFORM, ANY_PRODUCT, "Unknown", false};

struct numbered_word {
    uint32_t number;
    const char *word;
};

constexpr numbered_word ARCHITECTURES[] = {{0, "x86"}, {6, "Intel Itanium"}, {9, "x64 (AMD or Intel)"}};

constexpr numbered_word ADAPTER_TYPES[] = {
    {6, "Ethernet interface"}, {9, "Tokenring interface"}, {15, "FDDI interface"},
    {23, "PPP interface"},     {24, "Loopback interface"}, {28, "SLIP interface"},
};

} // namespace

template <size_t Count>
static const char *find_word(const numbered_word (&rows)[Count], uint32_t number, const char *otherwise) {
    for (const numbered_word &row : rows)
        if (row.number == number) return row.word;
    return otherwise;
}

static char *copy_part(line_list *list, const char *text) {
    char *copy = text_copy(text);
    list->out_of_memory |= copy == nullptr && text != nullptr;
    return copy;
}

// Label and value may be absent.
static void add_line(line_list *list, const char *label, const char *value) {
    if (list->out_of_memory) return;
    clinfo *line = alloc_clinfo();
    *list->tail = line;
    list->tail = &line->next;
    line->label = copy_part(list, label);
    line->value = copy_part(list, value);
}

static void add_format(line_list *list, const char *label, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

static void add_format(line_list *list, const char *label, const char *format, ...) {
    char value[VALUE_SIZE];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(value, sizeof value, format, arguments);
    va_end(arguments);
    add_line(list, label, value);
}

static void add_if_any(line_list *list, const char *label, const char *value) {
    if (value[0] != '\0') add_line(list, label, value);
}

static void add_processors(line_list *list) {
    system_facts facts = {};
    host_info_host->GetSystemInfo(&facts);
    const char *otherwise = facts.machine[0] != '\0' ? facts.machine : "Unknown";
    add_line(list, "Architecture", find_word(ARCHITECTURES, facts.processor_architecture, otherwise));
    add_format(list, "Number of CPUs", "%i", static_cast<int>(facts.processors));
    for (uint32_t i = 0; i < facts.processors; i++) {
        char label[32];
        snprintf(label, sizeof label, "CPU %i status", static_cast<int>(i));
        // Only 32 bits of the mask are looked at: processor 32 is told by bit 0 again.
        bool enabled = (facts.active_processor_mask >> (i % 32) & 1) != 0;
        add_line(list, label, enabled ? "Enabled" : "Disabled");
    }
}

static void add_hardware(line_list *list) {
    add_processors(list);
    memory_status status = {};
    if (!get_memory_status(&status)) return;
    char value[30];
    format_scaled("", static_cast<double>(status.total_phys), "B", value, sizeof value);
    add_line(list, "Installed Memory", value);
}

static bool row_fits(const os_row &row, const version_facts &facts) {
    if (row.major != facts.major_version) return false;
    if (row.minor != ANY_MINOR && row.minor != facts.minor_version) return false;
    if (row.platform != ANY_PLATFORM && (row.platform == NT) != (facts.platform_id == 2)) return false;
    return row.product == ANY_PRODUCT || (row.product == WORKSTATION) == (facts.product_type == 1);
}

static const os_row &find_os(const version_facts &facts) {
    for (const os_row &row : OS_NAMES)
        if (row_fits(row, facts)) return row;
    return UNKNOWN_OS;
}

// Both give whether the system has network facilities.
static bool add_version_numbers(line_list *list, const version_facts &facts) {
    const os_row &os = find_os(facts);
    add_line(list, "OS Id", os.name);
    add_line(list, "Platform", facts.platform_id == 2 ? "NT" : "non-NT");
    add_format(list, "Version", "%i.%i", static_cast<int>(facts.major_version),
               static_cast<int>(facts.minor_version));
    add_format(list, "Build", "%i", static_cast<int>(facts.build_number));
    return os.network;
}

static bool add_version_words(line_list *list, const version_facts &facts) {
    add_line(list, "OS Id", facts.os_id);
    add_line(list, "Platform", facts.platform);
    add_line(list, "Version", facts.version);
    add_line(list, "Build", facts.build);
    return true;
}

static bool add_system(line_list *list) {
    version_facts facts = {};
    if (!host_info_host->GetVersionExA(&facts)) {
        add_line(list, "System", "Unknown");
        return false;
    }
    bool network = facts.in_words ? add_version_words(list, facts) : add_version_numbers(list, facts);
    add_line(list, "Updates", facts.service_pack[0] != '\0' ? facts.service_pack : " ");
    return network;
}

static void add_identification(line_list *list) {
    add_line(list, "Identification", nullptr);
    agent_log(LOG_DETAIL, "marker");
    char name[NAME_SIZE] = "";
    if (hostname_get(name, sizeof name)) add_if_any(list, "Hostname", name);
    if (host_info_host->GetComputerNameA == nullptr) return;
    name[0] = '\0';
    if (host_info_host->GetComputerNameA(name, sizeof name)) add_if_any(list, "NetBIOS name", name);
}

static void add_dns_servers(line_list *list, const network_params &params) {
    char value[VALUE_SIZE] = "";
    size_t length = 0;
    for (const address_entry *server = params.dns_servers; server != nullptr; server = server->next) {
        char entry[20];
        snprintf(entry, sizeof entry, "%s%s", server->address, server->next != nullptr ? ", " : "");
        copy_bounded(value + length, entry, sizeof value - length);
        length += strlen(value + length);
    }
    add_if_any(list, "DNS Servers", value);
}

static void add_params(line_list *list, const network_params &params) {
    add_if_any(list, "Domain Name", params.domain_name);
    add_dns_servers(list, params);
    add_line(list, "Routing", params.enable_routing != 0 ? "Enabled" : "Disabled");
    add_line(list, "ARP Proxy", params.enable_proxy != 0 ? "Enabled" : "Disabled");
}

// The first call only tells whether the usual size is enough; the second one counts.
static void add_network_params(line_list *list) {
    alignas(network_params) char usual[PARAMS_SIZE] = {};
    auto *params = reinterpret_cast<network_params *>(usual);
    uint32_t size = sizeof usual;
    text_guard larger;
    uint32_t needed = size;
    if (host_info_host->GetNetworkParams(params, &needed) == NETWORK_BUFFER_OVERFLOW) {
        size = needed;
        larger.reset(static_cast<char *>(heap_alloc(size)));
        if (larger == nullptr) {
            list->out_of_memory = true;
            return;
        }
        params = reinterpret_cast<network_params *>(larger.get());
    }
    uint32_t status = host_info_host->GetNetworkParams(params, &size);
    if (status != 0)
        agent_log(LOG_DETAIL, "Call to GetNetworkParams failed. Return Value: %08x", status);
    else
        add_params(list, *params);
}

// The WINS lines depend on DHCP alone, whether WINS is used or not.
static void add_lease(line_list *list, const adapter_facts &adapter) {
    if (!adapter.dhcp_enabled) {
        add_line(list, nullptr, "DHCP disabled");
        add_line(list, nullptr, "WINS disabled");
        return;
    }
    add_format(list, nullptr, "DHCP server: %.16s", adapter.dhcp_server);
    add_format(list, nullptr, "Primary WINS server: %.16s", adapter.primary_wins);
    add_format(list, nullptr, "Secondary WINS server: %.16s", adapter.secondary_wins);
}

static void add_hardware_address(line_list *list, const adapter_facts &adapter) {
    char digits[3 * sizeof adapter.hardware_address + 1] = "";
    size_t count = adapter.hardware_length;
    if (count > sizeof adapter.hardware_address) count = sizeof adapter.hardware_address;
    for (size_t i = 0; i < count; i++)
        snprintf(digits + strlen(digits), 4, i > 0 ? ":%02X" : "%02X", adapter.hardware_address[i]);
    add_format(list, nullptr, "MAC address: %s", digits);
}

static void add_adapter(line_list *list, const adapter_facts &adapter) {
    add_line(list, "Network Interface", adapter.description);
    add_line(list, nullptr, find_word(ADAPTER_TYPES, adapter.type, "Unknown interface type"));
    for (const address_entry *entry = adapter.addresses; entry != nullptr; entry = entry->next)
        add_format(list, nullptr, "IP: %.16s/%.16s", entry->address, entry->mask);
    for (const address_entry *entry = adapter.gateways; entry != nullptr; entry = entry->next)
        add_format(list, nullptr, "Gateway: %.16s", entry->address);
    if (adapter.lease_known) add_lease(list, adapter);
    add_hardware_address(list, adapter);
}

static void add_adapters(line_list *list) {
    alignas(adapter_facts) char buffer[ADAPTERS_SIZE];
    uint32_t size = sizeof buffer;
    auto *first = reinterpret_cast<adapter_facts *>(buffer);
    if (host_info_host->GetAdaptersInfo(first, &size) != 0) return;
    for (const adapter_facts *adapter = first; adapter != nullptr; adapter = adapter->next)
        add_adapter(list, *adapter);
}

clinfo *collect_host_info() {
    clinfo_guard first(alloc_clinfo());
    line_list list = {.tail = &first->next, .out_of_memory = false};
    first->label = copy_part(&list, "Hardware");
    add_hardware(&list);
    add_line(&list, "Software", nullptr);
    bool network = add_system(&list);
    add_line(&list, "Tarnix agent", version_text);
    add_identification(&list);
    if (network) {
        add_network_params(&list);
        add_adapters(&list);
    }
    return list.out_of_memory ? nullptr : first.release();
}
