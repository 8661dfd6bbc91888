// SMART drives in memory, in place of the host's, with a record of what was asked of them.
#pragma once

#include "probes/hw/smart_ops.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

// One record of a SMART table, by its place.
inline void put_slot(std::string *table, uint32_t place, uint8_t id, uint8_t second, uint8_t fourth = 0) {
    size_t at = 2 + size_t{12} * place;
    (*table)[at] = static_cast<char>(id);
    (*table)[at + 1] = static_cast<char>(second);
    (*table)[at + 3] = static_cast<char>(fourth);
}

struct scripted_drive {
    uint32_t open_error = 0;
    bool enables = true;
    bool gives_values = true;
    bool gives_thresholds = true;
    bool gives_status = true;
    int32_t success = 1; // what a control that works returns
    const char *foreign = nullptr;
    std::string values = std::string(SMART_DATA_SIZE, '\0');
    std::string thresholds = std::string(SMART_DATA_SIZE, '\0');
};

struct smart_request {
    uint32_t control;
    std::string block;
    uint32_t output_size;
};

struct scripted_drives {
    scripted_drives();
    ~scripted_drives();
    scripted_drives(const scripted_drives &) = delete;
    scripted_drives &operator=(const scripted_drives &) = delete;

    std::map<std::string, scripted_drive> drives; // by path
    std::function<void(uint32_t)> set_last_error = [](uint32_t) {};
    std::vector<std::string> opened; // paths, those that failed too
    std::vector<uint32_t> accesses;
    std::vector<smart_request> requests;
    int open_drives = 0;

    scripted_drive &add(uint32_t number) { return drives["\\\\.\\PhysicalDrive" + std::to_string(number)]; }
};

inline scripted_drives *the_drives_script;

inline smart_drive *scripted_drive_open(const char *path, uint32_t access) {
    scripted_drives *script = the_drives_script;
    script->opened.emplace_back(path);
    script->accesses.push_back(access);
    auto found = script->drives.find(path);
    uint32_t error = found == script->drives.end() ? 2 : found->second.open_error;
    if (error != 0) {
        script->set_last_error(error);
        return nullptr;
    }
    script->open_drives++;
    return reinterpret_cast<smart_drive *>(&found->second);
}

inline bool scripted_drive_answers(const scripted_drive &drive, uint8_t features) {
    switch (features) {
    case 0xD8:
        return drive.enables;
    case 0xD0:
        return drive.gives_values;
    case 0xD1:
        return drive.gives_thresholds;
    case 0xDA:
        return drive.gives_status;
    default:
        return false;
    }
}

inline int32_t scripted_drive_control(smart_drive *handle, uint32_t control, const uint8_t *input,
                                      uint32_t input_size, uint8_t *output, uint32_t output_size) {
    auto *drive = reinterpret_cast<scripted_drive *>(handle);
    std::string block(reinterpret_cast<const char *>(input), input_size);
    the_drives_script->requests.push_back({control, block, output_size});
    uint8_t features = input[4];
    if (!scripted_drive_answers(*drive, features)) {
        the_drives_script->set_last_error(5);
        return 0;
    }
    if (output_size == SMART_REPLY_SIZE) {
        const std::string &table = features == 0xD0 ? drive->values : drive->thresholds;
        memcpy(output + SMART_HEADER_SIZE, table.data(), std::min<size_t>(table.size(), SMART_DATA_SIZE));
    }
    return drive->success;
}

inline void scripted_drive_close(smart_drive *) {
    the_drives_script->open_drives--;
}

inline const char *scripted_drive_foreign(const smart_drive *handle) {
    return reinterpret_cast<const scripted_drive *>(handle)->foreign;
}

inline const smart_ops scripted_smart_ops = {
    .CreateFileA = scripted_drive_open,
    .DeviceIoControl = scripted_drive_control,
    .CloseHandle = scripted_drive_close,
    .foreign_kind = scripted_drive_foreign,
};

inline scripted_drives::scripted_drives() {
    the_drives_script = this;
    smart_host = &scripted_smart_ops;
}

inline scripted_drives::~scripted_drives() {
    smart_host = nullptr;
    the_drives_script = nullptr;
}
