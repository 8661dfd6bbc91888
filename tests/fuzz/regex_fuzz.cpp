// A pattern and records: what the one pass over many expressions says, the host's engine must say.
#include "fuzz/fuzz_host.h"
#include "platform/heap.h"
#include "platform/regex_set.h"

#include <algorithm>
#include <vector>

using set_guard = guard<regex_set, regex_set_free>;

static bool wants(void *, regex_bits bits) {
    return bits[0] != 0;
}

static void check_text(regex_set *set, const tn_regex *regex, const std::string &text) {
    regex_bits bits = regex_set_match(set, text.c_str());
    if (bits == nullptr) return;
    bool found = regex_host->regexec(regex, text.c_str(), 0, nullptr) == 0;
    fuzz_require(regex_bit(bits, 0) || !found, "a no is a no");
    fuzz_require(!regex_bit(bits, 0) || found || !regex_set_is_exact(set, 0), "a yes is a yes");
}

// Each record that is told is one that the set finds something in, and no other is.
static void check_run(regex_set *set, const std::string &text, char separator) {
    size_t end = text.rfind(separator);
    if (end == std::string::npos || end >= RUN_LIMIT) return;
    std::vector<uint16_t> places(end / 2 + 1 + RUN_SLACK);
    uint32_t count = regex_set_run(set, text.data(), text.data() + end + 1, false, places.data());
    if (count == RECORDS_NOT_KNOWN) return;
    places.resize(count);
    for (size_t start = 0, at; start <= end; start = at + 1) {
        at = text.find(separator, start);
        bool told = std::find(places.begin(), places.end(), at) != places.end();
        if (at == start) {
            fuzz_require(!told, "an empty record is not told");
            continue;
        }
        regex_bits bits = regex_set_match(set, text.substr(start, at - start).c_str());
        if (bits != nullptr) fuzz_require(told == (bits[0] != 0), "a record is told by what is in it");
    }
}

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    size_t pattern_length = input.take_byte() % 24;
    std::string all = input.take_rest();
    for (char &c : all)
        if (c == '\0') c = '\n';
    std::string pattern = all.substr(0, pattern_length);
    std::string text = all.substr(pattern.size()).substr(0, 200);
    // The engine takes memory and time without bounds for large counts.
    if (pattern.find('{') != std::string::npos) return;
    regex_host = &regex_ops_host;
    tn_regex regex;
    if (tn_regcomp(&regex, pattern.c_str()) != 0) return;
    const tn_regex *one = &regex;
    record_cut cut = {'\n', SEPARATOR_DROPPED};
    set_guard set(regex_set_new(&one, 1, &cut, wants, nullptr));
    if (set != nullptr) {
        // A group that comes again can take the engine very long.
        if (regex_set_is_exact(set.get(), 0)) check_text(set.get(), &regex, text);
        check_run(set.get(), text, '\n');
    }
    set.reset();
    tn_regfree(&regex);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
