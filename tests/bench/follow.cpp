// follow FILE CLAUSE... : checks a whole log once, as the agent does, by rules that log what matches, and
// tells how long that took and what it found.
//
//   bytes seconds matches kB        of the file, the check, the results, and resident at the most
//
// follow --idle COUNT FOLDER CLAUSE... : checks the logs 0, 1 ... of the folder, which do not change, again
// and again.
//
//   checks seconds kB

#include "core/host.h"
#include "devtree/devtree.h"
#include "logcheck/clause.h"
#include "logcheck/log_check.h"
#include "platform/agent_log.h"
#include "platform/files.h"
#include "platform/text.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

void fail(const char *what, const char *why) {
    fprintf(stderr, "follow: %s: %s\n", what, why);
    exit(1);
}

void add_rule(lognode *node, const char *clause) {
    logrule *rule = alloc_logrule();
    if (auto *failure = log_clause_parse(clause, &rule->clause)) fail(clause, failure);
    rule->status = STATUS_ALERT;
    lognode_add_rule(node, rule);
}

// The check of the file at this absolute path, with a line feed between the records.
devnode *add_check(devtree *top, const std::string &path) {
    devtree *group = devtree_child(top, "/", "/");
    size_t start = 1;
    for (size_t end; (end = path.find('/', start)) != std::string::npos; start = end + 1) {
        std::string name = path.substr(start, end - start);
        group = devtree_child(group, name.c_str(), name.c_str());
    }
    devnode *device = alloc_devnode();
    device->id = text_copy(path.c_str() + start);
    device->type = TYPE_ADV_LOG;
    device->lognode = alloc_lognode();
    device->lognode->separatorInclusion = 2;
    if (tn_regcomp(&device->lognode->separator, "\n") != 0) fail("separator", "does not compile");
    devtree_add_devices(group, device);
    return device;
}

uint64_t count_results(const devnode *device) {
    uint64_t count = 0;
    for (const resnode *result = device->results; result != nullptr; result = result->next)
        count += result->log_text != nullptr;
    return count;
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

} // namespace

// Puts the check's position at the start of the log: a first check does that for a file that is not there.
static void start_at_front(devnode *device) {
    text_guard id(device->id);
    device->id = text_copy("\x01");
    static_cast<void>(check_log(device, nullptr));
    text_replace(&device->id, id.release());
}

static void follow_once(devtree *top, const char *path, char **clauses) {
    devnode *device = add_check(top, path);
    while (*clauses != nullptr)
        add_rule(device->lognode, *clauses++);
    file_facts facts;
    if (!files_host->facts_at(path, &facts)) fail(path, "is not there");
    start_at_front(device);
    auto started = std::chrono::steady_clock::now();
    if (auto *failure = check_log(device, nullptr)) fail(path, failure);
    std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    printf("%lld %.6f %llu %ld\n", static_cast<long long>(facts.size), took.count(),
           static_cast<unsigned long long>(count_results(device)), resident_kb());
}

static void follow_idle(devtree *top, int count, const char *folder, char **clauses) {
    std::vector<devnode *> devices;
    for (int i = 0; i < count; i++) {
        devnode *device = add_check(top, std::string(folder) + "/" + std::to_string(i));
        for (char **clause = clauses; *clause != nullptr; clause++)
            add_rule(device->lognode, *clause);
        if (auto *failure = check_log(device, nullptr)) fail(folder, failure);
        devices.push_back(device);
    }
    static constexpr int ROUNDS = 20;
    auto started = std::chrono::steady_clock::now();
    for (int i = 0; i < ROUNDS; i++)
        for (devnode *device : devices)
            static_cast<void>(check_log(device, nullptr));
    std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    printf("%d %.6f %ld\n", ROUNDS * count, took.count(), resident_kb());
}

int main(int argc, char **argv) {
    bool idle = argc > 1 && strcmp(argv[1], "--idle") == 0;
    if (argc < (idle ? 4 : 2)) fail("usage", "follow FILE CLAUSE... or follow --idle COUNT FOLDER CLAUSE...");
    use_host();
    log_to_stderr();
    log_set_level(LOG_WARNING);
    auto *top = heap_new<devtree>();
    top->id = text_copy("log");
    if (idle)
        follow_idle(top, atoi(argv[2]), argv[3], argv + 4);
    else
        follow_once(top, argv[1], argv + 2);
    return 0;
}
