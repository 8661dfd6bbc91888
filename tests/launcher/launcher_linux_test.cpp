// The host's own answers, with a shell in the place of the agent.
#include "launcher/launcher_ops.h"

#include "platform/errors.h"
#include "platform/fatal.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

namespace fs = std::filesystem;

const launcher_ops &host = launcher_ops_host;

std::function<void()> test_body;

// What a test does while the host runs the launcher as a service.
void serve(std::function<void()> body) {
    error_host = &error_ops_host;
    event_host = &event_ops_host;
    test_body = std::move(body);
    EXPECT_EQ(host.serve([] {
        test_body();
        return 7;
    }),
              7);
}

struct shell {
    agent_pipes pipes = {};
    int64_t process = 0;

    // The words know the agent's ends as $0, to read from, and $1.
    explicit shell(const char *script) {
        EXPECT_TRUE(host.make_pipes(&pipes));
        std::string read_end = std::to_string(pipes.agent_read);
        std::string write_end = std::to_string(pipes.agent_write);
        const char *words[] = {"/bin/sh", "-c", script, read_end.c_str(), write_end.c_str(), nullptr};
        EXPECT_TRUE(host.start(words, &pipes, &process));
        host.close_end(pipes.agent_read);
        host.close_end(pipes.agent_write);
    }
    ~shell() {
        host.close_end(pipes.read);
        host.close_end(pipes.write);
    }
    launcher_event wait(int64_t milliseconds = 20'000) const {
        return host.wait(pipes.read, process, milliseconds);
    }
};

// How the host lists the pipe behind a descriptor.
std::string pipe_of(int32_t end) {
    return fs::read_symlink("/proc/self/fd/" + std::to_string(end)).string();
}

int count_in(const std::string &text, const std::string &part) {
    int count = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1))
        count++;
    return count;
}

} // namespace

TEST(launcher_host, tells_what_the_agent_has_said_before_its_end) {
    serve([] {
        shell agent("printf '\\001\\002' >/dev/fd/$1; exit 3");
        siginfo_t found = {}; // it is dead, and not reaped yet
        ASSERT_EQ(waitid(P_PID, static_cast<id_t>(agent.process), &found, WEXITED | WNOWAIT), 0);
        launcher_event event = agent.wait();
        EXPECT_EQ(event.kind, EVENT_BYTE);
        EXPECT_EQ(event.byte, 1);
        EXPECT_EQ(agent.wait().byte, 2);
        EXPECT_EQ(agent.wait().kind, EVENT_PIPE_END);
        event = host.wait(0, agent.process, 20'000);
        EXPECT_EQ(event.kind, EVENT_EXIT);
        EXPECT_EQ(event.status, 3);
    });
}

TEST(launcher_host, tells_a_death_by_signal) {
    serve([] {
        shell agent("kill -9 $$");
        launcher_event event = host.wait(0, agent.process, 20'000);
        EXPECT_EQ(event.kind, EVENT_EXIT);
        EXPECT_EQ(event.status, 128 + 9);
    });
}

TEST(launcher_host, tells_an_end_although_somebody_else_holds_the_pipe) {
    serve([] {
        shell agent("cat </dev/fd/$0 >/dev/null 2>&1 & exit 0"); // until our end is closed
        EXPECT_EQ(agent.wait().kind, EVENT_EXIT);
    });
}

TEST(launcher_host, brings_a_byte_to_the_agent) {
    serve([] {
        shell agent("read -r line </dev/fd/$0; exit $line");
        EXPECT_TRUE(host.write_byte(agent.pipes.write, '5'));
        EXPECT_TRUE(host.write_byte(agent.pipes.write, '\n'));
        EXPECT_EQ(host.wait(0, agent.process, 20'000).status, 5);
    });
}

TEST(launcher_host, shows_the_agent_the_end_of_the_pipe) {
    serve([] {
        shell agent("cat </dev/fd/$0 >/dev/null; exit 4");
        host.close_end(agent.pipes.write);
        EXPECT_EQ(host.wait(0, agent.process, 20'000).status, 4);
        agent.pipes.write = dup(STDIN_FILENO);
    });
}

TEST(launcher_host, survives_a_byte_to_an_agent_that_is_gone) {
    serve([] {
        shell agent("exit 0");
        EXPECT_EQ(host.wait(0, agent.process, 20'000).kind, EVENT_EXIT);
        EXPECT_FALSE(host.write_byte(agent.pipes.write, 0));
    });
}

TEST(launcher_host, kills) {
    serve([] {
        shell agent("trap '' TERM INT; while :; do sleep 1; done");
        host.kill(agent.process);
        EXPECT_EQ(host.wait(0, agent.process, 20'000).status, 128 + 9);
    });
}

TEST(launcher_host, tells_each_stop_once) {
    serve([] {
        for (int number : {SIGTERM, SIGINT}) {
            raise(number);
            EXPECT_EQ(host.wait(0, 0, 20'000).kind, EVENT_STOP);
            EXPECT_EQ(host.wait(0, 0, 1).kind, EVENT_TIMEOUT);
        }
    });
}

TEST(launcher_host, gives_the_agent_signals_as_a_program_expects_them) {
    serve([] {
        shell agent("kill -TERM $$; exit 0");
        EXPECT_EQ(host.wait(0, agent.process, 20'000).status, 128 + SIGTERM);
        shell piped("kill -PIPE $$; exit 0");
        EXPECT_EQ(host.wait(0, piped.process, 20'000).status, 128 + SIGPIPE);
    });
}

TEST(launcher_host, says_that_a_file_is_no_program) {
    serve([] {
        agent_pipes pipes;
        ASSERT_TRUE(host.make_pipes(&pipes));
        for (const char *file : {"/does/not/exist", "/etc/passwd", "/"}) {
            const char *words[] = {file, nullptr};
            int64_t process;
            EXPECT_FALSE(host.start(words, &pipes, &process)) << file;
            EXPECT_NE(last_error(), 0U);
        }
        for (int32_t end : {pipes.read, pipes.write, pipes.agent_read, pipes.agent_write})
            host.close_end(end);
    });
}

TEST(launcher_host, hands_no_other_descriptor_on) {
    serve([] {
        agent_pipes others;
        ASSERT_TRUE(host.make_pipes(&others));
        shell agent("exec ls -l /proc/self/fd >/dev/fd/$1");
        std::string listed;
        for (launcher_event event = agent.wait(); event.kind == EVENT_BYTE; event = agent.wait())
            listed += static_cast<char>(event.byte);
        EXPECT_EQ(count_in(listed, pipe_of(others.read)), 0) << listed;
        EXPECT_EQ(count_in(listed, pipe_of(others.write)), 0) << listed;
        EXPECT_EQ(count_in(listed, pipe_of(agent.pipes.write)), 1) << listed; // the end to read from
        EXPECT_EQ(count_in(listed, pipe_of(agent.pipes.read)), 2) << listed; // the other, and the list itself
        host.wait(0, agent.process, 20'000);
        for (int32_t end : {others.read, others.write, others.agent_read, others.agent_write})
            host.close_end(end);
    });
}

TEST(launcher_host, opens_the_standard_streams_that_are_closed) {
    pid_t child = fork();
    if (child == 0) {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        _exit(host.serve([] {
            agent_pipes pipes;
            return host.make_pipes(&pipes) && pipes.read > 2 && pipes.write > 2 && pipes.agent_read > 2 &&
                           pipes.agent_write > 2
                       ? 0
                       : 1;
        }));
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST(launcher_host, locks_a_folder_against_another_launcher) {
    fs::path folder = fs::temp_directory_path() / ("tnlauncher_" + std::to_string(getpid()));
    fs::create_directory(folder);
    fs::path before = fs::current_path();
    error_host = &error_ops_host;
    EXPECT_FALSE(host.enter_folder((folder / "not").c_str()));
    EXPECT_TRUE(host.enter_folder(folder.c_str()));
    EXPECT_EQ(fs::current_path(), folder);
    EXPECT_TRUE(host.lock_folder("lock"));
    EXPECT_FALSE(host.lock_folder("lock"));
    EXPECT_FALSE(host.lock_folder("not/lock"));
    fs::current_path(before);
    fs::remove_all(folder);
}

TEST(launcher_host, keeps_the_program_where_the_host_says) {
    char folder[64];
    auto usual = [&] { return host.default_folder(folder, sizeof folder) ? std::string(folder) : "none"; };
    setenv("STATE_DIRECTORY", "/s/a:/s/b", 1);
    EXPECT_EQ(usual(), "/s/a/program");
    setenv("STATE_DIRECTORY", std::string(64, 'x').c_str(), 1);
    EXPECT_EQ(usual(), "none");
    unsetenv("STATE_DIRECTORY");
    setenv("XDG_STATE_HOME", "/x", 1);
    EXPECT_EQ(usual(), geteuid() == 0 ? "/var/lib/tarnix/program" : "/x/tarnix/program");
    unsetenv("XDG_STATE_HOME");
    setenv("HOME", "/h", 1);
    EXPECT_EQ(usual(), geteuid() == 0 ? "/var/lib/tarnix/program" : "/h/.local/state/tarnix/program");
}

TEST(launcher_host, makes_paths_whole) {
    char path[512];
    EXPECT_TRUE(host.full_path("/a/b", path, sizeof path));
    EXPECT_STREQ(path, "/a/b");
    EXPECT_TRUE(host.full_path("b", path, sizeof path));
    EXPECT_EQ(path, fs::current_path() / "b");
    EXPECT_FALSE(host.full_path("/a/b", path, 4));
}
