// The disk of a simulation. It keeps what was synced; a power cut takes the rest, or leaves a part of it, by
// chance.
//
// Content is on the disk when its file was synced. A name is when MoveFileExA has returned for it, or when
// something later made the disk write its names; after a power cut the names are those of the last such
// moment, or the present ones, by chance, with whatever content was synced below them.
#pragma once

#include "platform/files.h"

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

struct sim_inode {
    uint64_t number;
    bool folder;
    std::string content;
    std::string synced;
    int64_t created;
    bool executable = false;
};

struct sim_open_file {
    std::shared_ptr<sim_inode> inode;
    std::string path;
    size_t position;
    bool appends;
};

// What goes wrong with paths that start so, from now on: broken["write"]["/var/log"] = 28.
using sim_faults = std::map<std::string, std::map<std::string, uint32_t>>;

struct sim_disk {
    sim_disk();

    sim_faults broken;
    bool keeps_creation_times = true;

    // The power goes at the n-th operation from now on that changes something, ahead of it; 0 for never.
    uint64_t cut_at = 0;
    uint64_t changes = 0; // operations that have changed something

    // Called ahead of each read of the agent, with the path that the file was opened by: what others do
    // meanwhile, or how long the disk takes.
    std::function<void(const std::string &path)> before_read;

    // For tests: a file that has been there for long, its folders included.
    void put(const std::string &path, const std::string &content);
    // What other programs do to a file of theirs, which stays the same file. A power cut takes nothing of it.
    void append(const std::string &path, const std::string &content);
    void overwrite(const std::string &path, const std::string &content);
    void rename(const std::string &from, const std::string &to);
    std::string get(const std::string &path) const; // "" where there is none
    bool has(const std::string &path) const { return names.contains(path); }
    void remove(const std::string &path) { names.erase(path); }
    void make_folders(const std::string &path);

    // What a power cut leaves.
    void cut_power();

    std::map<std::string, std::shared_ptr<sim_inode>> names;
    std::map<std::string, std::shared_ptr<sim_inode>> durable;
    std::map<host_file, sim_open_file> open_files;
    host_file next_handle = 1000;
    uint64_t next_number = 1;
};

extern const files_ops sim_files;
