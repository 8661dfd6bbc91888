// What the kernel counts for its network: /proc/net/dev and /proc/net/snmp.
#pragma once

#include <cstddef>
#include <cstdint>

inline constexpr size_t INTERFACE_NAME_SIZE = 64;

struct interface_counts {
    uint64_t received_bytes, received_packets, receive_errors, receive_drops, received_multicast;
    uint64_t sent_bytes, sent_packets, send_errors, send_drops;
};

struct interface_line {
    char name[INTERFACE_NAME_SIZE];
    interface_counts counts;
};

// The next sound line of /proc/net/dev at or behind `*at`, which then moves behind it; false behind the last
// one.
bool next_interface_line(const char **at, interface_line *out);

bool parse_interface_counts(const char *net_dev, const char *interface, interface_counts *out);

// Bits a second out of /sys/class/net/*/speed; 0 for an interface that has none to tell.
uint64_t parse_link_speed(const char *speed);

// One value of /proc/net/snmp by its protocol ("Tcp") and name ("CurrEstab"): a line of names stands ahead of
// the line of values.
bool parse_protocol_count(const char *snmp, const char *protocol, const char *name, uint64_t *out);
