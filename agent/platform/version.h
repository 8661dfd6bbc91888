// Who this program is.
#pragma once

#include <cstdint>

inline constexpr const char *PRODUCT = "Tarnix";

// "v.3.8.0 build 5153 on" and the words of the host that is built for.
extern const char *const version_text;

// The host in one word.
extern const char *const host_word;

// What the agent tells the server about its build.
inline constexpr int32_t PACKAGE_ID = 34;
inline constexpr int32_t MAJOR_VERSION = 3;
inline constexpr int32_t MINOR_VERSION = 8;
inline constexpr int32_t BUILD_NUMBER = 5153;
inline constexpr int32_t AGENT_CAPS = 0;
