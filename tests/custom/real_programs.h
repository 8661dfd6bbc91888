// Runs of real programs, with the answers of the real host. Behind each test nothing may be left of them: no
// handle, no thread, no process that a test has not expected to live.
#pragma once

#include "custom/action.h"
#include "custom/custom_ops.h"
#include "custom/custom_run.h"
#include "custom/processes.h"
#include "devtree/check_table.h"
#include "fakes/open_handles.h"
#include "fakes/temp_folder.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/text.h"

#include <chrono>
#include <fstream>
#include <gtest/gtest.h>
#include <thread>

struct real_programs : testing::Test {
    test_host host;
    temp_folder folder;
    custom_check check = {};
    resnode result = {};
    int handles = 0;
    int threads = 0;

    real_programs() {
        custom_host = &custom_ops_host;
        error_host = &error_ops_host;
        regex_host = &regex_ops_host;
        check.name = text_copy("c");
        check.timeout = 20;
        check.type = CUSTOM_Integer;
        EXPECT_EQ(tn_regcomp(&check.result_regex, "^Result: (-?[0-9]+)$"), 0);
        run("exit 0"); // what is made at the first run is there
        host.log.clear();
        threads = count_threads();
        handles = count_open_handles();
    }
    ~real_programs() override {
        EXPECT_EQ(count_children(), 0);
        // A host may list a thread for a moment behind its end.
        EXPECT_TRUE(wait_until([&] { return count_threads() == threads; })) << count_threads() - threads;
        EXPECT_TRUE(wait_until([&] { return count_open_handles() == handles; }))
            << count_open_handles() - handles;
        custom_run_reset();
        heap_free(check.name);
        heap_free(check.command);
        heap_free(result.comment);
        tn_regfree(&check.result_regex);
        EXPECT_EQ(host.blocks, 0);
    }

    static std::string command(const std::string &words) { return std::string(CUSTOM_CHILD) + " " + words; }
    const char *run_command(const std::string &line) {
        text_replace(&check.command, text_copy(line.c_str()));
        text_replace(&result.comment, nullptr);
        started = std::chrono::steady_clock::now();
        return run_custom_check(&check, &result);
    }
    const char *run(const std::string &words) { return run_command(command(words)); }
    // The file in which a program leaves its number.
    std::string mark() const { return folder.path + "/mark"; }
    // What it has left there.
    std::vector<int> marked() const {
        std::vector<int> numbers;
        std::ifstream file(mark());
        for (int number; file >> number;)
            numbers.push_back(number);
        return numbers;
    }
    // Waits for so many marks.
    std::vector<int> wait_for_marks(size_t count) const {
        wait_until([&] { return marked().size() >= count; });
        return marked();
    }
    static bool wait_until(const std::function<bool()> &done) {
        for (int i = 0; i < 500 && !done(); i++)
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        return done();
    }
    // Expects so many marks, and that none of them lives.
    void expect_dead(size_t count) const {
        std::vector<int> numbers = marked();
        EXPECT_EQ(numbers.size(), count);
        for (int number : numbers)
            EXPECT_TRUE(wait_until([&] { return !process_lives(number); })) << number;
    }
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    }
    std::chrono::steady_clock::time_point started;
};
