// tnserver: the composition root. Reads the command line and joins store, policy, watch and listener.
#include "crypto/random_fill.h"
#include "platform/clock.h"
#include "platform/errors.h"
#include "platform/regex.h"
#include "server/limits.h"
#include "server/listener.h"
#include "server/options.h"
#include "server/sqlite_store.h"
#include "server/store_file.h"
#include "server/summary.h"
#include "server/watch.h"

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <unistd.h>

namespace {

enum : int { EXIT_GOOD = 0, EXIT_UNSATISFIED = 1, EXIT_TROUBLE = 2 };

// For the signal handler, which cannot be given anything.
listener *running_listener;

void handle_stop(int) {
    running_listener->stop();
}

void handle_signals(listener &running) {
    running_listener = &running;
    struct sigaction stop = {};
    stop.sa_handler = handle_stop;
    sigemptyset(&stop.sa_mask);
    sigaction(SIGINT, &stop, nullptr);
    sigaction(SIGTERM, &stop, nullptr);
    signal(SIGPIPE, SIG_IGN);
}

server_time host_clock() {
    auto now = std::chrono::duration_cast<std::chrono::microseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return {.seconds = now.count() / 1000000, .microseconds = static_cast<int32_t>(now.count() % 1000000)};
}

int trouble(const char *failure) {
    fprintf(stderr, "tnserver: %s\n", failure);
    return EXIT_TROUBLE;
}

// Removes what is too old, a step at a time.
void remove_old_results(sqlite_store &store, const policy &rules, watch &shower) {
    bool more = false;
    if (rules.keep_results_s == 0) return;
    if (auto *failure = store.remove_results_before(time_now() - rules.keep_results_s, &more))
        shower.failed("tnserver", "the store", failure);
}

int serve(const server_options &options) {
    policy rules;
    sqlite_store store;
    listener door;
    upgrade_package package;
    upgrade_offer offer(&package);
    std::string address;
    if (auto *failure = load_policy(options.policy, &rules)) return trouble(failure);
    if (!options.upgrade.empty())
        if (auto *failure = package.open(options.upgrade, options.upgrade_build)) return trouble(failure);
    if (auto *failure = store.open(options.store)) return trouble(failure);
    if (auto *failure = door.open(options.listen, &address)) return trouble(failure);
    handle_signals(door);
    bool color = isatty(STDOUT_FILENO) != 0 && getenv("NO_COLOR") == nullptr;
    watch shower(stdout, {.results = options.watch, .color = color}, time_now);
    memory_pool memory(TOTAL_MEMORY);
    server_ports ports = {.store = &store,
                          .rules = &rules,
                          .observer = &shower,
                          .memory = &memory,
                          .upgrade = options.upgrade.empty() ? nullptr : &offer,
                          .clock = host_clock,
                          .random = random_fill};
    shower.say("listens at " + address + ", store " + options.store);
    if (ports.upgrade != nullptr)
        shower.say("offers build " + std::to_string(package.build()) + ", " + options.upgrade +
                   ", to agents of a lower one");
    door.serve(ports, [&] {
        remove_old_results(store, rules, shower);
        shower.report_left_out();
    });
    shower.say("has ended");
    return EXIT_GOOD;
}

int show_summary(const server_options &options) {
    database store;
    store_summary summary;
    if (auto *failure = open_store_for_reading(options.store, &store)) return trouble(failure);
    if (auto *failure = summarize(store, &summary)) return trouble(failure);
    fputs(summary_text(summary).c_str(), stdout);
    std::vector<std::string> missing = unsatisfied(summary, options.require);
    if (missing.empty()) return EXIT_GOOD;
    std::string names;
    for (const std::string &name : missing)
        names += " " + name;
    fprintf(stdout, "\nno valid result of:%s\n", names.c_str());
    return EXIT_UNSATISFIED;
}

int allow_rekey(const server_options &options) {
    sqlite_store store;
    bool found = false;
    if (auto *failure = store.open(options.store)) return trouble(failure);
    if (auto *failure = store.allow_rekey(options.agent, options.domain, &found)) return trouble(failure);
    if (!found)
        return trouble(
            format_error("no agent \"%s\" in domain \"%s\"", options.agent.c_str(), options.domain.c_str()));
    printf("%s in domain %s may make a new key, once\n", options.agent.c_str(), options.domain.c_str());
    return EXIT_GOOD;
}

int order_action(const server_options &options) {
    sqlite_store store;
    std::string label;
    if (auto *failure = store.open(options.store)) return trouble(failure);
    if (auto *failure = store.order_action(options.agent, options.action, time_now(), &label))
        return trouble(failure);
    printf("%s is ordered to start %s, and gets the order at its next checkin\n", label.c_str(),
           options.action.c_str());
    return EXIT_GOOD;
}

int run(const server_options &options) {
    switch (options.what) {
    case command::help:
        fputs(USAGE, stdout);
        return EXIT_GOOD;
    case command::print_policy:
        fputs(BUILT_IN_POLICY, stdout);
        return EXIT_GOOD;
    case command::summary:
        return show_summary(options);
    case command::action:
        return order_action(options);
    case command::rekey:
        return allow_rekey(options);
    default:
        return serve(options);
    }
}

} // namespace

int main(int argc, char **argv) {
    error_host = &error_ops_host;
    clock_host = &clock_ops_host;
    random_host = &random_ops_host;
    regex_host = &regex_ops_host;
    server_options options;
    if (auto *failure = parse_options({argv + 1, argv + argc}, &options)) {
        trouble(failure);
        fputs(USAGE, stderr);
        return EXIT_TROUBLE;
    }
    if (options.store.empty()) options.store = usual_store_path();
    return run(options);
}
