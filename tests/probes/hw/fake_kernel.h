// A kernel in memory: a sysfs of texts and links, device nodes that answer commands, and a record of both.
#pragma once

#include "probes/hw/kernel_ops.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

struct fake_node {
    uint32_t open_error = 0;
    // Each gives false where the kernel does not take the command.
    std::function<bool(sg_request *)> scsi;
    std::function<bool(ciss_passthru *)> ciss;
};

struct fake_kernel {
    fake_kernel();
    ~fake_kernel();
    fake_kernel(const fake_kernel &) = delete;
    fake_kernel &operator=(const fake_kernel &) = delete;

    std::map<std::string, std::string> files; // the text of a link does not count
    std::map<std::string, fake_node> nodes;
    std::function<void(uint32_t)> set_last_error = [](uint32_t) {};
    std::vector<std::string> opened; // paths of nodes, those that failed too
    std::vector<std::string> listed; // folders, in their order
    std::map<kernel_node, std::string> open_nodes;
    kernel_node next_node = 3;
    uint32_t open_writable = 0; // of `opened`

    // A text as `find` prints it, "PATH: TEXT" a line.
    void add(const std::string &listing);
    void remove(const std::string &path);
    std::string names_in(const std::string &folder) const;
};

inline fake_kernel *the_kernel;

inline int64_t give_text(const std::string &text, char *buffer, size_t size) {
    size_t length = std::min(size, text.size());
    memcpy(buffer, text.data(), length);
    return static_cast<int64_t>(length);
}

inline int64_t fake_read_source(const char *path, char *buffer, size_t size) {
    std::string name = path;
    if (name.ends_with('/')) {
        the_kernel->listed.push_back(name);
        std::string names = the_kernel->names_in(name);
        return names.empty() ? -1 : give_text(names, buffer, size);
    }
    auto found = the_kernel->files.find(name);
    return found != the_kernel->files.end() ? give_text(found->second, buffer, size) : -1;
}

inline bool fake_exists(const char *path) {
    std::string name = path;
    auto found = the_kernel->files.lower_bound(name);
    return found != the_kernel->files.end() && (found->first == name || found->first.starts_with(name + "/"));
}

inline kernel_node fake_open_node(const char *path, node_access access) {
    the_kernel->opened.emplace_back(path);
    if (access == NODE_READ_WRITE) the_kernel->open_writable++;
    auto found = the_kernel->nodes.find(path);
    uint32_t error = found == the_kernel->nodes.end() ? 2 : found->second.open_error;
    if (error != 0) {
        the_kernel->set_last_error(error);
        return NO_NODE;
    }
    the_kernel->open_nodes[the_kernel->next_node] = path;
    return the_kernel->next_node++;
}

inline void fake_close_node(kernel_node node) {
    the_kernel->open_nodes.erase(node);
}

inline fake_node *node_of(kernel_node node) {
    return &the_kernel->nodes.at(the_kernel->open_nodes.at(node));
}

inline bool fake_send_scsi(kernel_node node, sg_request *request) {
    request->transferred = request->data_length;
    return node_of(node)->scsi(request);
}

inline bool fake_send_ciss(kernel_node node, ciss_passthru *request) {
    return node_of(node)->ciss(request);
}

inline void fake_set_last_error(uint32_t code) {
    the_kernel->set_last_error(code);
}

inline const kernel_ops fake_kernel_ops = {
    .read_source = fake_read_source,
    .exists = fake_exists,
    .open_node = fake_open_node,
    .close_node = fake_close_node,
    .send_scsi = fake_send_scsi,
    .send_ciss = fake_send_ciss,
    .set_last_error = fake_set_last_error,
};

inline fake_kernel::fake_kernel() {
    the_kernel = this;
    kernel_host = &fake_kernel_ops;
}

inline fake_kernel::~fake_kernel() {
    kernel_host = nullptr;
    the_kernel = nullptr;
}

inline void fake_kernel::add(const std::string &listing) {
    for (size_t at = 0; at < listing.size();) {
        size_t end = std::min(listing.find('\n', at), listing.size());
        std::string line = listing.substr(at, end - at);
        size_t colon = line.find(": ");
        files[line.substr(0, colon)] = line.substr(colon + 2) + "\n";
        at = end + 1;
    }
}

inline void fake_kernel::remove(const std::string &path) {
    std::erase_if(files, [&](const auto &file) { return file.first.starts_with(path); });
}

inline std::string fake_kernel::names_in(const std::string &folder) const {
    std::set<std::string> names;
    for (const auto &[path, text] : files)
        if (path.starts_with(folder))
            names.insert(path.substr(folder.size(), path.find('/', folder.size()) - folder.size()));
    std::string all;
    for (auto name = names.rbegin(); name != names.rend(); name++) // a kernel sorts nothing
        all += *name + "\n";
    return all;
}
