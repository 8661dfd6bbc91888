// The BMC's repository of sensor data records: reservation, reading a record in pieces, the walk.
//
// A BMC could hold the agent for ever: record ids can form a circle, a reservation can be lost each time that
// it is made, a record can claim more bytes than its 8-bit offset reaches, and pieces can be empty. So the
// walk reads each id that exists at most once, a record that is being read loses its reservation at most
// RESERVATION_LIMIT times, and takes at most as many pieces as it has bytes. No sound BMC comes near.
#pragma once

#include "probes/hw/ipmi_channel.h"
#include "probes/hw/sensor_record.h"

#include <cstdint>

inline constexpr uint32_t RESERVATION_LIMIT = 60; // each costs a second

// The reservation that is held; 0 for none.
extern uint16_t sdr_reservation;

[[nodiscard]] const char *reserve_sdr(uint16_t *out);

// Reads the record, or as much of it as its length byte counts: that leaves the five bytes of its header out,
// so its last bytes may stay unread. What is not read stays as it was in `buffer`.
[[nodiscard]] const char *read_sdr_record(uint8_t (&buffer)[SDR_SIZE], uint16_t *next_id, bmc_entry *bmc,
                                          uint16_t record_id);

// Reads all records, and adds those of sensors to sensor_records.
[[nodiscard]] const char *scan_sdr_repository();
