// RAID controllers in memory, in place of the host's, with a record of what was asked of them.
#pragma once

#include "probes/hw/raid_ops.h"

#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct scripted_volume {
    uint16_t block_size;
    uint32_t blocks;
    uint8_t state;
};

struct scripted_controller {
    uint32_t open_error = 0;
    bool legacy = true; // whether the driver takes the requests at all
    std::string firmware = "5.14";
    std::map<uint8_t, scripted_volume> volumes;
    std::map<uint8_t, uint32_t> return_codes; // by BMIC command
    std::map<uint8_t, uint8_t> failing;       // BMIC command and the volume for which it fails
};

struct scripted_raid {
    scripted_raid();
    ~scripted_raid();
    scripted_raid(const scripted_raid &) = delete;
    scripted_raid &operator=(const scripted_raid &) = delete;

    std::map<std::string, scripted_controller> ports; // by path
    std::function<void(uint32_t)> set_last_error = [](uint32_t) {};
    std::vector<std::string> opened; // paths, those that failed too
    std::vector<uint32_t> accesses;
    std::vector<std::string> requests; // blocks
    std::vector<uint32_t> controls;
    int open_adapters = 0;

    scripted_controller &add(uint32_t number) { return ports["\\\\.\\scsi" + std::to_string(number) + ":"]; }
};

inline scripted_raid *the_raid_script;

inline raid_adapter *scripted_adapter_open(const char *path, uint32_t access) {
    scripted_raid *script = the_raid_script;
    script->opened.emplace_back(path);
    script->accesses.push_back(access);
    auto found = script->ports.find(path);
    uint32_t error = found == script->ports.end() ? 2 : found->second.open_error;
    if (error != 0) {
        script->set_last_error(error);
        return nullptr;
    }
    script->open_adapters++;
    return reinterpret_cast<raid_adapter *>(&found->second);
}

inline void put_number(uint8_t *at, uint32_t value, int width) {
    for (int i = 0; i < width; i++)
        at[i] = static_cast<uint8_t>(value >> 8 * i);
}

inline void fill_ciss_reply(const scripted_controller &controller, uint8_t command, uint8_t volume,
                            uint8_t *block) {
    if (command == 0x11) {
        block[148] = static_cast<uint8_t>(controller.volumes.size());
        memcpy(block + 153, controller.firmware.data(), 4);
        return;
    }
    auto found = controller.volumes.find(volume);
    if (found == controller.volumes.end()) return;
    if (command == 0x12) {
        block[148] = found->second.state;
        return;
    }
    put_number(block + 148, found->second.block_size, 2);
    put_number(block + 150, found->second.blocks, 4);
}

inline bool scripted_adapter_control(raid_adapter *adapter, uint32_t control, uint8_t *block, uint32_t size) {
    const auto *controller = reinterpret_cast<const scripted_controller *>(adapter);
    the_raid_script->requests.emplace_back(reinterpret_cast<const char *>(block), size);
    the_raid_script->controls.push_back(control);
    uint8_t volume = block[41];
    uint8_t command = block[46];
    auto failing = controller->failing.find(command);
    if (!controller->legacy || (failing != controller->failing.end() && failing->second == volume)) {
        the_raid_script->set_last_error(1);
        return false;
    }
    auto code = controller->return_codes.find(command);
    if (code != controller->return_codes.end()) put_number(block + 20, code->second, 4);
    fill_ciss_reply(*controller, command, volume, block);
    return true;
}

inline void scripted_adapter_close(raid_adapter *) {
    the_raid_script->open_adapters--;
}

inline const raid_ops scripted_raid_ops = {
    .CreateFileA = scripted_adapter_open,
    .DeviceIoControl = scripted_adapter_control,
    .CloseHandle = scripted_adapter_close,
};

inline scripted_raid::scripted_raid() {
    the_raid_script = this;
    raid_host = &scripted_raid_ops;
}

inline scripted_raid::~scripted_raid() {
    raid_host = nullptr;
    the_raid_script = nullptr;
}
