// The bytes of drives: the two SMART tables, and the sense data in which a kernel gives a drive's registers
// back.
#include "fuzz/fuzz_host.h"
#include "probes/hw/ata_command.h"
#include "probes/hw/smart_table.h"

#include <cstring>
#include <memory>

namespace {

constexpr size_t TABLE_SIZE = 512;

// The table in bytes that are exactly as long as a table.
std::unique_ptr<uint8_t[]> take_table(fuzz_input *input) {
    auto table = std::make_unique<uint8_t[]>(TABLE_SIZE);
    for (size_t i = 0; i < TABLE_SIZE; i++)
        table[i] = input->take_byte();
    return table;
}

void judge_tables(fuzz_input input) {
    auto values = take_table(&input);
    auto limits = take_table(&input);
    smart_attributes attributes;
    smart_thresholds thresholds;
    decode_smart_attributes(values.get(), &attributes);
    decode_smart_thresholds(limits.get(), &thresholds);
    smart_verdict verdict = judge_smart(attributes, thresholds);
    fuzz_require(verdict >= DRIVE_OK && verdict <= DRIVE_FAILING, "a verdict is one of three");
    fuzz_require(strlen(smart_verdict_text(verdict)) > 0, "a verdict has words");
}

void judge_answer(fuzz_input input) {
    sg_request request = {};
    request.status = input.take_byte();
    request.host_status = input.take_byte() % 4 == 0 ? uint16_t{1} : uint16_t{0};
    request.driver_status = input.take_byte();
    std::string sense = input.take_rest();
    request.sense_length = static_cast<uint32_t>(sense.size());
    memcpy(request.sense, sense.data(), sense.size() < SENSE_LIMIT ? sense.size() : SENSE_LIMIT);
    sense_facts facts;
    ata_outcome outcome = judge_ata_answer(request, &facts);
    fuzz_require(outcome != ATA_DONE || request.host_status == 0, "what was not reached has done nothing");
    // The same bytes by themselves.
    auto exact = std::make_unique<uint8_t[]>(sense.size());
    memcpy(exact.get(), sense.data(), sense.size());
    decode_sense(exact.get(), static_cast<uint32_t>(sense.size()), &facts);
    fuzz_require(!facts.has_registers || facts.known, "registers stand in a known format");
}

void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    if (input.take_byte() % 2 == 0)
        judge_tables(input);
    else
        judge_answer(input);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
