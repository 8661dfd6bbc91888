#include "probes/os/network_text.h"

#include "platform/text.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

void *take_room(record_buffer *buffer, uint32_t size) {
    constexpr uint32_t ALIGNMENT = 8;
    uint32_t rounded = (size + ALIGNMENT - 1) / ALIGNMENT * ALIGNMENT;
    uint32_t position = buffer->used;
    buffer->used += rounded;
    if (buffer->used > buffer->size) return nullptr;
    return memset(buffer->start + position, 0, rounded);
}

uint32_t finish_records(const record_buffer &buffer, uint32_t *out_size) {
    *out_size = buffer.used;
    return buffer.used <= buffer.size ? 0 : static_cast<uint32_t>(NETWORK_BUFFER_OVERFLOW);
}

void append_address(record_buffer *buffer, address_entry **list, const char *address, const char *mask) {
    auto *entry = take_record<address_entry>(buffer);
    if (entry == nullptr) return;
    copy_bounded(entry->address, address, sizeof entry->address);
    copy_bounded(entry->mask, mask, sizeof entry->mask);
    while (*list != nullptr)
        list = &(*list)->next;
    *list = entry;
}

// Cuts the next word of a line that ends with a line feed or with the text.
static bool next_word(const char **at, char *word, size_t size) {
    *at += strspn(*at, " \t\r");
    size_t length = strcspn(*at, " \t\r\n");
    copy_bounded(word, *at, length < size ? length + 1 : size);
    *at += length;
    return length > 0;
}

static bool is_dotted_address(const char *text) {
    return strlen(text) < 16 && strspn(text, "0123456789.") == strlen(text);
}

void parse_resolver(const char *text, char *domain, size_t domain_size, record_buffer *buffer,
                    address_entry **servers) {
    char key[16];
    char value[256];
    copy_bounded(domain, "", domain_size);
    for (const char *at = text; *at != '\0'; at += strcspn(at, "\n"), at += *at == '\n') {
        if (!next_word(&at, key, sizeof key) || !next_word(&at, value, sizeof value)) continue;
        if (text_equal(key, "domain") || text_equal(key, "search"))
            copy_bounded(domain, text_equal(value, ".") ? "" : value, domain_size);
        else if (text_equal(key, "nameserver") && is_dotted_address(value))
            append_address(buffer, servers, value, "");
    }
}

static void print_route_address(const char *word, char out[16]) {
    auto address = static_cast<uint32_t>(strtoul(word, nullptr, 16));
    uint8_t bytes[4];
    memcpy(bytes, &address, sizeof bytes);
    snprintf(out, 16, "%u.%u.%u.%u", bytes[0], bytes[1], bytes[2], bytes[3]);
}

void parse_gateways(const char *route, const char *interface, record_buffer *buffer,
                    address_entry **gateways) {
    constexpr unsigned long ROUTE_BY_GATEWAY = 3; // up, and over a gateway
    char name[32];
    char destination[16];
    char gateway[16];
    char flags[16];
    for (const char *at = route; *at != '\0'; at += strcspn(at, "\n"), at += *at == '\n') {
        if (!next_word(&at, name, sizeof name) || !text_equal(name, interface)) continue;
        if (!next_word(&at, destination, sizeof destination) || !next_word(&at, gateway, sizeof gateway) ||
            !next_word(&at, flags, sizeof flags))
            continue;
        if ((strtoul(flags, nullptr, 16) & ROUTE_BY_GATEWAY) != ROUTE_BY_GATEWAY) continue;
        if (!text_equal(destination, "00000000")) continue;
        char address[16];
        print_route_address(gateway, address);
        append_address(buffer, gateways, address, "");
    }
}

uint32_t adapter_type_of_link(uint32_t hardware) {
    struct link_row {
        uint32_t hardware, type;
    };
    static constexpr link_row rows[] = {{1, 6}, {256, 28}, {512, 23}, {772, 24}, {774, 15}, {800, 9}};
    for (const link_row &row : rows)
        if (row.hardware == hardware) return row.type;
    return 1;
}

bool is_adapter(bool has_device, bool has_address) {
    return has_device || has_address;
}

bool is_label_of(const char *label, const char *interface) {
    size_t length = strcspn(label, ":");
    return strlen(interface) == length && strncmp(label, interface, length) == 0;
}
