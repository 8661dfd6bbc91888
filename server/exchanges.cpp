// The exchanges behind the opening: time, checkin, scan and configuration, downtime, upgrade.
#include "platform/errors.h"
#include "server/records_read.h"
#include "server/session_state.h"
#include "server/value_text.h"

#include <algorithm>

namespace {

// A scan that was asked for and never came is asked for again after this time.
constexpr int64_t SCAN_PATIENCE_S = 600;

constexpr uint32_t PACKAGE_PIECE = 16384;

bool scan_is_due(const session &s) {
    int64_t now = s.now();
    bool known = s.agent.scanned_at != 0 && now - s.agent.scanned_at < s.ports.rules->rescan_s;
    bool asked = s.agent.scan_asked_at != 0 && now - s.agent.scan_asked_at < SCAN_PATIENCE_S;
    return !known && !asked;
}

const char *answer_time(session &s, uint32_t tag) {
    record_reader reader = s.reader();
    time_req asked = read_time_req(reader, tag);
    if (reader.failure() != nullptr) return reader.failure();
    server_time now = s.ports.clock();
    auto seconds = static_cast<int32_t>(now.seconds); // the low 32 bits, as the agent's
    s.skew = static_cast<int32_t>(static_cast<uint32_t>(asked.seconds) - static_cast<uint32_t>(seconds));
    record_writer writer = s.writer();
    writer.time_resp(seconds, now.microseconds);
    return writer.flush();
}

// Stores what was delivered. An agent whose results could not be stored is told to keep them.
bool keep_delivery(session &s, const delivery &arrived) {
    stored_delivery stored;
    if (auto *failure = s.ports.store->save_delivery(arrived, &stored)) {
        s.ports.observer->failed(s.label, s.link.address, failure);
        return false;
    }
    s.unsettled = arrived.results.empty() ? 0 : stored.number;
    s.ports.observer->delivered(s.agent, arrived, stored);
    return true;
}

bool upgrade_is_due(const session &s, std::optional<int32_t> build) {
    return s.ports.upgrade != nullptr && s.ports.upgrade->is_due(s.agent.id, build, s.now());
}

void tell_of_orders(session &s, const std::vector<action_order> &orders, action_step step) {
    for (const action_order &order : orders)
        s.ports.observer->action(s.agent, order.name, step);
}

// The orders count as sent before they are, so that none can come twice.
const char *add_orders(session &s, checkin_resp *reply) {
    if (auto *failure = s.ports.store->take_orders(s.agent.id, s.now(), &s.orders)) return failure;
    for (const action_order &order : s.orders)
        reply->actions.push_back(order.name);
    tell_of_orders(s, s.orders, action_step::sent);
    return nullptr;
}

const char *answer_checkin(session &s, uint32_t tag) {
    if (!s.skew) return "a checkin without the exchange of time before it";
    record_reader reader = s.reader();
    delivery arrived = {.agent_id = s.agent.id, .skew = *s.skew, .received_at = s.now()};
    arrived.results = read_checkin_req(reader, tag);
    if (reader.failure() != nullptr) return reader.failure();
    checkin_resp reply = {.ack = keep_delivery(s, arrived)};
    s.acknowledged = reply.ack;
    if (auto *failure = add_orders(s, &reply)) return failure;
    reply.scan = scan_is_due(s);
    reply.conf_changed = reply.scan || s.agent.configured_by != s.ports.rules->fingerprint;
    if (reply.scan) {
        if (auto *failure = s.ports.store->note_scan_asked(s.agent.id, s.now())) return failure;
        s.scan_asked = true;
        s.enter(session_stage::scan);
    }
    reply.upgrade = upgrade_is_due(s, s.agent.build);
    record_writer writer = s.writer();
    writer.checkin(reply);
    return writer.flush();
}

const char *answer_scan_notice(session &s, uint32_t tag) {
    record_reader reader = s.reader();
    read_empty_record(reader, TAG_SCAN_REQ, "h_w_scan_req", tag);
    if (reader.failure() != nullptr) return reader.failure();
    record_writer writer = s.writer();
    writer.scan_resp(false);
    return writer.flush();
}

// Without a checkin before it, this is an agent that has just started, with empty queues.
bool is_registration(const session &s) {
    return s.messages == 1;
}

const char *keep_offer(session &s, const configure_req &request, std::vector<offered_device> *out) {
    if (!s.scan_asked) return s.ports.store->load_offer(s.agent.id, out);
    *out = flatten_tree(request.tree);
    if (auto *failure = s.ports.store->save_offer(s.agent.id, request.tree, request.descriptions, s.now()))
        return failure;
    s.ports.observer->offered(s.agent, request.tree.size(), out->size());
    return nullptr;
}

// What the agent has told goes into the store; what it shall check comes out.
const char *work_out_checks(session &s, const configure_req &request, std::vector<planned_check> *out) {
    agent_store &store = *s.ports.store;
    if (is_registration(s)) {
        if (auto *failure = store.settle_agent(s.agent.id)) return failure;
        if (auto *failure = store.note_scan_asked(s.agent.id, 0)) return failure;
    }
    if (auto *failure =
            store.save_host(s.agent.id, request.build, request.host_info, s.link.address, s.now()))
        return failure;
    std::vector<offered_device> devices;
    if (auto *failure = keep_offer(s, request, &devices)) return failure;
    *out = plan_checks(*s.ports.rules, devices);
    return store.save_checks(s.agent.id, *out);
}

const char *answer_configure(session &s, uint32_t tag) {
    record_reader reader = s.reader();
    configure_req request = read_configure_req(reader, tag);
    if (reader.failure() != nullptr) return reader.failure();
    std::vector<planned_check> checks;
    if (auto *failure = work_out_checks(s, request, &checks)) {
        s.ports.observer->failed(s.label, s.link.address, failure);
        return refuse(s, "The server cannot keep the configuration now");
    }
    if (is_registration(s)) s.ports.observer->registered(s.agent, request.build, s.link.address, s.new_key);
    s.ports.observer->configured(s.agent, checks.size());
    s.configured_now = s.ports.rules->fingerprint;
    record_writer writer = s.writer();
    writer.configure({.id = s.agent.host_id,
                      .checkin_frequency = s.ports.rules->checkin_frequency,
                      .servers = s.ports.rules->servers,
                      .checks = group_checks(checks)});
    return writer.flush();
}

const char *answer_downtime(session &s, uint32_t tag) {
    record_reader reader = s.reader();
    int32_t minutes = read_downtime_req(reader, tag);
    if (reader.failure() != nullptr) return reader.failure();
    int64_t now = s.now();
    int64_t until = now + int64_t{minutes} * 60;
    int32_t most = s.ports.rules->max_downtime_min;
    const char *failure = nullptr;
    record_writer writer = s.writer();
    if (minutes < 1 || minutes > most) {
        writer.downtime_resp(false, format_error("A downtime takes 1 to %d minutes", most));
    } else if ((failure = s.ports.store->save_downtime(s.agent.id, minutes, now)) != nullptr) {
        s.ports.observer->failed(s.label, s.link.address, failure);
        writer.downtime_resp(false, "The server cannot keep the downtime now");
    } else {
        s.ports.observer->downtime(s.agent, minutes, until);
        writer.downtime_resp(true, "Downtime until " + time_text(until));
    }
    return writer.flush();
}

// A piece at a time, so that a thousand downloads take no memory.
const char *send_package(session &s, const upgrade_package &package) {
    char piece[PACKAGE_PIECE];
    record_writer writer = s.writer();
    writer.begin_upgrade(package.build(), package.size());
    for (uint32_t at = 0; at < package.size();) {
        uint32_t count = std::min(PACKAGE_PIECE, package.size() - at);
        if (!package.read(at, piece, count)) return "the upgrade's file has become shorter";
        writer.upgrade_piece(piece, count);
        at += count;
    }
    writer.end_upgrade();
    return writer.flush();
}

// Who asks without having been offered one hears nothing.
const char *answer_upgrade(session &s, uint32_t tag) {
    record_reader reader = s.reader();
    build_numbers asking = read_upgrade_req(reader, tag);
    if (reader.failure() != nullptr) return reader.failure();
    if (!upgrade_is_due(s, asking.build)) return "the agent asked for an upgrade that was not offered";
    s.enter(session_stage::upgrade);
    s.upgrade_under_way = true;
    return send_package(s, s.ports.upgrade->package());
}

struct message_row {
    uint32_t tag;
    const char *(*answer)(session &s, uint32_t tag);
};

constexpr message_row MESSAGES[] = {
    {TAG_CONFIGURE_REQ, answer_configure}, {TAG_TIME_REQ, answer_time},
    {TAG_CHECKIN_REQ, answer_checkin},     {TAG_SCAN_REQ, answer_scan_notice},
    {TAG_DOWNTIME_REQ, answer_downtime},   {TAG_UPGRADE_REQ, answer_upgrade},
};

} // namespace

const char *answer_message(session &s, uint32_t tag) {
    for (const message_row &row : MESSAGES)
        if (row.tag == tag) return row.answer(s, tag);
    return format_error("a message with tag %u, which is no agent's", tag);
}

// An acknowledgement lets the agent prune what it had started before this answer.
static const char *confirm_orders(session &s) {
    std::vector<action_order> pruned;
    if (s.acknowledged)
        if (auto *failure = s.ports.store->note_orders_pruned(s.agent.id, s.now(), &pruned)) return failure;
    s.acknowledged = false;
    tell_of_orders(s, pruned, action_step::pruned);
    if (s.orders.empty()) return nullptr;
    if (auto *failure = s.ports.store->note_orders_taken(s.orders, s.now())) return failure;
    tell_of_orders(s, s.orders, action_step::taken);
    s.orders.clear();
    return nullptr;
}

const char *confirm_answer(session &s) {
    if (s.unsettled != 0)
        if (auto *failure = s.ports.store->settle_delivery(s.agent.id, s.unsettled)) return failure;
    s.unsettled = 0;
    if (auto *failure = confirm_orders(s)) return failure;
    if (s.upgrade_under_way) {
        s.ports.upgrade->note_taken(s.agent.id, s.now());
        s.ports.observer->upgraded(s.agent, s.ports.upgrade->package().build());
    }
    s.upgrade_under_way = false;
    if (s.configured_now.empty()) return nullptr;
    if (auto *failure = s.ports.store->set_configured(s.agent.id, s.configured_now)) return failure;
    s.agent.configured_by = s.configured_now;
    s.configured_now.clear();
    return nullptr;
}
