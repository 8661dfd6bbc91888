#include "platform/heap.h"
#include "platform/text.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/network_text.h"

#include <algorithm>
#include <cstring>
#include <winsock2.h>

#include <iphlpapi.h>

// The host's records are asked for in a buffer as large as the caller's. They are larger than ours, so that
// what fits there fits here, and the host's word for what does not is the answer.
static_assert(sizeof(network_params) + sizeof(address_entry) <= sizeof(FIXED_INFO));
static_assert(sizeof(adapter_facts) + 2 * sizeof(address_entry) <= sizeof(IP_ADAPTER_INFO));
static_assert(sizeof(address_entry) <= sizeof(IP_ADDR_STRING));

static void get_system_info(system_facts *out) {
    SYSTEM_INFO info = {};
    GetSystemInfo(&info);
    out->processor_architecture = info.wProcessorArchitecture;
    out->processors = info.dwNumberOfProcessors;
    out->active_processor_mask = info.dwActiveProcessorMask;
}

static bool get_version(version_facts *out) {
    OSVERSIONINFOEXA found = {};
    found.dwOSVersionInfoSize = sizeof found;
    static_assert(sizeof found == 156);
    if (!GetVersionExA(reinterpret_cast<OSVERSIONINFOA *>(&found))) return false;
    out->major_version = found.dwMajorVersion;
    out->minor_version = found.dwMinorVersion;
    out->build_number = found.dwBuildNumber;
    out->platform_id = found.dwPlatformId;
    out->product_type = found.wProductType;
    copy_bounded(out->service_pack, found.szCSDVersion, sizeof out->service_pack);
    return true;
}

static bool get_computer_name(char *buffer, uint32_t size) {
    DWORD length = size;
    return GetComputerNameA(buffer, &length);
}

static void append_list(record_buffer *buffer, const IP_ADDR_STRING *entry, address_entry **list) {
    for (; entry != nullptr; entry = entry->Next)
        append_address(buffer, list, entry->IpAddress.String, entry->IpMask.String);
}

static uint32_t get_network_params(network_params *out, uint32_t *size) {
    text_guard room(static_cast<char *>(heap_alloc(*size)));
    if (room == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    auto *info = reinterpret_cast<FIXED_INFO *>(room.get());
    record_buffer buffer = {.start = reinterpret_cast<char *>(out), .size = *size, .used = 0};
    ULONG needed = *size;
    DWORD status = GetNetworkParams(info, &needed);
    *size = needed;
    if (status != ERROR_SUCCESS) return status;
    auto *params = take_record<network_params>(&buffer);
    copy_bounded(params->domain_name, info->DomainName, sizeof params->domain_name);
    params->enable_routing = info->EnableRouting;
    params->enable_proxy = info->EnableProxy;
    append_list(&buffer, &info->DnsServerList, &params->dns_servers);
    return ERROR_SUCCESS;
}

static void fill_adapter(const IP_ADAPTER_INFO *info, record_buffer *buffer, adapter_facts *out) {
    copy_bounded(out->description, info->Description, sizeof out->description);
    out->type = info->Type;
    out->hardware_length = info->AddressLength;
    memcpy(out->hardware_address, info->Address, sizeof out->hardware_address);
    append_list(buffer, &info->IpAddressList, &out->addresses);
    append_list(buffer, &info->GatewayList, &out->gateways);
    out->lease_known = true;
    out->dhcp_enabled = info->DhcpEnabled != 0;
    copy_bounded(out->dhcp_server, info->DhcpServer.IpAddress.String, sizeof out->dhcp_server);
    copy_bounded(out->primary_wins, info->PrimaryWinsServer.IpAddress.String, sizeof out->primary_wins);
    copy_bounded(out->secondary_wins, info->SecondaryWinsServer.IpAddress.String, sizeof out->secondary_wins);
}

static uint32_t get_adapters_info(adapter_facts *out, uint32_t *size) {
    text_guard room(static_cast<char *>(heap_alloc(*size)));
    if (room == nullptr) return ERROR_NOT_ENOUGH_MEMORY;
    auto *info = reinterpret_cast<IP_ADAPTER_INFO *>(room.get());
    record_buffer buffer = {.start = reinterpret_cast<char *>(out), .size = *size, .used = 0};
    ULONG needed = *size;
    DWORD status = GetAdaptersInfo(info, &needed);
    *size = needed;
    if (status != ERROR_SUCCESS) return status;
    adapter_facts *last = nullptr;
    for (; info != nullptr; info = info->Next) {
        auto *adapter = take_record<adapter_facts>(&buffer);
        if (last != nullptr) last->next = adapter;
        last = adapter;
        fill_adapter(info, &buffer, adapter);
    }
    return ERROR_SUCCESS;
}

const host_info_ops host_info_ops_host = {
    .GetSystemInfo = get_system_info,
    .GetVersionExA = get_version,
    .GetComputerNameA = get_computer_name,
    .GetNetworkParams = get_network_params,
    .GetAdaptersInfo = get_adapters_info,
};
