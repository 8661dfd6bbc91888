// What a followed log must give, told as plainly as possible: whole texts instead of buffers, one question
// after the other. The reader of the agent is held against it over random histories.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

struct model_variables {
    int64_t offset;
    int64_t size;
    std::string first, last; // in their stored form

    bool operator==(const model_variables &) const = default;
};

struct log_model {
    std::string separator = "\n";
    uint32_t inclusion = 2;
    std::function<bool()> is_overdue; // asked once behind each chunk

    std::optional<model_variables> stored;
    std::vector<std::string> entries; // of the last check

    // What the process remembers goes, and what is stored stays.
    void restart() { memory.reset(); }

    // One check of the file, absent where it cannot be opened. False where the check failed.
    bool check(const std::optional<std::string> &file);

private:
    struct remembered {
        int64_t offset;
        int64_t size;
        std::string first, last;
    };
    std::optional<remembered> memory;

    void load(const std::string &file);
    bool was_rotated(const std::string &file) const;
    void cut(const std::string &file, bool is_growing);
    void store();
};
