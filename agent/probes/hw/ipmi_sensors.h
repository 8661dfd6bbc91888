// The sensors of the BMC: the `ipmisens` family.
//
// The scan reads the repository of sensor data records and keeps a record a sensor, which the checks need: a
// check sends a single command, apart from the verification of zeros.
#pragma once

#include "devtree/devtree.h"
#include "probes/hw/sensor_record.h"

// Offers the state of the chassis and the sensors that can be read: analog ones, digital ones, drive bays.
const char *scan_ipmi_sensors(devtree *root);

// Reads the sensor, or the fault of the chassis, that the device's id names.
const char *check_ipmi_sensor(devnode *device, resnode *result);

inline constexpr size_t UNIT_SIZE = 64;

// The unit of the sensor's values, empty for a digital sensor.
void format_sensor_unit(const sensor_record *record, char (&out)[UNIT_SIZE]);

// The device that the sensor is offered as, or absent for kinds that are not offered.
devnode *make_sensor_device(const sensor_record *record);

// Forgets sensors, channel and reservation, for tests.
void ipmi_sensors_reset();
