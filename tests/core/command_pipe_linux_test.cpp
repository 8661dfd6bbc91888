#include "core/command_pipe_ops.h"
#include "fakes/test_host.h"
#include "platform/heap.h"
#include "platform/waits.h"
#include "settings/places.h"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static std::string run_folder;
static std::string system_folder;

class linux_command_pipe : public testing::Test {
protected:
    test_host host;
    const command_pipe_ops *ops = &command_pipe_ops_host;
    std::string folder;
    command_pipe *server = nullptr;
    waitable *event = nullptr;

    void SetUp() override {
        waits_host = &waits_ops_host;
        static const places_ops places_here = {.find = [](places *out) {
            *out = {};
            snprintf(out->run_folder, PLACE_SIZE, "%s", run_folder.c_str());
            snprintf(out->system_run_folder, PLACE_SIZE, "%s", system_folder.c_str());
        }};
        places_host = &places_here;
        char made[] = "/tmp/tnagent-pipe-XXXXXX";
        ASSERT_NE(mkdtemp(made), nullptr);
        folder = made;
        run_folder = folder + "/run";
        system_folder = "";
        event = waits_host->CreateEventA(true, false);
    }
    void TearDown() override {
        if (server != nullptr) ops->CloseHandle(server);
        waits_host->CloseHandle(event);
        EXPECT_EQ(host.blocks, 0);
        std::filesystem::remove_all(folder);
    }

    void listen() {
        server = ops->CreateNamedPipeA();
        ASSERT_NE(server, nullptr);
        arm();
    }
    void arm() {
        EXPECT_FALSE(ops->ConnectNamedPipe(server, event));
        EXPECT_EQ(static_cast<uint32_t>(errno), ERROR_PIPE_IS_WAITING);
    }
    bool somebody_is_there() const { return waits_host->WaitForMultipleObjects(1, &event, 0) == 0; }
    void take() {
        EXPECT_TRUE(somebody_is_there());
        waits_host->ResetEvent(event);
        EXPECT_TRUE(ops->ConnectNamedPipe(server, nullptr));
    }
    std::string read(command_pipe *pipe, size_t size = 1024) const {
        std::string buffer(size, '?');
        uint32_t count = 0;
        if (!ops->ReadFile(pipe, buffer.data(), size, &count)) return "error " + std::to_string(errno);
        return buffer.substr(0, count);
    }
    void write(command_pipe *pipe, const std::string &text) const {
        uint32_t count = 0;
        EXPECT_TRUE(ops->WriteFile(pipe, text.data(), text.size(), &count));
        EXPECT_EQ(count, text.size());
    }
    void expect_refused(uint32_t code) const {
        EXPECT_EQ(ops->CreateFileA(), nullptr);
        EXPECT_EQ(static_cast<uint32_t>(errno), code);
    }
};

TEST_F(linux_command_pipe, carries_a_command_and_its_reply) {
    listen();
    EXPECT_FALSE(somebody_is_there());
    command_pipe *client = ops->CreateFileA();
    ASSERT_NE(client, nullptr);
    write(client, "DOWN 5\n");
    take();
    EXPECT_EQ(read(server), "DOWN 5\n");
    write(server, "OK");
    ops->FlushFileBuffers(server);
    EXPECT_TRUE(ops->DisconnectNamedPipe(server));
    EXPECT_EQ(read(client), "OK");
    EXPECT_EQ(read(client), "error " + std::to_string(ERROR_PIPE_ENDED));
    ops->CloseHandle(client);
}

TEST_F(linux_command_pipe, serves_one_client_after_the_other) {
    listen();
    for (int i = 0; i < 100; i++) {
        command_pipe *client = ops->CreateFileA();
        ASSERT_NE(client, nullptr) << i;
        write(client, std::to_string(i));
        take();
        EXPECT_EQ(read(server), std::to_string(i));
        ops->DisconnectNamedPipe(server);
        arm();
        EXPECT_FALSE(somebody_is_there());
        ops->CloseHandle(client);
    }
}

TEST_F(linux_command_pipe, is_busy_from_the_first_client_until_it_is_armed_again) {
    listen();
    command_pipe *client = ops->CreateFileA();
    expect_refused(ERROR_PIPE_IS_BUSY); // nobody has taken the first one yet
    take();
    expect_refused(ERROR_PIPE_IS_BUSY);
    ops->DisconnectNamedPipe(server);
    expect_refused(ERROR_PIPE_IS_BUSY);
    arm();
    ops->CloseHandle(client);
    client = ops->CreateFileA();
    EXPECT_NE(client, nullptr);
    ops->CloseHandle(client);
}

TEST_F(linux_command_pipe, tells_an_empty_message_from_a_client_that_has_gone) {
    listen();
    command_pipe *client = ops->CreateFileA();
    write(client, "");
    ops->CloseHandle(client);
    take();
    EXPECT_EQ(read(server), "");
    EXPECT_EQ(read(server), "error " + std::to_string(ERROR_PIPE_ENDED));
}

TEST_F(linux_command_pipe, keeps_silent_behind_a_client_that_vanished) {
    listen();
    ops->CloseHandle(ops->CreateFileA());
    take();
    EXPECT_EQ(read(server), "error " + std::to_string(ERROR_PIPE_ENDED));
    EXPECT_FALSE(somebody_is_there());
    expect_refused(ERROR_PIPE_IS_BUSY);
}

TEST_F(linux_command_pipe, waits_a_second_for_a_message_and_says_so) {
    listen();
    command_pipe *client = ops->CreateFileA();
    take();
    EXPECT_EQ(read(server), "error " + std::to_string(WAIT_ENDED));
    ops->CloseHandle(client);
}

TEST_F(linux_command_pipe, keeps_the_boundaries_of_messages) {
    listen();
    command_pipe *client = ops->CreateFileA();
    write(client, "one");
    write(client, std::string(1024, 'x'));
    write(client, std::string(1025, 'x'));
    take();
    EXPECT_EQ(read(server), "one");
    EXPECT_EQ(read(server), std::string(1024, 'x'));
    EXPECT_EQ(read(server), "error 234");
    ops->CloseHandle(client);
}

TEST_F(linux_command_pipe, refuses_a_second_agent_and_follows_a_dead_one) {
    listen();
    EXPECT_EQ(ops->CreateNamedPipeA(), nullptr);
    ops->CloseHandle(server);
    EXPECT_FALSE(std::filesystem::exists(run_folder + "/command"));
    // What a dead agent leaves: its socket, without a lock.
    int dead = socket(AF_UNIX, SOCK_SEQPACKET, 0);
    sockaddr_un address = {.sun_family = AF_UNIX};
    snprintf(address.sun_path, sizeof address.sun_path, "%s/command", run_folder.c_str());
    ASSERT_EQ(bind(dead, reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    close(dead);
    EXPECT_EQ(ops->CreateFileA(), nullptr);
    EXPECT_FALSE(ops->is_refusal(static_cast<uint32_t>(errno))) << "nobody is behind it";
    server = ops->CreateNamedPipeA();
    EXPECT_NE(server, nullptr);
}

TEST_F(linux_command_pipe, is_its_users_own) {
    listen();
    struct stat facts;
    ASSERT_EQ(stat((run_folder + "/command").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0600U);
    ASSERT_EQ(stat((run_folder + "/command.lock").c_str(), &facts), 0);
    EXPECT_EQ(facts.st_mode & 0777, 0600U);
}

TEST_F(linux_command_pipe, is_absent_where_no_agent_runs) {
    EXPECT_EQ(ops->CreateFileA(), nullptr);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(ops->is_refusal(ENOENT));
    EXPECT_FALSE(ops->is_refusal(ECONNREFUSED));
    EXPECT_TRUE(ops->is_refusal(EACCES));
}

TEST_F(linux_command_pipe, is_sought_at_the_systems_place_first_and_then_at_the_users_own) {
    system_folder = folder + "/system";
    listen();
    command_pipe *client = ops->CreateFileA();
    EXPECT_NE(client, nullptr) << "the user's own";
    ops->CloseHandle(client);
    take();
    ops->DisconnectNamedPipe(server);
    arm();
    run_folder = system_folder;
    command_pipe *of_system = ops->CreateNamedPipeA();
    run_folder = folder + "/run";
    client = ops->CreateFileA();
    ASSERT_NE(client, nullptr);
    EXPECT_FALSE(somebody_is_there()) << "the system's agent was asked";
    ops->CloseHandle(client);
    ops->CloseHandle(of_system);
}

TEST_F(linux_command_pipe, may_lie_in_a_folder_with_a_long_name) {
    run_folder = folder + "/" + std::string(200, 'x');
    listen();
    command_pipe *client = ops->CreateFileA();
    EXPECT_NE(client, nullptr);
    ops->CloseHandle(client);
}

TEST_F(linux_command_pipe, cannot_be_made_where_there_is_no_folder_for_it) {
    std::ofstream(folder + "/file") << "x";
    run_folder = folder + "/file/run";
    EXPECT_EQ(ops->CreateNamedPipeA(), nullptr);
    run_folder = folder + "/link";
    std::filesystem::create_symlink(folder, run_folder);
    EXPECT_EQ(ops->CreateNamedPipeA(), nullptr) << "somebody else may have made the link";
}

TEST_F(linux_command_pipe, wakes_a_sleeping_agent) {
    listen();
    add_wait_event(event);
    command_pipe *client = ops->CreateFileA();
    EXPECT_EQ(wait_for_objects(60), 1);
    ops->CloseHandle(client);
}
