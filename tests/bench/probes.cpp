// probes scan FAMILY ROUNDS : scans a family again and again.
// probes check FAMILY ROUNDS : checks what a scan of it has offered, in turn: the first device of each group,
// of 40 at most. probes round ROUNDS : 40 typical checks of all families, again and again.
//
//   runs seconds devices kB      of the rounds, their processor time, what is offered or checked, and
//   resident

#include "core/families.h"
#include "core/host.h"
#include "devtree/check_table.h"
#include "platform/agent_log.h"
#include "platform/clock.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

namespace {

constexpr size_t TYPICAL_CHECKS = 40;

using devices = std::vector<devnode *>;

// How many of each family make a typical round, before what is missing is filled up from `perf`.
struct share {
    const char *family;
    size_t checks;
};

constexpr share TYPICAL[] = {{"fs", 4},        {"mem", 3},      {"system", 3},
                             {"ifthrough", 6}, {"ifevents", 4}, {"block", 8}};

[[noreturn]] void fail(const char *what, const char *why) {
    fprintf(stderr, "probes: %s: %s\n", what, why);
    exit(1);
}

double processor_time() {
    timespec now = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

long resident_kb() {
    FILE *status = fopen("/proc/self/status", "r");
    char line[256];
    long kb = 0;
    while (status != nullptr && fgets(line, sizeof line, status) != nullptr)
        if (strncmp(line, "VmHWM:", 6) == 0) kb = atol(line + 6);
    if (status != nullptr) fclose(status);
    return kb;
}

check_entry *row_of(const char *family) {
    check_entry *row = find_check_entry(family);
    if (row == nullptr || row->check == nullptr) fail(family, "no such family");
    return row;
}

// The events of interfaces are offered by the scan of their throughput.
const char *(*scan_of(const char *family))(devtree *) {
    check_entry *row = row_of(family);
    return row->scan != nullptr ? row->scan : row_of("ifthrough")->scan;
}

void run_scan(const char *family, devtree *root) {
    if (auto *failure = scan_of(family)(root)) fail(family, failure);
}

void collect(devtree *group, size_t of_each, devices *out) {
    for (; group != nullptr; group = group->next) {
        devnode *device = group->devices;
        for (size_t i = 0; i < of_each && device != nullptr; i++, device = device->next)
            out->push_back(device);
        collect(group->children, of_each, out);
    }
}

// The devices of a family's group, which then is a top one, as in a tree that a server sends.
devices offered(const char *family, size_t of_each) {
    auto *root = heap_new<devtree>(); // for the life of the process
    run_scan(family, root);
    devices found;
    for (devtree *group = root->children; group != nullptr; group = group->next) {
        group->parent = nullptr;
        if (!text_equal(group->id, family)) continue;
        for (size_t i = 0; i < of_each && group->devices != nullptr; i++) {
            found.push_back(group->devices);
            group->devices = group->devices->next;
        }
        collect(group->children, of_each, &found);
    }
    return found;
}

bool run_check(const char *family, devnode *device) {
    resnode result = {};
    return row_of(family)->check(device, &result) == nullptr;
}

const char *family_of(const devnode *device) {
    return group_at_depth(device, 1)->id;
}

devices typical_round() {
    devices all;
    for (const share &part : TYPICAL) {
        devices found = offered(part.family, 13);
        found.resize(std::min(found.size(), part.checks));
        all.insert(all.end(), found.begin(), found.end());
    }
    devices rest = offered("perf", 3);
    rest.resize(std::min(rest.size(), TYPICAL_CHECKS - all.size()));
    all.insert(all.end(), rest.begin(), rest.end());
    return all;
}

devices some_of(devices all) {
    all.resize(std::min(all.size(), TYPICAL_CHECKS));
    return all;
}

void print(size_t runs, double seconds, size_t count) {
    printf("%zu %.9f %zu %ld\n", runs, seconds, count, resident_kb());
}

void measure_scan(const char *family, int rounds) {
    double started = processor_time();
    devices found;
    for (int i = 0; i < rounds; i++) {
        devtree root = {};
        run_scan(family, &root);
        if (i == 0) collect(root.children, SIZE_MAX, &found);
        free_devtree(root.children);
    }
    print(static_cast<size_t>(rounds), processor_time() - started, found.size());
}

// Longer than a tick of the kernel, in which times of processors are counted.
void pause(uint32_t) {
    timespec time = {.tv_sec = 0, .tv_nsec = 12'000'000};
    nanosleep(&time, nullptr);
}

// Between two rounds time passes, as between two checks of one device. What has gone since the scan, as a
// process may, is left out.
void measure_checks(devices checked, int rounds) {
    std::erase_if(checked, [](devnode *device) { return !run_check(family_of(device), device); });
    double started = processor_time();
    for (int i = 0; i < rounds; i++) {
        pause(0);
        for (devnode *device : checked)
            run_check(family_of(device), device);
    }
    print(static_cast<size_t>(rounds) * checked.size(), processor_time() - started, checked.size());
}

} // namespace

int main(int argc, char **argv) {
    std::string what = argc > 1 ? argv[1] : "";
    if (argc != (what == "round" ? 3 : 4))
        fail("usage", "probes scan|check FAMILY ROUNDS or probes round ROUNDS");
    use_host();
    clock_ops clock = *clock_host;
    clock.Sleep = pause; // the first check of a rate would take a second
    clock_host = &clock;
    connect_rooms();
    log_to_stderr();
    log_set_level(LOG_ERROR);
    agent_config config = {.perf_cnt_level = 400};
    config_in_force = &config;
    int rounds = atoi(argv[argc - 1]);
    if (what == "scan")
        measure_scan(argv[2], rounds);
    else if (what == "check")
        measure_checks(some_of(offered(argv[2], 1)), rounds);
    else
        measure_checks(typical_round(), rounds);
    return 0;
}
