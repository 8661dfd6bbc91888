// The messages of both sides as bytes: what the agent sends is read, what the server says is built.
#pragma once

#include "wire/wire_codec.h"
#include "wire/wire_records.h"

namespace wire {

enum : uint32_t {
    CLIENT_WANTS = application(0),
    SERVER_OFFERS = application(1),
    NEGOTIATE_ACK = application(2),
    NEGOTIATE_NACK = application(3),
    DH_PARAMETERS = application(4),
    SPORADIC_BIGNUM = application(5),
    AUTH_CHALLENGE = application(6),
    AUTH_RESPONSE = application(7),
    CONFIGURE_REQ = application(8),
    CONFIGURE_RESP = application(9),
    CHECKIN_REQ = application(10),
    CHECKIN_RESP = application(11),
    UPGRADE_REQ = application(12),
    UPGRADE_RESP = application(13),
    TIME_REQ = application(23),
    TIME_RESP = application(24),
    DOWNTIME_REQ = application(30),
    DOWNTIME_RESP = application(31),
    SCAN_REQ = application(32),
    SCAN_RESP = application(33),
};

// Each reads what stands behind the record's identifier.
client_wants read_client_wants(reader &from);
configuration_request read_configure_req(reader &from);
std::vector<result> read_checkin_req(reader &from);
int64_t read_time_req(reader &from);     // seconds
int64_t read_downtime_req(reader &from); // minutes
void read_upgrade_req(reader &from);
void read_empty(reader &from);
std::string read_number_record(reader &from);

std::string server_offers(int32_t version, bool has_master_key, bool has_hallmark);
std::string negotiate_ack();
std::string negotiate_nack(const std::string &reason);
std::string dh_parameters(const std::string &modulus, const std::string &generator);
std::string number_record(uint32_t tag, const std::string &magnitude);
std::string time_resp(int64_t seconds);
std::string scan_resp(bool nack);
std::string configure_resp(const std::string &id, int32_t checkin_frequency,
                           const std::vector<server_place> &servers, const std::vector<group> &checks);
std::string checkin_resp(bool ack, bool changed, bool upgrade, const std::vector<action_group> &actions,
                         bool scan);
std::string downtime_resp(bool success, const std::string &message);
std::string upgrade_resp(int32_t number, const std::string &package);

} // namespace wire
