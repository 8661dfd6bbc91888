// What the scan for logs asks of a host: its folders, and how its paths are written.
#pragma once

#include "logcheck/log_path.h"

struct folder_entry {
    const char *name; // until the next call for the same search
    bool folder;
    bool link; // as far as a host tells links from what they lead to
};

struct path_facts {
    bool folder;
    bool device; // anything else that is no regular file
};

// A listing under way.
struct folder_search;

// Each call that fails leaves its reason in last_error().
struct log_scan_ops {
    const log_path_style *style;
    // The entries of a folder, whose path ends in a separator: the first one, which every folder has, and the
    // others, in no order. "." and ".." are among them.
    folder_search *(*FindFirstFileA)(const char *folder, folder_entry *out);
    bool (*FindNextFileA)(folder_search *search, folder_entry *out);
    void (*FindClose)(folder_search *search);
    // What the path leads to, through links. It is not opened.
    bool (*GetFileAttributesA)(const char *path, path_facts *out);
};

extern const log_scan_ops log_scan_ops_host;
extern const log_scan_ops *log_scan_host;
