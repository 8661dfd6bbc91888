// custom_runs ours COUNT COMMAND : runs a program as a custom check does, so often
// custom_runs spawn COUNT COMMAND : the same with posix_spawn and a pipe, and nothing else
//
//   seconds kB kB descriptors descriptors threads threads    resident, open and running, behind the first
//   tenth
//                                                            and at the end

#include "core/host.h"
#include "custom/command_words.h"
#include "custom/custom_run.h"
#include "platform/agent_log.h"
#include "platform/text.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>

namespace {

struct usage {
    long kilobytes;
    long descriptors;
    long threads;
};

[[noreturn]] void fail(const char *what, const char *why) {
    fprintf(stderr, "custom_runs: %s: %s\n", what, why);
    exit(1);
}

long count_entries(const char *folder) {
    std::filesystem::directory_iterator list(folder);
    return static_cast<long>(std::distance(list, std::filesystem::directory_iterator()));
}

usage look() {
    std::ifstream file("/proc/self/statm");
    long size = 0;
    long resident = 0;
    file >> size >> resident;
    return {resident * (sysconf(_SC_PAGESIZE) / 1024), count_entries("/proc/self/fd"),
            count_entries("/proc/self/task")};
}

void run_ours(const char *command) {
    custom_check check = {};
    check.name = const_cast<char *>("bench");
    check.command = const_cast<char *>(command);
    check.timeout = 600;
    resnode result = {};
    if (auto *failure = run_custom_check(&check, &result)) fail(command, failure);
    if (result.value != 1) fail(command, "failed");
    heap_free(result.comment);
}

void drain(int file) {
    char buffer[65536];
    while (read(file, buffer, sizeof buffer) > 0) {
    }
    close(file);
}

void run_spawn(const char *command) {
    command_words *words = nullptr;
    if (auto *failure = split_command(command, &words)) fail(command, failure);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) fail(command, "no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDERR_FILENO);
    pid_t child = 0;
    int error = posix_spawnp(&child, words->words[0], &actions, nullptr, words->words, environ);
    posix_spawn_file_actions_destroy(&actions);
    heap_free(words);
    if (error != 0) fail(command, strerror(error));
    close(ends[1]);
    drain(ends[0]);
    int status = 1;
    waitpid(child, &status, 0);
    if (status != 0) fail(command, "failed");
}

} // namespace

int main(int argc, char **argv) {
    if (argc != 4) fail("usage", "ours|spawn COUNT COMMAND");
    use_host();
    log_set_level(LOG_NORMAL);
    auto *run = strcmp(argv[1], "ours") == 0 ? run_ours : run_spawn;
    int count = atoi(argv[2]);
    usage early = {};
    auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < count; i++) {
        run(argv[3]);
        if (i == count / 10) early = look();
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    usage late = look();
    printf("%.6f %ld %ld %ld %ld %ld %ld\n", seconds, early.kilobytes, late.kilobytes, early.descriptors,
           late.descriptors, early.threads, late.threads);
}
