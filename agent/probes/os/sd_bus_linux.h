// The system bus by way of libsystemd, which is looked up at run time: a host without it lacks nothing else.
//
// The functions are those of sd-bus(3), under their names without "sd_bus_". Each gives a negative errno for
// a failure.
#pragma once

#include <cstdint>

struct sd_bus;
struct sd_bus_message;
struct sd_bus_error;

struct sd_bus_functions {
    int (*open_system)(sd_bus **out);
    int (*is_ready)(sd_bus *bus);
    int (*process)(sd_bus *bus, sd_bus_message **out);
    int (*wait)(sd_bus *bus, uint64_t timeout_us);
    // To flush as well would wait for a bus that hangs.
    sd_bus *(*close_unref)(sd_bus *bus);
    int (*call)(sd_bus *bus, sd_bus_message *message, uint64_t timeout_us, sd_bus_error *error,
                sd_bus_message **out_reply);
    int (*message_new_method_call)(sd_bus *bus, sd_bus_message **out, const char *destination,
                                   const char *path, const char *interface, const char *member);
    int (*message_append)(sd_bus_message *message, const char *types, ...);
    int (*message_read)(sd_bus_message *message, const char *types, ...);
    int (*message_enter_container)(sd_bus_message *message, char type, const char *contents);
    sd_bus_message *(*message_unref)(sd_bus_message *message);
};

// How long the bus and who is on it may take over one answer. A bus that hangs must not hold up the agent.
inline uint64_t bus_timeout_us = 5'000'000;

// How long a bus that did not answer in time is left alone: each of a hundred services would wait for it
// anew.
inline uint64_t bus_rest_us = 30'000'000;

// Notes what became of a wait for the bus, and gives it back. Whether the bus is being left alone.
int note_bus_status(int status);
bool is_bus_at_rest();

// Asks the bus anew at once, for tests.
void bus_rest_reset();

// Whether there is a system bus to be opened. The library brings five others with it, so that a host without
// a bus is better off without it.
bool has_system_bus();

// Absent where the library, or one of the functions in it, is missing.
const sd_bus_functions *find_sd_bus();

// Opens the system bus and waits until it takes calls. The connection is absent for a failure.
int open_bus(const sd_bus_functions *functions, sd_bus **out);
