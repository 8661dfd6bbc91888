// The names of what IPMI numbers: entities, kinds of sensors, units.
//
// A number without a name gives a text of format_error.
#pragma once

#include <cstdint>

const char *entity_name(uint32_t id);
const char *sensor_type_name(uint32_t type);
// The short name, empty for most units.
const char *sensor_unit_name(uint32_t unit);
