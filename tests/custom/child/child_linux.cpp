//     descriptors      writes a line with the numbers that are open
//     session          writes whether it leads a session and a group of its own
//     signals          writes which signals are blocked or ignored
//     input            writes how many bytes come from its standard input
//     core             writes the soft limit on cores
//     raise N          sends itself a signal
//     to-parent N      sends one to whoever has started it
#include "custom/child/child.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

void prepare_streams() {}

int own_number() {
    return getpid();
}

// An orphan's parent is gone before its first word.
void start_copy(const child_words &words, bool own_session) {
    pid_t child = fork();
    if (child != 0) return;
    if (own_session) {
        setsid();
        if (fork() != 0) _exit(0);
        setsid();
    }
    run_words(words);
    exit(0);
}

void ignore_termination() {
    for (int number : {SIGTERM, SIGINT, SIGHUP, SIGQUIT, SIGALRM, SIGPIPE})
        signal(number, SIG_IGN);
}

void close_output() {
    close(STDOUT_FILENO);
    close(STDERR_FILENO);
}

static void write_descriptors() {
    std::string list;
    for (int file = 0; file < 1024; file++)
        if (fcntl(file, F_GETFD) >= 0) list += " " + std::to_string(file);
    printf("descriptors%s\n", list.c_str());
}

static void write_signals() {
    sigset_t blocked;
    sigprocmask(SIG_BLOCK, nullptr, &blocked);
    std::string list;
    for (int number = 1; number < 32; number++) {
        struct sigaction action = {};
        sigaction(number, nullptr, &action);
        if (sigismember(&blocked, number) != 0 || action.sa_handler == SIG_IGN)
            list += " " + std::to_string(number);
    }
    printf("signals%s\n", list.c_str());
}

static void write_input() {
    char buffer[64];
    printf("input %zd\n", read(STDIN_FILENO, buffer, sizeof buffer));
}

static void write_core_limit() {
    rlimit limit = {};
    getrlimit(RLIMIT_CORE, &limit);
    printf("core %llu\n", static_cast<unsigned long long>(limit.rlim_cur));
}

bool host_word(const std::string &word, size_t *at, const child_words &words) {
    if (word == "descriptors")
        write_descriptors();
    else if (word == "session")
        printf("session %d %d\n", getsid(0) == getpid(), getpgrp() == getpid());
    else if (word == "signals")
        write_signals();
    else if (word == "input")
        write_input();
    else if (word == "core")
        write_core_limit();
    else if (word == "raise")
        raise(std::stoi(words.at((*at)++)));
    else if (word == "to-parent")
        kill(getppid(), std::stoi(words.at((*at)++)));
    else
        return false;
    fflush(stdout);
    return true;
}
