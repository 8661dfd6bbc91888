// A BMC in memory: a repository that tests fill, sensors whose readings they script, and the vices of real
// ones.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <utility>
#include <vector>

struct bmc_request {
    uint8_t netfn;
    uint8_t lun;
    uint8_t command;
    std::vector<uint8_t> data;
    bool operator==(const bmc_request &) const = default;
};

// What a sensor data record says, in the words of the standard.
struct sdr_words {
    uint8_t type = 1; // 1 full, 2 compact
    uint8_t version = 0x51;
    uint8_t lun = 0;
    uint8_t number = 1;
    uint8_t entity = 7;
    uint8_t instance = 1;
    uint8_t sensor_type = 1;
    uint8_t reading_type = 1;
    uint8_t units = 0; // byte 20: format, rate, modifier, percentage
    uint8_t base_unit = 0;
    uint8_t modifier_unit = 0;
    uint8_t linearization = 0;
    int m = 1;
    int b = 0;
    int r_exp = 0;
    int b_exp = 0;
    uint8_t text_kind = 3;
    std::string text;
};

// The record with its length, and with id 0.
std::vector<uint8_t> sdr_bytes(const sdr_words &words);

struct stored_record {
    uint16_t id;
    uint16_t next;
    std::vector<uint8_t> bytes;
};

struct little_bmc {
    // Adds at the end, linked to by the one before. The first is found under id 0 too.
    void add_record(std::vector<uint8_t> record);
    void add(const sdr_words &words) { add_record(sdr_bytes(words)); }
    // 400 sensors, a few of each kind.
    void add_many(uint32_t count);

    // The completion code and what follows it.
    std::vector<uint8_t> answer(const bmc_request &request);

    std::vector<uint8_t> device_id = {0, 0x20, 0x81, 1, 2, 0x51, 0xBF, 0, 0, 0, 0, 0};
    std::vector<uint8_t> chassis = {0, 0x21, 0x10, 0x40, 0};
    std::vector<stored_record> records;
    uint32_t most_bytes = 255; // that Get SDR gives at once
    bool gives_less = false;   // where fewer are left than were asked for; otherwise that is refused
    // Readings by sensor number, completion code first; the last one stays.
    std::map<uint8_t, std::deque<std::vector<uint8_t>>> readings;
    // Answers ahead of all else, by network function and command.
    std::map<std::pair<uint8_t, uint8_t>, std::deque<std::vector<uint8_t>>> scripted;
    int losses = 0;       // of reservations, at the next reads with an offset of `loss_offset`
    int loss_offset = -1; // -1 for any
    uint16_t reservation = 0;

    std::vector<bmc_request> asked;
    // How often a command was asked for.
    int count(uint8_t netfn, uint8_t command) const;

private:
    std::vector<uint8_t> reserve();
    std::vector<uint8_t> get_sdr(const std::vector<uint8_t> &data);
    std::vector<uint8_t> get_reading(const std::vector<uint8_t> &data);
};
