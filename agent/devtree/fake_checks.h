// Made-up results, so that a server can be loaded and tested without real probes.
//
// Regression mode gives reproducible curves on a fixed set of devices and ends by itself; fake-results mode
// answers whatever the server configures with plausible constants and rare changes of status.
#pragma once

#include "devtree/devtree.h"

inline constexpr uint32_t REGRESSION_MAGIC = 0x46414B45;
inline constexpr uint32_t FAKE_STATE_MAGIC = 64110;

extern uint32_t regression_flag;
extern uint32_t fake_results_flag; // wins over regression_flag in check_device
extern uint32_t fake_device_count;
extern int64_t fake_start_time; // -1: the time of a check's first result
extern int64_t fake_end_time;   // -1: never
extern uint32_t fake_repeat_count;
extern uint32_t fake_idle_flag; // no result has come since the last acknowledged checkin

// The scan of regression mode.
[[nodiscard]] const char *scan_fake_memory(devtree *root);

// Fills a result. 0, or -1 once fake_end_time has been reached.
int regression_wave(devnode *device, resnode *result);

// Fills the result, its status included, and returns it.
resnode *fake_result(devnode *device, resnode *result);

void fake_free_state(devnode *device); // of regression mode
void free_fake_state(devnode *device); // of fake-results mode

// Puts the flags back to those of a new process, for tests.
void fake_checks_reset();
