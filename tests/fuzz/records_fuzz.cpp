// The readers of the records.
#include "fuzz/fuzz_host.h"
#include "protocol/ber.h"
#include "protocol/records.h"

static void give_back(int32_t) {}
static void give_back(uint32_t) {}

static void give_back(char *text) {
    heap_free(text);
}

static void give_back(bignum *number) {
    bn_free(number);
}

// What was read is freed, behind a failure too: by then there must be nothing.
#define READER(function, record, ...)                                                                        \
    [](io *stream) {                                                                                         \
        record r;                                                                                            \
        bool sound = function(stream, &r, 0) == nullptr;                                                     \
        auto give_all = [](auto... field) { (give_back(field), ...); };                                      \
        give_all(__VA_ARGS__);                                                                               \
        return sound;                                                                                        \
    }

#define EMPTY_READER(function) [](io *stream) { return function(stream, 0) == nullptr; }

static bool (*const readers[])(io *stream) = {
    READER(read_server_offers_incomplete, server_offers, r.version),
    READER(read_server_private_key, server_private_key, r.hasMasterKey),
    EMPTY_READER(read_negotiate_ack),
    READER(read_negotiate_nack, negotiate_nack, r.reason),
    READER(read_diffie_hellmann_parameters, diffie_hellmann_parameters, r.modulus, r.generator),
    READER(read_sporadic_bignum, sporadic_bignum, r.num),
    READER(read_auth_challenge, auth_challenge, r.num),
    READER(read_auth_response, auth_response, r.num),
    READER(read_configure_resp_incomplete, configure_resp, r.id),
    READER(read_checkin_resp_incomplete, checkin_resp, r.checkinAck),
    READER(read_server_time_resp, server_time_resp, r.serverTimeSec),
    READER(read_downtime_resp, downtime_resp, r.message),
    READER(read_h_w_scan_resp, h_w_scan_resp, r.nack),
    READER(read_server_name_port, server_name_port, r.name),
    READER(read_check_conf_group_incomplete, check_conf_group, r.id),
    READER(read_check_conf_incomplete, check_conf, r.id),
    EMPTY_READER(read_continuous_conf_incomplete),
    EMPTY_READER(read_enum_conf_incomplete),
    EMPTY_READER(read_log_conf),
    EMPTY_READER(read_real_continuous_conf_incomplete),
    READER(read_adv_log_conf_incomplete, adv_log_conf, r.recordSeparator, r.separatorInclusion),
    READER(read_rule, rule, r.regex, r.destination),
    READER(read_action_conf_group_incomplete, action_conf_group, r.id),
    READER(read_action_conf, action_conf, r.id),
};

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    auto *reader = readers[input.take_byte() % std::size(readers)];
    memory_io stream(input.take_rest());
    while (reader(stream) && stream.position < stream.input.size())
        continue;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
