// A followed log: any bytes, in any portions, told to the reader and to its model; and the stored form of a
// sample.
#include "fuzz/fuzz_host.h"
#include "logcheck/clause.h"
#include "logcheck/follow_model.h"
#include "logcheck/log_check.h"
#include "logcheck/log_hex.h"
#include "logcheck/log_path.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/text.h"
#include "state/variables.h"

#include <cstring>

// ---- a disk with one file

static std::string content;
static size_t position;

static int64_t read_content(host_file, void *buffer, size_t size) {
    size_t count = position < content.size() ? std::min(size, content.size() - position) : 0;
    memcpy(buffer, content.data() + position, count);
    position += count;
    return static_cast<int64_t>(count);
}

static bool tell_facts(file_facts *out) {
    *out = {.regular = true, .size = static_cast<int64_t>(content.size())};
    return true;
}

static const files_ops one_file = {
    .stderr_handle = 2,
    .open =
        [](const char *, file_mode) {
            position = 0;
            return host_file{7};
        },
    .read = read_content,
    .write = [](host_file, const void *, size_t size) { return static_cast<int64_t>(size); },
    .seek64 =
        [](host_file, int64_t offset, file_origin origin) {
            position = static_cast<size_t>(offset) + (origin == FROM_END ? content.size() : 0);
            return true;
        },
    .tell64 = [](host_file) { return static_cast<int64_t>(position); },
    .close = [](host_file) { return true; },
    .facts_of = [](host_file, file_facts *out) { return tell_facts(out); },
    .facts_at = [](const char *, file_facts *out) { return tell_facts(out); },
};

// ---- the check

static devnode *add_check(devtree *top, uint32_t inclusion) {
    devnode *device = alloc_devnode();
    device->id = text_copy("log");
    device->type = TYPE_ADV_LOG;
    device->lognode = alloc_lognode();
    device->lognode->separatorInclusion = inclusion;
    fuzz_require(tn_regcomp(&device->lognode->separator, "\n") == 0, "a line feed compiles");
    logrule *rule = alloc_logrule();
    fuzz_require(log_clause_parse("'.' or '^$'", &rule->clause) == nullptr, "the clause compiles");
    lognode_add_rule(device->lognode, rule);
    devtree_add_devices(top, device);
    return device;
}

static void compare(devnode *device, const log_model &model) {
    size_t count = 0;
    while (resnode *result = device->results) {
        bool ran = result->log_text == nullptr;
        fuzz_require(ran || (count < model.entries.size() && model.entries[count] == result->log_text),
                     "each entry is the model's");
        if (!ran) count++;
        device->results = result->next;
        free_resnode(result);
    }
    device->results_tail = &device->results;
    fuzz_require(count == model.entries.size(), "there are as many entries as in the model");
}

// The first byte of a portion says what it is, the second how much of it.
static void follow(fuzz_input input) {
    uint32_t inclusion = input.take_byte() % 3;
    log_path_style_in_force = &ROOT_PATHS;
    files_host = &one_file;
    regex_host = &regex_ops_host;
    content.clear();
    var_reset();
    devtree_guard top(heap_new<devtree>());
    top->id = text_copy("log");
    devnode *device = add_check(top.get(), inclusion);
    log_model model;
    model.inclusion = inclusion;
    model.is_overdue = [] { return false; };
    while (input.size > 0) {
        uint8_t kind = input.take_byte(), count = input.take_byte();
        std::string text;
        for (; count > 0; count--)
            text += static_cast<char>(input.take_byte());
        if (kind % 8 == 7) content.clear();
        if (kind % 8 == 6) text.resize(text.size() * 150, text.empty() ? 'x' : text[0]);
        content += text;
        if (content.size() > 100'000) content.clear();
        fuzz_require(check_log(device, nullptr) == nullptr, "a check succeeds");
        model.check(content);
        compare(device, model);
    }
    top.reset();
    var_reset();
}

static void decode(fuzz_input input) {
    char out[100];
    std::string text = input.take_rest();
    fuzz_require(log_hex_decode(text.c_str(), out, sizeof out) <= sizeof out, "a sample fits");
}

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    if (input.take_byte() % 4 == 0)
        decode(input);
    else
        follow(input);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
