// The benchmarks' program: the agent's rooms on the real host, with the log silent.
//
// A benchmark is named WORK/WHOSE or WORK/SIZE; tests/bench/run makes ratios of those of one work.

#include "core/host.h"
#include "platform/agent_log.h"
#include "platform/sockets.h"
#include "settings/settings.h"

#include <benchmark/benchmark.h>

int main(int argc, char **argv) {
    agent_config config = {.max_data_retention_days = 7};
    use_host();
    config_in_force = &config;
    log_set_level(LOG_NORMAL);
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv) || socket_init() != nullptr) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
