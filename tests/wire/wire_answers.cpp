// What the server says, built.

#include "wire/wire_messages.h"

#include <cmath>

namespace wire {

check continuous(const std::string &id, int32_t frequency) {
    return {.kind = check_kind::CONTINUOUS, .id = id, .frequency = frequency};
}

check real(const std::string &id, int32_t frequency) {
    return {.kind = check_kind::REAL, .id = id, .frequency = frequency};
}

check bitmap(const std::string &id, int32_t frequency, std::vector<uint32_t> statuses) {
    return {.kind = check_kind::BITMAP, .id = id, .frequency = frequency, .statuses = std::move(statuses)};
}

check plain_log(const std::string &id, int32_t frequency) {
    return {.kind = check_kind::LOG, .id = id, .frequency = frequency};
}

check advanced_log(const std::string &id, int32_t frequency, std::vector<rule> rules) {
    return {.kind = check_kind::ADVANCED_LOG, .id = id, .frequency = frequency, .rules = std::move(rules)};
}

static void add_paths(const std::vector<offered_group> &groups, const std::string &prefix,
                      std::vector<std::string> *out) {
    for (const offered_group &group : groups) {
        for (const offered_device &device : group.devices)
            out->push_back(prefix + group.id + "/" + device.id);
        add_paths(group.groups, prefix + group.id + "/", out);
    }
}

std::vector<std::string> device_paths(const std::vector<offered_group> &tree) {
    std::vector<std::string> paths;
    add_paths(tree, "", &paths);
    return paths;
}

std::string server_offers(int32_t version, bool has_master_key, bool has_hallmark) {
    writer to;
    to.open(SERVER_OFFERS).integer(version);
    to.open(context(1)).boolean(has_master_key).boolean(has_hallmark).close();
    return to.close().bytes;
}

std::string negotiate_ack() {
    return writer().open(NEGOTIATE_ACK).close().bytes;
}

std::string negotiate_nack(const std::string &reason) {
    return writer().open(NEGOTIATE_NACK).octets(reason).close().bytes;
}

std::string dh_parameters(const std::string &modulus, const std::string &generator) {
    return writer().open(DH_PARAMETERS).number(modulus).number(generator).close().bytes;
}

std::string number_record(uint32_t tag, const std::string &magnitude) {
    return writer().open(tag).number(magnitude).close().bytes;
}

std::string time_resp(int64_t seconds) {
    return writer().open(TIME_RESP).integer(seconds).integer(0).close().bytes;
}

std::string scan_resp(bool nack) {
    return writer().open(SCAN_RESP).boolean(nack).close().bytes;
}

static void put_limit(writer &to, double limit, bool real) {
    if (std::isnan(limit))
        to.nothing();
    else if (real)
        to.real(limit);
    else
        to.integer(static_cast<int64_t>(limit));
}

static void put_limits(writer &to, const check &check, bool real) {
    for (double limit : {check.alert_high, check.alert_low, check.warn_high, check.warn_low})
        put_limit(to, limit, real);
}

static void put_bits(writer &to, const check &check) {
    to.open(SEQUENCE);
    for (uint32_t status : check.statuses)
        to.enumerated(status);
    to.close();
}

static void put_rules(writer &to, const check &check) {
    to.octets(check.separator).enumerated(check.separator_inclusion).open(SEQUENCE);
    for (const rule &rule : check.rules)
        to.open(SEQUENCE)
            .octets(rule.regex)
            .enumerated(rule.status)
            .enumerated(rule.decision)
            .octets(rule.destination)
            .close();
    to.close().integer(check.warning_silence).integer(check.alert_silence);
}

static void put_kind(writer &to, const check &check) {
    to.open(context(static_cast<uint32_t>(check.kind))); // the kinds stand in the order of their numbers
    switch (check.kind) {
    case check_kind::CONTINUOUS:
        put_limits(to, check, false);
        break;
    case check_kind::BITMAP:
        put_bits(to, check);
        break;
    case check_kind::LOG:
        break;
    case check_kind::REAL:
        put_limits(to, check, true);
        break;
    case check_kind::ADVANCED_LOG:
        put_rules(to, check);
        break;
    }
    to.close();
}

static void put_groups(writer &to, const std::vector<group> &groups) {
    to.open(SEQUENCE);
    for (const group &group : groups) {
        to.open(SEQUENCE).octets(group.id).open(SEQUENCE);
        for (const check &check : group.checks) {
            to.open(SEQUENCE).integer(check.frequency).octets(check.id);
            put_kind(to, check);
            if (check.conf_id) to.octets(*check.conf_id);
            to.close();
        }
        to.close();
        put_groups(to, group.groups);
        to.close();
    }
    to.close();
}

std::string configure_resp(const std::string &id, int32_t checkin_frequency,
                           const std::vector<server_place> &servers, const std::vector<group> &checks) {
    writer to;
    to.open(CONFIGURE_RESP).octets(id).integer(checkin_frequency).open(SEQUENCE);
    for (const server_place &server : servers)
        to.open(SEQUENCE).octets(server.name).integer(server.port).close();
    to.close();
    put_groups(to, checks);
    return to.close().bytes;
}

static void put_actions(writer &to, const std::vector<action_group> &groups) {
    to.open(SEQUENCE);
    for (const action_group &group : groups) {
        to.open(SEQUENCE).octets(group.id);
        put_actions(to, group.groups);
        to.open(SEQUENCE);
        for (const std::string &action : group.actions)
            to.open(SEQUENCE).octets(action).close();
        to.close().close();
    }
    to.close();
}

std::string checkin_resp(bool ack, bool changed, bool upgrade, const std::vector<action_group> &actions,
                         bool scan) {
    writer to;
    to.open(CHECKIN_RESP).boolean(ack).boolean(changed).boolean(upgrade);
    put_actions(to, actions);
    return to.boolean(scan).close().bytes;
}

std::string downtime_resp(bool success, const std::string &message) {
    return writer().open(DOWNTIME_RESP).boolean(success).octets(message).close().bytes;
}

std::string upgrade_resp(int32_t number, const std::string &package) {
    return writer().open(UPGRADE_RESP).integer(number).octets(package).close().bytes;
}

} // namespace wire
