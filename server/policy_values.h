// The words of a policy: times, limits, addresses and names, from text to what they mean.
//
// Every parser leaves its result alone and is false where the text is not what it has to be.
#pragma once

#include "server/records.h"

#include <optional>
#include <string>

// A limit as the policy gives it: a number, or a share of the largest value that the device can have.
struct limit_rule {
    bool off = false;
    double number = 0; // with `share`, 0 to 1
    bool share = false;
    bool bytes = false; // `number` and `at_most` are bytes, whatever unit the device has
    std::optional<double> at_most;
};

// "90", "90 s", "5 min", "2 h" or "1 d".
bool parse_duration(const std::string &text, double *out);

// A whole number.
bool parse_count(const std::string &text, double least, double most, double *out);

// "10 % at most 20 GB", "600", "10 min", "5 GB" or "none".
bool parse_limit(const std::string &text, limit_rule *out);

// "host" or "host:port".
bool parse_server(const std::string &text, server_address *out);
