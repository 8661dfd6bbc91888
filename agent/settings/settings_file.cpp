// The text of a settings file.

#include "platform/agent_log.h"
#include "platform/text.h"
#include "settings/settings.h"
#include "settings/value_list.h"

#include <cstring>

namespace {

struct settings_line {
    const char *path;
    uint32_t number;
    bool report;
};

} // namespace

static bool is_known(const char *key) {
    for (const char *const *known = setting_keys; *known != nullptr; known++)
        if (text_equal(*known, key)) return true;
    return false;
}

static char *cut_blanks(char *text) {
    while (is_blank(*text))
        text++;
    size_t length = strlen(text);
    while (length > 0 && is_blank(text[length - 1]))
        length--;
    text[length] = '\0';
    return text;
}

static bool take_line(char *text, const settings_line &line, value_list *out) {
    text = cut_blanks(text);
    if (*text == '\0' || *text == '#') return true;
    char *equals = strchr(text, '=');
    if (equals == nullptr) {
        if (line.report)
            agent_log(LOG_WARNING, "%s, line %u: no \"=\" in \"%s\"", line.path, line.number, text);
        return true;
    }
    *equals = '\0';
    char *key = cut_blanks(text);
    if (line.report && !is_known(key))
        agent_log(LOG_WARNING, "%s, line %u: unknown setting \"%s\"", line.path, line.number, key);
    if (line.report && find_value(out, key) != nullptr)
        agent_log(LOG_WARNING, "%s, line %u: setting \"%s\" is given again", line.path, line.number, key);
    return set_value(out, key, cut_blanks(equals + 1));
}

bool parse_settings(const char *text, size_t length, const char *path, bool report, value_list *out) {
    settings_line line = {.path = path, .number = 0, .report = report};
    const char *end = text + length;
    while (text < end) {
        const auto *stop = static_cast<const char *>(memchr(text, '\n', static_cast<size_t>(end - text)));
        if (stop == nullptr) stop = end;
        line.number++;
        text_guard copy(text_copy_part(text, static_cast<size_t>(stop - text)));
        if (copy == nullptr || !take_line(copy.get(), line, out)) return false;
        text = stop + 1;
    }
    return true;
}
