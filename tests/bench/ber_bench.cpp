// The primitives of the wire format, each written and read alone, without a cipher.

#include "bench/streams.h"
#include "crypto/bignum.h"
#include "platform/heap.h"
#include "protocol/ber.h"

#include <benchmark/benchmark.h>

namespace {

constexpr const char *TEXT = "group-1234.check-5678 and more";
constexpr int32_t INTEGER = 1'700'000'000;
constexpr double REAL = 1234.5678;

bignum *number() {
    static bignum_guard one = [] {
        bignum_guard made(bn_new(0, 32));
        const std::string bytes(128, '\x5A');
        if (bn_set_data(made.get(), bytes.data(), bytes.size()) != nullptr) made.reset();
        return made;
    }();
    return one.get();
}

using step = const char *(*)(io *stream);

const char *put_integer(io *stream) {
    return write_signed_int(stream, INT32_MIN, INT32_MAX, INTEGER);
}
const char *get_integer(io *stream) {
    int32_t value;
    return read_signed_int(stream, INT32_MIN, INT32_MAX, &value, 0);
}
const char *put_real(io *stream) {
    return write_real(stream, REAL);
}
const char *get_real(io *stream) {
    double value;
    return read_real(stream, &value, 0);
}
const char *put_text(io *stream) {
    return write_string(stream, 128, TEXT);
}
const char *get_text(io *stream) {
    char *text = nullptr;
    auto *failure = read_string(stream, 128, &text, 0);
    heap_free(text);
    return failure;
}
const char *put_number(io *stream) {
    return write_bignum(stream, number());
}
const char *get_number(io *stream) {
    bignum *value = nullptr;
    auto *failure = read_bignum(stream, &value, 0);
    bn_free(value);
    return failure;
}
const char *put_bool(io *stream) {
    return write_bool(stream, 1);
}
const char *get_bool(io *stream) {
    int32_t value;
    return read_bool(stream, &value, 0);
}

const char *append_to(io *stream, const void *buffer, size_t count) {
    static_cast<std::string *>(stream->state)->append(static_cast<const char *>(buffer), count);
    return nullptr;
}

std::string encoded(step put) {
    std::string bytes;
    io stream = {.write = append_to, .state = &bytes};
    return put(&stream) == nullptr ? bytes : "";
}

void write_primitive(benchmark::State &state, step put) {
    sink out;
    for (auto _ : state)
        if (auto *failure = put(&out.stream)) return state.SkipWithError(failure);
    state.SetBytesProcessed(static_cast<int64_t>(out.bytes));
}

void read_primitive(benchmark::State &state, step put, step get) {
    source in(encoded(put));
    for (auto _ : state)
        if (auto *failure = get(&in.stream)) return state.SkipWithError(failure);
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * in.bytes.size()));
}

} // namespace

BENCHMARK_CAPTURE(write_primitive, integer, put_integer)->Name("ber_integer/write");
BENCHMARK_CAPTURE(read_primitive, integer, put_integer, get_integer)->Name("ber_integer/read");
BENCHMARK_CAPTURE(write_primitive, real, put_real)->Name("ber_real/write");
BENCHMARK_CAPTURE(read_primitive, real, put_real, get_real)->Name("ber_real/read");
BENCHMARK_CAPTURE(write_primitive, text, put_text)->Name("ber_string_30/write");
BENCHMARK_CAPTURE(read_primitive, text, put_text, get_text)->Name("ber_string_30/read");
BENCHMARK_CAPTURE(write_primitive, number, put_number)->Name("ber_bignum_1024/write");
BENCHMARK_CAPTURE(read_primitive, number, put_number, get_number)->Name("ber_bignum_1024/read");
BENCHMARK_CAPTURE(write_primitive, boolean, put_bool)->Name("ber_bool/write");
BENCHMARK_CAPTURE(read_primitive, boolean, put_bool, get_bool)->Name("ber_bool/read");
