// The delivery of a checkin with 10,000 results, in steps that each add one thing: encoding, gathering into
// blocks, enciphering, and the way through the agent's own socket stream.
//
// Times are CPU times of the sending thread, system calls included.

#include "bench/bench_tree.h"
#include "bench/streams.h"
#include "protocol/checkin.h"

#include <benchmark/benchmark.h>

namespace {

constexpr uint32_t CHECKS = 1000;
constexpr uint32_t RESULTS_OF_A_CHECK = 10;
constexpr int64_t RESULTS = int64_t{CHECKS} * RESULTS_OF_A_CHECK;

devtree *full_tree() {
    static devtree_guard tree = [] {
        devtree_guard made = make_tree("bench", CHECKS);
        queue_results(made.get(), RESULTS_OF_A_CHECK);
        return made;
    }();
    return tree.get();
}

const char *deliver(io *stream) {
    uint32_t remaining = UINT32_MAX;
    if (auto *failure = checkin_write_devtree(stream, full_tree(), &remaining)) return failure;
    return stream->flush(stream);
}

void deliver_all(benchmark::State &state, io *stream) {
    full_tree();
    for (auto _ : state)
        if (auto *failure = deliver(stream)) return state.SkipWithError(failure);
    state.SetItemsProcessed(state.iterations() * RESULTS);
}

void encode(benchmark::State &state) {
    sink out;
    deliver_all(state, &out.stream);
    state.counters["bytes_a_result"] =
        static_cast<double>(out.bytes) / static_cast<double>(state.iterations() * RESULTS);
}

void through_cipher_stream(benchmark::State &state, bool enciphered) {
    sink out;
    io *stream = cipher_over(&out.stream, enciphered);
    deliver_all(state, stream);
    stream->close(stream);
}

void through_socket(benchmark::State &state, bool enciphered) {
    loopback connection;
    if (connection.stream == nullptr) return state.SkipWithError("no loopback connection");
    io *stream = cipher_over(connection.stream, enciphered);
    deliver_all(state, stream);
    stream->close(stream);
}

void drop(benchmark::State &state) {
    devtree_guard tree = make_tree("bench", CHECKS);
    for (auto _ : state) {
        state.PauseTiming();
        queue_results(tree.get(), RESULTS_OF_A_CHECK);
        state.ResumeTiming();
        uint32_t remaining = UINT32_MAX;
        checkin_drop_results(tree.get(), &remaining);
    }
    state.SetItemsProcessed(state.iterations() * RESULTS);
}

} // namespace

BENCHMARK(encode)->Name("deliver_10000/encoded")->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(through_cipher_stream, gathered, false)
    ->Name("deliver_10000/gathered")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(through_cipher_stream, enciphered, true)
    ->Name("deliver_10000/enciphered")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(through_socket, gathered, false)
    ->Name("deliver_10000/sent_gathered")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK_CAPTURE(through_socket, enciphered, true)
    ->Name("deliver_10000/sent_enciphered")
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(drop)->Name("deliver_10000/dropped")->Unit(benchmark::kMicrosecond);
