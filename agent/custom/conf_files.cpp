#include "custom/conf_files.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/files.h"
#include "platform/text.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr int32_t DEFAULT_TIMEOUT = 10; // seconds
constexpr size_t REGEX_WORDS_SIZE = 80;
constexpr const char *NO_MORE_LINES = "Unable to read line";

constexpr const char *INTEGER_PATTERN = "^Result:[[:space:]]*([[:digit:]]+)[[:space:]]*$";
constexpr const char *REAL_PATTERN = "^Result:[[:space:]]*([[:digit:]]+(\\.[[:digit:]]*))[[:space:]]*$";

constexpr const char *NO_MEMORY_FOR_CHECK = "Out of memory allocating a custom_check structure";
constexpr const char *NO_MEMORY_FOR_ACTION = "Out of memory allocating a agent_action structure";

constexpr struct {
    const char *word;
    uint32_t type;
} type_words[] = {
    {"boolean", CUSTOM_Boolean},          {"integer", CUSTOM_Integer},    {"real", CUSTOM_Real},
    {"diff_integer", CUSTOM_DiffInteger}, {"diff_real", CUSTOM_DiffReal},
};

// A file while its sections are read. The line at hand is not used up where a section ends at it.
struct conf_reader {
    conf_stream stream;
    char *line; // of CONF_LINE_LENGTH and its end
    bool at_end;

    void next_line() { at_end = conf_read_line(&stream, line, CONF_LINE_LENGTH + 1) != nullptr; }
    bool in_section() const { return !at_end && line[0] != '['; }
};

} // namespace

// ---- lines

static size_t trimmed_length(const char *line, size_t length) {
    while (length != 0 && is_blank(line[length - 1]))
        length--;
    return length;
}

// Takes the next line, or as much of it as fits. A zero byte ends what counts of it.
static void take_line(conf_stream *stream, char *buffer, size_t size) {
    const char *feed = std::find(stream->at, stream->end, '\n');
    const char *next = feed + (feed != stream->end ? 1 : 0);
    size_t length = std::min(static_cast<size_t>(next - stream->at), size - 1);
    size_t kept = trimmed_length(stream->at, strnlen(stream->at, length));
    memcpy(buffer, stream->at, kept);
    buffer[kept] = '\0';
    stream->at += length;
}

const char *conf_read_line(conf_stream *stream, char *buffer, size_t size) {
    while (stream->at != stream->end) {
        take_line(stream, buffer, size);
        if (buffer[0] != '\0' && buffer[0] != '#') return nullptr;
    }
    return NO_MORE_LINES;
}

// The name in a section's head, which is cut out of the line; absent where the line is no head.
static const char *name_in_head(char *line) {
    size_t length = strlen(line);
    if (line[0] != '[' || line[length - 1] != ']') return nullptr;
    line[length - 1] = '\0';
    return line + 1;
}

// Cuts a line at its first "=". The value, without the blanks in front of it; absent without a "=".
static const char *cut_value(char *line) {
    char *equals = strchr(line, '=');
    if (equals == nullptr) return nullptr;
    *equals = '\0';
    const char *value = equals + 1;
    while (is_blank(*value))
        value++;
    return value;
}

static bool names_command(const char *key) {
    return text_equal(key, "execfile") || text_equal(key, "command");
}

// ---- the care of the lists

static void free_check(custom_check *check) {
    heap_free(check->name);
    heap_free(check->command);
    heap_free(check->unit);
    tn_regfree(&check->result_regex);
    heap_free(check);
}

void custom_checks_free(custom_check *list) {
    while (list != nullptr) {
        custom_check *next = list->next;
        free_check(list);
        list = next;
    }
}

static void free_action(agent_action *action) {
    heap_free(action->name);
    heap_free(action->command);
    heap_free(action);
}

void agent_actions_free(agent_action *list) {
    while (list != nullptr) {
        agent_action *next = list->next;
        free_action(list);
        list = next;
    }
}

bool has_pattern(const custom_check *check) {
    return check->result_regex.compiled != nullptr;
}

// ---- the keys of a custom check

static const char *set_text(char **slot, const char *value) {
    char *copy = text_copy(value);
    if (copy == nullptr) return NO_MEMORY_FOR_CHECK;
    text_replace(slot, copy);
    return nullptr;
}

static const char *set_command(custom_check *check, const char *value) {
    return set_text(&check->command, value);
}

static const char *set_unit(custom_check *check, const char *value) {
    return set_text(&check->unit, value);
}

static const char *set_timeout(custom_check *check, const char *value) {
    check->timeout = parse_atoi(value);
    return nullptr;
}

static const char *set_no_value_exitcode(custom_check *check, const char *value) {
    check->no_value_exitcode = static_cast<uint32_t>(parse_atoi(value));
    return nullptr;
}

// Any value sets it, 0 too.
static const char *set_no_value_if_no_match(custom_check *check, const char *) {
    check->no_value_if_no_match = 1;
    return nullptr;
}

static constexpr const char *TYPE_EXPECTED =
    "One of boolean, integer, real, diff_integer and diff_real expected";

static const char *set_type(custom_check *check, const char *value) {
    for (const auto &row : type_words) {
        if (!text_equal(row.word, value)) continue;
        check->type = row.type;
        return nullptr;
    }
    return TYPE_EXPECTED;
}

static const char *set_pattern(custom_check *check, const char *value) {
    static char words[REGEX_WORDS_SIZE]; // the next failure overwrites them
    tn_regfree(&check->result_regex);
    int code = tn_regcomp(&check->result_regex, value);
    if (code != 0) {
        tn_regerror(code, &check->result_regex, words, sizeof words);
        check->result_regex = {};
        return words;
    }
    if (check->result_regex.re_nsub == 0) return "The result needs to be enclosed in parentheses";
    return nullptr;
}

namespace {

constexpr struct {
    const char *key;
    const char *(*set)(custom_check *check, const char *value);
    const char *if_empty;
} check_keys[] = {
    {"execfile", set_command, "Command expected"},
    {"command", set_command, "Command expected"},
    {"timeout", set_timeout, "Timeout expected"},
    {"no_value_exitcode", set_no_value_exitcode, "Expected integer"},
    {"no_value_if_no_match", set_no_value_if_no_match, "Expected integer"},
    {"type", set_type, TYPE_EXPECTED},
    {"unit", set_unit, "Unit expected"},
    {"result_pattern", set_pattern, "Pattern expected"},
};

} // namespace

static const char *set_key(custom_check *check, char *line) {
    const char *value = cut_value(line);
    if (value == nullptr) return "Expected equalsign";
    for (const auto &row : check_keys)
        if (text_equal(row.key, line)) return *value != '\0' ? row.set(check, value) : row.if_empty;
    return nullptr;
}

// ---- sections

static bool reads_real(const custom_check *check) {
    return check->type == CUSTOM_Real || check->type == CUSTOM_DiffReal;
}

static const char *finish_check(custom_check *check) {
    if (check->timeout == 0) check->timeout = DEFAULT_TIMEOUT;
    if (!has_pattern(check) && check->type != CUSTOM_Boolean) {
        const char *pattern = reads_real(check) ? REAL_PATTERN : INTEGER_PATTERN;
        if (auto *failure = set_pattern(check, pattern)) return failure;
    }
    if (check->command == nullptr) return "No executeable is given for check";
    agent_log(LOG_DETAIL, "Custom check \"%s\" found", check->name);
    return nullptr;
}

static const char *read_check(conf_reader *reader, custom_check **list) {
    const char *name = name_in_head(reader->line);
    if (name == nullptr) return format_error("Expected [checkname], got %s", reader->line);
    if (*name == '\0') return "Check without a name found";
    custom_checks_guard check(heap_new<custom_check>());
    if (check == nullptr) return NO_MEMORY_FOR_CHECK;
    if (auto *failure = set_text(&check->name, name)) return failure;
    for (reader->next_line(); reader->in_section(); reader->next_line())
        if (auto *failure = set_key(check.get(), reader->line)) return failure;
    if (auto *failure = finish_check(check.get())) return failure;
    check->next = *list;
    *list = check.release();
    return nullptr;
}

static const char *set_action_key(agent_action *action, char *line) {
    const char *value = cut_value(line);
    if (value == nullptr) return "Expected equalsign";
    if (!names_command(line)) return nullptr;
    if (*value == '\0') return "Executable name expected";
    text_replace(&action->command, text_copy(value));
    return action->command != nullptr ? nullptr : NO_MEMORY_FOR_ACTION;
}

static const char *read_action(conf_reader *reader, agent_action **list) {
    const char *name = name_in_head(reader->line);
    if (name == nullptr) return format_error("Expected \"[actioname]\", got \"%s\"", reader->line);
    if (*name == '\0') return "Action without a name found";
    agent_actions_guard action(heap_new<agent_action>());
    if (action == nullptr) return NO_MEMORY_FOR_ACTION;
    action->name = text_copy(name);
    if (action->name == nullptr) return NO_MEMORY_FOR_ACTION;
    for (reader->next_line(); reader->in_section(); reader->next_line())
        if (auto *failure = set_action_key(action.get(), reader->line)) return failure;
    if (action->command == nullptr) return "No executeable is given for action";
    agent_log(LOG_DETAIL, "AgentAction \"%s\" found", action->name);
    action->next = *list;
    *list = action.release();
    return nullptr;
}

// ---- files

template <class Record>
static const char *parse(const char *text, size_t length, Record **list,
                         const char *(*read_section)(conf_reader *reader, Record **list)) {
    text_guard line(static_cast<char *>(heap_alloc(CONF_LINE_LENGTH + 1)));
    if (line == nullptr) return "Cannot allicate memory for buffer";
    conf_reader reader = {.stream = {.at = text, .end = text + length}, .line = line.get(), .at_end = false};
    reader.next_line();
    while (!reader.at_end)
        if (auto *failure = read_section(&reader, list)) return failure;
    return nullptr;
}

const char *custom_checks_parse(const char *text, size_t length, custom_check **list) {
    return parse(text, length, list, read_check);
}

const char *agent_actions_parse(const char *text, size_t length, agent_action **list) {
    return parse(text, length, list, read_action);
}

// A pipe or a device at the path could keep the agent waiting for ever.
static char *read_file(const char *path, size_t *length) {
    file_facts facts;
    bool regular = files_host->facts_at(path, &facts) && facts.regular;
    return regular ? file_read_text(path, CONF_FILE_LIMIT, length) : nullptr;
}

template <class Record>
static const char *read_list(const char *path, Record **list,
                             const char *(*read_section)(conf_reader *reader, Record **list)) {
    size_t length = 0;
    text_guard text(read_file(path, &length));
    if (text == nullptr) return "Cannot open file";
    return parse(text.get(), length, list, read_section);
}

const char *custom_checks_read(const char *path, custom_check **list) {
    return read_list(path, list, read_check);
}

const char *agent_actions_read(const char *path, agent_action **list) {
    return read_list(path, list, read_action);
}
