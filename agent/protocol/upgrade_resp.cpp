#include "protocol/upgrade_resp.h"

#include "platform/errors.h"
#include "protocol/tags.h"

#include <algorithm>

static constexpr uint32_t PIECE = 1024;

static const char *copy_package(io *stream, host_file file, uint32_t length) {
    char piece[PIECE];
    while (length > 0) {
        uint32_t count = std::min(length, PIECE);
        if (auto *failure = stream->read(stream, piece, count)) return failure;
        if (!file_write_all(file, piece, count))
            return format_error("Error writing to file: %s", last_error_text());
        length -= count;
    }
    return nullptr;
}

static const char *read_package(io *stream, host_file file) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag != BE_STRING) return "Wrong tag, expected BE_STRING";
    uint32_t length;
    bool indefinite;
    if (auto *failure = read_length(stream, &length, &indefinite)) return failure;
    if (indefinite || length > UPGRADE_LIMIT) return "data out of range in read_string";
    return copy_package(stream, file, length);
}

const char *read_upgrade_resp(io *stream, host_file file, int32_t *out) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag != TAG_UPGRADE_RESP) return "Wrong tag encountered in read_upgrade_resp";
    uint32_t length;
    bool indefinite;
    if (auto *failure = read_length(stream, &length, &indefinite)) return failure;
    if (!indefinite) return "Definite length read in read_upgrade_resp";
    if (auto *failure = read_signed_int(stream, INT32_MIN, INT32_MAX, out, 0)) return failure;
    if (auto *failure = read_package(stream, file)) return failure;
    return skip_to_eol(stream);
}
