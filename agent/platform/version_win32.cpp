#include "platform/version.h"

const char *const version_text = "v.3.8.0 build 5153 on Windows NT (AMD-64)";
const char *const host_word = "win32";
