#include "server/scripted_agent.h"

#include "crypto/aes.h"
#include "crypto/dh.h"
#include "crypto/md5.h"
#include "crypto/random_fill.h"
#include "protocol/ber.h"

#include <gtest/gtest.h>

namespace {

bignum_guard number_of(const std::string &bytes) {
    bignum_guard number(bn_new(0, (bytes.size() + 3) / 4));
    EXPECT_EQ(bn_set_data(number.get(), bytes.data(), bytes.size()), nullptr);
    return number;
}

std::string bytes_of(const bignum *number) {
    char buffer[140];
    size_t size = sizeof buffer;
    EXPECT_EQ(bn_get_data(number, buffer, &size), nullptr);
    return {buffer, size};
}

std::string decimal_of(const bignum *number) {
    char *text = nullptr;
    bn_to_decimal(&text, number);
    text_guard owner(text);
    return text;
}

std::string md5_of(const std::string &text) {
    md5_state state;
    unsigned char digest[MD5_SIZE];
    md5_init(&state);
    md5_update(&state, text.data(), text.size());
    md5_final(&state, digest);
    return {reinterpret_cast<char *>(digest), sizeof digest};
}

std::string hexadecimal_of(const std::string &bytes) {
    std::string text;
    char pair[3];
    for (unsigned char byte : bytes) {
        snprintf(pair, sizeof pair, "%02x", byte);
        text += pair;
    }
    return text;
}

std::string crypt(int direction, const std::string &key_text, std::string blocks) {
    aes_key key;
    aes_cipher cipher;
    makeKey(&key, direction, 128, key_text.c_str());
    cipherInit(&cipher, AES_MODE_ECB, nullptr);
    auto handle = direction == AES_ENCRYPT ? blockEncrypt : blockDecrypt;
    for (size_t at = 0; at < blocks.size(); at += AES_BLOCK)
        handle(&cipher, &key, &blocks[at], 128, &blocks[at]);
    return blocks;
}

} // namespace

const std::string NO_HINT = encode_null() + encode_null() + encode_null();

std::string encode_hint(double maximum) {
    return encode_null() + encode_real(0) + encode_real(maximum);
}

std::string encode_result(const sent_result &result) {
    std::string path;
    for (const std::string &part : result.path)
        path += encode_text(part);
    std::string fields = encode_integer(result.time) + encode_text(result.comment) +
                         encode_enumerated(result.status) + encode_record(wire::sequence, path) +
                         result.value;
    return encode_record(wire::sequence, result.conf_id ? fields + encode_text(*result.conf_id) : fields);
}

std::string encode_device(const std::string &id, uint32_t type, const std::string &unit,
                          const std::string &hints) {
    return encode_record(wire::sequence, encode_text(id) + encode_text(id + " name") +
                                             encode_text(id + " comment") + encode_enumerated(type) +
                                             encode_text(unit) + hints + encode_integer(1));
}

std::string encode_group(const std::string &id, const std::string &devices, const std::string &groups) {
    return encode_record(
        wire::sequence, encode_text(id) + encode_text(id + " name") + encode_record(wire::sequence, devices) +
                            encode_record(wire::sequence, groups) + encode_text("%0r") + encode_bool(false));
}

void scripted_agent::send(const std::string &bytes) {
    std::string padded = bytes;
    while (enciphered && padded.size() % AES_BLOCK != 0)
        padded += '\x19';
    line.write(enciphered ? crypt(AES_ENCRYPT, secrets->hallmark, padded) : padded);
}

std::string scripted_agent::read_plain(size_t count) {
    std::string bytes = line.read(count);
    if (bytes.size() < count) throw server_closed();
    return bytes;
}

std::string scripted_agent::take(size_t count) {
    if (!enciphered) return read_plain(count);
    while (deciphered.size() < count)
        deciphered += crypt(AES_DECRYPT, secrets->hallmark, read_plain(AES_BLOCK));
    std::string bytes = deciphered.substr(0, count);
    deciphered.erase(0, count);
    return bytes;
}

wire_value scripted_agent::expect(const std::string &identifier) {
    wire_value message = read_wire_value([this](size_t count) { return take(count); });
    EXPECT_EQ(hexadecimal_of(message.identifier), hexadecimal_of(identifier));
    EXPECT_TRUE(message.indefinite);
    return message;
}

bool scripted_agent::is_closed() {
    return line.read(1).empty();
}

std::string scripted_agent::wants() const {
    bool has_key = !secrets->hostkey.empty();
    std::string key = encode_text(name) + encode_text(domain) + encode_text("") + encode_bool(has_key) +
                      encode_bool(has_key && !secrets->hallmark.empty()) + encode_bool(false);
    return encode_record(wire::client_wants, encode_integer(version) + encode_record(wire::private_key, key));
}

wire_value scripted_agent::answer_offers() {
    wire_value answer = read_wire_value([this](size_t count) { return take(count); });
    if (answer.identifier == wire::negotiate_nack) {
        refusal = answer[0].content;
        return answer;
    }
    EXPECT_EQ(answer.identifier, wire::server_offers);
    offered_version = answer[0].integer();
    EXPECT_EQ(answer[1].identifier, wire::private_key);
    offered_key = answer[1][0].truth();
    offered_hallmark = answer[1][1].truth();
    send(encode_record(wire::negotiate_ack, ""));
    return answer;
}

void scripted_agent::make_key(bool with_ack) {
    parameters = expect(wire::key_parameters);
    bignum_guard modulus = number_of(parameters[0].content);
    bignum_guard generator = number_of(parameters[1].content);
    bignum *own_public = nullptr;
    bignum *own_private = nullptr;
    ASSERT_EQ(dh_make_keys(&own_public, &own_private, modulus.get(), generator.get(), random_fill), nullptr);
    bignum_guard public_guard(own_public);
    bignum_guard private_guard(own_private);
    send(encode_record(wire::sporadic_number, encode(wire::integer, bytes_of(own_public))));
    bignum_guard theirs = number_of(expect(wire::sporadic_number)[0].content);
    if (with_ack) expect(wire::negotiate_ack);
    bignum_guard secret(bn_modexp(theirs.get(), own_private, modulus.get()));
    secrets->hostkey = decimal_of(secret.get());
}

void scripted_agent::make_hallmark() {
    bignum_guard nonce = number_of(expect(wire::sporadic_number)[0].content);
    secrets->hallmark = hexadecimal_of(md5_of(secrets->hostkey + decimal_of(nonce.get())));
}

void scripted_agent::encipher() {
    enciphered = true;
}

std::string scripted_agent::response_to(const wire_value &challenge) const {
    std::string digest = md5_of(secrets->hallmark + decimal_of(number_of(challenge[0].content).get()));
    return bytes_of(number_of(digest).get());
}

void scripted_agent::prove() {
    std::string response = response_to(expect(wire::auth_challenge));
    send(encode_record(wire::auth_response, encode(wire::integer, response)));
    wire_value own =
        parse_wire_value(encode_record(wire::auth_challenge, encode(wire::integer, "own challenge")));
    send(encode_record(wire::auth_challenge, encode(wire::integer, own[0].content)));
    EXPECT_EQ(hexadecimal_of(expect(wire::auth_response)[0].content), hexadecimal_of(response_to(own)));
}

bool scripted_agent::open() {
    send(wants());
    answer_offers();
    if (!refusal.empty()) return false;
    if (!offered_key) make_key(offered_version > 512);
    if (!offered_hallmark) make_hallmark();
    encipher();
    prove();
    return true;
}

int64_t scripted_agent::ask_time(int64_t own_time) {
    send(encode_record(wire::time_req, encode_integer(own_time) + encode_integer(0)));
    return expect(wire::time_resp)[0].integer();
}

static std::string encode_build(int64_t build) {
    return encode_integer(34) + encode_integer(3) + encode_integer(8) + encode_integer(build) +
           encode_integer(0);
}

void scripted_agent::ask_upgrade() {
    send(encode_record(wire::upgrade_req, encode_build(build)));
}

wire_value scripted_agent::configure(const std::string &tree, const std::string &host_info,
                                     const std::string &descriptions) {
    send(encode_record(wire::configure_req, encode_build(build) + encode_record(wire::sequence, host_info) +
                                                encode_record(wire::sequence, tree) +
                                                encode_record(wire::sequence, descriptions)));
    return expect(wire::configure_resp);
}

void scripted_agent::send_checkin(const std::vector<sent_result> &results) {
    std::string list;
    for (const sent_result &result : results)
        list += encode_result(result);
    send(encode_record(wire::checkin_req, encode_record(wire::sequence, list)));
}

wire_value scripted_agent::checkin(const std::vector<sent_result> &results) {
    send_checkin(results);
    return expect(wire::checkin_resp);
}

wire_value scripted_agent::request_downtime(int64_t minutes) {
    send(encode_record(wire::downtime_req, encode_integer(minutes)));
    return expect(wire::downtime_resp);
}
