// The host of a fuzz target: memory that is counted, a log that goes nowhere, and an end of the process that
// the next input survives.
#pragma once

#include "fakes/memory_io.h"

#include <cstddef>
#include <cstdint>

// What libFuzzer and the replay call with each input. Always 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

// Thrown where the process would end.
struct fuzz_process_ended {};

// Installs the host and runs one input. A fatal end is a sound answer; a block that is left behind is not.
void fuzz_one(void (*run)(const uint8_t *data, size_t size), const uint8_t *data, size_t size);

// Aborts, so that the input is kept.
void fuzz_require(bool truth, const char *rule);

// An input, taken apart from its front; 0 behind its end.
struct fuzz_input {
    const uint8_t *data;
    size_t size;

    uint8_t take_byte();
    // All that is left.
    std::string take_rest();
};
