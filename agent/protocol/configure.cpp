#include "protocol/configure.h"

#include "devtree/check_table.h"
#include "devtree/fake_checks.h"
#include "devtree/live_trees.h"
#include "devtree/transfer.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/text.h"
#include "platform/version.h"
#include "protocol/authentication.h"
#include "protocol/descriptions.h"
#include "protocol/lists.h"
#include "protocol/records.h"
#include "protocol/refusal.h"
#include "protocol/tags.h"
#include "state/variables.h"

#include <cstdio>
#include <cstring>

void (*log_rule_resolve_hook)(devtree *log_group, devtree *forward_group);

// Cleared for the life of the process when a server fails to answer the notice.
static bool hwscan_supported = true;

static constexpr size_t SERVER_LIST_SIZE = 1024;

// What the agent sends.

static const char *announce_scan(io *stream) {
    if (auto *failure = write_h_w_scan_req(stream)) return failure;
    if (auto *failure = stream->flush(stream)) return failure;
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) {
        agent_log(LOG_WARNING, "Couldn't read HWScan response. Server doesn't seem to support HWScan "
                               "notifications. This feature will be disabled until the agent is restarted");
        hwscan_supported = false;
        return failure;
    }
    if (tag != TAG_H_W_SCAN_RESP) {
        agent_log(LOG_WARNING, "Got unexpected tag %d from server", static_cast<int>(tag));
        return nullptr;
    }
    h_w_scan_resp response;
    if (auto *failure = read_h_w_scan_resp(stream, &response, tag)) return failure;
    if (response.nack == 1) agent_log(LOG_WARNING, "HWScan. Server returned NACK");
    return nullptr;
}

static const char *write_host_info(io *stream) {
    if (auto *failure = write_seq_begin(stream)) return failure;
    for (const clinfo *line = host_info; line != nullptr; line = line->next) {
        host_info_line record = {.label = line->label, .value = line->value};
        if (auto *failure = write_host_info_line(stream, &record)) return failure;
    }
    return write_eoc(stream);
}

static devtree_guard scan_for_server() {
    agent_log(LOG_DETAIL, "Commencing hardware scan");
    devtree_guard tree(scan_devices());
    agent_log(LOG_DETAIL, "Hardware scan complete");
    if (tree == nullptr && fake_results_flag == 0)
        fatal("This agent is not able to monitor *anything* on this host");
    agent_log(LOG_DETAIL, "Agent has devices to monitor");
    return tree;
}

static const char *write_offer(io *stream, bool scan) {
    devtree_guard tree = scan ? scan_for_server() : nullptr;
    if (auto *failure = write_devtree_list(stream, tree.get())) return failure;
    tree.reset();
    return write_check_descriptions(stream, check_descriptions, scan ? DESCRIPTION_COUNT : 0);
}

static const char *send_configure_req(io *stream, bool scan) {
    configure_req request = {.packageId = PACKAGE_ID,
                             .majorVersion = MAJOR_VERSION,
                             .minorVersion = MINOR_VERSION,
                             .buildNumber = BUILD_NUMBER,
                             .agentCaps = AGENT_CAPS};
    if (auto *failure = write_configure_req_incomplete(stream, &request))
        return format_error("Error at send CONFIGURE: %s", failure);
    agent_log(LOG_TRACE, "Registering buildno %i", BUILD_NUMBER);
    if (auto *failure = write_host_info(stream)) return failure;
    if (auto *failure = write_offer(stream, scan)) return failure;
    if (auto *failure = write_eoc(stream)) return failure;
    return stream->flush(stream);
}

// What the server answers.

static const char *open_response(io *stream, configure_resp *out) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) {
        agent_log(LOG_WARNING, "Error reading Configure response");
        return failure;
    }
    if (tag == TAG_NEGOTIATE_NACK) return read_refusal(stream, tag);
    if (tag != TAG_CONFIGURE_RESP)
        return format_error("Got unexpected tag %d from server", static_cast<int>(tag));
    return read_configure_resp_incomplete(stream, out, tag);
}

static void store_variable(const char *key, const char *value) {
    variable *entry = var_make(key, value);
    if (entry == nullptr) fatal("Out of memory");
    static_cast<void>(var_set(entry));
    // A flush that fails is tried again by the main loop, which logs it.
    static_cast<void>(var_flush(0));
}

static void take_host_id(agent_config *config, text_guard id) {
    if (config->host_id != nullptr && !text_equal(config->host_id, id.get()))
        text_replace(&config->host_id, nullptr);
    if (config->host_id != nullptr) return;
    config->host_id = id.release();
    store_variable("host_id", config->host_id);
}

// Gathers the entries in "%s:%d," form. What does not fit is dropped without a word.
static const char *read_servers(io *stream, char list[SERVER_LIST_SIZE]) {
    if (auto *failure =
            read_list_start(stream, "Wrong tag in registration", "Not indefinite length in registration"))
        return failure;
    size_t length = 0;
    list[0] = '\0';
    for (;;) {
        uint32_t tag;
        if (auto *failure = read_tag(stream, &tag)) return failure;
        if (tag == 0) return read_list_end(stream, "List not terminated correctly in registration");
        server_name_port entry;
        if (auto *failure = read_server_name_port(stream, &entry, tag)) return failure;
        text_guard name(entry.name);
        size_t room = SERVER_LIST_SIZE - length;
        int added = snprintf(list + length, room, "%s:%d,", name.get(), entry.port);
        if (added > 0 && static_cast<size_t>(added) < room) length += static_cast<size_t>(added);
        list[length] = '\0';
    }
}

static void take_servers(agent_config *config, const char *list) {
    if (*list == '\0') return;
    server_entry *servers = parse_server_list(list);
    free_server_list(config->servers);
    config->servers = servers;
    config->server_count = 0;
    while (config->servers[config->server_count].name != nullptr)
        config->server_count++;
    server_changed = 1;
    if (server_index >= config->server_count) server_index = 0;
    store_variable("server_list_cluster", list);
}

static devtree *find_group(devtree *list, const char *id) {
    while (list != nullptr && !text_equal(list->id, id))
        list = list->next;
    return list;
}

static void resolve_log_rules() {
    devtree *log_group = find_group(active_tree, "log");
    if (log_group == nullptr) {
        agent_log(LOG_DETAIL, "Server sent no LogCheck group");
        return;
    }
    devtree *forward_group = find_group(log_group->children, "/forward");
    if (forward_group == nullptr) {
        agent_log(LOG_DETAIL, "Server sent no LogCheck forward group");
        return;
    }
    if (log_rule_resolve_hook != nullptr) log_rule_resolve_hook(log_group, forward_group);
}

static void take_tree(devtree_guard tree) {
    if (active_tree != nullptr) transfer_state(active_tree, tree.get());
    free_devtree(active_tree);
    active_tree = tree.release();
    resolve_log_rules();
    agent_log(LOG_NORMAL, "Instructed by server to perform %u checks", devtree_count_checks(active_tree));
}

static const char *read_tree(io *stream) {
    devtree *read = nullptr;
    if (auto *failure = read_devtree_list(stream, nullptr, &read)) return failure;
    devtree_guard tree(read);
    if (auto *failure = skip_to_eol(stream)) {
        // The configuration in force goes too, with its results.
        free_devtree(active_tree);
        active_tree = nullptr;
        return failure;
    }
    take_tree(std::move(tree));
    return nullptr;
}

const char *configure_exchange(io *stream, agent_config *config, bool scan) {
    if (scan && hwscan_supported)
        if (auto *failure = announce_scan(stream)) return failure;
    if (auto *failure = send_configure_req(stream, scan)) return failure;
    configure_resp response = {};
    if (auto *failure = open_response(stream, &response)) return failure;
    config->checkin_freq = response.checkinFrequency;
    take_host_id(config, text_guard(response.id));
    char list[SERVER_LIST_SIZE];
    if (auto *failure = read_servers(stream, list)) return failure;
    take_servers(config, list);
    return read_tree(stream);
}

void configure_reset() {
    hwscan_supported = true;
    log_rule_resolve_hook = nullptr;
    authentication_reset();
}
