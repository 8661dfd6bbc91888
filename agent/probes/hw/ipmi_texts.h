// What completion codes of the BMC and statuses of the service mean, in words.
#pragma once

#include <cstdint>

const char *ipmi_ccode_text(uint32_t ccode);
const char *wmi_error_text(uint32_t status);
