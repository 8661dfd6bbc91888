#include "protocol/ber/primitives.h"

#include "crypto/bignum.h"
#include "crypto/vectors.h"
#include "platform/heap.h"
#include "protocol/ber.h"

#include <map>

namespace {

// Each kind's reader and writer; the texts that are read are freed at once.
struct named_primitive {
    const char *(*read)(io *stream, std::string *out);
    const char *(*write)(io *stream, const std::string &value);
};

std::string words_of(double value) {
    char text[40];
    snprintf(text, sizeof text, "%g", value);
    return text;
}

const char *read_tag_words(io *stream, std::string *out) {
    uint32_t tag = 1;
    auto *failure = read_tag(stream, &tag);
    *out = std::to_string(tag);
    return failure;
}

const char *read_length_words(io *stream, std::string *out) {
    uint32_t length = 1;
    bool indefinite = true;
    auto *failure = read_length(stream, &length, &indefinite);
    *out = indefinite ? "indefinite" : std::to_string(static_cast<int32_t>(length));
    return failure;
}

const char *read_int_words(io *stream, std::string *out) {
    int32_t value = 1;
    auto *failure = read_signed_int(stream, INT32_MIN, INT32_MAX, &value, 0);
    *out = std::to_string(value);
    return failure;
}

const char *read_enumerated_words(io *stream, std::string *out) {
    uint32_t value = 1;
    auto *failure = read_enumerated(stream, &value, BE_ENUMERATED, 0);
    *out = std::to_string(value);
    return failure;
}

const char *read_bool_words(io *stream, std::string *out) {
    int32_t value = 7;
    auto *failure = read_bool(stream, &value, 0);
    *out = std::to_string(value);
    return failure;
}

const char *read_null_words(io *stream, std::string *out) {
    *out = "-";
    return read_null(stream, 0);
}

const char *read_string_words(io *stream, std::string *out) {
    char *text = nullptr;
    auto *failure = read_string(stream, 128, &text, 0);
    text_guard owner(text);
    *out = text != nullptr ? text : "(none)";
    return failure;
}

const char *read_bignum_words(io *stream, std::string *out) {
    bignum *number = nullptr;
    if (auto *failure = read_bignum(stream, &number, 0)) return failure;
    bignum_guard owner(number);
    unsigned char content[256];
    size_t size = sizeof content;
    if (auto *failure = bn_get_data(number, content, &size)) return failure;
    *out = size > 0 ? hex_of_bytes(content, size) : "0";
    return nullptr;
}

const char *read_real_words(io *stream, std::string *out) {
    double value = 1;
    auto *failure = read_real(stream, &value, 0);
    *out = words_of(value);
    return failure;
}

const char *write_bignum_words(io *stream, const std::string &value) {
    std::string content = bytes_of_hex(value);
    bignum_guard number(bn_new_small(0));
    if (auto *failure = bn_set_data(number.get(), content.data(), content.size())) return failure;
    return write_bignum(stream, number.get());
}

const named_primitive *find_primitive(const std::string &kind) {
    static const std::map<std::string, named_primitive> primitives = {
        {"tag",
         {read_tag_words, [](io *s, auto &v) { return write_tag(s, static_cast<uint32_t>(std::stoul(v))); }}},
        {"length", {read_length_words, [](io *s, auto &v) { return write_length(s, std::stoi(v)); }}},
        {"signed_int",
         {read_int_words,
          [](io *s, auto &v) { return write_signed_int(s, INT32_MIN, INT32_MAX, std::stoi(v)); }}},
        {"enumerated",
         {read_enumerated_words,
          [](io *s, auto &v) {
              return write_enumerated(s, static_cast<uint32_t>(std::stoul(v)), BE_ENUMERATED);
          }}},
        {"bool", {read_bool_words, [](io *s, auto &v) { return write_bool(s, std::stoi(v)); }}},
        {"null", {read_null_words, [](io *s, auto &) { return write_null(s); }}},
        {"string", {read_string_words, [](io *s, auto &v) { return write_string(s, 128, v.c_str()); }}},
        {"bignum", {read_bignum_words, write_bignum_words}},
        {"real", {read_real_words, [](io *s, auto &v) { return write_real(s, std::stod(v)); }}},
    };
    auto found = primitives.find(kind);
    return found != primitives.end() ? &found->second : nullptr;
}

} // namespace

const char *read_named(io *stream, const std::string &kind, std::string *out_value) {
    const named_primitive *primitive = find_primitive(kind);
    return primitive != nullptr ? primitive->read(stream, out_value) : "no such primitive";
}

const char *write_named(io *stream, const std::string &kind, const std::string &value) {
    const named_primitive *primitive = find_primitive(kind);
    return primitive != nullptr ? primitive->write(stream, value) : "no such primitive";
}
