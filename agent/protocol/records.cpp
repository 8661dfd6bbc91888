#include "protocol/records.h"

#include "protocol/record_layout.h"
#include "protocol/tags.h"

// The fields of each record in the order of the wire, with their limits.

#define INTEGER(record, field, minimum, maximum)                                                             \
    { #field, FIELD_INTEGER, offsetof(record, field), minimum, maximum }
#define FULL_INTEGER(record, field) INTEGER(record, field, INT32_MIN, INT32_MAX)
#define BOOLEAN(record, field)                                                                               \
    { #field, FIELD_BOOLEAN, offsetof(record, field), 0, 0 }
#define ENUMERATED(record, field)                                                                            \
    { #field, FIELD_ENUMERATED, offsetof(record, field), 0, 0 }
#define STRING(record, field, limit)                                                                         \
    { #field, FIELD_STRING, offsetof(record, field), 0, limit }
#define BIGNUM(record, field)                                                                                \
    { #field, FIELD_BIGNUM, offsetof(record, field), 0, 0 }

static constexpr record_field no_fields[] = {{}};

static constexpr record_field client_wants_fields[] = {
    INTEGER(client_wants, version, 0, 65535),
    {},
};

static constexpr record_layout client_wants_layout = {"client_wants", TAG_CLIENT_WANTS, RECORD_OPEN,
                                                      client_wants_fields};

static constexpr record_field client_private_key_fields[] = {
    STRING(client_private_key, name, 256),
    STRING(client_private_key, domain, 1024),
    STRING(client_private_key, id, 128),
    BOOLEAN(client_private_key, hasMasterKey),
    BOOLEAN(client_private_key, hasHallmark),
    BOOLEAN(client_private_key, testing),
    {},
};

static constexpr record_layout client_private_key_layout = {"client_private_key", TAG_CLIENT_PRIVATE_KEY,
                                                            RECORD_CLOSED, client_private_key_fields};

static constexpr record_field server_offers_fields[] = {
    INTEGER(server_offers, version, 0, 65535),
    {},
};

static constexpr record_layout server_offers_layout = {"server_offers", TAG_SERVER_OFFERS, RECORD_OPEN,
                                                       server_offers_fields};

static constexpr record_field server_private_key_fields[] = {
    BOOLEAN(server_private_key, hasMasterKey),
    BOOLEAN(server_private_key, hasHallmark),
    {},
};

static constexpr record_layout server_private_key_layout = {"server_private_key", TAG_SERVER_PRIVATE_KEY,
                                                            RECORD_CLOSED, server_private_key_fields};

static constexpr record_layout negotiate_ack_layout = {"negotiate_ack", TAG_NEGOTIATE_ACK, RECORD_CLOSED,
                                                       no_fields};

static constexpr record_field negotiate_nack_fields[] = {
    STRING(negotiate_nack, reason, 1024),
    {},
};

static constexpr record_layout negotiate_nack_layout = {"negotiate_nack", TAG_NEGOTIATE_NACK, RECORD_CLOSED,
                                                        negotiate_nack_fields};

static constexpr record_field diffie_hellmann_parameters_fields[] = {
    BIGNUM(diffie_hellmann_parameters, modulus),
    BIGNUM(diffie_hellmann_parameters, generator),
    {},
};

static constexpr record_layout diffie_hellmann_parameters_layout = {
    "diffie_hellmann_parameters", TAG_DIFFIE_HELLMANN_PARAMETERS, RECORD_CLOSED,
    diffie_hellmann_parameters_fields};

static constexpr record_field sporadic_bignum_fields[] = {
    BIGNUM(sporadic_bignum, num),
    {},
};

static constexpr record_layout sporadic_bignum_layout = {"sporadic_bignum", TAG_SPORADIC_BIGNUM,
                                                         RECORD_CLOSED, sporadic_bignum_fields};

static constexpr record_field auth_challenge_fields[] = {
    BIGNUM(auth_challenge, num),
    {},
};

static constexpr record_layout auth_challenge_layout = {"auth_challenge", TAG_AUTH_CHALLENGE, RECORD_CLOSED,
                                                        auth_challenge_fields};

static constexpr record_field auth_response_fields[] = {
    BIGNUM(auth_response, num),
    {},
};

static constexpr record_layout auth_response_layout = {"auth_response", TAG_AUTH_RESPONSE, RECORD_CLOSED,
                                                       auth_response_fields};

static constexpr record_field configure_req_fields[] = {
    FULL_INTEGER(configure_req, packageId),    FULL_INTEGER(configure_req, majorVersion),
    FULL_INTEGER(configure_req, minorVersion), FULL_INTEGER(configure_req, buildNumber),
    FULL_INTEGER(configure_req, agentCaps),    {},
};

static constexpr record_layout configure_req_layout = {"configure_req", TAG_CONFIGURE_REQ, RECORD_OPEN,
                                                       configure_req_fields};

static constexpr record_field configure_resp_fields[] = {
    STRING(configure_resp, id, 128),
    INTEGER(configure_resp, checkinFrequency, -1, 86400),
    {},
};

static constexpr record_layout configure_resp_layout = {"configure_resp", TAG_CONFIGURE_RESP, RECORD_OPEN,
                                                        configure_resp_fields};

static constexpr record_layout checkin_req_layout = {"checkin_req", TAG_CHECKIN_REQ, RECORD_OPEN, no_fields};

static constexpr record_field checkin_resp_fields[] = {
    BOOLEAN(checkin_resp, checkinAck),
    BOOLEAN(checkin_resp, confChanged),
    BOOLEAN(checkin_resp, upgradeAvailable),
    {},
};

static constexpr record_layout checkin_resp_layout = {"checkin_resp", TAG_CHECKIN_RESP, RECORD_OPEN,
                                                      checkin_resp_fields};

static constexpr record_field upgrade_req_fields[] = {
    FULL_INTEGER(upgrade_req, packageId),    FULL_INTEGER(upgrade_req, majorVersion),
    FULL_INTEGER(upgrade_req, minorVersion), FULL_INTEGER(upgrade_req, buildNumber),
    FULL_INTEGER(upgrade_req, agentCaps),    {},
};

static constexpr record_layout upgrade_req_layout = {"upgrade_req", TAG_UPGRADE_REQ, RECORD_CLOSED,
                                                     upgrade_req_fields};

static constexpr record_field server_time_req_fields[] = {
    FULL_INTEGER(server_time_req, agentTimeSec),
    INTEGER(server_time_req, agentTimeUSec, 0, 999999),
    {},
};

static constexpr record_layout server_time_req_layout = {"server_time_req", TAG_SERVER_TIME_REQ,
                                                         RECORD_CLOSED, server_time_req_fields};

static constexpr record_field server_time_resp_fields[] = {
    FULL_INTEGER(server_time_resp, serverTimeSec),
    INTEGER(server_time_resp, serverTimeUSec, 0, 999999),
    {},
};

static constexpr record_layout server_time_resp_layout = {"server_time_resp", TAG_SERVER_TIME_RESP,
                                                          RECORD_CLOSED, server_time_resp_fields};

static constexpr record_field downtime_req_fields[] = {
    FULL_INTEGER(downtime_req, downtimeInMinutes),
    {},
};

static constexpr record_layout downtime_req_layout = {"downtime_req", TAG_DOWNTIME_REQ, RECORD_CLOSED,
                                                      downtime_req_fields};

static constexpr record_field downtime_resp_fields[] = {
    BOOLEAN(downtime_resp, success),
    STRING(downtime_resp, message, 1024),
    {},
};

static constexpr record_layout downtime_resp_layout = {"downtime_resp", TAG_DOWNTIME_RESP, RECORD_CLOSED,
                                                       downtime_resp_fields};

static constexpr record_layout h_w_scan_req_layout = {"h_w_scan_req", TAG_H_W_SCAN_REQ, RECORD_CLOSED,
                                                      no_fields};

static constexpr record_field h_w_scan_resp_fields[] = {
    BOOLEAN(h_w_scan_resp, nack),
    {},
};

static constexpr record_layout h_w_scan_resp_layout = {"h_w_scan_resp", TAG_H_W_SCAN_RESP, RECORD_CLOSED,
                                                       h_w_scan_resp_fields};

static constexpr record_field host_info_line_fields[] = {
    STRING(host_info_line, label, 128),
    STRING(host_info_line, value, 1024),
    {},
};

static constexpr record_layout host_info_line_layout = {"host_info_line", BE_SEQ, RECORD_CLOSED,
                                                        host_info_line_fields};

static constexpr record_field server_name_port_fields[] = {
    STRING(server_name_port, name, 256),
    INTEGER(server_name_port, port, 1, 65535),
    {},
};

static constexpr record_layout server_name_port_layout = {"server_name_port", BE_SEQ, RECORD_CLOSED,
                                                          server_name_port_fields};

static constexpr record_field check_group_fields[] = {
    STRING(check_group, id, 128),
    STRING(check_group, name, 128),
    {},
};

static constexpr record_layout check_group_layout = {"check_group", BE_SEQ, RECORD_OPEN, check_group_fields};

static constexpr record_field check_fields[] = {
    STRING(check, id, 128),  STRING(check, name, 128), STRING(check, comment, 512),
    ENUMERATED(check, type), STRING(check, unit, 128), {},
};

static constexpr record_layout check_layout = {"check", BE_SEQ, RECORD_OPEN, check_fields};

static constexpr record_field check_description_fields[] = {
    FULL_INTEGER(check_description, id),
    STRING(check_description, descriptionGood, 128),
    STRING(check_description, descriptionWarn, 128),
    STRING(check_description, descriptionAlert, 128),
    {},
};

static constexpr record_layout check_description_layout = {"check_description", BE_SEQ, RECORD_CLOSED,
                                                           check_description_fields};

static constexpr record_field check_conf_group_fields[] = {
    STRING(check_conf_group, id, 128),
    {},
};

static constexpr record_layout check_conf_group_layout = {"check_conf_group", BE_SEQ, RECORD_OPEN,
                                                          check_conf_group_fields};

static constexpr record_field check_conf_fields[] = {
    INTEGER(check_conf, frequency, -1, 86400),
    STRING(check_conf, id, 128),
    {},
};

static constexpr record_layout check_conf_layout = {"check_conf", BE_SEQ, RECORD_OPEN, check_conf_fields};

static constexpr record_layout continuous_conf_layout = {"continuous_conf", TAG_CONTINUOUS_CONF, RECORD_OPEN,
                                                         no_fields};

static constexpr record_layout enum_conf_layout = {"enum_conf", TAG_ENUM_CONF, RECORD_OPEN, no_fields};

static constexpr record_layout log_conf_layout = {"log_conf", TAG_LOG_CONF, RECORD_CLOSED, no_fields};

static constexpr record_layout real_continuous_conf_layout = {
    "real_continuous_conf", TAG_REAL_CONTINUOUS_CONF, RECORD_OPEN, no_fields};

static constexpr record_field adv_log_conf_fields[] = {
    STRING(adv_log_conf, recordSeparator, 1024),
    ENUMERATED(adv_log_conf, separatorInclusion),
    {},
};

static constexpr record_layout adv_log_conf_layout = {"adv_log_conf", TAG_ADV_LOG_CONF, RECORD_OPEN,
                                                      adv_log_conf_fields};

static constexpr record_field rule_fields[] = {
    STRING(rule, regex, 1024),
    ENUMERATED(rule, status),
    ENUMERATED(rule, decision),
    STRING(rule, destination, 32),
    {},
};

static constexpr record_layout rule_layout = {"rule", BE_SEQ, RECORD_CLOSED, rule_fields};

static constexpr record_field action_conf_group_fields[] = {
    STRING(action_conf_group, id, 128),
    {},
};

static constexpr record_layout action_conf_group_layout = {"action_conf_group", BE_SEQ, RECORD_OPEN,
                                                           action_conf_group_fields};

static constexpr record_field action_conf_fields[] = {
    STRING(action_conf, id, 128),
    {},
};

static constexpr record_layout action_conf_layout = {"action_conf", BE_SEQ, RECORD_CLOSED,
                                                     action_conf_fields};

static constexpr record_field check_result_fields[] = {
    FULL_INTEGER(check_result, checkTime),
    STRING(check_result, comment, 128),
    ENUMERATED(check_result, status),
    {},
};

static constexpr record_layout check_result_layout = {"check_result", BE_SEQ, RECORD_OPEN,
                                                      check_result_fields};

// Writers.

const char *write_client_wants_incomplete(io *stream, const client_wants *record) {
    return write_record(stream, client_wants_layout, record);
}

const char *write_client_private_key(io *stream, const client_private_key *record) {
    return write_record(stream, client_private_key_layout, record);
}

const char *write_negotiate_ack(io *stream) {
    return write_record(stream, negotiate_ack_layout, nullptr);
}

const char *write_sporadic_bignum(io *stream, const sporadic_bignum *record) {
    return write_record(stream, sporadic_bignum_layout, record);
}

const char *write_auth_challenge(io *stream, const auth_challenge *record) {
    return write_record(stream, auth_challenge_layout, record);
}

const char *write_auth_response(io *stream, const auth_response *record) {
    return write_record(stream, auth_response_layout, record);
}

const char *write_configure_req_incomplete(io *stream, const configure_req *record) {
    return write_record(stream, configure_req_layout, record);
}

const char *write_checkin_req_incomplete(io *stream) {
    return write_record(stream, checkin_req_layout, nullptr);
}

const char *write_upgrade_req(io *stream, const upgrade_req *record) {
    return write_record(stream, upgrade_req_layout, record);
}

const char *write_server_time_req(io *stream, const server_time_req *record) {
    return write_record(stream, server_time_req_layout, record);
}

const char *write_downtime_req(io *stream, const downtime_req *record) {
    return write_record(stream, downtime_req_layout, record);
}

const char *write_h_w_scan_req(io *stream) {
    return write_record(stream, h_w_scan_req_layout, nullptr);
}

const char *write_host_info_line(io *stream, const host_info_line *record) {
    return write_record(stream, host_info_line_layout, record);
}

const char *write_check_group_incomplete(io *stream, const check_group *record) {
    return write_record(stream, check_group_layout, record);
}

const char *write_check_incomplete(io *stream, const check *record) {
    return write_record(stream, check_layout, record);
}

const char *write_check_description(io *stream, const check_description *record) {
    return write_record(stream, check_description_layout, record);
}

const char *write_check_result_incomplete(io *stream, const check_result *record) {
    return write_record(stream, check_result_layout, record);
}

// Readers.

const char *read_server_offers_incomplete(io *stream, server_offers *out, uint32_t tag) {
    return read_record(stream, server_offers_layout, out, sizeof *out, tag);
}

const char *read_server_private_key(io *stream, server_private_key *out, uint32_t tag) {
    return read_record(stream, server_private_key_layout, out, sizeof *out, tag);
}

const char *read_negotiate_ack(io *stream, uint32_t tag) {
    return read_record(stream, negotiate_ack_layout, nullptr, 0, tag);
}

const char *read_negotiate_nack(io *stream, negotiate_nack *out, uint32_t tag) {
    return read_record(stream, negotiate_nack_layout, out, sizeof *out, tag);
}

const char *read_diffie_hellmann_parameters(io *stream, diffie_hellmann_parameters *out, uint32_t tag) {
    return read_record(stream, diffie_hellmann_parameters_layout, out, sizeof *out, tag);
}

const char *read_sporadic_bignum(io *stream, sporadic_bignum *out, uint32_t tag) {
    return read_record(stream, sporadic_bignum_layout, out, sizeof *out, tag);
}

const char *read_auth_challenge(io *stream, auth_challenge *out, uint32_t tag) {
    return read_record(stream, auth_challenge_layout, out, sizeof *out, tag);
}

const char *read_auth_response(io *stream, auth_response *out, uint32_t tag) {
    return read_record(stream, auth_response_layout, out, sizeof *out, tag);
}

const char *read_configure_resp_incomplete(io *stream, configure_resp *out, uint32_t tag) {
    return read_record(stream, configure_resp_layout, out, sizeof *out, tag);
}

const char *read_checkin_resp_incomplete(io *stream, checkin_resp *out, uint32_t tag) {
    return read_record(stream, checkin_resp_layout, out, sizeof *out, tag);
}

const char *read_server_time_resp(io *stream, server_time_resp *out, uint32_t tag) {
    return read_record(stream, server_time_resp_layout, out, sizeof *out, tag);
}

const char *read_downtime_resp(io *stream, downtime_resp *out, uint32_t tag) {
    return read_record(stream, downtime_resp_layout, out, sizeof *out, tag);
}

const char *read_h_w_scan_resp(io *stream, h_w_scan_resp *out, uint32_t tag) {
    return read_record(stream, h_w_scan_resp_layout, out, sizeof *out, tag);
}

const char *read_server_name_port(io *stream, server_name_port *out, uint32_t tag) {
    return read_record(stream, server_name_port_layout, out, sizeof *out, tag);
}

const char *read_check_conf_group_incomplete(io *stream, check_conf_group *out, uint32_t tag) {
    return read_record(stream, check_conf_group_layout, out, sizeof *out, tag);
}

const char *read_check_conf_incomplete(io *stream, check_conf *out, uint32_t tag) {
    return read_record(stream, check_conf_layout, out, sizeof *out, tag);
}

const char *read_continuous_conf_incomplete(io *stream, uint32_t tag) {
    return read_record(stream, continuous_conf_layout, nullptr, 0, tag);
}

const char *read_enum_conf_incomplete(io *stream, uint32_t tag) {
    return read_record(stream, enum_conf_layout, nullptr, 0, tag);
}

const char *read_log_conf(io *stream, uint32_t tag) {
    return read_record(stream, log_conf_layout, nullptr, 0, tag);
}

const char *read_real_continuous_conf_incomplete(io *stream, uint32_t tag) {
    return read_record(stream, real_continuous_conf_layout, nullptr, 0, tag);
}

const char *read_adv_log_conf_incomplete(io *stream, adv_log_conf *out, uint32_t tag) {
    return read_record(stream, adv_log_conf_layout, out, sizeof *out, tag);
}

const char *read_rule(io *stream, rule *out, uint32_t tag) {
    return read_record(stream, rule_layout, out, sizeof *out, tag);
}

const char *read_action_conf_group_incomplete(io *stream, action_conf_group *out, uint32_t tag) {
    return read_record(stream, action_conf_group_layout, out, sizeof *out, tag);
}

const char *read_action_conf(io *stream, action_conf *out, uint32_t tag) {
    return read_record(stream, action_conf_layout, out, sizeof *out, tag);
}
