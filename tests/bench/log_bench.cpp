// A line of the log: below the threshold, written, and beside it the bare system call for the same bytes.

#include "platform/agent_log.h"

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace {

constexpr const char *NOWHERE = "/dev/null";

void log_lines(benchmark::State &state, int32_t level) {
    log_open(NOWHERE);
    for (auto _ : state)
        agent_log(level, "Agent will check device %s type %i", "check-1234", 7);
    log_close();
}

void bare_write(benchmark::State &state) {
    std::string line = "Wed Jun 30 21:49:08 1993: Agent will check device check-1234 type 7\n";
    int file = open(NOWHERE, O_WRONLY);
    for (auto _ : state)
        if (write(file, line.data(), line.size()) < 0) return state.SkipWithError("write failed");
    close(file);
}

} // namespace

BENCHMARK_CAPTURE(log_lines, below, LOG_DETAIL)->Name("log_line/below_threshold");
BENCHMARK_CAPTURE(log_lines, written, LOG_NORMAL)->Name("log_line/written");
BENCHMARK(bare_write)->Name("log_line/bare_write");
