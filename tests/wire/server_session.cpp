#include "wire/server_session.h"

using namespace wire;

static constexpr const char *step_names[] = {
    "server_offers",   "diffie_hellmann_parameters",
    "public value",    "key ack",
    "nonce",           "server challenge",
    "server response", "server_time_resp",
    "checkin_resp",    "h_w_scan_resp",
    "configure_resp",  "downtime_resp",
    "upgrade_resp",
};

server_session::server_session(scripted_server &of, io *to, const std::string &place)
    : server(of), stream(to), channel{.below = to}, reader{channel}, number(of.connections.size()) {
    server.connections.push_back(
        {.number = static_cast<uint32_t>(number), .place = place, .opened = server.now(), .ending = "open"});
}

void server_session::run() {
    try {
        opening();
        exchange();
    } catch (const hang_up &) {
        record().ending = "closed by the server";
    } catch (const agent_gone &gone) {
        record().ending = (between_messages ? "closed by the agent: " : "broken: ") + gone.reason;
    } catch (const violation &wrong) {
        record().ending = "violation: " + wrong.text;
        server.violations.push_back("connection " + std::to_string(number) + ": " + wrong.text);
    }
    stream->close(stream);
}

agent_account &server_session::account() {
    return server.accounts[record().wants.domain + "/" + record().wants.name];
}

std::string server_session::random_number(size_t bytes) {
    std::string magnitude;
    for (size_t i = 0; i < bytes; i++)
        magnitude += static_cast<char>(server.chance());
    magnitude[0] = static_cast<char>(magnitude[0] | 1); // no leading zero
    return magnitude;
}

uint32_t server_session::next_message(uint32_t expected) {
    if (closing) throw hang_up{};
    between_messages = true;
    uint32_t tag = reader.tag();
    between_messages = false;
    if (expected != 0 && tag != expected)
        throw violation{"message " + std::to_string(tag) + " where " + std::to_string(expected) + " belongs"};
    return tag;
}

void server_session::message_read(const char *name) {
    record().messages.push_back(name);
    between_messages = true;
    if (channel.rest_of_block().find_first_not_of(FILLER) != std::string::npos)
        throw violation{std::string("something other than fillers behind ") + name};
}

// The bend that is due at this step, used up.
static std::optional<bend> take_bend(std::vector<bend> *bends, server_step step) {
    for (bend &one : *bends) {
        if (one.at != step || one.times == 0) continue;
        if (one.skip > 0) {
            one.skip--;
            continue;
        }
        one.times--;
        return one;
    }
    return {};
}

bool server_session::send(server_step step, const std::string &message) {
    if (closing) throw hang_up{};
    bool whole = true;
    if (std::optional<bend> how = take_bend(&server.bends, step))
        whole = send_bent(*how, message);
    else
        channel.write(message);
    record().messages.push_back(step_names[static_cast<int>(step)]);
    return whole;
}

bool server_session::send_bent(const bend &how, const std::string &message) {
    auto amount = static_cast<size_t>(how.amount);
    switch (how.kind) {
    case bend_kind::CLOSE_BEFORE:
        throw hang_up{};
    case bend_kind::CLOSE_AFTER:
        closing = true;
        channel.write(message);
        return true;
    case bend_kind::CUT:
        closing = true;
        channel.write(message.substr(0, amount));
        return false;
    case bend_kind::SILENT:
        for (;;)
            channel.read(1);
    case bend_kind::LEFT_OUT:
        return false;
    case bend_kind::DELAY:
        if (server.sleep) server.sleep(how.amount);
        channel.write(message);
        return true;
    case bend_kind::NACK:
        channel.write(negotiate_nack(how.bytes));
        return false;
    case bend_kind::REPLACE:
        channel.write(how.bytes);
        return false;
    case bend_kind::RAW:
        channel.write_raw(how.bytes);
        return false;
    case bend_kind::NOISE:
        channel.write_raw(random_number(amount));
        return false;
    case bend_kind::FILLERS:
        channel.write(std::string(amount, FILLER) + message);
        return true;
    case bend_kind::DEFINITE:
        channel.write(with_definite_length(message));
        return false;
    case bend_kind::APPEND:
        channel.write(message.substr(0, message.size() - 2) + how.bytes + std::string(2, '\0'));
        return true;
    }
    return false;
}

// ---- the opening

void server_session::receive_wants() {
    next_message(CLIENT_WANTS);
    record().wants = read_client_wants(reader);
    message_read("client_wants");
}

void server_session::opening() {
    receive_wants();
    const client_wants wants = record().wants;
    // A key that was never proven may have been lost on the way; one that was is only given up by the
    // operator.
    bool knows_key = !account().master_key.empty() && (account().key_proven || wants.has_master_key);
    bool has_master_key = server.claim_master_key.value_or(knows_key);
    bool knows_hallmark = knows_key && !account().hallmark.empty() && wants.has_hallmark;
    bool has_hallmark = server.claim_hallmark.value_or(knows_hallmark);
    send(server_step::OFFERS, server_offers(server.version, has_master_key, has_hallmark));
    next_message(NEGOTIATE_ACK);
    read_empty(reader);
    message_read("negotiate_ack");
    if (!has_hallmark) make_hallmark(has_master_key);
    channel.encipher(account().hallmark);
    prove_agent();
    prove_server();
    record().authenticated = true;
    account().key_proven = true;
}

void server_session::make_master_key() {
    send(server_step::DH_PARAMETERS, dh_parameters(server.modulus, server.generator));
    next_message(SPORADIC_BIGNUM);
    std::string agent_public = read_number_record(reader);
    message_read("agent public");
    if (value_of(agent_public) <= 1) throw violation{"a trivial public value"};
    std::string exponent = random_number(7);
    std::string secret = power(agent_public, exponent, server.modulus);
    send(server_step::DH_PUBLIC,
         number_record(SPORADIC_BIGNUM, power(server.generator, exponent, server.modulus)));
    account().master_key = decimal(secret);
    account().key_proven = false;
    if (server.version > 512) send(server_step::KEY_ACK, negotiate_ack());
}

void server_session::make_hallmark(bool has_master_key) {
    if (!has_master_key) make_master_key();
    std::string nonce = random_number(8);
    send(server_step::NONCE, number_record(SPORADIC_BIGNUM, nonce));
    account().hallmark = hex_of(md5_of(account().master_key + decimal(nonce)));
}

void server_session::prove_agent() {
    std::string challenge = random_number(16);
    send(server_step::CHALLENGE, number_record(AUTH_CHALLENGE, challenge));
    next_message(AUTH_RESPONSE);
    std::string response = read_number_record(reader);
    message_read("auth_response");
    if (response != trimmed(md5_of(account().hallmark + decimal(challenge))))
        throw violation{"a wrong response to the challenge"};
}

void server_session::prove_server() {
    next_message(AUTH_CHALLENGE);
    std::string challenge = read_number_record(reader);
    message_read("auth_challenge");
    std::string response = md5_of(account().hallmark + decimal(challenge));
    if (server.wrong_response) response[0] = static_cast<char>(response[0] ^ 1);
    send(server_step::RESPONSE, number_record(AUTH_RESPONSE, response));
}

// ---- what follows it

void server_session::exchange() {
    for (;;) {
        switch (uint32_t tag = next_message(0)) {
        case TIME_REQ:
            answer_time();
            break;
        case CHECKIN_REQ:
            answer_checkin();
            break;
        case SCAN_REQ:
            read_empty(reader);
            message_read("h_w_scan_req");
            send(server_step::SCAN_RESP, scan_resp(server.scan_nack));
            break;
        case CONFIGURE_REQ:
            answer_configure();
            break;
        case DOWNTIME_REQ:
            answer_downtime();
            break;
        case UPGRADE_REQ:
            answer_upgrade();
            break;
        default:
            throw violation{"message " + std::to_string(tag) + " behind the opening"};
        }
    }
}

void server_session::answer_time() {
    read_time_req(reader);
    message_read("server_time_req");
    send(server_step::TIME, time_resp(server.now()));
}

void server_session::answer_checkin() {
    std::vector<result> results = read_checkin_req(reader);
    message_read("checkin_req");
    size_t place = server.deliveries.size();
    server.deliveries.push_back({.connection = static_cast<uint32_t>(number),
                                 .time = server.now(),
                                 .results = std::move(results),
                                 .answered = false});
    bool scan = server.scan_wanted || (server.scan_first && !account().tree_seen);
    bool changed = server.changed.value_or(scan || account().configured != server.configuration);
    std::string answer =
        checkin_resp(server.acknowledge, changed, server.upgrade_available, server.actions, scan);
    if (!send(server_step::CHECKIN_RESP, answer)) return;
    server.actions.clear();
    server.scan_wanted = false;
    server.deliveries[place].answered = true;
    server.checkins++;
    server.acknowledged += server.acknowledge;
}

void server_session::answer_configure() {
    configuration_request request = read_configure_req(reader);
    message_read("configure_req");
    account().tree_seen = account().tree_seen || !request.tree.empty();
    server.requests.push_back(std::move(request));
    uint32_t configuration = server.configuration;
    std::string answer =
        configure_resp(server.host_id, server.checkin_frequency, server.servers, server.checks);
    if (!send(server_step::CONFIGURE_RESP, answer)) return;
    account().configured = configuration;
    server.registrations++;
}

void server_session::answer_downtime() {
    server.downtimes.push_back(read_downtime_req(reader));
    message_read("downtime_req");
    send(server_step::DOWNTIME_RESP, downtime_resp(server.downtime_granted, server.downtime_message));
}

void server_session::answer_upgrade() {
    read_upgrade_req(reader);
    message_read("upgrade_req");
    send(server_step::UPGRADE_RESP, upgrade_resp(1, server.package));
    server.upgrades++;
}
