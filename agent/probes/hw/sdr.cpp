#include "probes/hw/sdr.h"

#include "platform/agent_log.h"
#include "platform/waits.h"

#include <algorithm>
#include <cstring>

uint16_t sdr_reservation;

namespace {

// IPMI 2.0, clauses 33.11 and 33.12.
constexpr uint8_t NETFN_STORAGE = 10;
constexpr uint8_t RESERVE_SDR_REPOSITORY = 0x22;
constexpr uint8_t GET_SDR = 0x23;

enum : uint32_t { CCODE_LOST_RESERVATION = 0xC5, CCODE_TOO_MANY_BYTES = 0xCA, CCODE_UNSPECIFIED = 0xFF };

constexpr uint32_t FIRST_CHUNK = 16;
constexpr uint32_t NEXT_ID_SIZE = 2; // in front of a record's bytes
constexpr uint8_t LENGTH_OFFSET = 4;
constexpr uint8_t SDR_VERSION = 0x51;
constexpr uint16_t LAST_RECORD = 0xFFFF;

constexpr const char *NOTHING_READ = "Unable to read anything in a record";

// A record that is being read.
struct record_reading {
    uint8_t *buffer;
    uint16_t *next_id;
    uint16_t record_id;
    uint32_t chunk;
    uint8_t offset;
    uint32_t pieces; // since the reservation
    uint32_t losses; // of reservations
    bool complete;
};

struct record_type_name {
    uint8_t first;
    uint8_t last;
    const char *name;
};

// IPMI 2.0, clause 43: records that are no sensors of their own.
constexpr record_type_name OTHER_RECORDS[] = {
    {3, 3, " Event-only record"},
    {8, 8, " Entity Association record"},
    {9, 9, " Device-relative Entity Association record"},
    {10, 15, " Unhandled (reserved) SDR record"},
    {16, 16, " Generic Device Locator record"},
    {17, 17, " FRU Device Locator record"},
    {18, 18, " Management Controller Device Locator record"},
    {19, 19, " Management Controller Confirmation record"},
    {20, 20, " Baseboard Management Controller Channel Info record"},
    {192, 192, " OEM record"},
};

} // namespace

// ---- reading a record

const char *reserve_sdr(uint16_t *out) {
    const ipmi_request request = {.netfn = NETFN_STORAGE, .command = RESERVE_SDR_REPOSITORY};
    ipmi_response *made = nullptr;
    if (auto *failure = ipmi_command(active_bmcs, &made, &request)) return failure;
    ipmi_response_guard response(made);
    *out =
        response == nullptr ? uint16_t{0} : static_cast<uint16_t>(response->data[0] | response->data[1] << 8);
    if (*out == 0) agent_log(LOG_NORMAL, "Odd! Got 0 reservation code on SDR!");
    return nullptr;
}

static const char *send_get_sdr(bmc_entry *bmc, const record_reading *reading, ipmi_response_guard *out) {
    const uint8_t data[] = {static_cast<uint8_t>(sdr_reservation),
                            static_cast<uint8_t>(sdr_reservation >> 8),
                            static_cast<uint8_t>(reading->record_id),
                            static_cast<uint8_t>(reading->record_id >> 8),
                            reading->offset,
                            static_cast<uint8_t>(reading->chunk)};
    const ipmi_request request = {
        .netfn = NETFN_STORAGE, .command = GET_SDR, .data_len = sizeof data, .data = data};
    ipmi_response *made = nullptr;
    const char *failure = ipmi_command(bmc, &made, &request);
    out->reset(made);
    return failure;
}

static const char *shrink_chunk(record_reading *reading) {
    reading->chunk = reading->chunk == 255 ? 128 : reading->chunk / 2;
    if (reading->chunk == 0) return NOTHING_READ;
    agent_log(LOG_TRACE, "Will re-try read with %i bytes", static_cast<int>(reading->chunk));
    return nullptr;
}

static const char *reserve_again(record_reading *reading) {
    if (++reading->losses > RESERVATION_LIMIT) {
        agent_log(LOG_WARNING, "SDR Repository reservation lost %u times in one record, giving up",
                  reading->losses);
        return NOTHING_READ;
    }
    agent_log(LOG_NORMAL, "SDR Repository reservation lost. Re-reserving");
    sleep_interruptible(1);
    reading->offset = 0;
    reading->pieces = 0;
    return reserve_sdr(&sdr_reservation);
}

// Appends what came. Bytes beyond the buffer, from a BMC that sends more than it was asked for, are dropped.
static void append_piece(record_reading *reading, const uint8_t *bytes, uint32_t count) {
    auto room = static_cast<uint32_t>(SDR_SIZE - reading->offset);
    memcpy(reading->buffer + reading->offset, bytes, std::min(count, room));
    reading->offset = static_cast<uint8_t>(reading->offset + count);
    if (reading->offset + reading->chunk > SDR_SIZE)
        reading->chunk = static_cast<uint32_t>(SDR_SIZE - reading->offset);
}

static const char *take_piece(record_reading *reading, const ipmi_response *response) {
    if (response->data_len < NEXT_ID_SIZE) return "Received too little data from Get DSR";
    if (++reading->pieces > SDR_SIZE) {
        agent_log(LOG_WARNING, "SDR 0x%04X doesn't end behind %u pieces, giving up", reading->record_id,
                  static_cast<uint32_t>(SDR_SIZE));
        return NOTHING_READ;
    }
    if (reading->offset == 0)
        *reading->next_id = static_cast<uint16_t>(response->data[0] | response->data[1] << 8);
    append_piece(reading, response->data + NEXT_ID_SIZE, response->data_len - NEXT_ID_SIZE);
    if (reading->offset <= LENGTH_OFFSET) return nullptr;
    uint8_t length = reading->buffer[LENGTH_OFFSET];
    agent_log(LOG_TRACE, "Record claims full size is %u bytes", length);
    if (reading->offset < length) return nullptr;
    agent_log(LOG_TRACE, "Read full SDR repository record");
    reading->complete = true;
    return nullptr;
}

static const char *take_reply(record_reading *reading, const ipmi_response *response) {
    if (response == nullptr) return "Received too little data from Get DSR";
    switch (response->ccode) {
    case 0:
        return take_piece(reading, response);
    case CCODE_TOO_MANY_BYTES:
    case CCODE_UNSPECIFIED:
        return shrink_chunk(reading);
    case CCODE_LOST_RESERVATION:
        return reserve_again(reading);
    default:
        return "Unexpected error reading SDR";
    }
}

const char *read_sdr_record(uint8_t (&buffer)[SDR_SIZE], uint16_t *next_id, bmc_entry *bmc,
                            uint16_t record_id) {
    if (sdr_reservation == 0)
        if (auto *failure = reserve_sdr(&sdr_reservation)) return failure;
    record_reading reading = {
        .buffer = buffer, .next_id = next_id, .record_id = record_id, .chunk = FIRST_CHUNK};
    while (!reading.complete) {
        ipmi_response_guard response;
        if (auto *failure = send_get_sdr(bmc, &reading, &response)) return failure;
        if (auto *failure = take_reply(&reading, response.get())) return failure;
    }
    return nullptr;
}

// ---- the walk

static void log_other_record(uint8_t type) {
    for (const record_type_name &row : OTHER_RECORDS) {
        if (type < row.first || type > row.last) continue;
        agent_log(LOG_TRACE, "%s", row.name);
        return;
    }
    agent_log(LOG_NORMAL, " Unknown record type 0x%X", type);
}

static void take_record(const uint8_t (&record)[SDR_SIZE]) {
    const uint8_t version = record[2];
    const uint8_t type = record[3];
    int id = record[0] | record[1] << 8;
    agent_log(LOG_TRACE, "SDR ID %i has version 0x%X", id, version);
    if (version != SDR_VERSION) {
        agent_log(LOG_TRACE, "SDR ID %i.%i has unsupported version 0x%X", record[0], record[1], version);
        return;
    }
    if (type != SDR_FULL && type != SDR_COMPACT) {
        log_other_record(type);
        return;
    }
    const char *failure = type == SDR_FULL ? parse_full_record(record) : parse_compact_record(record);
    if (failure != nullptr) agent_log(LOG_NORMAL, "Error parsing record: %s", failure);
}

const char *scan_sdr_repository() {
    uint8_t was_read[(LAST_RECORD + 1) / 8] = {}; // a bit an id
    uint16_t id = 0;
    do {
        was_read[id / 8] |= static_cast<uint8_t>(1 << id % 8);
        uint8_t record[SDR_SIZE] = {};
        uint16_t next_id = LAST_RECORD;
        if (auto *failure = read_sdr_record(record, &next_id, active_bmcs, id)) return failure;
        take_record(record);
        id = next_id;
        if ((was_read[id / 8] >> id % 8 & 1) != 0) {
            agent_log(LOG_WARNING, "SDR repository leads back to record 0x%04X, ending its walk", id);
            return nullptr;
        }
    } while (id != LAST_RECORD);
    return nullptr;
}
