// The folders of a simulation's disk, as the scan for logs sees them.
#pragma once

#include "logcheck/log_scan_ops.h"

extern const log_scan_ops sim_log_scan;
