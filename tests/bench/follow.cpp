// follow FILE CLAUSE... : checks a whole log once, as the agent does, by rules that log what matches, and
// tells how long that took and what it found.
//
//   bytes seconds matches kB        of the file, the check, the results, and resident at the end
//
// With --engine the rules are left to the regular expression engine, one after the other.

#include "core/host.h"
#include "devtree/devtree.h"
#include "logcheck/clause.h"
#include "logcheck/log_check.h"
#include "platform/agent_log.h"
#include "platform/files.h"
#include "platform/text.h"
#include "settings/settings.h"
#include "state/variables.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

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

int main(int argc, char **argv) {
    if (argc < 2) fail("usage", "follow FILE CLAUSE...");
    use_host();
    log_to_stderr();
    log_set_level(LOG_WARNING);
    auto *top = heap_new<devtree>();
    top->id = text_copy("log");
    devnode *device = add_check(top, argv[1]);
    for (int i = 2; i < argc; i++)
        add_rule(device->lognode, argv[i]);
    file_facts facts;
    if (!files_host->facts_at(argv[1], &facts)) fail(argv[1], "is not there");
    // A first check of a log that is not there leaves the position at its start.
    device->state = nullptr;
    static_cast<void>(var_set(var_make((std::string("log.") + "x").c_str(), "0")));
    text_guard id(device->id);
    device->id = text_copy("\x01");
    static_cast<void>(check_log(device, nullptr));
    text_replace(&device->id, text_copy(id.get()));
    auto started = std::chrono::steady_clock::now();
    if (auto *failure = check_log(device, nullptr)) fail(argv[1], failure);
    std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
    printf("%lld %.6f %llu %ld\n", static_cast<long long>(facts.size), took.count(),
           static_cast<unsigned long long>(count_results(device)), resident_kb());
    return 0;
}
