#include "fakes/hex.h"

#include <cctype>

std::string bytes(const std::string &hex) {
    std::string digits, result;
    for (char c : hex)
        if (isxdigit(static_cast<unsigned char>(c)) != 0) digits.push_back(c);
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        result.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    return result;
}

std::string hex(const std::string &bytes) {
    static const char digits[] = "0123456789ABCDEF";
    std::string result;
    for (char c : bytes) {
        auto byte = static_cast<unsigned char>(c);
        if (!result.empty()) result.push_back(' ');
        result.push_back(digits[byte >> 4]);
        result.push_back(digits[byte & 15]);
    }
    return result;
}
