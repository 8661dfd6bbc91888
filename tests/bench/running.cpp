// running processes ROUNDS : what a scan and a check of the processes of this host cost, beside reading the
// line of each process once, which is the least that a list of names takes.
// running services ROUNDS COUNT : the same for the services of a made-up systemd.
//
//   work us us calls found      CPU time and time in all, medians of the rounds; system calls; devices or
//   value

#include "core/host.h"
#include "devtree/devtree.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/os/fake_bus_linux.h"
#include "probes/os/processes.h"
#include "probes/os/services.h"

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace {

struct work {
    const char *name;
    int (*run)(); // what it has found
    std::vector<double> cpu_us, all_us;
    int found;
};

std::string checked;

double clock_us(clockid_t clock) {
    timespec now;
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

void stop(const char *what, const char *why) {
    fprintf(stderr, "running: %s: %s\n", what, why);
    exit(1);
}

int scan(const char *(*function)(devtree *)) {
    devtree root = {};
    if (auto *failure = function(&root)) stop("scan", failure);
    devtree_guard group(root.children);
    return group != nullptr ? static_cast<int>(devtree_count_checks(group.get())) : 0;
}

int check(const char *(*function)(devnode *, resnode *)) {
    static devnode *device = alloc_devnode();
    text_replace(&device->id, text_copy(checked.c_str()));
    resnode result = {};
    if (auto *failure = function(device, &result)) stop("check", failure);
    heap_free(result.comment);
    return result.value;
}

int read_each_line() {
    alignas(dirent64) char entries[32768];
    int folder = open("/proc", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    int count = 0;
    ssize_t length = 0;
    while ((length = getdents64(folder, entries, sizeof entries)) > 0)
        for (ssize_t at = 0; at < length;) {
            auto *entry = reinterpret_cast<const dirent64 *>(entries + at);
            at += entry->d_reclen;
            if (entry->d_name[0] < '1' || entry->d_name[0] > '9') continue;
            char path[280];
            char line[1024];
            snprintf(path, sizeof path, "%s/stat", entry->d_name);
            int file = openat(folder, path, O_RDONLY | O_CLOEXEC);
            if (file < 0) continue;
            count += read(file, line, sizeof line) > 0;
            close(file);
        }
    close(folder);
    return count;
}

int check_missing() {
    checked = "no such process";
    return check(check_process);
}

int check_own() {
    checked = "bench_running";
    return check(check_process);
}

int check_missing_old() {
    checked = "no such process";
    return check(check_process_old);
}

int check_unit() {
    checked = "unit7.service";
    return check(check_service);
}

// System calls that the work makes, in a process of its own that is traced; -1 where that is not allowed.
long count_calls(const work &measured) {
    pid_t id = fork();
    if (id == 0) {
        if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(1);
        raise(SIGSTOP);
        measured.run();
        _exit(0);
    }
    int status = 0;
    long stops = 0;
    waitpid(id, &status, 0);
    if (!WIFSTOPPED(status)) return -1;
    for (; WIFSTOPPED(status); stops++) {
        int passed = WSTOPSIG(status) == SIGTRAP || WSTOPSIG(status) == SIGSTOP ? 0 : WSTOPSIG(status);
        ptrace(PTRACE_SYSCALL, id, nullptr, passed);
        waitpid(id, &status, 0);
    }
    return stops / 2 - 1; // a stop before and one behind each; the last is the end of the process
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

// In turn, so that all see the same host.
void measure(std::vector<work> all, int rounds) {
    for (int i = 0; i < rounds; i++)
        for (work &one : all) {
            double cpu = clock_us(CLOCK_THREAD_CPUTIME_ID);
            double start = clock_us(CLOCK_MONOTONIC);
            one.found = one.run();
            one.cpu_us.push_back(clock_us(CLOCK_THREAD_CPUTIME_ID) - cpu);
            one.all_us.push_back(clock_us(CLOCK_MONOTONIC) - start);
        }
    for (const work &one : all)
        printf("%s %.1f %.1f %ld %d\n", one.name, median(one.cpu_us), median(one.all_us), count_calls(one),
               one.found);
}

} // namespace

int main(int argc, char **argv) {
    bool services = argc == 4 && strcmp(argv[1], "services") == 0;
    if (!services && argc != 3) stop("usage", "running processes ROUNDS or running services ROUNDS COUNT");
    use_host();
    log_to_stderr();
    log_set_level(LOG_ERROR);
    int rounds = atoi(argv[2]);
    if (!services) {
        measure({{.name = "lines_alone", .run = read_each_line},
                 {.name = "scan", .run = [] { return scan(scan_processes); }},
                 {.name = "check_missing", .run = check_missing},
                 {.name = "check_running", .run = check_own},
                 {.name = "scan_old", .run = [] { return scan(scan_processes_old); }},
                 {.name = "check_missing_old", .run = check_missing_old}},
                rounds);
        return 0;
    }
    fake_bus bus;
    for (int i = 0; i < atoi(argv[3]); i++)
        bus.units.push_back({"unit" + std::to_string(i) + ".service"});
    bus.start();
    measure(
        {{.name = "scan", .run = [] { return scan(scan_services); }}, {.name = "check", .run = check_unit}},
        rounds);
    return 0;
}
