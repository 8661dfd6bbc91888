// The records of the protocol: constructed values of indefinite length with their fields in a fixed order.
//
// A reader takes the tag that its caller has read, or 0 to read it itself. A closed record ends with whatever
// a newer peer appends being skipped; an open one (`_incomplete`) leaves the stream at the next value, for
// the caller to go on. Texts and numbers that a reader hands out are the caller's; after a failure there are
// none. A writer only borrows, ends a closed record and leaves an open one to its caller.
#pragma once

#include "crypto/bignum.h"
#include "platform/io.h"

#include <cstdint>

// Written by the agent.

struct client_wants {
    int32_t version;
};

struct client_private_key {
    const char *name;
    const char *domain;
    const char *id;
    int32_t hasMasterKey;
    int32_t hasHallmark;
    int32_t testing;
};

struct configure_req {
    int32_t packageId;
    int32_t majorVersion;
    int32_t minorVersion;
    int32_t buildNumber;
    int32_t agentCaps;
};

struct upgrade_req {
    int32_t packageId;
    int32_t majorVersion;
    int32_t minorVersion;
    int32_t buildNumber;
    int32_t agentCaps;
};

struct server_time_req {
    int32_t agentTimeSec;
    int32_t agentTimeUSec;
};

struct downtime_req {
    int32_t downtimeInMinutes;
};

struct host_info_line {
    const char *label;
    const char *value;
};

struct check_group {
    const char *id;
    const char *name;
};

struct check {
    const char *id;
    const char *name;
    const char *comment;
    uint32_t type;
    const char *unit;
};

struct check_description {
    int32_t id;
    const char *descriptionGood;
    const char *descriptionWarn;
    const char *descriptionAlert;
};

struct check_result {
    int32_t checkTime;
    const char *comment;
    uint32_t status;
};

// Both ways.

struct sporadic_bignum {
    bignum *num;
};

struct auth_challenge {
    bignum *num;
};

struct auth_response {
    bignum *num;
};

// Read by the agent.

struct server_offers {
    int32_t version;
};

struct server_private_key {
    int32_t hasMasterKey;
    int32_t hasHallmark;
};

struct negotiate_nack {
    char *reason;
};

struct diffie_hellmann_parameters {
    bignum *modulus;
    bignum *generator;
};

struct configure_resp {
    char *id;
    int32_t checkinFrequency; // seconds, -1 to 86400
};

struct checkin_resp {
    int32_t checkinAck;
    int32_t confChanged;
    int32_t upgradeAvailable;
};

struct server_time_resp {
    int32_t serverTimeSec;
    int32_t serverTimeUSec;
};

struct downtime_resp {
    int32_t success;
    char *message;
};

struct h_w_scan_resp {
    int32_t nack;
};

struct server_name_port {
    char *name;
    int32_t port;
};

struct check_conf_group {
    char *id;
};

struct check_conf {
    int32_t frequency;
    char *id;
};

struct adv_log_conf {
    char *recordSeparator;
    uint32_t separatorInclusion;
};

struct rule {
    char *regex;
    uint32_t status;
    uint32_t decision;
    char *destination;
};

struct action_conf_group {
    char *id;
};

struct action_conf {
    char *id;
};

[[nodiscard]] const char *write_client_wants_incomplete(io *stream, const client_wants *record);
[[nodiscard]] const char *write_client_private_key(io *stream, const client_private_key *record);
[[nodiscard]] const char *write_negotiate_ack(io *stream);
[[nodiscard]] const char *write_sporadic_bignum(io *stream, const sporadic_bignum *record);
[[nodiscard]] const char *write_auth_challenge(io *stream, const auth_challenge *record);
[[nodiscard]] const char *write_auth_response(io *stream, const auth_response *record);
[[nodiscard]] const char *write_configure_req_incomplete(io *stream, const configure_req *record);
[[nodiscard]] const char *write_checkin_req_incomplete(io *stream);
[[nodiscard]] const char *write_upgrade_req(io *stream, const upgrade_req *record);
[[nodiscard]] const char *write_server_time_req(io *stream, const server_time_req *record);
[[nodiscard]] const char *write_downtime_req(io *stream, const downtime_req *record);
[[nodiscard]] const char *write_h_w_scan_req(io *stream);
[[nodiscard]] const char *write_host_info_line(io *stream, const host_info_line *record);
[[nodiscard]] const char *write_check_group_incomplete(io *stream, const check_group *record);
[[nodiscard]] const char *write_check_incomplete(io *stream, const check *record);
[[nodiscard]] const char *write_check_description(io *stream, const check_description *record);
[[nodiscard]] const char *write_check_result_incomplete(io *stream, const check_result *record);

[[nodiscard]] const char *read_server_offers_incomplete(io *stream, server_offers *out, uint32_t tag);
[[nodiscard]] const char *read_server_private_key(io *stream, server_private_key *out, uint32_t tag);
[[nodiscard]] const char *read_negotiate_ack(io *stream, uint32_t tag);
[[nodiscard]] const char *read_negotiate_nack(io *stream, negotiate_nack *out, uint32_t tag);
[[nodiscard]] const char *read_diffie_hellmann_parameters(io *stream, diffie_hellmann_parameters *out,
                                                          uint32_t tag);
[[nodiscard]] const char *read_sporadic_bignum(io *stream, sporadic_bignum *out, uint32_t tag);
[[nodiscard]] const char *read_auth_challenge(io *stream, auth_challenge *out, uint32_t tag);
[[nodiscard]] const char *read_auth_response(io *stream, auth_response *out, uint32_t tag);
[[nodiscard]] const char *read_configure_resp_incomplete(io *stream, configure_resp *out, uint32_t tag);
[[nodiscard]] const char *read_checkin_resp_incomplete(io *stream, checkin_resp *out, uint32_t tag);
[[nodiscard]] const char *read_server_time_resp(io *stream, server_time_resp *out, uint32_t tag);
[[nodiscard]] const char *read_downtime_resp(io *stream, downtime_resp *out, uint32_t tag);
[[nodiscard]] const char *read_h_w_scan_resp(io *stream, h_w_scan_resp *out, uint32_t tag);
[[nodiscard]] const char *read_server_name_port(io *stream, server_name_port *out, uint32_t tag);
[[nodiscard]] const char *read_check_conf_group_incomplete(io *stream, check_conf_group *out, uint32_t tag);
[[nodiscard]] const char *read_check_conf_incomplete(io *stream, check_conf *out, uint32_t tag);
[[nodiscard]] const char *read_continuous_conf_incomplete(io *stream, uint32_t tag);
[[nodiscard]] const char *read_enum_conf_incomplete(io *stream, uint32_t tag);
[[nodiscard]] const char *read_log_conf(io *stream, uint32_t tag);
[[nodiscard]] const char *read_real_continuous_conf_incomplete(io *stream, uint32_t tag);
[[nodiscard]] const char *read_adv_log_conf_incomplete(io *stream, adv_log_conf *out, uint32_t tag);
[[nodiscard]] const char *read_rule(io *stream, rule *out, uint32_t tag);
[[nodiscard]] const char *read_action_conf_group_incomplete(io *stream, action_conf_group *out, uint32_t tag);
[[nodiscard]] const char *read_action_conf(io *stream, action_conf *out, uint32_t tag);
