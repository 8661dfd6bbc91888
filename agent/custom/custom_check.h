// Custom checks: programs of the administrator whose exit code or output is a reading.
#pragma once

#include "custom/conf_files.h"
#include "devtree/devtree.h"

// Reads the file of custom checks and offers what it describes. Always absent.
const char *scan_custom(devtree *root);

const char *check_custom(devnode *device, resnode *result);

// Frees the checks and what a run keeps, for tests.
void custom_check_reset();
