// The name that a distribution gives itself in /etc/os-release, which is written in the shell's way.
#pragma once

#include <cstddef>

// The value of PRETTY_NAME without its quotes, cut at the buffer's size. False, with an empty text, where the
// file does not give it.
bool parse_os_release(const char *text, char *out, size_t size);
