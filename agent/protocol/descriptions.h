// The texts for good, warning and alert that a check's `description` number stands for. They are told to the
// server.
#pragma once

#include "protocol/records.h"

inline constexpr int32_t DESCRIPTION_COUNT = 30;
extern const check_description check_descriptions[DESCRIPTION_COUNT];
