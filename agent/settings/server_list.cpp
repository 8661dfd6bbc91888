// The list of servers in the settings' text form.

#include "platform/fatal.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <cstring>

using server_list_guard = guard<server_entry, free_server_list>;

static bool is_separator(char c) {
    return c == ',' || c == ' ';
}

static uint32_t count_servers(const char *text) {
    uint32_t count = 0;
    for (const char *at = text; *at != '\0'; at++)
        if (!is_separator(*at) && (at == text || is_separator(at[-1]))) count++;
    return count;
}

static uint16_t parse_port(const char *text, const char *end) {
    const char *stop;
    int32_t port = parse_number(text, &stop);
    // A text without a number leaves itself behind, as does whatever follows one.
    if (stop != end) fatal("Could not parse port number");
    return static_cast<uint16_t>(port);
}

static void parse_server(const char *token, const char *end, server_entry *out) {
    text_guard text(text_copy_part(token, static_cast<size_t>(end - token)));
    if (text == nullptr) fatal("Out of memory");
    if (char *colon = strchr(text.get(), ':')) {
        *colon = '\0';
        out->port = parse_port(colon + 1, text.get() + (end - token));
    }
    out->name = text_copy(text.get());
    if (out->name == nullptr) fatal("Out of memory");
}

server_entry *parse_server_list(const char *text) {
    if (text == nullptr) return nullptr;
    uint32_t count = count_servers(text);
    server_list_guard servers(
        static_cast<server_entry *>(heap_alloc((size_t{count} + 1) * sizeof(server_entry))));
    if (servers == nullptr) fatal("Out of memory");
    uint32_t stored = 0;
    while (*text != '\0') {
        while (is_separator(*text))
            text++;
        const char *end = text;
        while (*end != '\0' && !is_separator(*end))
            end++;
        if (end == text) break;
        parse_server(text, end, &servers.get()[stored++]);
        if (stored > MAX_SERVERS) fatal("Too many servers in list");
        text = end;
    }
    return servers.release();
}

void free_server_list(server_entry *servers) {
    if (servers == nullptr) return;
    for (server_entry *server = servers; server->name != nullptr; server++)
        heap_free(server->name);
    heap_free(servers);
}
