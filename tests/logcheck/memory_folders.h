// Folders in memory for the tests of the scan for logs, in either style of paths.
#pragma once

#include "logcheck/log_scan_ops.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

struct memory_folders {
    enum entry_kind { PLAIN_FILE, FOLDER, DEVICE, LINK_TO_FILE, LINK_TO_FOLDER };

    explicit memory_folders(const log_path_style &style);
    ~memory_folders();
    memory_folders(const memory_folders &) = delete;

    const log_path_style style;
    log_scan_ops ops;

    // The entries of each folder, whose path ends in a separator.
    std::map<std::string, std::map<std::string, entry_kind>> folders;
    // Adds an entry, and the folders above it.
    void add(const std::string &path, entry_kind kind = PLAIN_FILE);

    // Paths for which a call fails with this code.
    std::map<std::string, uint32_t> broken;
    std::vector<std::string> listed;
    std::vector<std::string> looked_at;
    std::function<void(const std::string &path)> when_listing;
    int open_searches = 0;
};
