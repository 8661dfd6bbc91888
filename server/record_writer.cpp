#include "server/record_writer.h"

#include "protocol/ber.h"
#include "server/limits.h"

#include <algorithm>
#include <cmath>

void record_writer::begin(uint32_t tag) {
    if (failed == nullptr) failed = write_tag(stream, tag);
    if (failed == nullptr) failed = write_indefinite(stream);
}

void record_writer::end() {
    if (failed == nullptr) failed = write_eoc(stream);
}

void record_writer::integer(int32_t value) {
    if (failed == nullptr) failed = write_signed_int(stream, INT32_MIN, INT32_MAX, value);
}

void record_writer::boolean(bool value) {
    if (failed == nullptr) failed = write_bool(stream, value);
}

void record_writer::enumerated(uint32_t value) {
    if (failed == nullptr) failed = write_enumerated(stream, value, BE_ENUMERATED);
}

void record_writer::number(const bignum *value) {
    if (failed == nullptr) failed = write_bignum(stream, value);
}

void record_writer::text(uint32_t limit, const std::string &value) {
    if (failed == nullptr) failed = write_string(stream, limit, value.c_str());
}

const char *record_writer::flush() {
    if (failed == nullptr) failed = stream->flush(stream);
    return failed;
}

void record_writer::server_offers(int32_t version, bool has_master_key, bool has_hallmark) {
    begin(TAG_SERVER_OFFERS);
    integer(version);
    begin(TAG_PRIVATE_KEY);
    boolean(has_master_key);
    boolean(has_hallmark);
    end();
    end();
}

void record_writer::negotiate_ack() {
    begin(TAG_NEGOTIATE_ACK);
    end();
}

void record_writer::negotiate_nack(const std::string &reason) {
    begin(TAG_NEGOTIATE_NACK);
    text(REASON_LIMIT, reason.substr(0, REASON_LIMIT));
    end();
}

void record_writer::key_parameters(const bignum *modulus, const bignum *generator) {
    begin(TAG_KEY_PARAMETERS);
    number(modulus);
    number(generator);
    end();
}

void record_writer::number_record(uint32_t tag, const bignum *value) {
    begin(tag);
    number(value);
    end();
}

void record_writer::time_resp(int32_t seconds, int32_t microseconds) {
    begin(TAG_TIME_RESP);
    integer(seconds);
    integer(microseconds);
    end();
}

void record_writer::scan_resp(bool nack) {
    begin(TAG_SCAN_RESP);
    boolean(nack);
    end();
}

// An agent takes NULL for a limit that is off.
void record_writer::limit(check_kind kind, std::optional<double> value) {
    if (failed != nullptr) return;
    if (!value)
        failed = write_null(stream);
    else if (kind == check_kind::real_continuous)
        failed = write_real(stream, *value);
    else
        integer(static_cast<int32_t>(std::clamp(std::round(*value), 0.0, double{INT32_MAX})));
}

void record_writer::severities(const std::vector<uint32_t> &values) {
    begin(BE_SEQ);
    for (uint32_t severity : values)
        enumerated(severity);
    end();
}

void record_writer::rule(const log_rule &rule) {
    begin(BE_SEQ);
    text(CLAUSE_LIMIT, rule.clause);
    enumerated(rule.status);
    enumerated(rule.decision);
    text(DESTINATION_LIMIT, rule.destination);
    end();
}

// An agent takes NULL for a silence that is no limit. Both have to be there: where they are missing, agents
// lose their place in the message.
void record_writer::log_body(const log_conf &log) {
    text(SEPARATOR_LIMIT, log.separator);
    enumerated(log.inclusion);
    begin(BE_SEQ);
    for (const log_rule &entry : log.rules)
        rule(entry);
    end();
    for (auto silence : {log.warn_silence, log.alert_silence})
        if (silence)
            integer(*silence);
        else if (failed == nullptr)
            failed = write_null(stream);
}

void record_writer::check(const check_conf &check) {
    static constexpr uint32_t tags[] = {TAG_CONTINUOUS_CONF, TAG_REAL_CONF, TAG_ENUM_CONF, TAG_LOG_CONF};
    begin(BE_SEQ);
    integer(check.frequency);
    text(ID_LIMIT, check.id);
    begin(tags[static_cast<size_t>(check.kind)]);
    if (check.kind == check_kind::enumeration) {
        severities(check.limits.severities);
    } else if (check.kind == check_kind::log) {
        log_body(check.log);
    } else {
        const check_limits &limits = check.limits;
        for (auto value : {limits.alert_high, limits.alert_low, limits.warn_high, limits.warn_low})
            limit(check.kind, value);
    }
    end();
    if (!check.conf_id.empty()) text(ID_LIMIT, check.conf_id);
    end();
}

void record_writer::groups(const std::vector<check_conf_group> &list) {
    begin(BE_SEQ);
    for (const check_conf_group &group : list) {
        begin(BE_SEQ);
        text(ID_LIMIT, group.id);
        begin(BE_SEQ);
        for (const check_conf &entry : group.checks)
            check(entry);
        end();
        groups(group.groups);
        end();
    }
    end();
}

void record_writer::servers(const std::vector<server_address> &list) {
    begin(BE_SEQ);
    for (const server_address &server : list) {
        begin(BE_SEQ);
        text(NAME_LIMIT, server.name);
        integer(server.port);
        end();
    }
    end();
}

void record_writer::configure(const configure_resp &reply) {
    begin(TAG_CONFIGURE_RESP);
    text(ID_LIMIT, reply.id);
    integer(reply.checkin_frequency);
    servers(reply.servers);
    groups(reply.checks);
    end();
}

// One group, since agents keep no other of a reply. A group has its groups ahead of its actions.
void record_writer::action_groups(const std::vector<std::string> &names) {
    begin(BE_SEQ);
    if (!names.empty()) {
        begin(BE_SEQ);
        text(ID_LIMIT, "action");
        begin(BE_SEQ);
        end();
        begin(BE_SEQ);
        for (const std::string &name : names) {
            begin(BE_SEQ);
            text(ID_LIMIT, name);
            end();
        }
        end();
        end();
    }
    end();
}

void record_writer::checkin(const checkin_resp &reply) {
    begin(TAG_CHECKIN_RESP);
    boolean(reply.ack);
    boolean(reply.conf_changed);
    boolean(reply.upgrade);
    action_groups(reply.actions);
    boolean(reply.scan);
    end();
}

void record_writer::downtime_resp(bool success, const std::string &message) {
    begin(TAG_DOWNTIME_RESP);
    boolean(success);
    text(REASON_LIMIT, message.substr(0, REASON_LIMIT));
    end();
}

// Agents make no use of the number.
void record_writer::begin_upgrade(int32_t build, uint32_t length) {
    begin(TAG_UPGRADE_RESP);
    integer(build);
    if (failed == nullptr) failed = write_tag(stream, BE_STRING);
    if (failed == nullptr) failed = write_length(stream, static_cast<int32_t>(length));
}

void record_writer::upgrade_piece(const void *bytes, size_t count) {
    if (failed == nullptr) failed = stream->write(stream, bytes, count);
}
