#include "probes/hw/little_bmc.h"

#include <algorithm>

static uint8_t byte(int value) {
    return static_cast<uint8_t>(value);
}

static void put_text(std::vector<uint8_t> *record, const sdr_words &words) {
    record->push_back(byte(words.text_kind << 6 | static_cast<int>(words.text.size())));
    record->insert(record->end(), words.text.begin(), words.text.end());
}

std::vector<uint8_t> sdr_bytes(const sdr_words &words) {
    std::vector<uint8_t> record(words.type == 1 ? 47 : 31);
    record[2] = words.version;
    record[3] = words.type;
    record[6] = words.lun;
    record[7] = words.number;
    record[8] = words.entity;
    record[9] = words.instance;
    record[12] = words.sensor_type;
    record[13] = words.reading_type;
    record[20] = words.units;
    record[21] = words.base_unit;
    record[22] = words.modifier_unit;
    if (words.type == 1) {
        record[23] = words.linearization;
        record[24] = byte(words.m);
        record[25] = byte(words.m >> 2 & 0xC0);
        record[26] = byte(words.b);
        record[27] = byte(words.b >> 2 & 0xC0);
        record[29] = byte(words.r_exp << 4 | (words.b_exp & 0x0F));
    }
    put_text(&record, words);
    // Real ones end behind their text; short texts are filled up, since too short a record counts as none.
    record.resize(std::max<size_t>(record.size(), words.type == 1 ? 64 : 48));
    record[4] = byte(static_cast<int>(record.size()) - 5);
    return record;
}

void little_bmc::add_record(std::vector<uint8_t> record) {
    auto id = static_cast<uint16_t>(records.size() + 1);
    if (!records.empty()) records.back().next = id;
    if (record.size() >= 2) {
        record[0] = byte(id);
        record[1] = byte(id >> 8);
    }
    records.push_back({id, 0xFFFF, std::move(record)});
}

void little_bmc::add_many(uint32_t count) {
    for (uint32_t i = 0; i < count; i++) {
        sdr_words words = {.lun = byte(static_cast<int>(i / 200)),
                           .number = byte(static_cast<int>(i % 200)),
                           .entity = byte(static_cast<int>(i % 54)),
                           .instance = byte(static_cast<int>(i / 54 + 1)),
                           .base_unit = 1,
                           .text = "Sensor " + std::to_string(i)};
        if (i % 10 == 8)
            words = {.type = 2,
                     .number = words.number,
                     .entity = 4,
                     .sensor_type = 13,
                     .reading_type = 0x6F,
                     .units = 0xC0,
                     .text = words.text};
        if (i % 10 == 9) words.linearization = 7;
        readings[words.number] = {{0, 100, 0xC0, 1, 0}};
        add(words);
    }
}

int little_bmc::count(uint8_t netfn, uint8_t command) const {
    return static_cast<int>(std::count_if(asked.begin(), asked.end(), [&](const bmc_request &request) {
        return request.netfn == netfn && request.command == command;
    }));
}

std::vector<uint8_t> little_bmc::reserve() {
    reservation++;
    return {0, byte(reservation), byte(reservation >> 8)};
}

std::vector<uint8_t> little_bmc::get_sdr(const std::vector<uint8_t> &data) {
    if (data.size() != 6) return {0xC7};
    size_t offset = data[4];
    size_t wanted = data[5];
    if (losses > 0 && (loss_offset < 0 || static_cast<size_t>(loss_offset) == offset)) {
        losses--;
        reservation = 0xAAAA;
    }
    if ((data[0] | data[1] << 8) != reservation) return {0xC5};
    int id = data[2] | data[3] << 8;
    auto found = std::find_if(records.begin(), records.end(), [&](const stored_record &record) {
        return record.id == id || (id == 0 && &record == records.data());
    });
    if (found == records.end()) return {0xCB};
    if (wanted > most_bytes) return {0xCA};
    if (offset > found->bytes.size()) return {0xC9};
    if (offset + wanted > found->bytes.size()) {
        if (!gives_less) return {0xCA};
        wanted = found->bytes.size() - offset;
    }
    std::vector<uint8_t> reply = {0, byte(found->next), byte(found->next >> 8)};
    auto first = found->bytes.begin() + static_cast<std::ptrdiff_t>(offset);
    reply.insert(reply.end(), first, first + static_cast<std::ptrdiff_t>(wanted));
    return reply;
}

std::vector<uint8_t> little_bmc::get_reading(const std::vector<uint8_t> &data) {
    if (data.size() != 1) return {0xC7};
    auto found = readings.find(data[0]);
    if (found == readings.end()) return {0xCB};
    std::vector<uint8_t> reply = found->second.front();
    if (found->second.size() > 1) found->second.pop_front();
    return reply;
}

std::vector<uint8_t> little_bmc::answer(const bmc_request &request) {
    asked.push_back(request);
    auto &ahead = scripted[{request.netfn, request.command}];
    if (!ahead.empty()) {
        std::vector<uint8_t> reply = ahead.front();
        ahead.pop_front();
        return reply;
    }
    switch (request.netfn << 8 | request.command) {
    case 0x0601:
        return device_id;
    case 0x0001:
        return chassis;
    case 0x042D:
        return get_reading(request.data);
    case 0x0A22:
        return reserve();
    case 0x0A23:
        return get_sdr(request.data);
    default:
        return {0xC1};
    }
}
