// How a host writes the path of a log, and how the tree keeps it: a group for the drive or the root, a group
// a folder, and the check of the file.
#pragma once

#include "devtree/devtree.h"

struct log_path_style {
    char separator;
    bool has_drives; // a path starts with a letter and a colon, else with the separator, which is its root
};

inline constexpr log_path_style DRIVE_PATHS = {.separator = '\\', .has_drives = true};
inline constexpr log_path_style ROOT_PATHS = {.separator = '/', .has_drives = false};

// Of the host that the agent runs on; tests put the other one here.
extern const log_path_style *log_path_style_in_force;

// A new text, or absent when memory is out: `above`, which is empty or a path, with `name` behind it.
char *log_path_join(const char *above, const char *name);

// The path of the file that a check stands for, out of the names of its groups below the top one. Out of
// memory is fatal.
char *log_file_path(const devnode *device);
