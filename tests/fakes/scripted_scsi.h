// SCSI adapters, their devices and enclosures in memory, in place of the host's, with a record of what was
// asked of them.
#pragma once

#include "probes/hw/scsi_layout.h"
#include "probes/hw/scsi_ops.h"

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

// What a unit makes of a command. Without an answer the control fails.
struct scsi_answer {
    uint8_t status = 0;
    std::string data;
};

struct scripted_unit {
    scsi_unit address;
    std::function<std::optional<scsi_answer>(const std::string &cdb)> answer;
};

struct scripted_port {
    uint32_t open_error = 0;
    uint32_t query_error = 0;
    std::vector<scripted_unit> units = {};
    std::optional<std::string> table = {}; // in place of the one that the units make
};

struct scsi_request {
    std::string block; // the 56 bytes
    uint32_t output_size;
    std::string cdb() const {
        auto length = static_cast<uint8_t>(block[6]);
        return block.substr(PASS_THROUGH_CDB_OFFSET, length);
    }
};

struct scripted_scsi {
    scripted_scsi();
    ~scripted_scsi();
    scripted_scsi(const scripted_scsi &) = delete;
    scripted_scsi &operator=(const scripted_scsi &) = delete;

    std::map<std::string, scripted_port> ports; // by path
    std::function<void(uint32_t)> set_last_error = [](uint32_t) {};
    std::vector<std::string> opened; // paths, those that failed too
    std::vector<uint32_t> accesses;
    std::vector<scsi_request> requests;
    uint32_t command_error = 121;
    int queries = 0;
    int open_ports = 0;

    scripted_port &add(uint32_t number) { return ports["\\\\.\\scsi" + std::to_string(number) + ":"]; }
};

inline scripted_scsi *the_scsi_script;

inline scsi_adapter *scripted_port_open(const char *path, uint32_t access) {
    scripted_scsi *script = the_scsi_script;
    script->opened.emplace_back(path);
    script->accesses.push_back(access);
    auto found = script->ports.find(path);
    uint32_t error = found == script->ports.end() ? 2 : found->second.open_error;
    if (error != 0) {
        script->set_last_error(error);
        return nullptr;
    }
    script->open_ports++;
    return reinterpret_cast<scsi_adapter *>(&found->second);
}

inline std::string table_of(const scripted_port &port) {
    if (port.table) return *port.table;
    std::vector<scsi_unit> units;
    for (const scripted_unit &unit : port.units)
        units.push_back(unit.address);
    std::string table(INQUIRY_TABLE_SIZE, '\0');
    encode_inquiry_table(units.data(), static_cast<uint32_t>(units.size()),
                         reinterpret_cast<uint8_t *>(table.data()));
    return table;
}

inline bool scripted_query(const scripted_port &port, uint8_t *output, uint32_t size,
                           uint32_t *out_returned) {
    the_scsi_script->queries++;
    if (port.query_error != 0) {
        the_scsi_script->set_last_error(port.query_error);
        return false;
    }
    std::string table = table_of(port);
    *out_returned = static_cast<uint32_t>(table.size());
    memcpy(output, table.data(), std::min<size_t>(table.size(), size));
    return true;
}

inline const scripted_unit *unit_at(const scripted_port &port, const scsi_pass_through &command) {
    for (const scripted_unit &unit : port.units)
        if (unit.address.bus == command.bus && unit.address.target == command.target &&
            unit.address.lun == command.lun)
            return &unit;
    return nullptr;
}

inline bool scripted_command(const scripted_port &port, uint8_t *buffer, uint32_t size) {
    scsi_pass_through command;
    if (!decode_pass_through(buffer, PASS_THROUGH_SIZE, size, &command)) return false;
    const scripted_unit *unit = unit_at(port, command);
    if (unit == nullptr || !unit->answer) return false;
    std::string cdb(reinterpret_cast<const char *>(command.cdb), command.cdb_length);
    std::optional<scsi_answer> answer = unit->answer(cdb);
    if (!answer) return false;
    size_t length = std::min<size_t>(answer->data.size(), command.transfer_length);
    memcpy(buffer + command.data_offset, answer->data.data(), length);
    set_pass_through_answer(buffer, answer->status, static_cast<uint32_t>(length));
    return true;
}

inline bool scripted_port_control(scsi_adapter *adapter, uint32_t control, const uint8_t *input,
                                  uint32_t input_size, uint8_t *output, uint32_t output_size,
                                  uint32_t *out_returned) {
    const auto *port = reinterpret_cast<const scripted_port *>(adapter);
    if (control == IOCTL_SCSI_GET_INQUIRY_DATA_CODE)
        return scripted_query(*port, output, output_size, out_returned);
    std::string block(reinterpret_cast<const char *>(input), input_size);
    the_scsi_script->requests.push_back({block, output_size});
    *out_returned = output_size;
    if (control == IOCTL_SCSI_PASS_THROUGH_CODE && scripted_command(*port, output, output_size)) return true;
    the_scsi_script->set_last_error(the_scsi_script->command_error);
    return false;
}

inline void scripted_port_close(scsi_adapter *) {
    the_scsi_script->open_ports--;
}

inline const scsi_ops scripted_scsi_ops = {
    .CreateFileA = scripted_port_open,
    .DeviceIoControl = scripted_port_control,
    .CloseHandle = scripted_port_close,
};

inline scripted_scsi::scripted_scsi() {
    the_scsi_script = this;
    scsi_host = &scripted_scsi_ops;
}

inline scripted_scsi::~scripted_scsi() {
    scsi_host = nullptr;
    the_scsi_script = nullptr;
}

// An enclosure that answers as a SAF-TE processor does. A test changes its bytes.
struct scripted_enclosure {
    std::string inquiry = std::string(96, '\0');
    std::string config = std::string(64, '\0');
    std::string status;
    std::string slots;
    std::vector<std::string> failing; // the first bytes of commands that fail

    scripted_enclosure(uint8_t slot_count, uint8_t fans, uint8_t psus, uint8_t temps) {
        inquiry[0] = 3;
        inquiry.replace(44, 6, "SAF-TE");
        config[0] = static_cast<char>(fans);
        config[1] = static_cast<char>(psus);
        config[2] = static_cast<char>(slot_count);
        config[4] = static_cast<char>(temps);
        config[6] = '\x80';
        status = std::string(size_t{0} + fans + psus + slot_count + temps + 4, '\0');
        slots = std::string(size_t{4} * slot_count, '\0');
    }

    std::optional<scsi_answer> answer(const std::string &cdb) const {
        for (const std::string &start : failing)
            if (cdb.starts_with(start)) return std::nullopt;
        if (cdb[0] == 0x12) return scsi_answer{0, inquiry};
        if (cdb[2] == 0) return scsi_answer{0, config};
        return scsi_answer{0, cdb[2] == 1 ? status : slots};
    }

    // A unit of a port that answers for this enclosure, which must live on.
    scripted_unit unit(uint8_t bus, uint8_t target) const {
        return {{bus, target, 0, false}, [this](const std::string &cdb) { return answer(cdb); }};
    }
};
