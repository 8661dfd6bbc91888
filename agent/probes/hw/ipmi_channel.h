// The channel to the BMC of this host: a request goes out as a method call, the reply comes back as bytes.
//
// The channel comes up at a scan and stays up to the end of the process. When the service behind it restarts,
// the command that notices fails with its own text, and the channel is made anew, so that the next one works.
#pragma once

#include "platform/heap.h"
#include "probes/hw/ipmi_channel_ops.h"

#include <cstddef>
#include <cstdint>

// A BMC that commands can be sent to.
struct bmc_entry {
    wmi_object *class_object;
    wmi_value path; // of the instance
};

struct ipmi_request {
    uint8_t netfn;
    uint8_t lun;
    uint8_t command;
    uint32_t data_len;
    const uint8_t *data;
};

// In one block with its data, behind which zero bytes follow, so that whoever looks a few bytes beyond a
// short response finds 0.
struct ipmi_response {
    uint8_t netfn; // the request's with bit 0 set
    uint8_t lun;
    uint8_t command;
    uint32_t ccode;
    uint32_t data_len; // the completion code does not count
    uint8_t *data;
};

inline constexpr uint32_t ZEROS_BEHIND_RESPONSE = 5;

inline void free_ipmi_response(ipmi_response *response) {
    heap_free(response);
}

using ipmi_response_guard = guard<ipmi_response, free_ipmi_response>;

// The BMCs that are there: absent and 0, or one.
extern bmc_entry *active_bmcs;
extern int32_t active_bmc_count;

// Sets the channel up where it is not, and logs how many BMCs there are.
[[nodiscard]] const char *init_bmcs();

// Lets go of the BMCs and of the connection.
void release_bmcs();

// Sends the request. On success the caller owns the response; it is absent where the method ran and gave no
// output at all. A completion code other than 0 is no failure here. On a failure `bmc` may be gone: take
// active_bmcs anew.
[[nodiscard]] const char *ipmi_command(bmc_entry *bmc, ipmi_response **out, const ipmi_request *request);

// Forgets the channel without asking the host, for tests.
void ipmi_channel_reset();
