#include "custom/real_programs.h"
#include "platform/crash.h"

#include <csignal>
#include <fcntl.h>
#include <sstream>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {
struct linux_program : real_programs {
    void write_script(const std::string &path, const std::string &text) const {
        std::ofstream(path) << text;
        chmod(path.c_str(), 0755);
    }
};
} // namespace

// ---- what it is given

TEST_F(linux_program, has_three_descriptors_and_no_more) {
    int inheritable[2];
    ASSERT_EQ(pipe(inheritable), 0);
    run("descriptors");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : descriptors 0 1 2"));
    close(inheritable[0]);
    close(inheritable[1]);
}

TEST_F(linux_program, has_three_descriptors_also_where_the_agent_has_closed_its_own) {
    pid_t child = fork();
    if (child == 0) {
        close(STDIN_FILENO);
        close(STDOUT_FILENO);
        close(STDERR_FILENO);
        run("descriptors input line \"Result: 1\"");
        _exit(host.logged(LOG_DETAIL, "c : descriptors 0 1 2") && host.logged(LOG_DETAIL, "c : input 0") ? 0
                                                                                                         : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(linux_program, has_an_empty_input) {
    run("input");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : input 0"));
}

TEST_F(linux_program, leads_a_session_and_a_group_of_its_own) {
    run("session");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : session 1 1"));
}

TEST_F(linux_program, has_no_signal_blocked_or_ignored) {
    sigset_t some;
    sigemptyset(&some);
    sigaddset(&some, SIGUSR1);
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &some, &before);
    auto *pipe_before = signal(SIGPIPE, SIG_IGN);
    run("signals");
    EXPECT_TRUE(host.logged(LOG_DETAIL, "c : signals"));
    signal(SIGPIPE, pipe_before);
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

TEST_F(linux_program, gives_its_exit_code_to_an_agent_that_ignores_the_ends_of_its_children) {
    auto *before = signal(SIGCHLD, SIG_IGN);
    EXPECT_FAILURE(run("line \"Result: 1\" exit 3"), "Failed with exit code 3");
    signal(SIGCHLD, before);
}

TEST_F(linux_program, has_the_limit_on_cores_that_the_agent_was_started_with) {
    pid_t child = fork();
    if (child == 0) {
        rlimit limit = {.rlim_cur = 0, .rlim_max = 4096};
        setrlimit(RLIMIT_CORE, &limit);
        crash_ops_host.install("");
        getrlimit(RLIMIT_CORE, &limit);
        run("core");
        _exit(limit.rlim_cur == 4096 && host.logged(LOG_DETAIL, "c : core 0") ? 0 : 1);
    }
    int status = 1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
}

TEST_F(linux_program, is_looked_for_in_the_path) {
    EXPECT_SUCCESS(run_command("echo Result: 12"));
    EXPECT_EQ(result.value, 12);
}

TEST_F(linux_program, gets_what_is_quoted_as_one_word) {
    EXPECT_SUCCESS(run_command("sh -c 'echo Result: $((6 * 7)) \"$1\" | cut -d\" \" -f1,2' sh 'a b'"));
    EXPECT_EQ(result.value, 42);
}

// ---- how it ends

TEST_F(linux_program, that_a_signal_ends_has_128_and_its_number_as_exit_code) {
    EXPECT_FAILURE(run("raise 9"), "Failed with exit code 137");
    EXPECT_FAILURE(run("raise 15"), "Failed with exit code 143");
    EXPECT_FAILURE(run("exit 255"), "Failed with exit code 255");
}

TEST_F(linux_program, that_may_not_be_run_fails_in_the_words_of_the_system) {
    std::string path = folder.path + "/file";
    std::ofstream(path) << "text";
    EXPECT_FAILURE(run_command(path), "Failed executing '" + path + "': Permission denied");
    write_script(path, "text");
    EXPECT_FAILURE(run_command(path), "Failed executing '" + path + "': Exec format error");
    EXPECT_FAILURE(run_command("'x"), "Failed executing ''x': A single quote in the command line has no end");
}

TEST_F(linux_program, that_cannot_be_started_leaves_no_child) {
    for (int i = 0; i < 20; i++) {
        EXPECT_NE(run_command("/nowhere/x"), nullptr);
        EXPECT_NE(start_action("a", "/nowhere/x"), nullptr);
    }
    EXPECT_EQ(count_children(), 0);
}

// ---- what it does to its keeper

TEST_F(linux_program, that_stops_its_keeper_is_killed_with_its_tree) {
    check.timeout = 1;
    EXPECT_FAILURE(run("to-parent " + std::to_string(SIGSTOP) + " orphan mark " + mark() + " sleep . mark " +
                       mark() + " sleep"),
                   "Timeout (1 s)");
    EXPECT_LT(seconds(), 10);
    expect_dead(2);
}

TEST_F(linux_program, that_stops_its_keeper_and_ends_is_timed_out) {
    check.timeout = 1;
    EXPECT_FAILURE(run("moment to-parent " + std::to_string(SIGSTOP) + " line \"Result: 1\""),
                   "Timeout (1 s)");
    EXPECT_LT(seconds(), 10);
}

TEST_F(linux_program, that_kills_its_keeper_is_killed_at_the_time_out) {
    check.timeout = 1;
    EXPECT_FAILURE(run("moment to-parent " + std::to_string(SIGKILL) + " mark " + mark() + " child mark " +
                       mark() + " sleep . sleep"),
                   "Timeout (1 s)");
    expect_dead(2);
}

TEST_F(linux_program, whose_keeper_was_killed_ends_abnormally) {
    EXPECT_FAILURE(run("moment to-parent " + std::to_string(SIGKILL) + " line \"Result: 1\""),
                   "Custom check c: Abnormal termination");
}

TEST_F(linux_program, sends_signals_to_a_keeper_that_hears_none) {
    for (int number : {SIGTERM, SIGHUP, SIGINT, SIGUSR1, SIGUSR2, SIGCHLD, SIGPIPE})
        EXPECT_SUCCESS(run("to-parent " + std::to_string(number) + " line \"Result: 1\"")) << number;
}

// ---- the end of the agent

// A process that stands for the agent is killed in the midst of a run.
TEST_F(linux_program, lives_on_when_the_agent_is_killed_and_its_keeper_does_not) {
    pid_t agent = fork();
    if (agent == 0) {
        run("mark " + mark() + " sleep");
        _exit(0);
    }
    std::vector<int> program = wait_for_marks(1);
    ASSERT_EQ(program.size(), 1U);
    kill(agent, SIGKILL);
    waitpid(agent, nullptr, 0);
    std::string status = "/proc/" + std::to_string(program[0]) + "/status";
    auto has_keeper = [&] {
        std::ifstream file(status);
        for (std::string line; std::getline(file, line);) {
            if (!line.starts_with("PPid:")) continue;
            std::ifstream name("/proc/" + std::to_string(std::stoi(line.substr(5))) + "/comm");
            std::string comm;
            std::getline(name, comm);
            return comm == "tnagent-keeper";
        }
        return false;
    };
    EXPECT_TRUE(wait_until([&] { return !has_keeper(); }));
    EXPECT_TRUE(process_lives(program[0]));
    end_process(program[0]);
    expect_dead(1);
}

TEST_F(linux_program, of_an_action_is_no_child_of_the_agent) {
    std::string line = command("mark " + mark() + " sleep");
    EXPECT_SUCCESS(start_action("a", line.c_str()));
    EXPECT_EQ(count_children(), 0);
    std::vector<int> program = wait_for_marks(1);
    ASSERT_EQ(program.size(), 1U);
    end_process(program[0]);
    expect_dead(1);
}

TEST_F(linux_program, of_an_action_has_the_null_device_and_a_session_of_its_own) {
    int inheritable[2];
    ASSERT_EQ(pipe(inheritable), 0);
    std::string line = "sh -c 'ls -l /proc/$$/fd > " + mark() + ".tmp; " + CUSTOM_CHILD +
                       " session >> /dev/null; cut -d\" \" -f6 /proc/$$/stat >> " + mark() +
                       ".tmp; echo $$ >> " + mark() + ".tmp; mv " + mark() + ".tmp " + mark() + "'";
    EXPECT_SUCCESS(start_action("a", line.c_str()));
    ASSERT_TRUE(wait_until([&] { return access(mark().c_str(), F_OK) == 0; }));
    std::ifstream file(mark());
    std::string text((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    EXPECT_EQ(text.find("pipe:"), std::string::npos) << text;
    EXPECT_NE(text.find("0 -> /dev/null"), std::string::npos) << text;
    EXPECT_NE(text.find("2 -> /dev/null"), std::string::npos) << text;
    std::vector<std::string> lines;
    std::istringstream all(text);
    for (std::string one; std::getline(all, one);)
        lines.push_back(one);
    EXPECT_EQ(lines.at(lines.size() - 2), lines.back()) << "its session is its own";
    close(inheritable[0]);
    close(inheritable[1]);
}
