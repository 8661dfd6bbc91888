// The command channel on the host's own pipe, with clients in great numbers.
#include "core/command_channel.h"

#include "core/os_arch.h"
#include "core/start_fixture.h"
#include "fakes/open_handles.h"
#include "fakes/temp_folder.h"
#include "platform/heap.h"

#include <atomic>
#include <random>
#include <thread>

static std::string pipe_folder;

// No server can be reached, so that every command is answered with that.
struct command_channel_on_host : start_fixture {
    temp_folder folder;
    std::mt19937 dice{20261121};

    command_channel_on_host() {
        write_settings();
        start();
        platform_cleanup();
        waits_reset();
        pipe_folder = folder.path;
        static const places_ops here = {
            .find = [](places *out) { snprintf(out->run_folder, PLACE_SIZE, "%s", pipe_folder.c_str()); }};
        static const sockets_ops nowhere = {
            .inet_addr = [](const char *) { return UINT32_MAX; },
            .gethostbyname = [](const char *, uint32_t *, uint32_t *) { return "unknown host"; }};
        places_host = &here;
        sockets_host = &nowhere;
        fixture_heap = heap_host;
        error_host = &error_ops_host;
        waits_host = &waits_ops_host;
        command_pipe_host = &command_pipe_ops_host;
        log_set_level(LOG_ERROR);
    }
    ~command_channel_on_host() override {
        close_command_pipe();
        heap_host = fixture_heap;
    }

    std::string random_message() {
        std::string message(dice() % (COMMAND_SIZE + 1), '\0');
        for (char &byte : message)
            byte = static_cast<char>(dice());
        return message;
    }

    static command_pipe *connect() {
        for (;;) {
            command_pipe *client = command_pipe_host->CreateFileA();
            if (client != nullptr) return client;
            std::this_thread::yield(); // the channel is not armed yet
        }
    }

    const heap_ops *fixture_heap;
};

TEST_F(command_channel_on_host, lives_through_ten_thousand_clients_that_vanish) {
    int before = 0;
    for (int i = 0; i < 10'000; i++) {
        if (i == 10) before = count_open_handles(); // what the host keeps for good is there
        setup_command_named_pipe();
        command_pipe *client = connect();
        std::string message = i % 2 == 0 ? "" : "DOWN 5\n";
        uint32_t count = 0;
        if (!message.empty()) command_pipe_host->WriteFile(client, message.data(), message.size(), &count);
        command_pipe_host->CloseHandle(client);
        wait_for_object(10);
        close_command_pipe();
    }
    EXPECT_EQ(count_open_handles(), before);
    EXPECT_GE(host.count_logged("handle_named_pipe: "), 10'000) << "not one of them got an answer";
}

TEST_F(command_channel_on_host, answers_ten_thousand_clients_whatever_they_say) {
    heap_host = &heap_ops_host; // the clients are in a thread of their own
    setup_command_named_pipe();
    int before = 0;
    std::atomic<int> answered = 0;
    std::atomic<int> wrong = 0;
    std::thread clients([&] {
        for (int i = 0; i < 10'000; i++) {
            std::string message = random_message();
            std::string expected = message.empty()
                                       ? "FAILURE empty command"
                                       : "FAILURE setup_connection: Error resolving \"one\": unknown host";
            char reply[COMMAND_SIZE];
            uint32_t count = 0;
            command_pipe *client = connect();
            command_pipe_host->WriteFile(client, message.data(), message.size(), &count);
            bool read = command_pipe_host->ReadFile(client, reply, sizeof reply, &count);
            if (!read || std::string(reply, count) != expected) wrong++;
            command_pipe_host->CloseHandle(client);
            answered++;
        }
    });
    while (answered < 10'000) {
        wait_for_object(1);
        if (before == 0 && answered >= 10) before = count_open_handles();
    }
    clients.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_LE(count_open_handles(), before); // a client may have been there at the first count
    close_command_pipe();
}
