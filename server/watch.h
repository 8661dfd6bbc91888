// Prints what happens: with all that agents deliver, or only what an administrator has to know.
#pragma once

#include "server/server_observer.h"

#include <cstdint>
#include <cstdio>
#include <functional>
#include <mutex>

struct watch_options {
    bool results = false; // a line for each result, scan and configuration as well
    bool color = false;
};

class watch : public server_observer {
public:
    // `seconds` gives the time.
    watch(FILE *to, const watch_options &what, std::function<int64_t()> seconds)
        : out(to), options(what), clock(std::move(seconds)) {}

    void registered(const agent_row &agent, const build_numbers &build, const std::string &address,
                    bool new_key) override;
    void offered(const agent_row &agent, size_t groups, size_t devices) override;
    void configured(const agent_row &agent, size_t checks) override;
    void delivered(const agent_row &agent, const delivery &delivery, const stored_delivery &stored) override;
    void action(const agent_row &agent, const std::string &name, action_step step) override;
    void downtime(const agent_row &agent, int32_t minutes, int64_t until) override;
    void upgraded(const agent_row &agent, int32_t build) override;
    void refused(const std::string &agent, const std::string &address, const std::string &reason) override;
    void failed(const std::string &agent, const std::string &address, const std::string &failure) override;

    // A line of the server itself.
    void say(const std::string &text);
    // To be called about once a second: tells how much trouble was left out since.
    void report_left_out();

private:
    void print(int64_t time, const std::string &agent, const std::string &text);
    void print_trouble(const std::string &agent, const std::string &address, const std::string &text);
    std::string result_line(const check_result &result, const std::string &unit);

    FILE *const out;
    const watch_options options;
    const std::function<int64_t()> clock;
    std::mutex mutex;
    size_t agent_width = 14; // grow with what comes
    size_t name_width = 20;
    int trouble_lines = 0; // since the last report_left_out
};
