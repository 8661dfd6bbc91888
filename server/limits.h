// How much of everything an agent may send, and how long it may take.
#pragma once

#include <cstddef>
#include <cstdint>

// Texts, in bytes, as the protocol has them.
inline constexpr uint32_t NAME_LIMIT = 256;
inline constexpr uint32_t DOMAIN_LIMIT = 1024;
inline constexpr uint32_t ID_LIMIT = 128;
inline constexpr uint32_t COMMENT_LIMIT = 512; // of a device
inline constexpr uint32_t RESULT_COMMENT_LIMIT = 128;
inline constexpr uint32_t HOST_VALUE_LIMIT = 1024;
inline constexpr uint32_t LOG_TEXT_LIMIT = 65536;
inline constexpr uint32_t REASON_LIMIT = 1024; // of a refusal, and of the answer to a downtime request
inline constexpr uint32_t NUMBER_LIMIT = 140;  // bytes of a big number
inline constexpr uint32_t SEPARATOR_LIMIT = 1024;
inline constexpr uint32_t CLAUSE_LIMIT = 1024;
inline constexpr uint32_t DESTINATION_LIMIT = 32;

// Lists. A host with every performance counter and thousands of processes stays below half of that.
inline constexpr size_t MAX_GROUP_DEPTH = 32;
inline constexpr size_t MAX_DEVICES = 400'000; // groups count as well
inline constexpr size_t MAX_HOST_LINES = 2'000;
inline constexpr size_t MAX_DESCRIPTIONS = 200;
inline constexpr size_t MAX_RESULTS = 200'000;
inline constexpr size_t MAX_SKIP_DEPTH = 64; // of nested values that nobody knows

// Memory. A delivery after trouble is 50 results of at most 64 KiB each, which always fits: an agent whose
// delivery was too big falls back to that.
inline constexpr size_t CONNECTION_MEMORY = 96U << 20;
inline constexpr size_t TOTAL_MEMORY = 512U << 20;

// Messages of one connection behind its opening. The longest exchange has five.
inline constexpr int MAX_MESSAGES = 16;
