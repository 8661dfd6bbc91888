#include "probes/os/network_counts.h"

#include "platform/text.h"
#include "probes/os/host_text.h"

#include <cstring>

// "name: received bytes packets errors drops fifo frame compressed multicast, sent bytes packets errors
// drops". The kernel leaves no blank behind the colon of a long number in old versions.
static bool read_interface_line(const char *at, interface_line *out) {
    *out = {};
    at += strspn(at, " ");
    size_t length = strcspn(at, ":\n");
    if (at[length] != ':' || length == 0 || length >= sizeof out->name) return false;
    copy_bounded(out->name, at, length + 1);
    at += length + 1;
    interface_counts &counts = out->counts;
    uint64_t unused = 0;
    uint64_t *const columns[] = {&counts.received_bytes,
                                 &counts.received_packets,
                                 &counts.receive_errors,
                                 &counts.receive_drops,
                                 &unused,
                                 &unused,
                                 &unused,
                                 &counts.received_multicast,
                                 &counts.sent_bytes,
                                 &counts.sent_packets,
                                 &counts.send_errors,
                                 &counts.send_drops};
    for (uint64_t *column : columns)
        if (!read_number(&at, column)) return false;
    return true;
}

bool next_interface_line(const char **at, interface_line *out) {
    while (const char *behind = next_line(*at)) {
        const char *line = *at;
        *at = behind;
        if (read_interface_line(line, out)) return true;
    }
    return false;
}

bool parse_interface_counts(const char *net_dev, const char *interface, interface_counts *out) {
    size_t length = strlen(interface);
    for (const char *behind = nullptr; (behind = next_line(net_dev)) != nullptr; net_dev = behind) {
        const char *name = net_dev + strspn(net_dev, " ");
        if (strncmp(name, interface, length) != 0 || name[length] != ':') continue;
        interface_line line;
        if (!read_interface_line(net_dev, &line)) return false;
        *out = line.counts;
        return true;
    }
    return false;
}

uint64_t parse_link_speed(const char *speed) {
    uint64_t megabits = 0;
    if (next_line(speed) == nullptr || !read_number(&speed, &megabits) || *speed != '\n') return 0;
    // Drivers say "unknown" as -1, in 16 and in 32 bits.
    if (megabits == 0xFFFF || megabits >= 0xFFFFFFFF) return 0;
    return megabits * 1'000'000;
}

// The place of a name among the words of its line; false where it is not there.
static bool find_word(const char *line, const char *name, size_t *out_place) {
    size_t length = strlen(name);
    const char *word = line;
    for (size_t place = 0; *word != '\n' && *word != '\0'; place++) {
        word += strspn(word, " ");
        size_t here = strcspn(word, " \n");
        if (here == length && strncmp(word, name, length) == 0) {
            *out_place = place;
            return true;
        }
        word += here;
    }
    return false;
}

// The number in that place. Some are below zero, which counts as a word, but not as a number.
static bool read_word(const char *line, size_t place, uint64_t *out) {
    for (; place > 0; place--) {
        line += strspn(line, " ");
        line += strcspn(line, " \n");
    }
    return read_number(&line, out);
}

static const char *behind_protocol(const char *line, const char *protocol) {
    size_t length = strlen(protocol);
    bool same = strncmp(line, protocol, length) == 0 && line[length] == ':';
    return same ? line + length + 1 : nullptr;
}

bool parse_protocol_count(const char *snmp, const char *protocol, const char *name, uint64_t *out) {
    for (const char *values = nullptr; (values = next_line(snmp)) != nullptr; snmp = values) {
        const char *names = behind_protocol(snmp, protocol);
        if (names == nullptr) continue;
        size_t place = 0;
        const char *numbers = behind_protocol(values, protocol);
        if (numbers == nullptr || next_line(values) == nullptr) return false;
        return find_word(names, name, &place) && read_word(numbers, place, out);
    }
    return false;
}
