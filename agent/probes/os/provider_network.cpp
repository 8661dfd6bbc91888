// Network interfaces, and the protocols above them.
#include "probes/os/counter_objects.h"
#include "probes/os/network_counts.h"
#include "probes/os/perf_counter_ops.h"

static constexpr const char *INTERFACES = "/proc/net/dev";
static constexpr const char *SPEED = "/sys/class/net/*/speed";
static constexpr const char *PROTOCOLS = "/proc/net/snmp";

using interface_figure = uint64_t(const interface_counts &counts);

template <interface_figure Figure>
static bool read_interface(const char *text, const char *instance, counter_sample *out) {
    interface_counts counts;
    if (!parse_interface_counts(text, instance, &counts)) return false;
    *out = {.value = Figure(counts), .base = 1};
    return true;
}

static uint64_t received_bytes(const interface_counts &counts) {
    return counts.received_bytes;
}

static uint64_t sent_bytes(const interface_counts &counts) {
    return counts.sent_bytes;
}

static uint64_t all_bytes(const interface_counts &counts) {
    return counts.received_bytes + counts.sent_bytes;
}

static uint64_t received_packets(const interface_counts &counts) {
    return counts.received_packets;
}

static uint64_t sent_packets(const interface_counts &counts) {
    return counts.sent_packets;
}

static uint64_t all_packets(const interface_counts &counts) {
    return counts.received_packets + counts.sent_packets;
}

// Drivers count packets and multicasts at different moments.
static uint64_t received_unicast(const interface_counts &counts) {
    return counts.received_packets > counts.received_multicast
               ? counts.received_packets - counts.received_multicast
               : 0;
}

static uint64_t received_multicast(const interface_counts &counts) {
    return counts.received_multicast;
}

static uint64_t receive_drops(const interface_counts &counts) {
    return counts.receive_drops;
}

static uint64_t receive_errors(const interface_counts &counts) {
    return counts.receive_errors;
}

static uint64_t send_drops(const interface_counts &counts) {
    return counts.send_drops;
}

static uint64_t send_errors(const interface_counts &counts) {
    return counts.send_errors;
}

static bool read_bandwidth(const char *text, const char *, counter_sample *out) {
    *out = {.value = parse_link_speed(text), .base = 1};
    return true;
}

static void list_interfaces(const char *text, instance_visitor *visit, void *context) {
    interface_line line;
    while (next_interface_line(&text, &line) && visit(context, line.name, nullptr)) {
    }
}

static constexpr counter_row INTERFACE_COUNTERS[] = {
    {"Bytes Total/sec", COUNTER_RATE, DETAIL_NOVICE, INTERFACES, read_interface<all_bytes>},
    {"Bytes Received/sec", COUNTER_RATE, DETAIL_NOVICE, INTERFACES, read_interface<received_bytes>},
    {"Bytes Sent/sec", COUNTER_RATE, DETAIL_NOVICE, INTERFACES, read_interface<sent_bytes>},
    {"Packets/sec", COUNTER_RATE, DETAIL_NOVICE, INTERFACES, read_interface<all_packets>},
    {"Packets Received/sec", COUNTER_RATE, DETAIL_NOVICE, INTERFACES, read_interface<received_packets>},
    {"Packets Sent/sec", COUNTER_RATE, DETAIL_NOVICE, INTERFACES, read_interface<sent_packets>},
    // What the driver tells, in bits a second; 0 where an interface has no speed, as those without a cable or
    // a device.
    {.name = "Current Bandwidth",
     .type = COUNTER_LEVEL,
     .detail = DETAIL_NOVICE,
     .source = SPEED,
     .read = read_bandwidth,
     .may_lack_source = true},
    {"Packets Received Unicast/sec", COUNTER_RATE, DETAIL_EXPERT, INTERFACES,
     read_interface<received_unicast>},
    {"Packets Received Non-Unicast/sec", COUNTER_RATE, DETAIL_EXPERT, INTERFACES,
     read_interface<received_multicast>},
    // The next four grow with each packet elsewhere; here they are what the unit of their family says.
    {"Packets Received Discarded", COUNTER_RATE, DETAIL_ADVANCED, INTERFACES, read_interface<receive_drops>},
    {"Packets Received Errors", COUNTER_RATE, DETAIL_ADVANCED, INTERFACES, read_interface<receive_errors>},
    {"Packets Outbound Discarded", COUNTER_RATE, DETAIL_ADVANCED, INTERFACES, read_interface<send_drops>},
    {"Packets Outbound Errors", COUNTER_RATE, DETAIL_ADVANCED, INTERFACES, read_interface<send_errors>},
};

const counter_object network_interface_object = {.name = "Network Interface",
                                                 .counters = INTERFACE_COUNTERS,
                                                 .instance_source = INTERFACES,
                                                 .list_instances = list_interfaces};

namespace {

// One value, or the sum of two of one protocol.
struct protocol_count {
    const char *protocol;
    const char *name;
    const char *second;
};

constexpr protocol_count SEGMENTS = {"Tcp", "InSegs", "OutSegs"};
constexpr protocol_count SEGMENTS_RECEIVED = {"Tcp", "InSegs"};
constexpr protocol_count SEGMENTS_SENT = {"Tcp", "OutSegs"};
constexpr protocol_count SEGMENTS_AGAIN = {"Tcp", "RetransSegs"};
constexpr protocol_count ESTABLISHED = {"Tcp", "CurrEstab"};
constexpr protocol_count ACTIVE_OPENS = {"Tcp", "ActiveOpens"};
constexpr protocol_count PASSIVE_OPENS = {"Tcp", "PassiveOpens"};
constexpr protocol_count FAILED_OPENS = {"Tcp", "AttemptFails"};
constexpr protocol_count RESETS = {"Tcp", "EstabResets"};

constexpr protocol_count USER_DATAGRAMS = {"Udp", "InDatagrams", "OutDatagrams"};
constexpr protocol_count USER_RECEIVED = {"Udp", "InDatagrams"};
constexpr protocol_count USER_SENT = {"Udp", "OutDatagrams"};
constexpr protocol_count USER_NO_PORT = {"Udp", "NoPorts"};
constexpr protocol_count USER_ERRORS = {"Udp", "InErrors"};

constexpr protocol_count DATAGRAMS = {"Ip", "InReceives", "OutRequests"};
constexpr protocol_count DATAGRAMS_RECEIVED = {"Ip", "InReceives"};
constexpr protocol_count DATAGRAMS_SENT = {"Ip", "OutRequests"};
constexpr protocol_count DATAGRAMS_FORWARDED = {"Ip", "ForwDatagrams"};
constexpr protocol_count DATAGRAMS_DELIVERED = {"Ip", "InDelivers"};
constexpr protocol_count HEADER_ERRORS = {"Ip", "InHdrErrors"};
constexpr protocol_count ADDRESS_ERRORS = {"Ip", "InAddrErrors"};
constexpr protocol_count UNKNOWN_PROTOCOL = {"Ip", "InUnknownProtos"};
constexpr protocol_count RECEIVE_DISCARDS = {"Ip", "InDiscards"};
constexpr protocol_count SEND_DISCARDS = {"Ip", "OutDiscards"};
constexpr protocol_count NO_ROUTE = {"Ip", "OutNoRoutes"};
constexpr protocol_count FRAGMENTS_RECEIVED = {"Ip", "ReasmReqds"};
constexpr protocol_count REASSEMBLED = {"Ip", "ReasmOKs"};
constexpr protocol_count REASSEMBLY_FAILURES = {"Ip", "ReasmFails"};
constexpr protocol_count FRAGMENTED = {"Ip", "FragOKs"};
constexpr protocol_count FRAGMENT_FAILURES = {"Ip", "FragFails"};
constexpr protocol_count FRAGMENTS_CREATED = {"Ip", "FragCreates"};

} // namespace

template <const protocol_count &Count>
static bool read_protocol(const char *text, const char *, counter_sample *out) {
    uint64_t second = 0;
    *out = {.value = 0, .base = 1};
    if (!parse_protocol_count(text, Count.protocol, Count.name, &out->value)) return false;
    if (Count.second != nullptr && !parse_protocol_count(text, Count.protocol, Count.second, &second))
        return false;
    out->value += second;
    return true;
}

template <const protocol_count &Count>
static constexpr counter_row rate(const char *name, uint32_t detail) {
    return {name, COUNTER_RATE, detail, PROTOCOLS, read_protocol<Count>};
}

template <const protocol_count &Count>
static constexpr counter_row count(const char *name, uint32_t detail) {
    return {name, COUNTER_LEVEL, detail, PROTOCOLS, read_protocol<Count>};
}

// Counts without "/sec" in their name are since the start.
static constexpr counter_row TCP_COUNTERS[] = {
    rate<SEGMENTS>("Segments/sec", DETAIL_NOVICE),
    // Of this kind are those with addresses of the newer protocol, too: the kernel has one count for both.
    count<ESTABLISHED>("Connections Established", DETAIL_NOVICE),
    count<ACTIVE_OPENS>("Connections Active", DETAIL_NOVICE),
    count<PASSIVE_OPENS>("Connections Passive", DETAIL_NOVICE),
    count<FAILED_OPENS>("Connection Failures", DETAIL_NOVICE),
    count<RESETS>("Connections Reset", DETAIL_NOVICE),
    rate<SEGMENTS_RECEIVED>("Segments Received/sec", DETAIL_NOVICE),
    rate<SEGMENTS_SENT>("Segments Sent/sec", DETAIL_NOVICE),
    rate<SEGMENTS_AGAIN>("Segments Retransmitted/sec", DETAIL_NOVICE),
};

static constexpr counter_row UDP_COUNTERS[] = {
    rate<USER_DATAGRAMS>("Datagrams/sec", DETAIL_NOVICE),
    rate<USER_RECEIVED>("Datagrams Received/sec", DETAIL_NOVICE),
    rate<USER_SENT>("Datagrams Sent/sec", DETAIL_NOVICE),
    rate<USER_NO_PORT>("Datagrams No Port/sec", DETAIL_ADVANCED),
    count<USER_ERRORS>("Datagrams Received Errors", DETAIL_ADVANCED),
};

static constexpr counter_row IP_COUNTERS[] = {
    rate<DATAGRAMS>("Datagrams/sec", DETAIL_NOVICE),
    rate<DATAGRAMS_RECEIVED>("Datagrams Received/sec", DETAIL_NOVICE),
    rate<DATAGRAMS_SENT>("Datagrams Sent/sec", DETAIL_NOVICE),
    rate<DATAGRAMS_FORWARDED>("Datagrams Forwarded/sec", DETAIL_ADVANCED),
    rate<DATAGRAMS_DELIVERED>("Datagrams Received Delivered/sec", DETAIL_ADVANCED),
    count<HEADER_ERRORS>("Datagrams Received Header Errors", DETAIL_ADVANCED),
    count<ADDRESS_ERRORS>("Datagrams Received Address Errors", DETAIL_ADVANCED),
    count<UNKNOWN_PROTOCOL>("Datagrams Received Unknown Protocol", DETAIL_EXPERT),
    count<RECEIVE_DISCARDS>("Datagrams Received Discarded", DETAIL_ADVANCED),
    count<SEND_DISCARDS>("Datagrams Outbound Discarded", DETAIL_ADVANCED),
    count<NO_ROUTE>("Datagrams Outbound No Route", DETAIL_ADVANCED),
    rate<FRAGMENTS_RECEIVED>("Fragments Received/sec", DETAIL_EXPERT),
    rate<REASSEMBLED>("Fragments Re-assembled/sec", DETAIL_EXPERT),
    count<REASSEMBLY_FAILURES>("Fragment Re-assembly Failures", DETAIL_EXPERT),
    rate<FRAGMENTED>("Fragmented Datagrams/sec", DETAIL_EXPERT),
    count<FRAGMENT_FAILURES>("Fragmentation Failures", DETAIL_EXPERT),
    rate<FRAGMENTS_CREATED>("Fragments Created/sec", DETAIL_EXPERT),
};

const counter_object tcpv4_object = {.name = "TCPv4", .counters = TCP_COUNTERS};
const counter_object udpv4_object = {.name = "UDPv4", .counters = UDP_COUNTERS};
const counter_object ipv4_object = {.name = "IPv4", .counters = IP_COUNTERS};
