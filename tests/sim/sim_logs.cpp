#include "sim/sim_logs.h"

#include <algorithm>

static constexpr uint32_t DROPPED = 2; // what becomes of a separator

static wire::check log_check(const std::string &id, int32_t period_s, std::vector<wire::rule> rules) {
    wire::check check = wire::advanced_log(id, period_s, std::move(rules));
    check.separator = "\n";
    check.separator_inclusion = DROPPED;
    return check;
}

wire::check followed_log(const std::string &path, int32_t period_s, std::vector<wire::rule> rules) {
    return log_check(path, period_s, std::move(rules));
}

wire::check forward_target(const std::string &name, std::vector<wire::rule> rules) {
    wire::check check = log_check(name, 60, std::move(rules));
    check.conf_id = name;
    return check;
}

static wire::group *child_of(wire::group *parent, const std::string &id) {
    auto found = std::find_if(parent->groups.begin(), parent->groups.end(),
                              [&](const wire::group &group) { return group.id == id; });
    if (found != parent->groups.end()) return &*found;
    parent->groups.push_back({.id = id});
    return &parent->groups.back();
}

// The root and each folder on the way are groups.
static void add_log(wire::group *top, wire::check check) {
    wire::group *group = child_of(top, "/");
    std::string rest = check.id.substr(1);
    for (size_t slash; (slash = rest.find('/')) != std::string::npos; rest.erase(0, slash + 1))
        group = child_of(group, rest.substr(0, slash));
    check.id = rest;
    group->checks.push_back(std::move(check));
}

std::vector<wire::group> log_tree(std::vector<wire::check> logs, std::vector<wire::check> targets) {
    wire::group top = {.id = "log"};
    for (wire::check &log : logs)
        add_log(&top, std::move(log));
    top.groups.push_back({.id = "/forward", .checks = std::move(targets)});
    return {top};
}

static std::vector<wire::result> results_with_text(const scripted_server &server, const std::string &path) {
    std::vector<wire::result> results = server.results(path);
    std::erase_if(results, [](const wire::result &result) { return result.text.empty(); });
    return results;
}

static std::vector<std::string> texts_of(const std::vector<wire::result> &results) {
    std::vector<std::string> texts;
    for (const wire::result &result : results)
        texts.push_back(result.text);
    return texts;
}

std::vector<wire::result> log_results(const scripted_server &server, const std::string &path) {
    return results_with_text(server, "log//" + path);
}

std::vector<std::string> entries_of(const scripted_server &server, const std::string &path) {
    return texts_of(log_results(server, path));
}

std::vector<std::string> entries_at(const scripted_server &server, const std::string &target) {
    return texts_of(results_with_text(server, "log//forward/" + target));
}

std::vector<std::string> numbered_entries(const std::string &name, int first, int count) {
    std::vector<std::string> entries;
    for (int i = first; i < first + count; i++)
        entries.push_back(name + " " + std::to_string(i));
    return entries;
}

std::string numbered_lines(const std::string &name, int first, int count) {
    std::string lines;
    for (const std::string &entry : numbered_entries(name, first, count))
        lines += entry + "\n";
    return lines;
}
