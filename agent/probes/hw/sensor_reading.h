// Reading one sensor of the BMC, and what its raw value means.
#pragma once

#include "devtree/devtree.h"
#include "probes/hw/sensor_record.h"

#include <cstdint>

// Sets the real value. A raw 0 from a sensor that has not been zero for long is verified by reading again:
// BMCs give it for a moment when a reading fails.
[[nodiscard]] const char *read_analog_sensor(sensor_record *record, resnode *result);

// Sets the integer value and the comment.
[[nodiscard]] const char *read_discrete_sensor(sensor_record *record, resnode *result);

// Reads with the one of the two that the record calls for. A full record of a digital sensor is read as one
// even where it names a numeric format.
[[nodiscard]] const char *read_sensor(sensor_record *record, resnode *result);

// The value of a raw reading, by the record's format, factors and linearization.
[[nodiscard]] const char *convert_reading(const sensor_record *record, uint8_t raw, double *out);
