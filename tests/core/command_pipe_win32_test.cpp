// The named pipe of the host, with the agent's end and a client's in one process.

#include "core/command_pipe_ops.h"
#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/waits.h"

#include <gtest/gtest.h>
#include <string>
#include <thread>
#include <windows.h>

class windows_command_pipe : public testing::Test {
protected:
    test_host host;
    const command_pipe_ops *ops = &command_pipe_ops_host;
    command_pipe *agent = nullptr;
    command_pipe *client = nullptr;
    waitable *event = nullptr;

    void SetUp() override {
        error_host = &error_ops_host;
        waits_host = &waits_ops_host;
        event = waits_host->CreateEventA(true, true);
    }
    void TearDown() override {
        close(&client);
        close(&agent);
        waits_host->CloseHandle(event);
        EXPECT_EQ(host.blocks, 0);
    }
    void close(command_pipe **end) const {
        if (*end != nullptr) ops->CloseHandle(*end);
        *end = nullptr;
    }

    void listen() {
        agent = ops->CreateNamedPipeA();
        ASSERT_NE(agent, nullptr);
        arm();
    }
    void arm() {
        EXPECT_FALSE(ops->ConnectNamedPipe(agent, event));
        EXPECT_EQ(last_error(), ERROR_PIPE_IS_WAITING);
    }
    void serve_a_client() {
        listen();
        client = ops->CreateFileA();
        ASSERT_NE(client, nullptr);
        EXPECT_TRUE(client_is_there(60000));
        EXPECT_FALSE(ops->ConnectNamedPipe(agent, nullptr));
        EXPECT_EQ(last_error(), ERROR_PIPE_IS_OPEN);
    }
    bool client_is_there(uint32_t milliseconds) {
        return waits_host->WaitForMultipleObjects(1, &event, milliseconds) == 0;
    }

    void write(command_pipe *end, const std::string &text) {
        uint32_t count = 0;
        EXPECT_TRUE(ops->WriteFile(end, text.data(), text.size(), &count));
        EXPECT_EQ(count, text.size());
    }
    // A message, or "code N" of the failure.
    std::string read(command_pipe *end, size_t size = 1024) {
        std::string buffer(size, '#');
        uint32_t count = 0;
        if (!ops->ReadFile(end, buffer.data(), size, &count)) return "code " + std::to_string(last_error());
        return buffer.substr(0, count);
    }
};

TEST_F(windows_command_pipe, is_not_found_without_an_agent) {
    EXPECT_EQ(ops->CreateFileA(), nullptr);
    EXPECT_EQ(last_error(), uint32_t{ERROR_FILE_NOT_FOUND});
}

TEST_F(windows_command_pipe, leaves_no_error_behind_its_making) {
    SetLastError(ERROR_ACCESS_DENIED);
    agent = ops->CreateNamedPipeA();
    ASSERT_NE(agent, nullptr);
    EXPECT_EQ(last_error(), 0U);
}

TEST_F(windows_command_pipe, signals_its_event_when_a_client_comes) {
    listen();
    EXPECT_FALSE(client_is_there(0)); // waiting for one has reset it
    client = ops->CreateFileA();
    ASSERT_NE(client, nullptr);
    EXPECT_TRUE(client_is_there(60000));
}

TEST_F(windows_command_pipe, tells_of_a_client_that_was_faster) {
    agent = ops->CreateNamedPipeA();
    client = ops->CreateFileA();
    ASSERT_NE(client, nullptr);
    EXPECT_FALSE(ops->ConnectNamedPipe(agent, event));
    EXPECT_EQ(last_error(), ERROR_PIPE_IS_OPEN);
}

TEST_F(windows_command_pipe, carries_a_request_and_a_reply_and_is_armed_again) {
    for (int round = 0; round < 3; round++) {
        if (round == 0)
            serve_a_client();
        else {
            client = ops->CreateFileA();
            ASSERT_NE(client, nullptr);
            EXPECT_TRUE(client_is_there(60000));
        }
        write(client, "DOWN 30\n");
        EXPECT_EQ(read(agent), "DOWN 30\n");
        write(agent, "OK granted");
        EXPECT_EQ(read(client), "OK granted");
        ops->FlushFileBuffers(agent);
        EXPECT_TRUE(ops->DisconnectNamedPipe(agent));
        close(&client);
        arm();
    }
}

TEST_F(windows_command_pipe, waits_a_second_for_a_message_and_takes_a_late_one) {
    serve_a_client();
    EXPECT_EQ(read(agent), "code " + std::to_string(WAIT_ENDED));
    write(client, "late");
    EXPECT_EQ(read(agent), "late");
}

TEST_F(windows_command_pipe, keeps_the_bounds_of_messages) {
    serve_a_client();
    write(client, "one");
    write(client, "two");
    EXPECT_EQ(read(agent), "one");
    EXPECT_EQ(read(agent), "two");
}

TEST_F(windows_command_pipe, refuses_a_message_that_is_too_long) {
    serve_a_client();
    std::thread writer([this] { // it may have to wait until it is read
        uint32_t count = 0;
        ops->WriteFile(client, std::string(1025, 'x').data(), 1025, &count);
    });
    EXPECT_EQ(read(agent), "code " + std::to_string(ERROR_MORE_DATA));
    EXPECT_TRUE(ops->DisconnectNamedPipe(agent));
    writer.join();
}

TEST_F(windows_command_pipe, tells_the_agent_that_its_client_is_gone) {
    serve_a_client();
    close(&client);
    EXPECT_EQ(read(agent), "code " + std::to_string(ERROR_PIPE_ENDED));
}

TEST_F(windows_command_pipe, tells_a_client_that_the_agent_is_gone) {
    serve_a_client();
    close(&agent);
    EXPECT_EQ(read(client), "code " + std::to_string(ERROR_PIPE_ENDED));
    uint32_t count = 0;
    EXPECT_FALSE(ops->WriteFile(client, "x", 1, &count));
}

TEST_F(windows_command_pipe, is_busy_for_a_second_client) {
    serve_a_client();
    EXPECT_EQ(ops->CreateFileA(), nullptr);
    EXPECT_EQ(last_error(), ERROR_PIPE_IS_BUSY);
}

TEST_F(windows_command_pipe, waits_for_a_client_without_an_event_too) {
    agent = ops->CreateNamedPipeA();
    std::thread late([this] {
        Sleep(1);
        client = ops->CreateFileA();
    });
    bool came = ops->ConnectNamedPipe(agent, nullptr);
    EXPECT_TRUE(came || last_error() == ERROR_PIPE_IS_OPEN);
    late.join();
    EXPECT_NE(client, nullptr);
}

// The host refuses a second first instance; Wine alone lets it be.
TEST_F(windows_command_pipe, is_made_once_where_the_host_sees_to_it) {
    listen();
    command_pipe *second = ops->CreateNamedPipeA();
    bool on_wine = GetProcAddress(GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
    if (second == nullptr)
        EXPECT_EQ(last_error(), uint32_t{ERROR_ACCESS_DENIED});
    else
        EXPECT_TRUE(on_wine);
    close(&second);
}

TEST_F(windows_command_pipe, needs_memory) {
    host.fail_allocation = 1;
    EXPECT_EQ(ops->CreateNamedPipeA(), nullptr);
    host.fail_allocation = 1;
    EXPECT_EQ(ops->CreateFileA(), nullptr);
}
