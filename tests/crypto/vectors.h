// Vectors of the standards: files of rows whose fields stand between " : ", with comments behind "#".
#pragma once

#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <vector>

using vector_rows = std::vector<std::vector<std::string>>;

// A field in double quotes loses them.
inline std::string vector_field(const std::string &text) {
    if (text.size() >= 2 && text.starts_with('"') && text.ends_with('"'))
        return text.substr(1, text.size() - 2);
    return text;
}

// The rows of a file in tests/data/vectors, each of `fields` fields.
inline vector_rows read_vectors(const std::string &name, size_t fields) {
    std::ifstream file(std::string(TEST_DATA) + "/vectors/" + name);
    vector_rows rows;
    for (std::string line; std::getline(file, line);) {
        if (line.empty() || line.starts_with('#')) continue;
        std::vector<std::string> row;
        for (size_t start = 0, end = 0; end != std::string::npos; start = end + 3) {
            end = line.find(" : ", start);
            row.push_back(vector_field(line.substr(start, end - start)));
        }
        EXPECT_EQ(row.size(), fields) << name << ": " << line;
        rows.push_back(row);
    }
    EXPECT_FALSE(rows.empty()) << name;
    return rows;
}

// An odd count of digits is filled up with a zero in front.
inline std::string bytes_of_hex(std::string hex) {
    if (hex.size() % 2 != 0) hex.insert(hex.begin(), '0');
    std::string bytes;
    for (size_t i = 0; i < hex.size(); i += 2)
        bytes.push_back(static_cast<char>(std::stoi(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

inline std::string hex_of_bytes(const void *bytes, size_t count) {
    static const char digits[] = "0123456789abcdef";
    std::string hex;
    for (size_t i = 0; i < count; i++) {
        unsigned char byte = static_cast<const unsigned char *>(bytes)[i];
        hex.push_back(digits[byte >> 4]);
        hex.push_back(digits[byte & 15]);
    }
    return hex;
}
