// What the description of a host is made of.
#pragma once

#include <cstddef>
#include <cstdint>

struct system_facts {
    uint16_t processor_architecture; // in the platform's numbers: 0, 6, 9, or any other
    char machine[66];                // the host's own word for any other; empty where it has none
    uint32_t processors;
    uint64_t active_processor_mask;
};

struct version_facts {
    uint32_t major_version;
    uint32_t minor_version;
    uint32_t build_number;
    uint32_t platform_id;
    uint8_t product_type;
    char service_pack[128];
    // A system that is not told by numbers says it in words, and has network facilities.
    bool in_words;
    char os_id[128];
    char platform[66];
    char version[66];
    char build[66];
};

// A list of addresses; the last one's `next` is absent.
struct address_entry {
    address_entry *next;
    char address[16];
    char mask[16];
};

struct network_params {
    char domain_name[132];
    uint32_t enable_routing;
    uint32_t enable_proxy;
    address_entry *dns_servers; // absent for none
};

struct adapter_facts {
    adapter_facts *next;
    char description[132];
    uint32_t type; // 6 Ethernet, 9 Token Ring, 15 FDDI, 23 PPP, 24 loopback, 28 SLIP, or any other
    uint32_t hardware_length;
    uint8_t hardware_address[8];
    address_entry *addresses; // absent for none
    address_entry *gateways;
    bool lease_known; // whether the rest says anything: not every host keeps it with its adapters
    bool dhcp_enabled;
    char dhcp_server[16];
    char primary_wins[16];
    char secondary_wins[16];
};

enum : uint32_t { NETWORK_BUFFER_OVERFLOW = 111 };

struct host_info_ops {
    void (*GetSystemInfo)(system_facts *out);
    bool (*GetVersionExA)(version_facts *out);
    // Optional: absent on a host without such a name.
    bool (*GetComputerNameA)(char *buffer, uint32_t size);
    // Fill the buffer, which also holds the lists, and give 0; NETWORK_BUFFER_OVERFLOW, with the size that is
    // needed, where it is too small; another system error code. The adapters' records are a list that begins
    // at its head.
    uint32_t (*GetNetworkParams)(network_params *buffer, uint32_t *size);
    uint32_t (*GetAdaptersInfo)(adapter_facts *buffer, uint32_t *size);
};

extern const host_info_ops host_info_ops_host;
extern const host_info_ops *host_info_host;
