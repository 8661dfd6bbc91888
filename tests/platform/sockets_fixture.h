// A listener on the loopback of the host that the tests run on, and the agent's side of one connection to it.
#pragma once

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/loopback_peer.h"
#include "platform/sockets.h"
#include "platform/sockets_ops.h"

#include <gtest/gtest.h>

inline constexpr uint32_t OPTIONS = SOCKET_NONBLOCKING | SOCKET_STREAM;

class host_sockets : public testing::Test {
protected:
    test_host host;
    loopback_peer peer;
    socket_handle agent = -1;

    void SetUp() override {
        sockets_host = &sockets_ops_host;
        error_host = &error_ops_host;
        EXPECT_SUCCESS(socket_init());
        ASSERT_TRUE(peer.bind());
    }
    void TearDown() override {
        if (agent != -1) {
            EXPECT_SUCCESS(socket_close(agent));
        }
    }

    void connect() {
        ASSERT_TRUE(peer.listen());
        EXPECT_SUCCESS(socket_create(LOOPBACK, peer.port, &agent, OPTIONS));
        ASSERT_TRUE(peer.accept());
    }
};
