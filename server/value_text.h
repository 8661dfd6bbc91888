// Times, values and foreign texts in the form in which people read them.
#pragma once

#include "server/records.h"

#include <cstdint>
#include <string>

// "2024-05-01 12:00:31", local.
std::string time_text(int64_t time);

// A value in the unit that the agent gives it: "12.3 GB" of kB, "98.31 %" of hundredths, "3 d 04:12:09" of
// seconds.
std::string value_text(const result_value &value, const std::string &unit);

// "3 d 04:12:09", "04:12:09".
std::string duration_text(int64_t seconds);

// A text from an agent on one line, without a byte that a terminal would obey. Cut at `limit` bytes.
std::string shown(const std::string &text, size_t limit = 512);

// The text of a log on one line, with what a terminal would obey written out: "\t", "\n", "\x1B". Cut behind
// about `limit` bytes, with the number of those left out; a line end at its own end is left out.
std::string log_text(const std::string &text, size_t limit = 400);

// "good", "warning", "alert" or "error".
const char *status_word(uint32_t status);
