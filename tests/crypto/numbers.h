// Big numbers as tests write them, and a slow second arithmetic in decimal digits to hold them against.
#pragma once

#include "crypto/bignum.h"
#include "crypto/vectors.h"

#include <algorithm>
#include <random>

inline bignum_guard number_of(const std::string &hex, uint64_t capacity = 0) {
    std::string bytes = bytes_of_hex(hex);
    bignum_guard number(bn_new(0, capacity));
    EXPECT_STREQ(bn_set_data(number.get(), bytes.data(), bytes.size()), nullptr);
    return number;
}

// Without leading zeros; "0" for zero.
inline std::string hex_of(const bignum *number) {
    size_t size = number->length * 4;
    std::string buffer(size, '\0');
    EXPECT_STREQ(bn_get_data(number, buffer.data(), &size), nullptr);
    std::string hex = hex_of_bytes(buffer.data(), size);
    hex.erase(0, std::min(hex.find_first_not_of('0'), hex.size()));
    return hex.empty() ? "0" : hex;
}

inline std::string decimal_of(const bignum *number) {
    char *text = nullptr;
    bn_to_decimal(&text, number);
    text_guard kept(text);
    return text != nullptr ? text : "(none)";
}

// What every operation leaves: no zero limb at the top, and zeros up to the capacity.
inline bool is_sound(const bignum *number) {
    if (number->length > number->capacity || (number->length > 0 && number->limbs[number->length - 1] == 0))
        return false;
    return std::all_of(number->limbs + number->length, number->limbs + number->capacity,
                       [](uint32_t limb) { return limb == 0; });
}

// Limbs that are often all zeros, all ones or a single bit: carries and estimates go wrong there first.
inline std::string random_hex(std::mt19937 &random, size_t limbs) {
    static const char *const favourites[] = {"00000000", "ffffffff", "80000000", "00000001", "7fffffff"};
    std::string hex = "0";
    for (size_t i = 0; i < limbs; i++) {
        auto limb = static_cast<uint32_t>(random());
        char text[9];
        snprintf(text, sizeof text, "%08x", limb);
        hex += random() % 3 == 0 ? favourites[random() % 5] : text;
    }
    return hex;
}

// Decimal digits, the lowest first, without zeros at the top.
using slow_number = std::vector<int>;

inline slow_number slow_carried(slow_number digits) {
    for (size_t i = 0; i < digits.size(); i++) {
        if (digits[i] >= 10 && i + 1 == digits.size()) digits.push_back(0);
        if (digits[i] >= 10) digits[i + 1] += digits[i] / 10;
        digits[i] %= 10;
    }
    while (!digits.empty() && digits.back() == 0)
        digits.pop_back();
    return digits;
}

inline slow_number slow_product(const slow_number &a, const slow_number &b) {
    slow_number product(a.size() + b.size(), 0);
    for (size_t i = 0; i < a.size(); i++)
        for (size_t j = 0; j < b.size(); j++)
            product[i + j] += a[i] * b[j];
    return slow_carried(product);
}

inline slow_number slow_of_hex(const std::string &hex) {
    slow_number value;
    for (char digit : hex) {
        for (int &d : value)
            d *= 16;
        if (value.empty()) value.push_back(0);
        value[0] += std::stoi(std::string(1, digit), nullptr, 16);
        value = slow_carried(value);
    }
    return value;
}

inline bool slow_less(const slow_number &a, const slow_number &b) {
    if (a.size() != b.size()) return a.size() < b.size();
    return std::lexicographical_compare(a.rbegin(), a.rend(), b.rbegin(), b.rend());
}

inline slow_number slow_difference(slow_number a, const slow_number &b) {
    for (size_t i = 0; i < a.size(); i++) {
        a[i] -= i < b.size() ? b[i] : 0;
        if (a[i] < 0) {
            a[i] += 10;
            a[i + 1]--;
        }
    }
    return slow_carried(a);
}

// Brings the digits down one by one, as on paper.
inline slow_number slow_remainder(const slow_number &a, const slow_number &modulus) {
    slow_number rest;
    for (size_t i = a.size(); i-- > 0;) {
        rest.insert(rest.begin(), a[i]);
        rest = slow_carried(rest);
        while (!slow_less(rest, modulus))
            rest = slow_difference(rest, modulus);
    }
    return rest;
}

inline std::string slow_text(const slow_number &value) {
    std::string text;
    for (size_t i = value.size(); i-- > 0;)
        text.push_back(static_cast<char>('0' + value[i]));
    return text.empty() ? "0" : text;
}
