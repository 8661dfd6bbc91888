#include "protocol/hallmark.h"

#include "crypto/cipher_stream.h"
#include "crypto/dh.h"
#include "crypto/md5.h"
#include "crypto/random_fill.h"
#include "platform/errors.h"
#include "platform/sockets.h"
#include "protocol/records.h"
#include "protocol/refusal.h"
#include "protocol/tags.h"
#include "state/variables.h"

#include <cstring>

std::atomic<int32_t> hallmark_retries;
std::atomic<int32_t> server_protocol_version;

namespace {

constexpr int32_t MAX_RETRIES = 3;
constexpr int32_t LAST_VERSION_WITHOUT_ACK = 512;
constexpr uint32_t KEY_TIMEOUT = 600; // seconds for the server to make its key
constexpr size_t CHALLENGE_BYTES = 16;
constexpr size_t HALLMARK_LENGTH = 2 * MD5_SIZE;

// Arithmetic with longer numbers would hold the agent up for minutes. No sound server comes near: what the
// agent answers to a modulus of more than 35 limbs does not fit the wire.
constexpr uint64_t GROUP_LIMBS = 64;
constexpr uint64_t NUMBER_LIMBS = 4096;

struct key_group {
    bignum_guard modulus;
    bignum_guard generator;
};

struct key_pair {
    bignum_guard public_value;
    bignum_guard exponent;
};

} // namespace

// A decimal text, or absent when memory is out or the number is absurd.
static text_guard decimal(const bignum *number) {
    char *text = nullptr;
    if (number->length <= NUMBER_LIMBS) bn_to_decimal(&text, number);
    return text_guard(text);
}

static void md5_update_text(md5_state *state, const char *text) {
    md5_update(state, text, strlen(text));
}

// Phase 1: the hallmark.

static const char *read_group(io *stream, key_group *out) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag == TAG_NEGOTIATE_NACK) return read_refusal(stream, tag);
    if (tag != TAG_DIFFIE_HELLMANN_PARAMETERS)
        return format_error("Wrong tag (%d) encountered, expected diffie_hellmann_parameters",
                            static_cast<int>(tag));
    diffie_hellmann_parameters parameters;
    if (auto *failure = read_diffie_hellmann_parameters(stream, &parameters, tag)) return failure;
    out->modulus.reset(parameters.modulus);
    out->generator.reset(parameters.generator);
    if (bn_equals_small(parameters.modulus, 0) != 0 || bn_equals_small(parameters.generator, 0) != 0)
        return "Received invalid modulus/generator from server";
    return nullptr;
}

static const char *send_public_value(io *stream, const key_group &group, key_pair *out) {
    if (group.modulus->length > GROUP_LIMBS || group.generator->length > GROUP_LIMBS)
        return "sporadic_bignum.num: Buffer given to bn_get_data is too small";
    bignum *public_value = nullptr;
    bignum *exponent = nullptr;
    if (auto *failure =
            dh_make_keys(&public_value, &exponent, group.modulus.get(), group.generator.get(), random_fill))
        return failure;
    out->public_value.reset(public_value);
    out->exponent.reset(exponent);
    sporadic_bignum record = {.num = public_value};
    if (auto *failure = write_sporadic_bignum(stream, &record)) return failure;
    return stream->flush(stream);
}

static const char *read_number(io *stream, bignum_guard *out) {
    sporadic_bignum record;
    if (auto *failure = read_sporadic_bignum(stream, &record, 0)) return failure;
    out->reset(record.num);
    return nullptr;
}

static const char *read_server_value(io *stream, bignum_guard *out) {
    socket_set_timeout(KEY_TIMEOUT);
    auto *failure = read_number(stream, out);
    socket_set_timeout(0);
    return failure;
}

static const char *make_secret(const bignum *server_value, const key_pair &own, const key_group &group,
                               text_guard *out) {
    bignum_guard secret;
    if (server_value->length <= NUMBER_LIMBS)
        secret.reset(bn_modexp(server_value, own.exponent.get(), group.modulus.get()));
    if (secret == nullptr) return "Error calculating secret key";
    *out = decimal(secret.get());
    return nullptr;
}

static const char *read_key_ack(io *stream) {
    if (server_protocol_version <= LAST_VERSION_WITHOUT_ACK) return nullptr;
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag != TAG_NEGOTIATE_ACK)
        return format_error("Server returned bad reply to key: %d (%x)", static_cast<int>(tag),
                            static_cast<unsigned>(server_protocol_version.load()));
    return read_negotiate_ack(stream, tag);
}

static const char *store_master_key(const char *secret) {
    variable *entry = secret != nullptr ? var_make("hostkey", secret) : nullptr;
    if (entry == nullptr) return "Not enough memory to allocate key storage!";
    if (auto *failure = var_set(entry)) return failure;
    // A flush that fails is tried again by the main loop, which logs it.
    static_cast<void>(var_flush(0));
    return nullptr;
}

static const char *make_master_key(io *stream, text_guard *out) {
    key_group group;
    key_pair own;
    bignum_guard server_value;
    if (auto *failure = read_group(stream, &group)) return failure;
    if (auto *failure = send_public_value(stream, group, &own)) return failure;
    if (auto *failure = read_server_value(stream, &server_value)) return failure;
    if (auto *failure = make_secret(server_value.get(), own, group, out)) return failure;
    if (auto *failure = read_key_ack(stream)) return failure;
    if (auto *failure = store_master_key(out->get())) return failure;
    hallmark_retries = 0;
    return nullptr;
}

static const char *find_master_key(io *stream, bool server_has_master_key, text_guard *out) {
    if (!server_has_master_key) return make_master_key(stream, out);
    out->reset(var_value("hostkey"));
    return *out != nullptr ? nullptr : "No master key while doing hallmark negotiation!";
}

static void print_hexadecimal(const unsigned char digest[MD5_SIZE], char out[HALLMARK_LENGTH + 1]) {
    static constexpr char digits[] = "0123456789abcdef";
    for (size_t i = 0; i < MD5_SIZE; i++) {
        *out++ = digits[digest[i] >> 4];
        *out++ = digits[digest[i] & 15];
    }
    *out = '\0';
}

static const char *store_hallmark(const char *hallmark) {
    variable *entry = var_make("hallmark", hallmark);
    if (entry == nullptr) return "Out of memory during hallmark negotiation";
    if (auto *failure = var_set(entry)) return failure;
    // At once: a hallmark that the server has and the agent loses costs a renegotiation.
    static_cast<void>(var_flush(1));
    return nullptr;
}

static const char *make_hallmark(io *stream, bool server_has_master_key) {
    text_guard master_key;
    if (auto *failure = find_master_key(stream, server_has_master_key, &master_key)) return failure;
    bignum_guard nonce;
    if (auto *failure = read_number(stream, &nonce)) return failure;
    text_guard nonce_text = decimal(nonce.get());
    if (nonce_text == nullptr) return "Out of memory during hallmark negotiation";
    md5_state md5;
    unsigned char digest[MD5_SIZE];
    md5_init(&md5);
    md5_update_text(&md5, master_key.get());
    md5_update_text(&md5, nonce_text.get());
    md5_final(&md5, digest);
    char hallmark[HALLMARK_LENGTH + 1];
    print_hexadecimal(digest, hallmark);
    return store_hallmark(hallmark);
}

// Phases 3 and 4: the proofs.

// The answer to a challenge: the digest of hallmark and number, read as one number. Absent when memory is
// out.
static bignum_guard answer_to(const char *hallmark, const bignum *challenge) {
    text_guard number = decimal(challenge);
    bignum_guard answer(bn_new_small(0));
    if (number == nullptr || answer == nullptr) return nullptr;
    md5_state md5;
    unsigned char digest[MD5_SIZE];
    md5_init(&md5);
    md5_update_text(&md5, hallmark);
    md5_update_text(&md5, number.get());
    md5_final(&md5, digest);
    return bn_set_data(answer.get(), digest, sizeof digest) == nullptr ? std::move(answer) : nullptr;
}

static constexpr const char *OUT_OF_MEMORY = "Out of memory during challenge / response";

// A wrong hallmark shows itself here: what is read is noise.
static const char *challenge_failure(const char *failure) {
    if (hallmark_retries >= MAX_RETRIES)
        return format_error("Protocol error (%s), probably agent/server key mismatch", failure);
    hallmark_retries++;
    var_delete("hallmark");
    return format_error("Protocol error (%s), probably hallmark is out of sync", failure);
}

static const char *prove_ourselves(io *stream, const char *hallmark) {
    auth_challenge challenge;
    if (auto *failure = read_auth_challenge(stream, &challenge, 0)) return challenge_failure(failure);
    bignum_guard number(challenge.num);
    hallmark_retries = 0;
    bignum_guard answer = answer_to(hallmark, number.get());
    if (answer == nullptr) return OUT_OF_MEMORY;
    auth_response response = {.num = answer.get()};
    if (auto *failure = write_auth_response(stream, &response)) return failure;
    return stream->flush(stream);
}

static const char *check_server(io *stream, const char *hallmark) {
    bignum_guard number(bn_poor_random(CHALLENGE_BYTES, random_fill));
    bignum_guard expected = number != nullptr ? answer_to(hallmark, number.get()) : nullptr;
    if (expected == nullptr) return OUT_OF_MEMORY;
    auth_challenge challenge = {.num = number.get()};
    if (auto *failure = write_auth_challenge(stream, &challenge)) return failure;
    if (auto *failure = stream->flush(stream)) return failure;
    auth_response response;
    if (auto *failure = read_auth_response(stream, &response, 0)) {
        var_delete("hallmark");
        return format_error("Server rejected challenge response (%s) - will re-negotiate hallmark", failure);
    }
    bignum_guard answer(response.num);
    return bn_equal(answer.get(), expected.get()) != 0 ? nullptr : "Server failed authentication!";
}

const char *hallmark_negotiate(io **stream, bool server_has_master_key, bool server_has_hallmark) {
    if (!server_has_hallmark)
        if (auto *failure = make_hallmark(*stream, server_has_master_key)) return failure;
    text_guard hallmark(var_value("hallmark"));
    if (hallmark == nullptr) return "Error retrieving hallmark in mutual authentication phase";
    io *enciphered = cipher_stream_new(*stream, hallmark.get());
    if (enciphered == nullptr) return "Out of memory during hallmark negotiation";
    *stream = enciphered;
    if (auto *failure = prove_ourselves(enciphered, hallmark.get())) return failure;
    return check_server(enciphered, hallmark.get());
}

void hallmark_reset() {
    hallmark_retries = 0;
    server_protocol_version = 0;
}
