// The opening: who is there, which secrets both sides hold, new ones where they are missing, and the mutual
// proof.
#include "crypto/cipher_stream.h"
#include "platform/errors.h"
#include "server/key_exchange.h"
#include "server/limits.h"
#include "server/records_read.h"
#include "server/session_state.h"

namespace {

constexpr size_t HOST_ID_BYTES = 16;
constexpr const char *NO_RANDOM = "no memory or no random bytes";

// The secrets of one opening.
struct secrets {
    std::string key;      // the master key to be proven, "" while there is none
    std::string hallmark; // "" while there is none
    bool renewed = false; // made in this connection, so that the store does not know it as proven
};

bool is_printable(const std::string &text) {
    for (unsigned char c : text)
        if (c < ' ' || c == 0x7F) return false;
    return true;
}

std::string full_name(const client_wants &wants) {
    return "\"" + wants.name + "\" in domain \"" + wants.domain + "\"";
}

// The key that the agent will be asked to prove: of two, the one whose turn it is.
std::string key_in_turn(const agent_row &agent) {
    bool proposed = !agent.proposed_key.empty() && (agent.master_key.empty() || agent.prefer_proposed);
    return proposed ? agent.proposed_key : agent.master_key;
}

secrets find_secrets(const agent_row &agent, const client_wants &wants) {
    secrets found;
    if (!wants.has_master_key) return found;
    found.key = key_in_turn(agent);
    // A hallmark is made of the proven key. One side's alone is no use.
    if (wants.has_hallmark && !found.key.empty() && found.key == agent.master_key)
        found.hallmark = agent.hallmark;
    return found;
}

// Why the agent must not make a key, or "".
std::string key_refusal(session &s, const client_wants &wants) {
    const policy &rules = *s.ports.rules;
    bool known = !s.agent.master_key.empty();
    if (known && !rules.rekey && !s.agent.may_rekey)
        return "Agent " + full_name(wants) +
               " is registered with a key that this agent does not have. If it has lost its key, allow it a "
               "new one "
               "on the server: tnserver rekey";
    if (known) return "";
    if (!rules.accept_new) return "This server takes no new agents";
    int64_t count = 0;
    if (s.agent.id == 0 && s.ports.store->count_agents(&count) == nullptr && count >= rules.max_agents)
        return "This server has as many agents as it takes";
    return "";
}

// Why the agent is sent away before anything is offered, or "".
std::string refusal(session &s, const client_wants &wants) {
    if (wants.name.empty()) return "An agent needs a name";
    if (!is_printable(wants.name) || !is_printable(wants.domain))
        return "The name or the domain holds a control character";
    // An agent that holds a key which nobody knows here has better words for it than we: let it compare the
    // offers.
    return wants.has_master_key ? "" : key_refusal(s, wants);
}

const char *read_wants(session &s, client_wants *out) {
    record_reader reader = s.reader();
    int32_t version = read_client_version(reader);
    if (reader.failure() != nullptr) return reader.failure();
    if (version >> 8 != PROTOCOL_VERSION >> 8)
        return refuse(s, format_error("This server speaks version %d of the protocol, the agent version %d",
                                      PROTOCOL_VERSION >> 8, version >> 8));
    *out = read_identity(reader, version);
    s.label = out->name + "@" + out->domain;
    return reader.failure();
}

const char *make_key(session &s, int32_t version, secrets *out) {
    exchange_group group;
    if (auto *failure = make_exchange_group(&group)) return failure;
    record_writer writer = s.writer();
    writer.key_parameters(group.modulus.get(), group.generator.get());
    if (auto *failure = writer.flush()) return failure;
    record_reader reader = s.reader();
    bignum_guard theirs = read_number_record(reader, TAG_SPORADIC_NUMBER, "sporadic_bignum");
    if (reader.failure() != nullptr) return reader.failure();
    if (auto *failure = check_public_value(theirs.get(), group.modulus.get())) return failure;
    bignum *own_public = nullptr;
    bignum *own_private = nullptr;
    if (auto *failure = dh_make_keys(&own_public, &own_private, group.modulus.get(), group.generator.get(),
                                     s.ports.random))
        return failure;
    bignum_guard public_guard(own_public);
    bignum_guard private_guard(own_private);
    if (auto *failure = make_master_key(group, theirs.get(), own_private, &out->key)) return failure;
    // Kept before the agent can have it: an agent with a key that the server has lost could never come back.
    if (auto *failure = s.ports.store->propose_key(&s.agent, out->key, s.now())) return failure;
    writer.number_record(TAG_SPORADIC_NUMBER, own_public);
    if (version > VERSION_WITHOUT_KEY_ACK) writer.negotiate_ack();
    s.new_key = true;
    return writer.flush();
}

const char *make_new_hallmark(session &s, secrets *out) {
    bignum_guard nonce = random_number(s.ports.random);
    if (nonce == nullptr) return NO_RANDOM;
    if (auto *failure = make_hallmark(out->key, nonce.get(), &out->hallmark)) return failure;
    out->renewed = true;
    record_writer writer = s.writer();
    writer.number_record(TAG_SPORADIC_NUMBER, nonce.get());
    return writer.flush();
}

const char *bring_to_common_secrets(session &s, int32_t version, secrets *out) {
    if (out->key.empty()) {
        if (s.agent.host_id.empty()) s.agent.host_id = random_text(s.ports.random, HOST_ID_BYTES);
        if (s.agent.host_id.empty()) return NO_RANDOM;
        if (auto *failure = make_key(s, version, out)) return failure;
    }
    return out->hallmark.empty() ? make_new_hallmark(s, out) : nullptr;
}

const char *expect_response(session &s, const std::string &hallmark, const bignum *challenge) {
    bignum_guard expected = challenge_response(hallmark, challenge);
    if (expected == nullptr) return NO_RANDOM;
    record_reader reader = s.reader();
    bignum_guard response = read_number_record(reader, TAG_AUTH_RESPONSE, "auth_response");
    if (reader.failure() != nullptr) return format_error("no proof of the hallmark (%s)", reader.failure());
    return bn_equal(response.get(), expected.get()) ? nullptr : "wrong proof of the hallmark";
}

const char *challenge_agent(session &s, const std::string &hallmark) {
    io *enciphered = cipher_stream_new(s.stream, hallmark.c_str());
    if (enciphered == nullptr) return NO_RANDOM;
    s.stream = enciphered;
    bignum_guard challenge = random_number(s.ports.random);
    if (challenge == nullptr) return NO_RANDOM;
    record_writer writer = s.writer();
    writer.number_record(TAG_AUTH_CHALLENGE, challenge.get());
    if (auto *failure = writer.flush()) return failure;
    return expect_response(s, hallmark, challenge.get());
}

// Keeps what the agent has proven.
const char *keep_secrets(session &s, const secrets &proven) {
    if (!proven.renewed && s.agent.proposed_key.empty()) return nullptr;
    return s.ports.store->prove_agent(s.agent, proven.key, proven.hallmark, s.now());
}

// A failed proof must not last: without a hallmark of ours the next connection makes a new one.
const char *forget_hallmark(session &s, const char *reason) {
    bool something_to_forget = !s.agent.hallmark.empty() || !s.agent.proposed_key.empty();
    std::string kept = reason; // of the two texts, the store may need both
    if (something_to_forget)
        if (auto *failure = s.ports.store->disprove_agent(s.agent))
            s.ports.observer->failed(s.label, s.link.address, failure);
    return format_error("%s", kept.c_str());
}

const char *answer_challenge(session &s, const std::string &hallmark) {
    record_reader reader = s.reader();
    bignum_guard challenge = read_number_record(reader, TAG_AUTH_CHALLENGE, "auth_challenge");
    if (reader.failure() != nullptr) return reader.failure();
    bignum_guard response = challenge_response(hallmark, challenge.get());
    if (response == nullptr) return NO_RANDOM;
    record_writer writer = s.writer();
    writer.number_record(TAG_AUTH_RESPONSE, response.get());
    return writer.flush();
}

const char *offer(session &s, const client_wants &wants, const secrets &found) {
    int32_t version = wants.version < PROTOCOL_VERSION ? wants.version : PROTOCOL_VERSION;
    record_writer writer = s.writer();
    writer.server_offers(version, !found.key.empty(), !found.hallmark.empty());
    if (auto *failure = writer.flush()) return failure;
    record_reader reader = s.reader();
    read_empty_record(reader, TAG_NEGOTIATE_ACK, "negotiate_ack");
    if (reader.failure() != nullptr && wants.has_master_key && found.key.empty())
        return "the agent holds a key that this server does not know";
    if (reader.failure() != nullptr) return reader.failure();
    if (wants.has_master_key && found.key.empty())
        return refuse(s, "The agent holds a key that this server does not know");
    return nullptr;
}

} // namespace

const char *open_session(session &s) {
    client_wants wants;
    if (auto *failure = read_wants(s, &wants)) return failure;
    if (auto *failure = s.ports.store->find_agent(wants.name, wants.domain, &s.agent)) return failure;
    if (std::string reason = refusal(s, wants); !reason.empty()) return refuse(s, reason);
    secrets common = find_secrets(s.agent, wants);
    if (auto *failure = offer(s, wants, common)) return failure;
    if (auto *failure = bring_to_common_secrets(s, wants.version, &common)) return failure;
    if (auto *failure = challenge_agent(s, common.hallmark)) return forget_hallmark(s, failure);
    if (auto *failure = keep_secrets(s, common)) return failure;
    if (auto *failure = answer_challenge(s, common.hallmark)) return failure;
    bool admitted = !s.link.admit || s.link.admit(s.agent.id);
    return admitted ? nullptr : "the agent has too many connections";
}
