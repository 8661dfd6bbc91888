// A registry made of files, for hosts that have none: a settings file for each hive, and one file of
// variables.
//
// The variables file is loaded when it is opened for writing, what is set merges into it, and RegFlushKey
// writes it whole beside itself and puts it in its place, so that a crash at any moment leaves the old or the
// new one.
#pragma once

#include "platform/registry.h"

extern const registry_ops registry_file_ops;

// Forgets which files were named and what was reported about them, for tests.
void registry_file_reset();
