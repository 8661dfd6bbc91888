#include "logcheck/event_message.h"

#include "logcheck/event_log_ops.h"
#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/registry.h"
#include "platform/text.h"
#include "settings/settings.h"

#include <cstdio>
#include <cstring>

static void close_key(registry_key *key) {
    registry_host->RegCloseKey(key);
}

static void free_module(message_module *module) {
    event_log_host->FreeLibrary(module);
}

static void free_found(char16_t *text) {
    event_log_host->LocalFree(text);
}

using key_guard = guard<registry_key, close_key>;
using module_guard = guard<message_module, free_module>;
using found_guard = guard<char16_t, free_found>;

bool convert_event_text(const char16_t *text, char *out, uint32_t size) {
    bool converted = event_log_host->WideCharToMultiByte(ISO_8859_1, text, out, size);
    if (!converted) out[0] = '\0';
    return converted;
}

bool is_skipped_event_source(const char *list, const char *source) {
    for (;;) {
        size_t length = strcspn(list, ",");
        if (list[length] == '\0') return text_equal(list, source);
        if (strncmp(list, source, length) == 0) return true;
        list += length + 1;
        while (is_blank(*list))
            list++;
    }
}

static uint32_t query_value(registry_key *key, const char *name, char value[MESSAGE_VALUE_SIZE + 1]) {
    uint32_t size = MESSAGE_VALUE_SIZE;
    uint32_t status = registry_host->RegQueryValueExA(key, name, value, &size);
    value[status == 0 ? size : 0] = '\0';
    return status;
}

// The names of the source's files into `value`. False where there are none; then the text says why.
static bool find_message_files(const char *log_name, const char *source, event_message *message) {
    snprintf(message->value, MESSAGE_VALUE_SIZE, "SYSTEM\\CurrentControlSet\\Services\\Eventlog\\%s\\%s",
             log_name, source);
    registry_key *opened = nullptr;
    uint32_t status = registry_host->RegOpenKeyExA(MACHINE_HIVE, message->value, REGISTRY_QUERY, &opened);
    if (status != 0) {
        snprintf(message->text, MESSAGE_SIZE, "<Cannot format message (%i)>", static_cast<int>(status));
        return false;
    }
    key_guard key(opened);
    if (query_value(key.get(), "EventMessageFile", message->value) == 0) return true;
    status = query_value(key.get(), "ProviderGuid", message->value);
    if (status == 0)
        agent_log(LOG_TRACE, " Event had providerGuid; will ignore event.");
    else
        snprintf(message->text, MESSAGE_SIZE, "<Cannot read key \"EventMessageFile\" (err %i)>",
                 static_cast<int>(status));
    return false;
}

// What the host cannot expand stays as it is, and is told as a file that cannot be loaded.
static void expand_value(event_message *message) {
    uint32_t size =
        event_log_host->ExpandEnvironmentStringsA(message->value, message->expanded, MESSAGE_VALUE_SIZE);
    if (size == 0 || size > MESSAGE_VALUE_SIZE)
        copy_bounded(message->expanded, message->value, MESSAGE_VALUE_SIZE);
}

// Absent, or why there is no text in `formatted`.
static const char *format_message(message_module *module, const event_record *record,
                                  event_message *message) {
    event_arguments_guard arguments(alloc_event_arguments(record));
    if (arguments == nullptr) return "Out of memory";
    uint32_t length =
        event_log_host->FormatMessageW(FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_ARGUMENT_ARRAY, module,
                                       record->event_id, message->formatted, MESSAGE_SIZE, arguments.get());
    uint32_t error = length == 0 ? last_error() : 0;
    agent_log(LOG_TRACE, "* FM said %i", static_cast<int>(length));
    return length == 0 ? error_text(error) : nullptr;
}

static bool is_digit(char16_t c) {
    return c >= u'0' && c <= u'9';
}

// The text that "%%" and digits at `*at` stand for, with `*at` moved behind the digits; absent, with `*at` as
// it was, where there is none.
static char16_t *take_reference(message_module *module, const char16_t **at) {
    const char16_t *text = *at;
    if (text[0] != u'%' || text[1] != u'%' || !is_digit(text[2])) return nullptr;
    uint32_t id = 0;
    for (text += 2; is_digit(*text); text++)
        id = id * 10 + (*text - u'0');
    char16_t *found = event_log_host->FormatMessageW_allocating(
        FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_HMODULE |
            FORMAT_MESSAGE_FROM_SYSTEM,
        module, id);
    if (found != nullptr) *at = text;
    return found;
}

// `formatted` into `resolved`, with the texts of parameters in the place of their references, cut where they
// do not fit.
static void resolve_references(message_module *module, event_message *message) {
    const char16_t *from = message->formatted;
    char16_t *to = message->resolved;
    char16_t *const end = to + MESSAGE_SIZE - 1;
    while (*from != u'\0' && to != end) {
        found_guard found(take_reference(module, &from));
        if (found == nullptr) *to++ = *from++;
        for (const char16_t *c = found.get(); c != nullptr && *c != u'\0' && to != end; c++)
            *to++ = *c;
    }
    *to = u'\0';
}

static void find_in_file(const char *path, const event_record *record, event_message *message) {
    agent_log(LOG_TRACE, "Loading %s", path);
    module_guard module(event_log_host->LoadLibraryExA(path, LOAD_LIBRARY_AS_DATAFILE));
    if (module == nullptr) {
        snprintf(message->text, MESSAGE_SIZE, "<LoadLibrary(\"%s\") error: %s>", path, last_error_text());
        return;
    }
    agent_log(LOG_TRACE, "Loaded %s", path);
    if (const char *failure = format_message(module.get(), record, message)) {
        snprintf(message->text, MESSAGE_SIZE, "<FormatMessage(\"%s\", %d): %s>", path,
                 static_cast<int>(record->event_id), failure);
        return;
    }
    resolve_references(module.get(), message);
    if (!convert_event_text(message->resolved, message->text, MESSAGE_SIZE))
        agent_log(LOG_DETAIL, "Cannot convert log line");
}

// Each failure counts as a text, so that only one that cannot be converted leads to the next file: a message
// in the second file of a list is not found where the first one fails.
static void find_in_files(const event_record *record, event_message *message) {
    char path[MESSAGE_VALUE_SIZE];
    const char *next = message->expanded;
    while (message->text[0] == '\0' && *next != '\0') {
        size_t length = strcspn(next, ";");
        copy_bounded(path, next, length + 1);
        if (length != 0) find_in_file(path, record, message);
        next += length;
        if (*next == ';') next++;
    }
    if (message->text[0] == '\0') agent_log(LOG_DETAIL, "  above error(s) from \"%s\"", message->expanded);
}

void find_event_message(const char *log_name, const char *source, const event_record *record,
                        event_message *message) {
    message->text[0] = '\0';
    const char *skipped = config_in_force != nullptr ? config_in_force->skip_event_source : nullptr;
    if (skipped != nullptr && is_skipped_event_source(skipped, source)) {
        agent_log(LOG_TRACE, "Skipping message, because of skip_event_source setting");
        snprintf(message->text, MESSAGE_SIZE,
                 "<Skipping message from %s, beacuse of skip_event_source setting>", source);
        return;
    }
    if (!find_message_files(log_name, source, message)) return;
    expand_value(message);
    find_in_files(record, message);
}
