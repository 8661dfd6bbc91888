// A host in memory for unit tests: a clock that stands, a log that is kept, files that forget what was not
// synced, a heap that refuses when asked, and an end of the process that a test survives.
//
// `test_host host;` at the head of a test or as a member of a fixture installs all of it afresh and takes it
// away.
#pragma once

#include "platform/files.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct logged_line {
    int32_t level;
    std::string text;
};

// Thrown where the process would end.
struct process_ended {
    int status;
};

struct reported_event {
    bool error;
    uint32_t id;
    std::string message;
};

// One file in memory. `synced` is what a power cut leaves.
struct memory_file {
    std::string content;
    std::string synced;
    uint64_t number;
    int64_t created;
};

struct test_host {
    test_host();
    ~test_host();
    test_host(const test_host &) = delete;
    test_host &operator=(const test_host &) = delete;

    // Clock. Sleep only moves it on.
    int64_t now = 1'000'000'000;
    std::vector<uint32_t> sleeps; // milliseconds of each Sleep
    int32_t zone = 0;             // seconds that local time is ahead

    // Log, from level -1 up. Whether such a line was logged, and at which level.
    std::vector<logged_line> log;
    bool logged(int32_t level, const std::string &text) const;
    // All lines of the log that hold `part`.
    int count_logged(const std::string &part) const;
    // The texts of all lines, in their order.
    std::vector<std::string> told() const;

    // Errors: the code that last_error() gives; its words are "system error N" unless given here.
    uint32_t last_error = 0;
    std::map<uint32_t, std::string> error_words;

    // Heap: the n-th allocation from now on fails, once; 0 for never.
    uint32_t fail_allocation = 0;
    int64_t blocks = 0; // allocated and not freed yet

    // The path of the program that runs; empty where it cannot be had.
    std::string program = "/opt/tnagent";

    // Random bytes: 0, 1, 2 … unless scripted.
    std::function<bool(void *, size_t)> random;
    uint8_t next_random = 0;

    // Event log.
    bool event_source_opens = true;
    std::vector<reported_event> events;

    // Files, by path; a folder is a path with a '/' at its end. Anything that starts with a path of `broken`
    // fails with the code given there, by the name of the operation: broken["open"]["/a/b"] = 13.
    std::map<std::string, memory_file> files;
    std::map<std::string, std::map<std::string, uint32_t>> broken;
    bool keeps_creation_times = true;
    void write_file(const std::string &path, const std::string &content);
    std::string read_file(const std::string &path) const; // "" where there is none
    bool has_file(const std::string &path) const;
    // Drops what was not synced, renames included.
    void cut_power();

    // Waits: what WaitForMultipleObjects gives, one a call; a time-out (which moves the clock on) when it is
    // empty.
    std::vector<int32_t> wait_answers;
    std::vector<uint32_t> waits; // milliseconds of each

    // The names in the folders as they are on the disk.
    std::map<std::string, memory_file> disk;
    std::map<intptr_t, std::pair<std::string, size_t>> open_files; // path and position, by handle
    intptr_t next_handle = 10;
    uint64_t next_file_number = 1;
};

// The host that is installed.
extern test_host *the_host;

// Compares a failure with the text that is expected, and notes it as seen. Use as EXPECT_FAILURE(call(),
// "text").
#define EXPECT_FAILURE(call, text) EXPECT_EQ(noted_failure(call), std::string(text))
#define EXPECT_SUCCESS(call) EXPECT_EQ(noted_failure(call), std::string("(none)"))

// The text, "(none)" when absent.
std::string noted_failure(const char *failure);

// Expects `action` to end the process in fatal with this message.
void expect_fatal(const std::function<void()> &action, const std::string &message);
