#include "logcheck/event_line.h"

#include "logcheck/event_log_ops.h"
#include "platform/agent_log.h"
#include "platform/text.h"

#include <cstdarg>
#include <cstdio>

static void convert_names(const event_record *record, event_texts *texts) {
    char16_t *name = texts->message.formatted; // not in use yet
    uint32_t at = EVENT_RECORD_SIZE;
    take_event_text(record, &at, name, MESSAGE_SIZE);
    convert_event_text(name, texts->source, sizeof texts->source);
    take_event_text(record, &at, name, MESSAGE_SIZE);
    convert_event_text(name, texts->computer, sizeof texts->computer);
}

static const char *type_word(uint16_t type) {
    switch (type) {
    case 1:
        return "Error";
    case 2:
        return "Warning";
    case 4:
        return "Information";
    case 8:
        return "AuditSuccess";
    case 16:
        return "AuditFailure";
    default:
        return "Unknown";
    }
}

static void find_user(const event_record *record, event_texts *texts) {
    if (record->user_size == 0) {
        copy_bounded(texts->user, "N/A", sizeof texts->user);
        return;
    }
    const uint8_t *sid = event_user(record);
    if (sid == nullptr || !event_log_host->LookupAccountSidA(sid, texts->user, sizeof texts->user,
                                                             texts->domain, sizeof texts->domain))
        copy_bounded(texts->user, "<unknown>", sizeof texts->user);
}

__attribute__((format(printf, 2, 3))) static void print_cut(char out[EVENT_LINE_SIZE], const char *format,
                                                            ...) {
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(out, EVENT_LINE_SIZE, format, arguments);
    va_end(arguments);
}

bool make_event_line(const char *log_name, const event_record *record, event_texts *texts) {
    convert_names(record, texts);
    find_user(record, texts);
    agent_log(LOG_TRACE, "User is %s", texts->user);
    agent_log(LOG_TRACE, "Source is %s", texts->source);
    find_event_message(log_name, texts->source, record, &texts->message);
    agent_log(LOG_TRACE, "* About to build log line");
    print_cut(texts->line, "%s:%s:%u:%u:%s:%s:%s", type_word(record->type), texts->source,
              static_cast<unsigned>(record->category), static_cast<unsigned>(record->event_id & 0xFFFF),
              texts->user, texts->computer, texts->message.text);
    return texts->message.text[0] != '\0';
}
