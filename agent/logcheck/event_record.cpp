#include "logcheck/event_record.h"

// The host's EVENTLOGRECORD, little-endian, bytes from the record's start:
//
//    0  32 bits  Length, of all
//    4  32       Reserved
//    8  32       RecordNumber
//   12  32       TimeGenerated
//   16  32       TimeWritten
//   20  32       EventID
//   24  16       EventType
//   26  16       NumStrings
//   28  16       EventCategory
//   30  16       ReservedFlags
//   32  32       ClosingRecordNumber
//   36  32       StringOffset
//   40  32       UserSidLength
//   44  32       UserSidOffset
//   48  32       DataLength
//   52  32       DataOffset
//   56           SourceName, Computername: texts of 16-bit characters, each with a zero behind it
//
// A security identifier: a byte of revision, a byte with the count of its 32-bit sub-authorities, six bytes
// of authority, the sub-authorities.

namespace {

constexpr uint32_t SID_FIXED_SIZE = 8;

} // namespace

static uint16_t number16_at(const uint8_t *bytes) {
    return static_cast<uint16_t>(bytes[0] | bytes[1] << 8);
}

static uint32_t number32_at(const uint8_t *bytes) {
    return number16_at(bytes) | static_cast<uint32_t>(number16_at(bytes + 2)) << 16;
}

bool decode_event_record(const uint8_t *bytes, uint32_t size, event_record *out) {
    if (size < EVENT_RECORD_SIZE) return false;
    *out = {.bytes = bytes,
            .length = number32_at(bytes),
            .event_id = number32_at(bytes + 20),
            .type = number16_at(bytes + 24),
            .category = number16_at(bytes + 28),
            .insert_count = number16_at(bytes + 26),
            .inserts_at = number32_at(bytes + 36),
            .user_at = number32_at(bytes + 44),
            .user_size = number32_at(bytes + 40)};
    return out->length >= EVENT_RECORD_SIZE && out->length <= size;
}

void take_event_text(const event_record *record, uint32_t *at, char16_t *out, uint32_t size) {
    const uint8_t *text = record->bytes + *at;
    uint32_t room = (record->length - *at) / 2;
    uint32_t length = 0;
    while (length < room && number16_at(text + 2 * length) != 0)
        length++;
    bool whole = length < room;
    *at = whole ? *at + 2 * (length + 1) : record->length;
    if (!whole || length >= size) length = 0;
    for (uint32_t i = 0; i < length; i++)
        out[i] = number16_at(text + 2 * i);
    out[length] = u'\0';
}

const uint8_t *event_user(const event_record *record) {
    if (record->user_at > record->length || record->user_size > record->length - record->user_at)
        return nullptr;
    if (record->user_size < SID_FIXED_SIZE) return nullptr;
    const uint8_t *sid = record->bytes + record->user_at;
    return SID_FIXED_SIZE + 4U * sid[1] <= record->user_size ? sid : nullptr;
}

const char16_t **alloc_event_arguments(const event_record *record) {
    uint32_t at = record->inserts_at < record->length ? record->inserts_at : record->length;
    uint32_t length = (record->length - at) / 2;
    uint32_t count = record->insert_count + SPARE_INSERTS;
    auto **arguments = static_cast<const char16_t **>(
        heap_alloc(count * sizeof(const char16_t *) + (length + 1) * sizeof(char16_t)));
    if (arguments == nullptr) return nullptr;
    // The texts are copied: the host wants them at even addresses, and the last one may lack its end.
    auto *texts = reinterpret_cast<char16_t *>(arguments + count);
    for (uint32_t i = 0; i < length; i++)
        texts[i] = number16_at(record->bytes + at + 2 * i);
    const char16_t *end = texts + length;
    const char16_t *next = texts;
    for (uint32_t i = 0; i < count; i++) {
        arguments[i] = i < record->insert_count ? next : end;
        while (next != end && *next != u'\0')
            next++;
        if (next != end) next++;
    }
    return arguments;
}
