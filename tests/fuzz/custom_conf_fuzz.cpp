// The files of custom checks and of actions, the command lines in them, the list of a process's children, and
// the output of a program: in pieces it says what it says in one.
#include "custom/child_list.h"
#include "custom/command_words.h"
#include "custom/conf_files.h"
#include "custom/custom_output.h"
#include "fuzz/accepting_regex.h"
#include "fuzz/fuzz_host.h"
#include "platform/text.h"

#include <algorithm>
#include <cstring>

// The engine that takes every pattern, with a group in each that has a parenthesis.
static const regex_ops grouping_regex = {
    .regcomp =
        [](tn_regex *out, const char *pattern) {
            int code = accepting_regex.regcomp(out, pattern);
            out->re_nsub = strchr(pattern, '(') != nullptr ? 1 : 0;
            return code;
        },
    .regexec = accepting_regex.regexec,
    .regerror = accepting_regex.regerror,
    .regfree = accepting_regex.regfree,
};

static void check_name(const char *name) {
    fuzz_require(name != nullptr && name[0] != '\0', "a section has a name");
    fuzz_require(strlen(name) <= CONF_LINE_LENGTH - 2, "a name fits into a line");
}

static void check_command(const char *command) {
    fuzz_require(command != nullptr && command[0] != '\0', "a section has a command");
    fuzz_require(!is_blank(command[0]) && !is_blank(command[strlen(command) - 1]),
                 "without blanks around it");
}

static void read_checks(const std::string &text) {
    custom_check *list = nullptr;
    static_cast<void>(custom_checks_parse(text.data(), text.size(), &list));
    custom_checks_guard guarded(list);
    for (const custom_check *check = list; check != nullptr; check = check->next) {
        check_name(check->name);
        check_command(check->command);
        fuzz_require(check->type <= CUSTOM_DiffReal, "the type is one of five");
        fuzz_require(check->timeout != 0, "there is a time limit");
        fuzz_require(check->type == CUSTOM_Boolean || has_pattern(check), "a number has a pattern");
        fuzz_require(!has_pattern(check) || check->result_regex.re_nsub > 0, "a pattern has a group");
    }
}

static void read_actions(const std::string &text) {
    agent_action *list = nullptr;
    static_cast<void>(agent_actions_parse(text.data(), text.size(), &list));
    agent_actions_guard guarded(list);
    for (const agent_action *action = list; action != nullptr; action = action->next) {
        check_name(action->name);
        check_command(action->command);
    }
}

// Each word in single quotes splits into the same words again.
static std::string quoted(const command_words *words) {
    std::string line;
    for (size_t i = 0; i < words->count; i++) {
        line += " '";
        for (const char *c = words->words[i]; *c != '\0'; c++)
            line += *c == '\'' ? std::string("'\\''") : std::string(1, *c);
        line += "'";
    }
    return line;
}

static void split(const std::string &text) {
    command_words *found = nullptr;
    if (split_command(text.c_str(), &found) != nullptr) return;
    command_words_guard words(found);
    fuzz_require(words->count > 0 && words->words[words->count] == nullptr, "the words have an end");
    command_words *again = nullptr;
    fuzz_require(split_command(quoted(words.get()).c_str(), &again) == nullptr, "what is quoted is split");
    command_words_guard same(again);
    fuzz_require(same->count == words->count, "into as many words");
    for (size_t i = 0; i < same->count; i++)
        fuzz_require(text_equal(same->words[i], words->words[i]), "that are the same");
}

static custom_reading read_in_pieces(const custom_check *check, const std::string &text, size_t piece) {
    char buffer[OUTPUT_SIZE + 1];
    char *end = buffer;
    custom_reading reading = {};
    for (size_t at = 0; at < text.size();) {
        size_t room = OUTPUT_SIZE - static_cast<size_t>(end - buffer);
        fuzz_require(room > 0, "there is always room");
        size_t count = std::min({room, piece, text.size() - at});
        memcpy(end, text.data() + at, count);
        end += count;
        at += count;
        if (process_output(check, buffer, &end, &reading) != nullptr) break;
    }
    return reading;
}

static void read_output(uint8_t type, size_t piece, const std::string &text) {
    custom_check check = {};
    check.name = const_cast<char *>("c");
    check.type = type % 5;
    if (tn_regcomp(&check.result_regex, "^[a-z]*(.*)x?$") != 0) return;
    custom_reading whole = read_in_pieces(&check, text, OUTPUT_SIZE);
    custom_reading parts = read_in_pieces(&check, text, piece % OUTPUT_SIZE + 1);
    tn_regfree(&check.result_regex);
    fuzz_require(whole.value_found == parts.value_found && whole.value_integer == parts.value_integer,
                 "pieces make no difference");
}

static void list_children(const std::string &text) {
    const char *at = text.c_str();
    while (next_child(&at) > 0)
        fuzz_require(at <= text.c_str() + text.size(), "the list has an end");
}

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    regex_host = &regex_ops_host;
    switch (input.take_byte() % 5) {
    case 0:
        read_checks(input.take_rest());
        break;
    case 1:
        read_actions(input.take_rest());
        break;
    case 2:
        split(input.take_rest());
        break;
    case 3:
        list_children(input.take_rest());
        break;
    default:
        uint8_t type = input.take_byte();
        uint8_t piece = input.take_byte();
        read_output(type, piece, input.take_rest());
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
