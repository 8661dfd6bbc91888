#include "logcheck/log_conf.h"

#include "logcheck/log_path.h"
#include "platform/agent_log.h"
#include "platform/files.h"
#include "platform/text.h"

#include <algorithm>
#include <cstring>

log_conf_line *log_conf_current;

namespace {

// A chain that grows at its end.
struct chain_builder {
    log_chain_guard first;
    log_path_part *last = nullptr;

    bool add(uint32_t kind, const char *text, size_t length);
};

} // namespace

// ---- the care of chains and lists

static log_path_part *new_part(uint32_t kind, const char *text, size_t length) {
    log_chain_guard part(heap_new<log_path_part>());
    if (part != nullptr) part->text = text_copy_part(text, length);
    if (part == nullptr || part->text == nullptr) {
        agent_log(LOG_ERROR, "Out of memory when copying log check node chain");
        return nullptr;
    }
    part->kind = kind;
    return part.release();
}

bool chain_builder::add(uint32_t kind, const char *text, size_t length) {
    log_path_part *part = new_part(kind, text, length);
    if (part == nullptr) return false;
    if (last != nullptr)
        last->next = part;
    else
        first.reset(part);
    last = part;
    return true;
}

log_path_part *log_chain_copy(const log_path_part *chain) {
    chain_builder copy;
    for (; chain != nullptr; chain = chain->next)
        if (!copy.add(chain->kind, chain->text, strlen(chain->text))) return nullptr;
    return copy.first.release();
}

void log_chain_free(log_path_part *chain) {
    while (chain != nullptr) {
        log_path_part *next = chain->next;
        heap_free(chain->text);
        heap_free(chain);
        chain = next;
    }
}

bool log_chain_equal(const log_path_part *a, const log_path_part *b) {
    while (a != nullptr && b != nullptr && a->kind == b->kind && text_equal(a->text, b->text)) {
        a = a->next;
        b = b->next;
    }
    return a == nullptr && b == nullptr;
}

void log_chain_trace(const log_path_part *chain) {
    static constexpr char ARROW[] = " -> ";
    char text[2048 + 1];
    size_t length = 0;
    auto append = [&](const char *more) {
        copy_bounded(text + length, more, sizeof text - length);
        length += strlen(text + length);
    };
    text[0] = '\0';
    for (; chain != nullptr; chain = chain->next) {
        append(chain->text);
        if (chain->next != nullptr) append(ARROW);
    }
    agent_log(LOG_TRACE, "%s", text);
}

log_conf_line *new_log_conf_line(log_path_part *chain) {
    log_chain_guard parts(chain);
    auto *line = heap_new<log_conf_line>();
    if (line == nullptr) {
        agent_log(LOG_ERROR, "Out of memory, allocating new log check node list entry");
        return nullptr;
    }
    line->parts = parts.release();
    return line;
}

void log_conf_free(log_conf_line *list) {
    while (list != nullptr) {
        log_conf_line *next = list->next;
        log_chain_free(list->parts);
        heap_free(list);
        list = next;
    }
}

void log_conf_reset() {
    log_conf_free(log_conf_current);
    log_conf_current = nullptr;
}

// ---- one line

// Any wildcard stands for all event logs, so what remains of the line is one part, whatever is in it.
static log_path_part *parse_event_logs(const char *text) {
    while (is_blank(*text))
        text++;
    if (*text == '\0') {
        agent_log(LOG_NORMAL, "Event-log entry did not detail which parts to include");
        return nullptr;
    }
    return new_part(PART_EVENT_LOG, text, strlen(text));
}

static bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// The length of what a path starts with, 0 where it starts otherwise.
static size_t start_length(const char *line) {
    bool has_drives = log_path_style_in_force->has_drives;
    if (has_drives ? !is_letter(line[0]) : line[0] != log_path_style_in_force->separator) {
        agent_log(LOG_NORMAL, "log check configuration line did not start with a drive letter: \"%s\"", line);
        return 0;
    }
    if (!has_drives) return 1;
    if (line[1] == ':') return 2;
    agent_log(LOG_NORMAL, "log check configuration line must start with a drive letter and a colon: \"%s\"",
              line);
    return 0;
}

static bool add_level(chain_builder *chain, const char *level, size_t length) {
    static constexpr char ANY_DEPTH[] = "**";
    bool any_depth = length == 2 && memcmp(level, ANY_DEPTH, 2) == 0;
    if (any_depth) return chain->add(PART_ANY_DEPTH, level, length);
    if (std::search(level, level + length, ANY_DEPTH, ANY_DEPTH + 2) == level + length)
        return chain->add(PART_NAME, level, length);
    agent_log(LOG_NORMAL, "Found misplaced '**' in log check configuration: \"%s\"", level);
    return false;
}

static bool add_levels(chain_builder *chain, const char *path) {
    const char separators[] = {log_path_style_in_force->separator, '\0'};
    for (path += strspn(path, separators); *path != '\0'; path += strspn(path, separators)) {
        size_t length = strcspn(path, separators);
        if (!add_level(chain, path, length)) return false;
        path += length;
    }
    return true;
}

static log_path_part *parse_path(const char *line) {
    chain_builder chain;
    size_t start = start_length(line);
    if (start == 0 || !chain.add(PART_DRIVE, line, start)) return nullptr;
    if (!add_levels(&chain, line + start)) {
        agent_log(LOG_NORMAL, "Unable to parse components of log check configuration line: \"%s\"", line);
        return nullptr;
    }
    if (chain.last->kind == PART_ANY_DEPTH) {
        agent_log(LOG_NORMAL, "No line must end with '**' - skipping line");
        return nullptr;
    }
    return chain.first.release();
}

static log_path_part *parse_line(const char *line) {
    static constexpr char EVENT_LOGS[] = "eventlog:";
    return text_starts_with(line, EVENT_LOGS) ? parse_event_logs(line + strlen(EVENT_LOGS))
                                              : parse_path(line);
}

// ---- the file

// Takes the next line, or as much of it as fits, without the blanks around it and what stands behind a zero
// byte. Returns where the next one begins.
static const char *take_line(const char *at, const char *end, char *line) {
    const char *feed = std::find(at, end, '\n');
    auto length = static_cast<size_t>(feed - at);
    const char *next = feed + (feed != end ? 1 : 0);
    if (length > LOG_CONF_LINE_LENGTH) {
        length = LOG_CONF_LINE_LENGTH;
        next = at + length;
    }
    length = strnlen(at, length);
    while (length != 0 && is_blank(at[length - 1]))
        length--;
    while (length != 0 && is_blank(*at)) {
        at++;
        length--;
    }
    memcpy(line, at, length);
    line[length] = '\0';
    return next;
}

log_conf_line *log_conf_parse(const char *text, size_t length) {
    log_conf_guard list;
    const char *end = text + length;
    while (text != end) {
        char line[LOG_CONF_LINE_LENGTH + 1];
        text = take_line(text, end, line);
        if (line[0] == '\0' || line[0] == '#') continue;
        log_path_part *chain = parse_line(line);
        log_conf_line *entry = chain != nullptr ? new_log_conf_line(chain) : nullptr;
        if (entry == nullptr) return nullptr;
        entry->next = list.release();
        list.reset(entry);
    }
    return list.release();
}

// A pipe or a device at the path could keep the agent waiting for ever.
static bool is_regular(const char *path) {
    file_facts facts;
    return files_host->facts_at(path, &facts) && facts.regular;
}

log_conf_line *log_conf_read(const char *path) {
    size_t length = 0;
    text_guard text(is_regular(path) ? file_read_text(path, LOG_CONF_FILE_LIMIT, &length) : nullptr);
    if (text != nullptr) return log_conf_parse(text.get(), length);
    agent_log(LOG_NORMAL, "Unable to open log configuration \"%s\"", path);
    return nullptr;
}
