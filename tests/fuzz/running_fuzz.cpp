// What hosts say about processes and services: a snapshot's chain, the line of a process, its arguments, the
// file of a unit. Whatever they hold, nothing outside the bytes is looked at, and every walk ends.
#include "fuzz/fuzz_host.h"
#include "probes/os/process_chain.h"
#include "probes/os/process_list.h"
#include "probes/os/unit_list.h"

#include <cstring>
#include <vector>

namespace {

constexpr uint64_t ADDRESS = 0x10000;

void walk_chain(const std::string &bytes) {
    std::vector<uint8_t> exact(bytes.begin(), bytes.end());
    process_walk walk = {
        .snapshot = exact.data(), .size = static_cast<uint32_t>(exact.size()), .address = ADDRESS};
    char16_t name[IMAGE_NAME_SIZE];
    uint32_t before = 0;
    for (size_t records = 0; next_in_chain(&walk, name); records++) {
        size_t length = 0;
        while (length < IMAGE_NAME_SIZE && name[length] != u'\0')
            length++;
        fuzz_require(length < IMAGE_NAME_SIZE, "a name has an end");
        fuzz_require(walk.ended || walk.position > before, "a walk goes forward");
        fuzz_require(records < exact.size(), "a walk ends");
        before = walk.position;
    }
}

void parse_stat(const std::string &text) {
    process_stat found;
    if (!parse_process_stat(text.c_str(), &found)) return;
    std::string whole = text.c_str();
    size_t start = whole.find('(');
    size_t end = whole.rfind(')');
    fuzz_require(start != std::string::npos && end > start, "a name has parentheses");
    fuzz_require(whole.substr(start + 1, end - start - 1).substr(0, IMAGE_NAME_SIZE - 1) == found.name,
                 "a name is what stands between them");
    fuzz_require(found.state == text.c_str() + end + 1 + (whole[end + 1] == ' '),
                 "the state stands behind it");
    process_run run = parse_process_run(1, found.state);
    fuzz_require(run.stack == 0 || whole.find_first_of("0123456789", end) != std::string::npos,
                 "a number has digits");
}

void complete(const std::string &text) {
    char name[IMAGE_NAME_SIZE] = "a-name-of-15-by";
    if (complete_from_program(text.c_str(), name))
        fuzz_require(strncmp(name, "a-name-of-15-by", 15) == 0, "a whole name has the same beginning");
    strcpy(name, "a-name-of-15-by");
    if (complete_from_arguments(text.c_str(), text.size(), name))
        fuzz_require(strncmp(name, "a-name-of-15-by", 15) == 0, "a whole name has the same beginning");
    fuzz_require(strlen(name) < sizeof name, "a name has an end");
}

void describe(const std::string &text) {
    char out[64];
    bool found = parse_unit_description(text.c_str(), out, sizeof out);
    fuzz_require(strlen(out) < sizeof out && found == (out[0] != '\0'), "a description has an end");
}

// Units whose texts come from the input, told in batches.
void batch(const std::string &text) {
    unit_list list = {};
    size_t start = 0;
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        fuzz_require(add_unit_file(&list, text.substr(start, end - start).c_str(), text.c_str() + start),
                     "there is memory");
    uint32_t resume = 0;
    uint32_t seen = 0;
    for (bool last = false; !last;) {
        alignas(service_record) char room[4096];
        auto *records = reinterpret_cast<service_record *>(room);
        uint32_t needed = 0;
        uint32_t count = 0;
        last = fill_service_batch(list, records, sizeof room, &needed, &count, &resume);
        for (uint32_t i = 0; i < count; i++)
            fuzz_require(reinterpret_cast<const char *>(records + count) <= records[i].display_name &&
                             records[i].service_name + strlen(records[i].service_name) < room + sizeof room,
                         "texts lie behind the records");
        fuzz_require(last || count > 0, "each batch holds something");
        seen += count;
    }
    fuzz_require(seen == list.count, "each unit is told once");
    drop_units(&list);
}

void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    static constexpr void (*READERS[])(const std::string &) = {walk_chain, parse_stat, complete, describe,
                                                               batch};
    size_t reader = input.take_byte() % std::size(READERS);
    READERS[reader](input.take_rest());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
