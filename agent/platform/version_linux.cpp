#include "platform/version.h"

const char *const version_text = "v.3.8.0 build 5153 on Linux (x86-64)";
const char *const host_word = "linux";
