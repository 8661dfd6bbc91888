#include "protocol/server_side.h"

#include "crypto/aes.h"
#include "crypto/bignum.h"
#include "crypto/md5.h"
#include "fakes/hex.h"

#include <gtest/gtest.h>

static constexpr char FILLER = '\x19';

// Numbers and digests.

static bignum_guard number_of(const std::string &magnitude) {
    bignum_guard number(bn_new_small(0));
    static_cast<void>(bn_set_data(number.get(), magnitude.data(), magnitude.size()));
    return number;
}

static std::string magnitude_of(const bignum *number) {
    std::string magnitude(4096, '\0');
    size_t size = magnitude.size();
    EXPECT_EQ(bn_get_data(number, magnitude.data(), &size), nullptr);
    return magnitude.substr(0, size);
}

static std::string power(const std::string &base, const std::string &exponent, const std::string &modulus) {
    bignum_guard result(
        bn_modexp(number_of(base).get(), number_of(exponent).get(), number_of(modulus).get()));
    return magnitude_of(result.get());
}

std::string decimal_of(const std::string &magnitude) {
    char *text = nullptr;
    bn_to_decimal(&text, number_of(magnitude).get());
    text_guard owner(text);
    return text;
}

std::string md5_bytes(const std::string &text) {
    md5_state state;
    unsigned char digest[MD5_SIZE];
    md5_init(&state);
    md5_update(&state, text.data(), text.size());
    md5_final(&state, digest);
    return std::string(reinterpret_cast<char *>(digest), sizeof digest);
}

std::string md5_hex(const std::string &text) {
    std::string result;
    for (char c : hex(md5_bytes(text)))
        if (c != ' ') result.push_back(static_cast<char>(tolower(c)));
    return result;
}

// A magnitude goes without leading zeros.
static std::string wire_magnitude(const std::string &magnitude) {
    return wire_number(magnitude.substr(std::min(magnitude.find_first_not_of('\0'), magnitude.size())));
}

static std::string crypt(const std::string &key, int direction, std::string blocks) {
    aes_key schedule;
    aes_cipher cipher;
    EXPECT_EQ(makeKey(&schedule, direction, 128, key.c_str()), AES_TRUE);
    cipherInit(&cipher, AES_MODE_ECB, nullptr);
    auto *run = direction == AES_ENCRYPT ? blockEncrypt : blockDecrypt;
    run(&cipher, &schedule, blocks.data(), static_cast<int>(blocks.size() * 8), blocks.data());
    return blocks;
}

// The connection.

server_side::server_side(scripted_connection &served) : connection(served) {
    connection.starved = [this] { run_step(); };
}

void server_side::note(char who, const std::string &bytes) {
    if (!turns.empty() && turns.back().first == who)
        turns.back().second += bytes;
    else
        turns.push_back({who, bytes});
}

void server_side::receive() {
    std::string fresh = connection.sent.substr(taken);
    taken = connection.sent.size();
    if (fresh.empty()) return;
    note('A', fresh);
    EXPECT_TRUE(key.empty() || fresh.size() % AES_BLOCK == 0) << "a block that is not whole";
    plain += key.empty() ? fresh : crypt(key, AES_DECRYPT, fresh);
}

namespace {

// The server has memory of its own while a test refuses some to the agent.
struct own_heap {
    const heap_ops *of_agent = heap_host;
    own_heap() { heap_host = &heap_ops_host; }
    ~own_heap() { heap_host = of_agent; }
};

} // namespace

void server_side::run_step() {
    own_heap heap;
    receive();
    if (steps.empty()) return;
    auto step = std::move(steps.front());
    steps.pop_front();
    try {
        step();
    } catch (const wire_error &error) {
        ADD_FAILURE() << "the agent sends " << error.what() << ": " << hex(plain.substr(0, 200));
        close();
    }
    EXPECT_EQ(hex(plain), "") << "the agent says more than it should";
}

// Behind an enciphered message the rest of the block is filled, unless another message goes on there.
wire_node server_side::take() {
    receive();
    wire_node message = take_wire_node(&plain);
    size_t rest = plain.size() % AES_BLOCK;
    if (!key.empty() && plain.substr(0, rest) == std::string(rest, FILLER)) plain.erase(0, rest);
    return message;
}

void server_side::expect(const std::string &words) {
    EXPECT_EQ(take().words(), words);
}

void server_side::send(const std::string &bytes) {
    std::string wire = bytes;
    if (!key.empty()) {
        while (wire.size() % AES_BLOCK != 0)
            wire.push_back(FILLER);
        wire = crypt(key, AES_ENCRYPT, wire);
    }
    note('S', wire);
    connection.to_receive += wire;
}

void server_side::close() {
    steps.clear();
    connection.peer_closed = true;
}

void server_side::start_cipher(const std::string &hallmark) {
    key = hallmark;
}

// The opening.

namespace {

// What the steps of one opening share.
struct opening_steps {
    server_side *server;
    server_secrets *secrets;
    server_opening *opening;

    // Sends a message, or what stands in its place. False when the conversation is over.
    bool say(const std::string &name, const std::string &message) const {
        if (opening->closes_at == name) {
            server->close();
            return false;
        }
        auto found = opening->instead.find(name);
        server->send(found != opening->instead.end() ? found->second : message);
        return true;
    }
    bool has_master_key() const {
        return opening->says_master_key < 0 ? !secrets->hostkey.empty() : opening->says_master_key != 0;
    }
    bool has_hallmark() const {
        return opening->says_hallmark < 0 ? !secrets->hallmark.empty() : opening->says_hallmark != 0;
    }

    void offer() const;
    void take_ack() const;
    void take_public_value() const;
    void make_hallmark() const;
    void challenge() const;
    void take_response() const;
};

void opening_steps::offer() const {
    opening->wants = server->take().words();
    std::string keys = wire_record("A1", wire_bool(has_master_key()) + wire_bool(has_hallmark()));
    say("offers", wire_record("61", wire_integer(opening->version) + keys));
    server->next([self = *this] { self.take_ack(); });
}

void opening_steps::take_ack() const {
    server->expect("62{}");
    if (has_hallmark()) return challenge();
    if (has_master_key()) return make_hallmark();
    std::string group = wire_number(opening->modulus) + wire_number(opening->generator);
    if (say("parameters", wire_record("64", group)))
        server->next([self = *this] { self.take_public_value(); });
}

void opening_steps::take_public_value() const {
    wire_node message = server->take();
    EXPECT_EQ(message.identifier, "65");
    std::string shared = power(message.parts.at(0).content, opening->exponent, opening->modulus);
    std::string value = power(opening->generator, opening->exponent, opening->modulus);
    if (!say("public", wire_record("65", wire_magnitude(value)))) return;
    if (opening->version > 512 && !say("key_ack", wire_record("62", ""))) return;
    secrets->hostkey = decimal_of(shared);
    make_hallmark();
}

void opening_steps::make_hallmark() const {
    if (!say("nonce", wire_record("65", wire_magnitude(opening->nonce)))) return;
    secrets->hallmark = md5_hex(secrets->hostkey + decimal_of(opening->nonce));
    challenge();
}

void opening_steps::challenge() const {
    server->start_cipher(secrets->hallmark);
    if (say("challenge", wire_record("66", wire_magnitude(opening->challenge))))
        server->next([self = *this] { self.take_response(); });
}

void opening_steps::take_response() const {
    wire_node response = server->take();
    EXPECT_EQ(response.words(),
              "67{" +
                  wire_words(wire_magnitude(md5_bytes(secrets->hallmark + decimal_of(opening->challenge)))) +
                  "}");
    wire_node challenge = server->take();
    EXPECT_EQ(challenge.identifier, "66");
    std::string proof = md5_bytes(secrets->hallmark + decimal_of(challenge.parts.at(0).content));
    server->opened = say("response", wire_record("67", wire_magnitude(proof)));
}

} // namespace

void add_opening(server_side *server, server_secrets *secrets, server_opening *opening) {
    server->then([self = opening_steps{server, secrets, opening}] { self.offer(); });
}
