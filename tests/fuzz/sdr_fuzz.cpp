// The BMC's repository: whatever a record holds, its decoding ends and looks at nothing outside it; whatever
// a BMC answers, a scan ends, and so does a check of each device that it offers.
#include "fuzz/fuzz_host.h"
#include "platform/waits.h"
#include "probes/hw/ipmi_channel.h"
#include "probes/hw/ipmi_sensors.h"
#include "probes/hw/scripted_channel.h"
#include "probes/hw/sensor_reading.h"

#include <algorithm>
#include <cstring>

namespace {

// A scan of a sound BMC needs some five commands a record; this is for one that isn't.
constexpr size_t COMMAND_LIMIT = 200000;

const waits_ops no_waits = {.WaitForMultipleObjects = [](uint32_t, waitable *const *, uint32_t) -> int32_t {
    return WAIT_OBJECT_TIMEOUT;
}};

void check_record(const sensor_record &record) {
    fuzz_require(strlen(record.description) < DESCRIPTION_SIZE, "the description ends");
    fuzz_require(record.lun <= 3 && record.numeric_format <= 3 && record.unit_modifier <= 3 &&
                     record.linearization <= 127,
                 "fields are as wide as their bits");
    fuzz_require(record.m >= -512 && record.m <= 511 && record.b >= -512 && record.b <= 511, "ten bits");
    fuzz_require(record.r_exp >= -8 && record.r_exp <= 7 && record.b_exp >= -8 && record.b_exp <= 7,
                 "four bits");
    devnode_guard device(make_sensor_device(&record));
    double value = 0;
    for (int raw = 0; raw < 256; raw++)
        if (convert_reading(&record, static_cast<uint8_t>(raw), &value) != nullptr) break;
}

void decode(fuzz_input *input) {
    uint8_t bytes[SDR_SIZE] = {};
    std::string rest = input->take_rest();
    memcpy(bytes, rest.data(), std::min(rest.size(), sizeof bytes));
    sensor_record record;
    bool full = decode_full_record(bytes, &record) == nullptr;
    fuzz_require(full == (bytes[4] >= 49), "a full record is refused for its length alone");
    if (full) check_record(record);
    bool compact = decode_compact_record(bytes, &record) == nullptr;
    fuzz_require(compact == (bytes[4] >= 33), "a compact record too");
    if (compact) check_record(record);
}

void check_all(devtree *group) {
    for (; group != nullptr; group = group->next) {
        check_all(group->children);
        for (devnode *device = group->devices; device != nullptr; device = device->next) {
            resnode_guard result(alloc_resnode());
            const char *failure = check_ipmi_sensor(device, result.get());
            fuzz_require(failure == nullptr || failure[0] != '\0', "a failure has a text");
        }
    }
}

void scan_and_check(scripted_channel *channel) {
    waits_host = &no_waits;
    ipmi_sensors_reset();
    channel->keeps_steps = false;
    devtree root = {};
    scan_ipmi_sensors(&root);
    fuzz_require(channel->bmc.asked.size() < COMMAND_LIMIT, "a scan ends");
    check_all(root.children);
    free_devtree(root.children);
    release_bmcs();
    ipmi_sensors_reset();
    fuzz_require(channel->objects == 0, "every object is released");
}

// Each answer is what the input says: a length, then so many bytes; behind its end the BMC refuses.
void scan_answers(fuzz_input *input) {
    scripted_channel channel;
    const std::pair<uint8_t, uint8_t> commands[] = {{6, 1}, {0, 1}, {10, 0x22}, {10, 0x23}, {4, 0x2D}};
    while (input->size > 0) {
        uint8_t head = input->take_byte();
        std::vector<uint8_t> reply(input->take_byte() % 64);
        for (uint8_t &byte : reply)
            byte = input->take_byte();
        channel.bmc.scripted[commands[head % std::size(commands)]].push_back(reply);
    }
    scan_and_check(&channel);
}

// A repository of records that lead where the input says, with the input's bytes.
void scan_repository(fuzz_input *input) {
    scripted_channel channel;
    channel.bmc.most_bytes = input->take_byte();
    channel.bmc.gives_less = (input->take_byte() & 1) != 0;
    channel.bmc.losses = input->take_byte() % 8;
    while (input->size > 0) {
        uint8_t next = input->take_byte();
        std::vector<uint8_t> bytes(input->take_byte());
        for (uint8_t &byte : bytes)
            byte = input->take_byte();
        if (bytes.size() > 4) bytes[2] = 0x51;
        channel.bmc.add_record(bytes);
        if (next < 200) channel.bmc.records.back().next = next;
        if (bytes.size() > 7) channel.bmc.readings[bytes[7]] = {bytes};
    }
    scan_and_check(&channel);
}

void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    switch (input.take_byte() % 3) {
    case 0:
        return decode(&input);
    case 1:
        return scan_answers(&input);
    default:
        return scan_repository(&input);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
