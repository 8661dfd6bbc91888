// Bytes as hexadecimal text, for expectations that can be read.
#pragma once

#include <string>

// "02 01 05" as three bytes; blanks don't count.
std::string bytes(const std::string &hex);

// Three bytes as "02 01 05".
std::string hex(const std::string &bytes);
