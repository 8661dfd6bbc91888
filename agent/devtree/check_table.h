// The families of checks: one row each, by the name of their top-level group.
#pragma once

#include "devtree/devtree.h"

enum : uint32_t {
    CHECK_SELF_QUEUE = 1U << 0, // the check gets no resnode and appends to the device's queue itself
    CHECK_DISABLED = 1U << 15,  // by the disable_checks setting, as of the last scan
};

struct check_entry {
    const char *name; // absent behind the last row
    // Adds what is found below `root`. Absent for a family that is offered by another row's scan.
    const char *(*scan)(devtree *root);
    // Runs one check and fills the result, all but its status. Returns absent, an error text or
    // CHECK_NO_RESULT.
    const char *(*check)(devnode *device, resnode *result);
    uint32_t flags;
};

// The third answer of a check function: it worked, and has nothing to report this time.
inline const char *const CHECK_NO_RESULT = reinterpret_cast<const char *>(1);

// The rows in force, in scan order.
extern check_entry *check_table;

// Runs all scans. Returns the first top-level group of a new tree that the caller frees, absent when nothing
// was found.
devtree *scan_devices();

// The row of this name, or absent.
check_entry *find_check_entry(const char *name);
