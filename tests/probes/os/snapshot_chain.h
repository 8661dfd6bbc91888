// Process snapshots of 64-bit Windows NT, made for tests or recorded.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

inline constexpr size_t CHAIN_RECORD_SIZE = 256; // as on the hosts that have it, without the threads

template <class T>
void put_number(std::vector<uint8_t> *bytes, size_t offset, T number) {
    memcpy(bytes->data() + offset, &number, sizeof number);
}

// The chain of records with these names, as it lies at `address`; an empty name is none.
inline std::vector<uint8_t> make_chain(const std::vector<std::u16string> &names, uint64_t address) {
    std::vector<uint8_t> bytes;
    for (size_t i = 0; i < names.size(); i++) {
        size_t start = bytes.size();
        size_t length = names[i].size() * 2;
        size_t whole = (CHAIN_RECORD_SIZE + length + 2 + 7) / 8 * 8;
        bytes.resize(start + whole);
        put_number(&bytes, start, static_cast<uint32_t>(i + 1 < names.size() ? whole : 0));
        if (names[i].empty()) continue;
        put_number(&bytes, start + 56, static_cast<uint16_t>(length));
        put_number(&bytes, start + 58, static_cast<uint16_t>(length + 2));
        put_number(&bytes, start + 64, uint64_t{address + start + CHAIN_RECORD_SIZE});
        memcpy(bytes.data() + start + CHAIN_RECORD_SIZE, names[i].data(), length);
    }
    return bytes;
}

// A recorded answer: the address of the buffer, 64 bits, and what lay there.
struct recorded_answer {
    uint64_t address = 0;
    std::vector<uint8_t> bytes;

    explicit recorded_answer(const std::string &name) {
        std::ifstream file(TEST_DATA "/answers/" + name, std::ios::binary);
        file.read(reinterpret_cast<char *>(&address), sizeof address);
        bytes.assign(std::istreambuf_iterator<char>(file), {});
    }
};
