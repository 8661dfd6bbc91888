// Writes the records that the server sends.
//
// The first failure stays and every later call does nothing, so that a record is a straight sequence of
// fields and its caller asks once, in flush().
#pragma once

#include "platform/io.h"
#include "server/records.h"

#include <string>

struct bignum;

class record_writer {
public:
    explicit record_writer(io *to) : stream(to) {}

    void server_offers(int32_t version, bool has_master_key, bool has_hallmark);
    void negotiate_ack();
    void negotiate_nack(const std::string &reason);
    void key_parameters(const bignum *modulus, const bignum *generator);
    // sporadic_bignum, auth_challenge or auth_response.
    void number_record(uint32_t tag, const bignum *number);
    void time_resp(int32_t seconds, int32_t microseconds);
    void scan_resp(bool nack);
    void configure(const configure_resp &reply);
    void checkin(const checkin_resp &reply);
    // The package follows in pieces of `length` bytes together, then its end.
    void begin_upgrade(int32_t build, uint32_t length);
    void upgrade_piece(const void *bytes, size_t count);
    void end_upgrade() { end(); }
    void downtime_resp(bool success, const std::string &message);

    // Sends all of it. Absent, or the first failure.
    [[nodiscard]] const char *flush();

private:
    void begin(uint32_t tag);
    void end();
    void integer(int32_t value);
    void boolean(bool value);
    void enumerated(uint32_t value);
    void number(const bignum *value);
    void text(uint32_t limit, const std::string &value);
    void limit(check_kind kind, std::optional<double> value);
    void severities(const std::vector<uint32_t> &values);
    void rule(const log_rule &rule);
    void log_body(const log_conf &log);
    void check(const check_conf &check);
    void groups(const std::vector<check_conf_group> &list);
    void action_groups(const std::vector<std::string> &names);
    void servers(const std::vector<server_address> &list);

    io *stream;
    const char *failed = nullptr;
};
