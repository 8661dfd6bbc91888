#include "probes/os/counter_contract.h"

#include <fcntl.h>
#include <unistd.h>

INSTANTIATE_TEST_SUITE_P(this_host, counter_contract,
                         testing::Values(counter_host{"this_host", &counter_sources_ops_host,
                                                      &perf_counter_ops_host}),
                         counter_host_name);

TEST(open_files, are_those_of_a_process) {
    std::string own = "/proc/" + std::to_string(getpid()) + "/fd";
    int64_t before = counter_sources_ops_host.count_open_files(own.c_str());
    EXPECT_GT(before, 0);
    int more[] = {open("/dev/null", O_RDONLY), open("/dev/null", O_RDONLY)};
    int64_t after = counter_sources_ops_host.count_open_files(own.c_str());
    for (int file : more)
        close(file);
    EXPECT_EQ(after, before + 2);
    EXPECT_LT(counter_sources_ops_host.count_open_files("/proc/0/fd"), 0);
}

TEST(uptime, goes_on_with_the_clock) {
    uint64_t ticks = counter_sources_ops_host.ticks();
    uint64_t uptime = counter_sources_ops_host.uptime();
    while (counter_sources_ops_host.ticks() == ticks) {
    }
    EXPECT_GT(counter_sources_ops_host.uptime(), uptime);
    EXPECT_GE(uptime, ticks) << "the time asleep counts";
}
