// The file of log checks, in both styles of paths, and its wildcards. A line that was read reads back as the
// same chain.
#include "fuzz/fuzz_host.h"
#include "logcheck/log_conf.h"
#include "logcheck/log_path.h"
#include "logcheck/log_wildcard.h"
#include "platform/text.h"

#include <cstring>

static void check_level(const log_path_part *part) {
    bool marker = text_equal(part->text, "**");
    fuzz_require(part->kind == (marker ? PART_ANY_DEPTH : PART_NAME), "a level is a name or the marker");
    fuzz_require(marker || strstr(part->text, "**") == nullptr, "no name has the marker in it");
    fuzz_require(part->text[0] != '\0', "no level is empty");
    fuzz_require(strchr(part->text, log_path_style_in_force->separator) == nullptr, "a level is one level");
    fuzz_require(!marker || part->next != nullptr, "the marker is not the last level");
}

static std::string line_of(const log_path_part *chain) {
    if (chain->kind == PART_EVENT_LOG) return std::string("eventlog:") + chain->text;
    char separator = log_path_style_in_force->separator;
    std::string line = chain->text;
    for (const log_path_part *part = chain->next; part != nullptr; part = part->next) {
        check_level(part);
        if (line.back() != separator) line += separator;
        line += part->text;
    }
    return line + separator; // which keeps blanks at the end of the last level
}

static void check_chain(const log_path_part *chain) {
    fuzz_require(chain->kind == PART_EVENT_LOG || chain->kind == PART_DRIVE, "a chain starts somewhere");
    fuzz_require(chain->kind != PART_EVENT_LOG || chain->next == nullptr, "event logs are one part");
    log_chain_trace(chain);
    log_chain_guard copy(log_chain_copy(chain));
    fuzz_require(log_chain_equal(copy.get(), chain), "a copy is the same");
    std::string line = line_of(chain);
    if (line.size() > LOG_CONF_LINE_LENGTH) return; // with the separators that it did not have
    log_conf_guard again(log_conf_parse(line.data(), line.size()));
    fuzz_require(again != nullptr && again->next == nullptr, "a line reads back as one");
    fuzz_require(log_chain_equal(again->parts, chain), "a line reads back as the same");
}

static void read_conf(const std::string &text) {
    log_conf_guard list(log_conf_parse(text.data(), text.size()));
    for (const log_conf_line *line = list.get(); line != nullptr; line = line->next)
        check_chain(line->parts);
}

// The rules as they are told. Its time grows with each star, so it is for short texts.
static bool slow_match(const char *name, const char *pattern) {
    if (*name == '\0' || *pattern == '\0') return *name == *pattern;
    if (pattern[0] == '*' && pattern[1] == '*') return pattern[2] == '\0';
    if (*pattern == '*') {
        for (const char *rest = name + 1;; rest++) {
            if (slow_match(rest, pattern + 1)) return true;
            if (*rest == '\0') return false;
        }
    }
    return (*pattern == '?' || to_lower(*name) == to_lower(*pattern)) && slow_match(name + 1, pattern + 1);
}

static void match(const std::string &text) {
    size_t cut = std::min(text.find('\n'), text.size());
    std::string name = text.substr(0, cut);
    std::string pattern = text.substr(std::min(cut + 1, text.size()));
    bool matches = log_wildcard_match(name.c_str(), pattern.c_str());
    if (strlen(name.c_str()) > 20 || strlen(pattern.c_str()) > 12) return;
    fuzz_require(matches == slow_match(name.c_str(), pattern.c_str()), "the answer is that of trying all");
}

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    uint8_t reader = input.take_byte() % 3;
    log_path_style_in_force = reader == 0 ? &DRIVE_PATHS : &ROOT_PATHS;
    if (reader == 2)
        match(input.take_rest());
    else
        read_conf(input.take_rest());
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
