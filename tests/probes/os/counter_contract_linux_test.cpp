#include "probes/os/counter_contract.h"

INSTANTIATE_TEST_SUITE_P(this_host, counter_contract,
                         testing::Values(counter_host{"this_host", &counter_sources_ops_host,
                                                      &perf_counter_ops_host}),
                         counter_host_name);
