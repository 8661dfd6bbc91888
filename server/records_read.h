// Readers of the records that agents send. Each takes the identifier if its caller has read it already, and
// leaves its failure in the reader.
#pragma once

#include "server/record_reader.h"
#include "server/records.h"

// The version alone decides whether the rest can be understood: read_identity goes on behind it.
int32_t read_client_version(record_reader &reader);
client_wants read_identity(record_reader &reader, int32_t version);

void read_empty_record(record_reader &reader, uint32_t expected, const char *record, uint32_t tag = 0);
bignum_guard read_number_record(record_reader &reader, uint32_t expected, const char *record);

configure_req read_configure_req(record_reader &reader, uint32_t tag);
std::vector<check_result> read_checkin_req(record_reader &reader, uint32_t tag);
time_req read_time_req(record_reader &reader, uint32_t tag);
int32_t read_downtime_req(record_reader &reader, uint32_t tag); // minutes
build_numbers read_upgrade_req(record_reader &reader, uint32_t tag);
