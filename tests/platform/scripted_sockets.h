// A socket layer's host that answers as a test has scripted it, and keeps the calls.
#pragma once

#include "platform/sockets_ops.h"

#include "fakes/test_host.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <vector>

inline constexpr uint32_t WOULD_BLOCK = 10035;

// One answer of connect, send, recv or select: the result, and the error or the readiness that goes with it.
struct socket_answer {
    int64_t result;
    uint32_t error = 0;
    socket_readiness ready = {};
};

struct scripted_sockets;
inline scripted_sockets *the_sockets;

struct scripted_sockets {
    std::vector<std::string> calls;
    std::string broken; // the operation that fails, with error 5

    int32_t startup_code = 0;
    uint32_t dotted = 0xFFFFFFFF;
    const char *name_failure = nullptr;
    std::vector<uint32_t> addresses;
    uint32_t status = 0; // of SO_ERROR
    std::vector<socket_answer> connects, sends, receives, selects;
    std::string received = "abcdefgh";

    scripted_sockets() {
        the_sockets = this;
        sockets_host = &ops;
    }

    static const sockets_ops ops;

    // Keeps the call. False, with the error set, where it is the broken one.
    bool note(const std::string &call, const std::string &rest = "") {
        calls.push_back(call + rest);
        if (call != broken) return true;
        the_host->last_error = 5;
        return false;
    }

    // The next answer, its error set; the test fails where none is left.
    socket_answer next(std::vector<socket_answer> *answers) {
        if (answers->empty()) {
            ADD_FAILURE() << "no answer left for " << calls.back();
            throw process_ended{-1};
        }
        socket_answer answer = answers->front();
        answers->erase(answers->begin());
        if (answer.error != 0) the_host->last_error = answer.error;
        return answer;
    }

    // The calls in one text, behind which it is empty.
    std::string take_calls() {
        std::string text;
        for (const std::string &call : calls)
            text += (text.empty() ? "" : ", ") + call;
        calls.clear();
        return text;
    }
};

inline const sockets_ops scripted_sockets::ops = {
    .WSAStartup =
        [](uint16_t version) {
            the_sockets->note("startup ", std::to_string(version));
            return the_sockets->startup_code;
        },
    .inet_addr = [](const char *) { return the_sockets->dotted; },
    .gethostbyname = [](const char *host, uint32_t *out_count, uint32_t *out_address) -> const char * {
        the_sockets->note("resolve ", host);
        *out_count = static_cast<uint32_t>(the_sockets->addresses.size());
        if (*out_count != 0) *out_address = the_sockets->addresses[0];
        return the_sockets->name_failure;
    },
    .socket = []() -> socket_handle { return the_sockets->note("socket") ? 7 : -1; },
    .set_nonblocking = [](socket_handle,
                          bool on) { return the_sockets->note("nonblocking", on ? " on" : " off"); },
    .set_nodelay = [](socket_handle, bool on) { return the_sockets->note("nodelay", on ? " on" : " off"); },
    .connect =
        [](socket_handle, uint32_t address, uint16_t port) {
            the_sockets->note("connect ", std::to_string(address) + ":" + std::to_string(port));
            return static_cast<int32_t>(the_sockets->next(&the_sockets->connects).result);
        },
    .send =
        [](socket_handle, const void *buffer, size_t length) {
            the_sockets->note("send ", std::string(static_cast<const char *>(buffer), length));
            return the_sockets->next(&the_sockets->sends).result;
        },
    .recv =
        [](socket_handle, void *buffer, size_t size) {
            the_sockets->note("recv ", std::to_string(size));
            int64_t count = the_sockets->next(&the_sockets->receives).result;
            if (count > 0) memcpy(buffer, the_sockets->received.data(), static_cast<size_t>(count));
            return count;
        },
    .select =
        [](socket_handle, socket_readiness *wanted, uint32_t seconds) {
            std::string sets = std::string(wanted->readable ? "r" : "") + (wanted->writable ? "w" : "") +
                               (wanted->exception ? "e" : "");
            the_sockets->note("select ", sets + " " + std::to_string(seconds));
            socket_answer answer = the_sockets->next(&the_sockets->selects);
            *wanted = answer.ready;
            return static_cast<int32_t>(answer.result);
        },
    .so_error =
        [](socket_handle, uint32_t *out_error) {
            *out_error = the_sockets->status;
            return the_sockets->note("so_error");
        },
    .shutdown = [](socket_handle) { the_sockets->note("shutdown"); },
    .closesocket = [](socket_handle) { return the_sockets->note("close"); },
    .getsockname =
        [](socket_handle, uint32_t *out_address, uint16_t *out_port) {
            *out_address = 0x0100007F;
            *out_port = 3241;
            return the_sockets->note("getsockname");
        },
    .gethostname =
        [](char *buffer, size_t size) {
            snprintf(buffer, size, "host.example");
            return the_sockets->note("gethostname");
        },
    .would_block = [](uint32_t error) { return error == WOULD_BLOCK; },
};
