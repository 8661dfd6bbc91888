#include "probes/os/fake_bus_linux.h"

#include <cstdlib>
#include <cstring>
#include <fnmatch.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

// Bytes in the little-endian form of the bus. Alignment counts from the start.
struct bus_writer {
    std::string bytes;

    void align(size_t size) { bytes.resize((bytes.size() + size - 1) / size * size); }
    void put_byte(uint8_t number) { bytes += static_cast<char>(number); }
    void put_number(uint32_t number) {
        align(4);
        for (int i = 0; i < 4; i++)
            put_byte(static_cast<uint8_t>(number >> 8 * i));
    }
    void put_text(const std::string &text) {
        put_number(static_cast<uint32_t>(text.size()));
        bytes += text;
        put_byte(0);
    }
    void put_signature(const std::string &types) {
        put_byte(static_cast<uint8_t>(types.size()));
        bytes += types;
        put_byte(0);
    }
    // A field of a message's head.
    void put_field(uint8_t code, const char *type) {
        align(8);
        put_byte(code);
        put_signature(type);
    }
    // The length of an array, which is known behind it; its elements are structures.
    size_t begin_structures() {
        put_number(0);
        size_t place = bytes.size() - 4;
        align(8);
        return place;
    }
    void end_structures(size_t place) {
        auto length = static_cast<uint32_t>(bytes.size() - (place + 4 + 7) / 8 * 8);
        memcpy(bytes.data() + place, &length, sizeof length);
    }
};

struct bus_reader {
    const std::string &bytes;
    size_t at;

    void align(size_t size) { at = (at + size - 1) / size * size; }
    uint8_t take_byte() { return static_cast<uint8_t>(bytes.at(at++)); }
    uint32_t take_number() {
        align(4);
        uint32_t number = 0;
        memcpy(&number, bytes.data() + at, sizeof number);
        at += 4;
        return number;
    }
    std::string take_bytes(size_t length) {
        std::string text = bytes.substr(at, length);
        at += length + 1;
        return text;
    }
    std::string take_text() { return take_bytes(take_number()); }
    std::vector<std::string> take_texts() {
        std::vector<std::string> texts;
        uint32_t length = take_number();
        for (size_t end = at + length; at < end;)
            texts.push_back(take_text());
        return texts;
    }
};

namespace {

// Fields of a message's head, and kinds of messages.
enum : uint8_t { MEMBER = 3, ERROR_NAME = 4, REPLY_TO = 5, SENDER = 7, TYPES = 8 };
enum : uint8_t { METHOD_RETURN = 2, METHOD_ERROR = 3 };

struct bus_call {
    uint32_t serial = 0;
    std::string member;
    size_t body = 0;
};

bus_call read_head(const std::string &message) {
    bus_call call;
    bus_reader reader{message, 8};
    call.serial = reader.take_number();
    uint32_t length = reader.take_number();
    size_t end = reader.at + length;
    while (reader.at < end) {
        reader.align(8);
        uint8_t code = reader.take_byte();
        std::string type = reader.take_bytes(reader.take_byte());
        std::string text;
        if (type == "u")
            reader.take_number();
        else
            text = type == "g" ? reader.take_bytes(reader.take_byte()) : reader.take_text();
        if (code == MEMBER) call.member = text;
    }
    reader.align(8);
    call.body = reader.at;
    return call;
}

std::string make_reply(const bus_call &call, const std::string &error, const std::string &types,
                       const std::string &body) {
    bus_writer head;
    head.bytes = "l";
    head.put_byte(error.empty() ? METHOD_RETURN : METHOD_ERROR);
    head.put_byte(1); // no reply to the reply
    head.put_byte(1);
    head.put_number(static_cast<uint32_t>(body.size()));
    head.put_number(call.serial + 1000);
    size_t fields = head.begin_structures();
    head.put_field(REPLY_TO, "u");
    head.put_number(call.serial);
    head.put_field(SENDER, "s");
    head.put_text("org.freedesktop.DBus");
    if (!error.empty()) {
        head.put_field(ERROR_NAME, "s");
        head.put_text(error);
    }
    if (!types.empty()) {
        head.put_field(TYPES, "g");
        head.put_signature(types);
    }
    head.end_structures(fields);
    head.align(8);
    return head.bytes + body;
}

void put_unit(bus_writer *body, const fake_unit &unit) {
    body->align(8);
    for (const std::string &text : {unit.name, unit.description, unit.load_state, unit.active_state,
                                    std::string("running"), std::string(), std::string("/unit/x")})
        body->put_text(text);
    body->put_number(0);
    body->put_text("");
    body->put_text("/");
}

bool matches(const std::vector<std::string> &patterns, const std::string &name) {
    for (const std::string &pattern : patterns)
        if (fnmatch(pattern.c_str(), name.c_str(), 0) == 0) return true;
    return false;
}

constexpr const char *UNITS = "a(ssssssouso)";

void put_units(bus_writer *body, const std::vector<fake_unit> &units,
               const std::vector<std::string> &patterns) {
    size_t place = body->begin_structures();
    for (const fake_unit &unit : units)
        if (matches(patterns, unit.name)) put_unit(body, unit);
    body->end_structures(place);
}

void put_files(bus_writer *body, const std::vector<std::pair<std::string, std::string>> &files,
               const std::vector<std::string> &patterns) {
    size_t place = body->begin_structures();
    for (const auto &[path, state] : files) {
        if (!matches(patterns, path.substr(path.rfind('/') + 1))) continue;
        body->align(8);
        body->put_text(path);
        body->put_text(state);
    }
    body->end_structures(place);
}

bool read_exactly(int socket, std::string *bytes, size_t length) {
    while (bytes->size() < length) {
        char part[4096];
        ssize_t got = recv(socket, part, std::min(sizeof part, length - bytes->size()), 0);
        if (got <= 0) return false;
        bytes->append(part, static_cast<size_t>(got));
    }
    return true;
}

bool send_all(int socket, const std::string &bytes) {
    return send(socket, bytes.data(), bytes.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(bytes.size());
}

// Line by line, up to BEGIN.
bool authenticate(int client) {
    std::string line;
    for (char byte; recv(client, &byte, 1, 0) == 1;) {
        if (byte == '\0') continue;
        line += byte;
        if (!line.ends_with("\r\n")) continue;
        line.resize(line.size() - 2);
        if (line == "BEGIN") return true;
        std::string answer = "OK 0123456789abcdef0123456789abcdef";
        if (line == "AUTH EXTERNAL") answer = "DATA";
        if (line == "NEGOTIATE_UNIX_FD") answer = "AGREE_UNIX_FD";
        if (!send_all(client, answer + "\r\n")) return false;
        line.clear();
    }
    return false;
}

} // namespace

fake_bus::fake_bus() {
    EXPECT_EQ(setenv("DBUS_SYSTEM_BUS_ADDRESS", ("unix:path=" + folder.path + "/bus").c_str(), 1), 0);
}

fake_bus::~fake_bus() {
    stop();
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
}

void fake_bus::start() {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof address.sun_path, "%s/bus", folder.path.c_str());
    door = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(bind(door, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    ASSERT_EQ(listen(door, 8), 0);
    ASSERT_EQ(pipe(stopping), 0);
    thread = std::thread([this] { serve(); });
}

void fake_bus::stop() {
    if (!thread.joinable()) return;
    close(stopping[1]);
    thread.join();
    close(stopping[0]);
    close(door);
}

void fake_bus::serve() {
    while (true) {
        pollfd waits[2] = {{.fd = door, .events = POLLIN, .revents = 0},
                           {.fd = stopping[0], .events = 0, .revents = 0}};
        poll(waits, 2, -1);
        if (waits[0].revents == 0) return;
        int client = accept(door, nullptr, nullptr);
        connections++;
        serve_client(client);
        close(client);
    }
}

void fake_bus::serve_client(int client) {
    char byte;
    if (silent) {
        while (recv(client, &byte, 1, 0) == 1) {
        }
        return;
    }
    if (!authenticate(client)) return;
    std::string head;
    while (read_exactly(client, &head, 16)) {
        uint32_t body = 0;
        uint32_t fields = 0;
        memcpy(&body, head.data() + 4, sizeof body);
        memcpy(&fields, head.data() + 12, sizeof fields);
        if (!read_exactly(client, &head, (16 + fields + 7) / 8 * 8 + body) || !answer_call(client, head))
            return;
        head.clear();
    }
}

// What each method gives, with the types of it. Absent for a method that is not known.
std::string fake_bus::answer_to(const std::string &member, bus_reader *arguments, bus_writer *body) const {
    if (member == "Hello") {
        body->put_text(":1.1");
        return "s";
    }
    if (member == "NameHasOwner") {
        body->put_number(has_systemd && arguments->take_text() == "org.freedesktop.systemd1" ? 1 : 0);
        return "b";
    }
    if (member == "ListUnitsByNames") {
        put_units(body, units, arguments->take_texts());
        return UNITS;
    }
    if (member.ends_with("ByPatterns")) {
        EXPECT_TRUE(arguments->take_texts().empty()) << "units in all states";
    }
    if (member == "ListUnitsByPatterns") {
        put_units(body, units, arguments->take_texts());
        return UNITS;
    }
    if (member != "ListUnitFilesByPatterns") return "";
    put_files(body, files, arguments->take_texts());
    return "a(ss)";
}

bool fake_bus::answer_call(int client, const std::string &message) {
    bus_call call = read_head(message);
    calls.push_back(call.member);
    if (unanswered.contains(call.member)) return true;
    bus_reader arguments{message, call.body};
    bus_writer body;
    std::string error = errors.contains(call.member) ? errors[call.member] : "";
    std::string types = error.empty() ? answer_to(call.member, &arguments, &body) : "";
    if (error.empty() && types.empty()) error = "org.freedesktop.DBus.Error.UnknownMethod";
    if (cut_signatures.contains(call.member)) types = cut_signatures[call.member];
    return send_all(client, make_reply(call, error, types, body.bytes));
}
