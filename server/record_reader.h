// Reads the records that agents send, each thing held against its limit before it is kept.
//
// The first failure stays: every later call does nothing and gives an empty value, so that a record is a
// straight sequence of fields and its caller asks once, behind it. A loop over a list ends by itself, since
// next() gives 0.
#pragma once

#include "crypto/bignum.h"
#include "platform/io.h"
#include "server/memory_pool.h"

#include <cstdint>
#include <optional>
#include <string>

class record_reader {
public:
    record_reader(io *from, memory_share *share) : stream(from), memory(share) {}

    // Absent while all went well. Valid until the thread's second next format_error.
    const char *failure() const { return failed; }
    void fail(const char *text);

    // The next identifier.
    uint32_t tag();

    // The head of a record: its identifier (read already if `tag` is not 0) and the indefinite length.
    void open(uint32_t expected, const char *record, uint32_t tag = 0);
    // The end of a record. What a newer agent appends to it is passed over.
    void close();
    // The next element's identifier, or 0 behind the list's last element, with its end read.
    uint32_t next();

    int32_t integer(int32_t minimum = INT32_MIN, int32_t maximum = INT32_MAX, uint32_t tag = 0);
    bool boolean();
    uint32_t enumerated();
    double real(uint32_t tag);
    void null(uint32_t tag);
    std::string text(uint32_t limit, uint32_t tag = 0);
    bignum_guard number();
    // A real, or NULL for none.
    std::optional<double> real_or_null();

    // Takes memory for something that is about to be kept.
    bool take(size_t bytes);

private:
    uint32_t definite_length(uint32_t limit);
    void skip(uint32_t tag);
    void skip_content(uint32_t length);

    io *stream;
    memory_share *memory;
    const char *failed = nullptr;
};
