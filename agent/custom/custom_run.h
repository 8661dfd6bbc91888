// One run of a custom check's program, from its start to its end.
//
// A thread reads the program's output, at most OUTPUT_SIZE characters at a time, and hands each read over by
// one event; it goes on when the main thread gives the buffer back by another. So only one of them touches
// the buffer at any time, and no lock is needed. The time-out holds for the reading of the output, and once
// more for the program's end behind it.
#pragma once

#include "custom/conf_files.h"
#include "devtree/devtree.h"

// Absent for a reading in `result`, CHECK_NO_RESULT, or a failure text.
const char *run_custom_check(custom_check *check, resnode *result);

// Closes the events, which are otherwise kept, for tests.
void custom_run_reset();
