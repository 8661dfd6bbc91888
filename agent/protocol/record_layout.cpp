#include "protocol/record_layout.h"

#include "crypto/bignum.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "protocol/ber.h"

#include <cstring>
#include <utility>

template <class T>
static T *field_at(void *record, const record_field &field) {
    return reinterpret_cast<T *>(static_cast<char *>(record) + field.offset);
}

template <class T>
static const T *field_at(const void *record, const record_field &field) {
    return reinterpret_cast<const T *>(static_cast<const char *>(record) + field.offset);
}

static const char *read_field(io *stream, const record_field &field, void *record) {
    switch (field.kind) {
    case FIELD_INTEGER:
        return read_signed_int(stream, field.minimum, field.maximum, field_at<int32_t>(record, field), 0);
    case FIELD_BOOLEAN:
        return read_bool(stream, field_at<int32_t>(record, field), 0);
    case FIELD_ENUMERATED:
        return read_enumerated(stream, field_at<uint32_t>(record, field), BE_ENUMERATED, 0);
    case FIELD_STRING:
        return read_string(stream, static_cast<uint32_t>(field.maximum), field_at<char *>(record, field), 0);
    case FIELD_BIGNUM:
        return read_bignum(stream, field_at<bignum *>(record, field), 0);
    }
    return nullptr;
}

static const char *write_field(io *stream, const record_field &field, const void *record) {
    switch (field.kind) {
    case FIELD_INTEGER:
        return write_signed_int(stream, field.minimum, field.maximum, *field_at<int32_t>(record, field));
    case FIELD_BOOLEAN:
        return write_bool(stream, *field_at<int32_t>(record, field));
    case FIELD_ENUMERATED:
        return write_enumerated(stream, *field_at<uint32_t>(record, field), BE_ENUMERATED);
    case FIELD_STRING:
        return write_string(stream, static_cast<uint32_t>(field.maximum),
                            *field_at<const char *>(record, field));
    case FIELD_BIGNUM:
        return write_bignum(stream, *field_at<bignum *>(record, field));
    }
    return nullptr;
}

static const char *field_failure(const record_layout &layout, const record_field &field,
                                 const char *failure) {
    return format_error("%s.%s: %s", layout.name, field.name, failure);
}

// Frees what has been read and leaves nothing behind that could be freed again.
static void free_fields(const record_layout &layout, void *record) {
    for (const record_field *field = layout.fields; field->name != nullptr; field++) {
        if (field->kind == FIELD_STRING) text_replace(field_at<char *>(record, *field), nullptr);
        if (field->kind == FIELD_BIGNUM) bn_free(std::exchange(*field_at<bignum *>(record, *field), nullptr));
    }
}

static const char *suffix_of(const record_layout &layout) {
    return layout.end == RECORD_OPEN ? "_incomplete" : "";
}

static const char *open_record(io *stream, const record_layout &layout, uint32_t tag) {
    if (tag == 0)
        if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag != layout.tag)
        return format_error("Wrong tag (%d) encountered in read_%s%s", static_cast<int>(tag), layout.name,
                            suffix_of(layout));
    uint32_t length;
    bool indefinite;
    if (auto *failure = read_length(stream, &length, &indefinite)) return failure;
    if (!indefinite) return format_error("Definite length read in read_%s%s", layout.name, suffix_of(layout));
    return nullptr;
}

static const char *read_fields(io *stream, const record_layout &layout, void *record) {
    for (const record_field *field = layout.fields; field->name != nullptr; field++)
        if (auto *failure = read_field(stream, *field, record)) return field_failure(layout, *field, failure);
    return layout.end == RECORD_CLOSED ? skip_to_eol(stream) : nullptr;
}

const char *read_record(io *stream, const record_layout &layout, void *record, size_t size, uint32_t tag) {
    if (size > 0) memset(record, 0, size);
    if (auto *failure = open_record(stream, layout, tag)) return failure;
    auto *failure = read_fields(stream, layout, record);
    if (failure != nullptr) free_fields(layout, record);
    return failure;
}

const char *write_record(io *stream, const record_layout &layout, const void *record) {
    if (auto *failure = write_tag(stream, layout.tag)) return failure;
    if (auto *failure = write_indefinite(stream)) return failure;
    for (const record_field *field = layout.fields; field->name != nullptr; field++)
        if (auto *failure = write_field(stream, *field, record))
            return field_failure(layout, *field, failure);
    return layout.end == RECORD_CLOSED ? write_eoc(stream) : nullptr;
}
