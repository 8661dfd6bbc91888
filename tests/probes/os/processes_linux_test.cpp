// Real processes of this host.
#include "probes/os/processes.h"

#include "fakes/temp_folder.h"
#include "probes/os/asked_processes.h"
#include "probes/os/process_names.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using texts = std::vector<std::string>;

// A child that has got ready and now waits for its end.
struct child {
    pid_t id = -1;
    int hold = -1; // the end of this pipe is the end of the child

    // Runs `prepare` in the child, which waits then; or which a program follows that reads its input.
    template <class Prepare>
    explicit child(Prepare prepare) {
        int ready[2];
        int waits[2];
        EXPECT_EQ(pipe2(ready, O_CLOEXEC), 0);
        EXPECT_EQ(pipe2(waits, O_CLOEXEC), 0);
        id = fork();
        if (id == 0) {
            dup2(waits[0], 0);
            close(waits[1]);
            prepare();
            close(ready[0]);
            close(ready[1]);
            char byte;
            (void)!read(0, &byte, 1);
            _exit(0);
        }
        hold = waits[1];
        close(waits[0]);
        close(ready[1]);
        char byte;
        EXPECT_EQ(read(ready[0], &byte, 1), 0) << "closed when it is ready";
        close(ready[0]);
    }
    ~child() {
        close(hold);
        waitpid(id, nullptr, 0);
    }
    child(const child &) = delete;
    child &operator=(const child &) = delete;
};

void call_oneself(const std::string &name) {
    prctl(PR_SET_NAME, name.c_str());
}

// The same tests may run elsewhere on this machine at the same time.
std::string with_own_id(const std::string &name) {
    return std::to_string(getpid()) + name;
}

// Whether the process is soon in this state.
bool gets_to(pid_t id, char state) {
    for (int i = 0; i < 1000; i++) {
        std::ifstream stat("/proc/" + std::to_string(id) + "/stat");
        std::string line;
        std::getline(stat, line);
        size_t end = line.rfind(") ");
        if (end != std::string::npos && line[end + 2] == state) return true;
        usleep(10'000);
    }
    return false;
}

void run(const std::string &program, const char *first_argument) {
    execl(program.c_str(), first_argument, nullptr);
    _exit(127);
}

struct linux_processes : real_processes {
    temp_folder folder;

    ~linux_processes() override {
        process_names_reset();
        EXPECT_EQ(host.blocks, 0);
    }

    static int64_t count(const std::string &name) {
        texts found = scanned_processes();
        return std::count(found.begin(), found.end(), name);
    }
    std::string path(const std::string &name) const { return folder.path + "/" + name; }
};

} // namespace

INSTANTIATE_TEST_SUITE_P(ways, linux_processes, testing::Values(false, true), way_to_processes);

TEST_P(linux_processes, offer_this_one) {
    EXPECT_GE(count("probes_os_tests"), 1);
    EXPECT_EQ(checked_process("Probes_OS_Tests"), 1);
}

TEST_P(linux_processes, keep_odd_names) {
    for (const char *odd :
         {" a b", "x) S (y", "(", ")", "two\nln", "b\\sl", "\\n", "gr\xC3\xBC\xDF", "\"q'"}) {
        std::string name = with_own_id(odd);
        child one([&] { call_oneself(name); });
        EXPECT_EQ(count(name), 1) << name;
        EXPECT_EQ(checked_process(name), 1) << name;
    }
}

TEST_P(linux_processes, are_told_one_by_one_where_names_are_the_same) {
    std::string name = with_own_id(" twin");
    child one([&] { call_oneself(name); });
    EXPECT_EQ(count(name), 1);
    {
        child two([&] { call_oneself(name); });
        EXPECT_EQ(count(name), 2);
    }
    EXPECT_EQ(checked_process(name), 1);
}

TEST_P(linux_processes, have_the_whole_names_of_their_programs) {
    std::string name = with_own_id("-program-whose-name-is-long");
    std::string program = path(name);
    std::filesystem::copy_file("/bin/cat", program);
    child one([&] { run(program, "x"); });
    EXPECT_EQ(count(name), 1);
    EXPECT_EQ(count(name.substr(0, 15)), 0);
    std::filesystem::remove(program);
    EXPECT_EQ(checked_process(name), 1) << "though its file has gone";
}

TEST_P(linux_processes, have_the_whole_names_of_their_scripts) {
    std::string name = with_own_id(" script whose name is long.sh");
    std::string script = path(name);
    std::ofstream(script) << "#!/bin/sh\nread line\n";
    chmod(script.c_str(), 0700);
    child one([&] { run(script, "x"); });
    EXPECT_EQ(count(name), 1);
}

TEST_P(linux_processes, that_turn_to_another_program_have_its_name) {
    std::string first = with_own_id("-program-whose-name-is-long");
    std::string second = first + "er";
    std::filesystem::copy_file("/bin/sh", path(first));
    std::filesystem::copy_file("/bin/cat", path(second));
    std::string order = "read line; exec " + path(second);
    int waits[2];
    ASSERT_EQ(pipe(waits), 0);
    child one([&] {
        dup2(waits[0], 0);
        execl(path(first).c_str(), "x", "-c", order.c_str(), nullptr);
        _exit(127);
    });
    EXPECT_EQ(checked_process(first), 1);
    EXPECT_EQ(checked_process(first), 1);
    EXPECT_EQ(checked_process(second), 0);
    EXPECT_EQ(write(waits[1], "\n", 1), 1);
    bool turned = false;
    for (int i = 0; i < 1000 && !turned; i++) {
        usleep(10'000);
        turned = checked_process(second) == 1;
    }
    EXPECT_TRUE(turned);
    EXPECT_EQ(checked_process(first), 0);
    close(waits[0]);
    close(waits[1]);
    kill(one.id, SIGKILL);
}

TEST_P(linux_processes, keep_a_name_of_15_bytes_that_is_whole) {
    std::string name = with_own_id("exactly15_bytes").substr(0, 15);
    child one([&] { call_oneself(name); });
    EXPECT_EQ(count(name), 1);
}

TEST_P(linux_processes, have_the_name_of_a_program_that_calls_itself_nothing) {
    child one([] { call_oneself(""); });
    EXPECT_GE(count("probes_os_tests"), 2);
    EXPECT_EQ(count("Idle"), 0);
}

TEST_P(linux_processes, that_have_ended_are_missing_though_nobody_asked_for_their_end) {
    std::string name = with_own_id("zombie");
    child one([&] { call_oneself(name); });
    EXPECT_EQ(checked_process(name), 1);
    kill(one.id, SIGKILL);
    siginfo_t end;
    EXPECT_EQ(waitid(P_PID, static_cast<id_t>(one.id), &end, WEXITED | WNOWAIT), 0);
    EXPECT_EQ(checked_process(name), 0);
    EXPECT_EQ(count(name), 0);
}

TEST_P(linux_processes, in_an_uninterruptible_sleep_may_have_any_name_that_goes_on_like_theirs) {
    std::string name = with_own_id("exactly15_bytes").substr(0, 15);
    int waits[2];
    ASSERT_EQ(pipe2(waits, O_CLOEXEC), 0);
    pid_t id = fork();
    if (id == 0) {
        call_oneself(name);
        close(waits[1]);
        char byte;
        // Until this child has ended, its parent waits and nothing but a kill wakes it.
        if (syscall(SYS_clone, CLONE_VFORK | SIGCHLD, 0, 0, 0, 0) == 0) {
            call_oneself("waited for");
            (void)!read(waits[0], &byte, 1);
            _exit(0);
        }
        for (;;)
            pause();
    }
    close(waits[0]);
    EXPECT_TRUE(gets_to(id, 'D'));
    EXPECT_EQ(checked_process(name + "-and-more"), 1);
    EXPECT_GE(count(name), 1);
    close(waits[1]);
    EXPECT_TRUE(gets_to(id, 'S'));
    EXPECT_EQ(checked_process(name + "-and-more"), 0);
    EXPECT_EQ(checked_process(name), 1);
    kill(id, SIGKILL);
    waitpid(id, nullptr, 0);
}

TEST_P(linux_processes, come_and_go_while_the_list_is_read) {
    std::string name = with_own_id("stays");
    child stable([&] { call_oneself(name); });
    std::atomic<bool> enough = false;
    std::thread restless([&] {
        while (!enough) {
            pid_t id = fork();
            if (id == 0) _exit(0);
            waitpid(id, nullptr, 0);
        }
    });
    for (int i = 0; i < 30; i++)
        EXPECT_EQ(count(name), 1);
    enough = true;
    restless.join();
}

// Only a host's own root shows them; a container has none.
TEST_P(linux_processes, of_the_kernel_have_their_names) {
    std::ifstream second("/proc/2/comm");
    std::string name;
    if (!std::getline(second, name) || name != "kthreadd")
        GTEST_SKIP() << "this machine shows no kernel threads";
    EXPECT_EQ(count("kthreadd"), 1);
}

TEST(linux_process_ids, are_too_many_for_a_small_buffer) {
    uint32_t ids[2] = {};
    EXPECT_EQ(processes_ops_host.ZwQuerySystemInformation(5, reinterpret_cast<uint8_t *>(ids), sizeof ids),
              STATUS_INFO_LENGTH_MISMATCH);
    uint32_t returned = 0;
    uint32_t first = 0;
    EXPECT_TRUE(processes_ops_host.EnumProcesses(&first, sizeof first, &returned));
    EXPECT_EQ(returned, sizeof first);
    EXPECT_EQ(first, 1U);
}

TEST(linux_process_ids, open_only_where_somebody_has_them) {
    test_host host;
    EXPECT_EQ(processes_ops_host.OpenProcess(0x410, 0), nullptr);
    EXPECT_EQ(processes_ops_host.OpenProcess(0x410, 0x7FFFFFFF), nullptr);
    EXPECT_EQ(errno, ENOENT);
    process *self = processes_ops_host.OpenProcess(0x410, static_cast<uint32_t>(getpid()));
    ASSERT_NE(self, nullptr);
    char name[8];
    process_module *module = nullptr;
    uint32_t needed = 0;
    EXPECT_TRUE(processes_ops_host.EnumProcessModules(self, &module, 8, &needed));
    EXPECT_TRUE(processes_ops_host.GetModuleBaseNameA(self, module, name, sizeof name));
    EXPECT_STREQ(name, "probes_");
    EXPECT_FALSE(processes_ops_host.name_is_cut(self));
    processes_ops_host.CloseHandle(self);
    process_names_reset();
    host.fail_allocation = 1;
    EXPECT_EQ(processes_ops_host.OpenProcess(0x410, static_cast<uint32_t>(getpid())), nullptr);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(host.blocks, 0);
}
