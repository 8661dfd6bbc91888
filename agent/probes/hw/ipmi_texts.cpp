#include "probes/hw/ipmi_texts.h"

#include "platform/errors.h"

namespace {

struct code_range {
    uint32_t first;
    uint32_t last;
    const char *text;
};

// IPMI 2.0, clause 5.2.
constexpr code_range COMPLETION_CODES[] = {
    {0x00, 0x00, "Command completed normally"},
    {0x01, 0x7E, "Device-specific code"},
    {0x80, 0x8E, "Command-specific code"},
    {0xC0, 0xC0,
     "Node Busy. Command could not be processed because command processing resources are "
     "temporarily unavailable"},
    {0xC1, 0xC1, "Invalid Command. Used to indicate an unrecognized or unsupported command"},
    {0xC2, 0xC2, "Command invalid for given LUN"},
    {0xC3, 0xC3, "Timeout while processing command. Response unavailable"},
    {0xC4, 0xC4,
     "Out of space. Command could not be completed because of a lack of storage space required "
     "to execute the given command operation"},
    {0xC5, 0xC5, "Reservation Canceled or Invalid Reservation ID"},
    {0xC6, 0xC6, "Request data truncated"},
    {0xC7, 0xC7, "Request data length invalid"},
    {0xC8, 0xC8, "Request data field length limit exceeded"},
    {0xC9, 0xC9,
     "Parameter out of range. One or more parameters in the data field of the Request are out "
     "of range. This is different from 'Invalid data field' (CCh) code in that it indicates "
     "that the erroneous field(s) has a contiguous range of possible values"},
    {0xCA, 0xCA, "Cannot return number of requested data bytes"},
    {0xCB, 0xCB, "Requested Sensor, data, or record not present"},
    {0xCC, 0xCC, "Invalid data field in Request"},
    {0xCD, 0xCD, "Command illegal for specified sensor or record type"},
    {0xCE, 0xCE, "Command response could not be provided"},
    {0xCF, 0xCF,
     "Cannot execute duplicated request. This completion code is for devices which cannot "
     "return the response that was returned for the original instance of the request. Such "
     "devices should provide separate commands that allow the completion status of the "
     "original request to be determined. An Event Receiver does not use this completion code, "
     "but returns the 00h completion code in the response to (valid) duplicated requests"},
    {0xD0, 0xD0, "Command response could not be provided. SDR Repository in update mode"},
    {0xD1, 0xD1, "Command response could not be provided. Device in firmware update mode"},
    {0xD2, 0xD2,
     "Command response could not be provided. BMC initialization or initialization agent in "
     "progress"},
    {0xD3, 0xD3,
     "Destination unavailable. Cannot deliver request to selected destination E.g. this code "
     "can be returned if a request message is targeted to SMS, but receive message queue "
     "reception is disabled for the particular channel"},
    {0xD4, 0xD4,
     "Cannot execute command due to insufficient privilege level or other security-based "
     "restriction (e.g. disabled for 'firmware firewall')"},
    {0xD5, 0xD5, "Cannot execute command. Command, or request parameter(s), not supported in present state"},
    {0xD6, 0xD6,
     "Cannot execute command. Parameter is illegal because command sub-function has been "
     "disabled or is unavailable (e.g. disabled for 'firmware firewall')"},
    {0xFF, 0xFF, "Unspecified error"},
};

struct status_words {
    uint32_t status;
    const char *text;
};

constexpr status_words STATUS_WORDS[] = {
    {0, "No error (?!?)"},
    {0x8002000B, "Bad index"},
    {0x80041001, "General failure"},
    {0x80041002, "Object path invalid (not found)"},
    {0x80041003, "Current user not authorized"},
    {0x80041005, "Incorrect type"},
    {0x80041006, "Out of memory"},
    {0x80041008, "NULL or invalid parameter"},
    {0x8004100E, "The specified namespace did not exist on the server."},
    {0x80041010, "Specified class is invalid"},
    {0x80041015, "RPC link failure"},
    {0x80041024, "Provider does not support calls"},
    {0x8004102A, "Prop. type not recognized"},
    {0x8004102F, "Invalid parameters"},
    {0x80041033, "WMI restarted. Must re-connect to server"},
    {0x80041055, "Method not implemented"},
    {0x80041056, "Method disabled"},
    {0x80041064, "A username/password/authority was specified on a local connection."},
    {0x8007000E, "Out of memory"},
    {0x80070057, "One of the arguments is invalid"},
};

} // namespace

const char *ipmi_ccode_text(uint32_t ccode) {
    for (const code_range &row : COMPLETION_CODES)
        if (ccode >= row.first && ccode <= row.last) return row.text;
    return "Reserved";
}

const char *wmi_error_text(uint32_t status) {
    for (const status_words &row : STATUS_WORDS)
        if (row.status == status) return row.text;
    return format_error("(%u) Not a known WBEM error", status);
}
