#include "server/watch.h"

#include "server/check_path.h"
#include "server/value_text.h"

#include <algorithm>

namespace {

constexpr size_t WIDEST_AGENT = 32;
constexpr size_t WIDEST_NAME = 48;
constexpr size_t STATUS_WIDTH = 7;
constexpr size_t VALUE_WIDTH = 14;
// Whoever connects can make us print trouble, so there is only so much of it in a second.
constexpr int TROUBLE_LINES = 20;

constexpr const char *PLAIN = "\033[0m";
constexpr const char *COLORS[] = {"\033[32m", "\033[33m", "\033[31m", "\033[35m"};

std::string padded(const std::string &text, size_t width) {
    return text.size() < width ? text + std::string(width - text.size(), ' ') : text;
}

std::string padded_left(const std::string &text, size_t width) {
    return text.size() < width ? std::string(width - text.size(), ' ') + text : text;
}

std::string label_of(const agent_row &agent) {
    return agent.name + "@" + agent.domain;
}

std::string counted(size_t count, const char *what) {
    return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

} // namespace

void watch::print(int64_t time, const std::string &agent, const std::string &text) {
    std::string name = shown(agent, 128);
    agent_width = std::max(agent_width, std::min(name.size(), WIDEST_AGENT));
    std::string line = time_text(time) + "  " + padded(name, agent_width) + "  " + text;
    fprintf(out, "%s\n", line.c_str());
    fflush(out);
}

// A log's result may be nothing but its status: that it was looked at, or that a quiet rule has matched.
static std::string log_value(const result_value &value) {
    auto *text = std::get_if<std::string>(&value);
    return text == nullptr || text->empty() ? "-" : log_text(*text);
}

std::string watch::result_line(const check_result &result, const std::string &unit) {
    bool of_log = is_log(result.path);
    std::string name = shown(of_log ? log_path(result.path) : plain_check_name(result.path), 256);
    name_width = std::max(name_width, std::min(name.size(), WIDEST_NAME));
    std::string status = padded(status_word(result.status), STATUS_WIDTH);
    if (options.color) status = COLORS[result.status] + status + PLAIN;
    bool has_value = result.status != STATUS_ERROR;
    std::string value = !has_value ? "-" : of_log ? log_value(result.value) : value_text(result.value, unit);
    std::string line = padded(name, name_width) + "  " + status + "  ";
    bool is_text = of_log || std::holds_alternative<std::string>(result.value);
    line += is_text ? value : padded_left(value, VALUE_WIDTH);
    return result.comment.empty() ? line : line + "  " + shown(result.comment);
}

void watch::delivered(const agent_row &agent, const delivery &delivery, const stored_delivery &stored) {
    if (!options.results) return;
    std::lock_guard lock(mutex);
    for (const stored_result &fresh : stored.fresh) {
        const check_result &result = delivery.results[fresh.index];
        print(result.check_time, label_of(agent), result_line(result, fresh.unit));
    }
}

void watch::registered(const agent_row &agent, const build_numbers &build, const std::string &address,
                       bool new_key) {
    if (!options.results && !new_key) return;
    std::lock_guard lock(mutex);
    std::string text = new_key ? "registered with a new key" : "has started";
    text += ", version " + std::to_string(build.major) + "." + std::to_string(build.minor) + " build " +
            std::to_string(build.build) + ", from " + address;
    print(clock(), label_of(agent), text);
}

void watch::offered(const agent_row &agent, size_t groups, size_t devices) {
    if (!options.results) return;
    std::lock_guard lock(mutex);
    print(clock(), label_of(agent),
          "offers " + counted(devices, "device") + " in " + counted(groups, "group"));
}

void watch::configured(const agent_row &agent, size_t checks) {
    if (!options.results) return;
    std::lock_guard lock(mutex);
    print(clock(), label_of(agent), "is to perform " + counted(checks, "check"));
}

void watch::action(const agent_row &agent, const std::string &name, action_step step) {
    static constexpr const char *words[] = {"is sent the order to start ", "has taken the order to start ",
                                            "has started and pruned "};
    std::lock_guard lock(mutex);
    print(clock(), label_of(agent), words[static_cast<size_t>(step)] + shown(name, 128));
}

void watch::downtime(const agent_row &agent, int32_t minutes, int64_t until) {
    std::lock_guard lock(mutex);
    print(clock(), label_of(agent),
          "is in downtime for " + counted(static_cast<size_t>(minutes), "minute") + ", until " +
              time_text(until));
}

void watch::upgraded(const agent_row &agent, int32_t build) {
    std::lock_guard lock(mutex);
    print(clock(), label_of(agent), "has fetched the upgrade to build " + std::to_string(build));
}

void watch::report_left_out() {
    std::lock_guard lock(mutex);
    if (trouble_lines > TROUBLE_LINES)
        print(clock(), "tnserver",
              counted(static_cast<size_t>(trouble_lines - TROUBLE_LINES), "line") +
                  " of refusals and failures left out");
    trouble_lines = 0;
}

void watch::print_trouble(const std::string &agent, const std::string &address, const std::string &text) {
    std::lock_guard lock(mutex);
    if (++trouble_lines <= TROUBLE_LINES)
        print(clock(), agent.empty() ? "?" : agent, shown(text) + ", from " + address);
}

void watch::refused(const std::string &agent, const std::string &address, const std::string &reason) {
    print_trouble(agent, address, "refused: " + reason);
}

void watch::failed(const std::string &agent, const std::string &address, const std::string &failure) {
    print_trouble(agent, address, "failed: " + failure);
}

void watch::say(const std::string &text) {
    std::lock_guard lock(mutex);
    print(clock(), "tnserver", text);
}
