#include "platform/heap.h"
#include "platform/host_files_linux.h"
#include "platform/text.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/network_text.h"
#include "probes/os/os_release.h"
#include "probes/os/processor_list.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <ifaddrs.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <sys/stat.h>
#include <sys/utsname.h>

static uint16_t architecture_of(const char *machine) {
    if (text_equal(machine, "x86_64")) return 9;
    if (text_equal(machine, "ia64")) return 6;
    bool x86 = machine[0] == 'i' && text_equal(machine + 2, "86");
    return x86 ? 0 : UINT16_MAX;
}

static void get_system_info(system_facts *out) {
    utsname names = {};
    uname(&names);
    copy_bounded(out->machine, names.machine, sizeof out->machine);
    out->processor_architecture = architecture_of(names.machine);
    char text[4096];
    uint64_t mask = 0;
    if (read_host_text("/sys/devices/system/cpu/present", text, sizeof text))
        out->processors = parse_processor_list(text, &mask);
    if (read_host_text("/sys/devices/system/cpu/online", text, sizeof text))
        parse_processor_list(text, &out->active_processor_mask);
    if (out->processors != 0) return;
    auto processors = sysconf(_SC_NPROCESSORS_ONLN);
    out->processors = processors > 0 ? static_cast<uint32_t>(processors) : 1;
    out->active_processor_mask = UINT64_MAX;
}

static bool get_version(version_facts *out) {
    utsname names;
    if (uname(&names) != 0) return false;
    out->in_words = true;
    copy_bounded(out->platform, names.sysname, sizeof out->platform);
    copy_bounded(out->version, names.release, sizeof out->version);
    copy_bounded(out->build, names.version, sizeof out->build);
    char text[8192];
    for (const char *path : {"/etc/os-release", "/usr/lib/os-release"})
        if (read_host_text(path, text, sizeof text) && parse_os_release(text, out->os_id, sizeof out->os_id))
            return true;
    copy_bounded(out->os_id, names.sysname, sizeof out->os_id);
    return true;
}

static bool is_switched_on(const char *path) {
    char text[16];
    return read_host_text(path, text, sizeof text) && parse_atoi(text) != 0;
}

static uint32_t get_network_params(network_params *out, uint32_t *size) {
    record_buffer buffer = {.start = reinterpret_cast<char *>(out), .size = *size, .used = 0};
    network_params spare = {};
    auto *params = take_record<network_params>(&buffer);
    if (params == nullptr) params = &spare;
    char text[8192];
    if (read_host_text("/etc/resolv.conf", text, sizeof text))
        parse_resolver(text, params->domain_name, sizeof params->domain_name, &buffer, &params->dns_servers);
    params->enable_routing = is_switched_on("/proc/sys/net/ipv4/ip_forward");
    params->enable_proxy = is_switched_on("/proc/sys/net/ipv4/conf/all/proxy_arp");
    return finish_records(buffer, size);
}

// The addresses of one family on an interface are entries of their own in the host's list.
static bool is_address_of(const ifaddrs *entry, const char *interface) {
    return entry->ifa_addr != nullptr && entry->ifa_addr->sa_family == AF_INET &&
           is_label_of(entry->ifa_name, interface);
}

static bool has_address(const ifaddrs *all, const char *interface) {
    for (const ifaddrs *entry = all; entry != nullptr; entry = entry->ifa_next)
        if (is_address_of(entry, interface)) return true;
    return false;
}

static bool has_device(const char *interface) {
    char path[64];
    struct stat found;
    snprintf(path, sizeof path, "/sys/class/net/%.32s/device", interface);
    return stat(path, &found) == 0;
}

static void print_address(const sockaddr *address, char out[16]) {
    out[0] = '\0';
    if (address == nullptr) return;
    inet_ntop(AF_INET, &reinterpret_cast<const sockaddr_in *>(address)->sin_addr, out, 16);
}

static void append_addresses(const ifaddrs *all, const char *interface, record_buffer *buffer,
                             address_entry **list) {
    for (const ifaddrs *entry = all; entry != nullptr; entry = entry->ifa_next) {
        if (!is_address_of(entry, interface)) continue;
        char address[16];
        char mask[16];
        print_address(entry->ifa_addr, address);
        print_address(entry->ifa_netmask, mask);
        append_address(buffer, list, address, mask);
    }
}

// What leases the interface has is the business of whichever program fetched them.
static void fill_adapter(const ifaddrs *all, const ifaddrs *link, const char *route, record_buffer *buffer,
                         adapter_facts *out) {
    const auto *address = reinterpret_cast<const sockaddr_ll *>(link->ifa_addr);
    copy_bounded(out->description, link->ifa_name, sizeof out->description);
    out->type = adapter_type_of_link(address->sll_hatype);
    out->hardware_length = address->sll_halen;
    memcpy(out->hardware_address, address->sll_addr, sizeof out->hardware_address);
    append_addresses(all, link->ifa_name, buffer, &out->addresses);
    parse_gateways(route, link->ifa_name, buffer, &out->gateways);
}

static text_guard read_routes() {
    constexpr size_t LIMIT = size_t{256} << 10;
    text_guard text(static_cast<char *>(heap_alloc(LIMIT)));
    if (text != nullptr) read_host_text("/proc/net/route", text.get(), LIMIT);
    return text;
}

static void fill_adapters(const ifaddrs *all, const char *route, record_buffer *buffer) {
    adapter_facts spare;
    adapter_facts *last = nullptr;
    for (const ifaddrs *link = all; link != nullptr; link = link->ifa_next) {
        if (link->ifa_addr == nullptr || link->ifa_addr->sa_family != AF_PACKET) continue;
        if (!is_adapter(has_device(link->ifa_name), has_address(all, link->ifa_name))) continue;
        auto *adapter = take_record<adapter_facts>(buffer);
        if (adapter == nullptr) {
            spare = {};
            adapter = &spare;
        } else {
            if (last != nullptr) last->next = adapter;
            last = adapter;
        }
        fill_adapter(all, link, route, buffer, adapter);
    }
}

static uint32_t get_adapters_info(adapter_facts *out, uint32_t *size) {
    constexpr uint32_t NOT_ENOUGH_MEMORY = 8;
    constexpr uint32_t NO_ADAPTERS = 232;
    ifaddrs *all = nullptr;
    text_guard route = read_routes();
    if (route == nullptr) return NOT_ENOUGH_MEMORY;
    if (getifaddrs(&all) != 0) return static_cast<uint32_t>(errno);
    record_buffer buffer = {.start = reinterpret_cast<char *>(out), .size = *size, .used = 0};
    fill_adapters(all, route.get(), &buffer);
    freeifaddrs(all);
    return buffer.used > 0 ? finish_records(buffer, size) : NO_ADAPTERS;
}

const host_info_ops host_info_ops_host = {
    .GetSystemInfo = get_system_info,
    .GetVersionExA = get_version,
    .GetNetworkParams = get_network_params,
    .GetAdaptersInfo = get_adapters_info,
};
