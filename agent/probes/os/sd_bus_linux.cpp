#include "probes/os/sd_bus_linux.h"

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <dlfcn.h>
#include <unistd.h>

template <class Function>
static bool look_up(void *library, const char *name, Function *out) {
    *out = reinterpret_cast<Function>(dlsym(library, name));
    return *out != nullptr;
}

static bool look_up_all(void *library, sd_bus_functions *out) {
    return look_up(library, "sd_bus_open_system", &out->open_system) &&
           look_up(library, "sd_bus_is_ready", &out->is_ready) &&
           look_up(library, "sd_bus_process", &out->process) && look_up(library, "sd_bus_wait", &out->wait) &&
           look_up(library, "sd_bus_close_unref", &out->close_unref) &&
           look_up(library, "sd_bus_call", &out->call) &&
           look_up(library, "sd_bus_message_new_method_call", &out->message_new_method_call) &&
           look_up(library, "sd_bus_message_append", &out->message_append) &&
           look_up(library, "sd_bus_message_read", &out->message_read) &&
           look_up(library, "sd_bus_message_enter_container", &out->message_enter_container) &&
           look_up(library, "sd_bus_message_unref", &out->message_unref);
}

bool has_system_bus() {
    return getenv("DBUS_SYSTEM_BUS_ADDRESS") != nullptr || access("/run/dbus/system_bus_socket", F_OK) == 0;
}

const sd_bus_functions *find_sd_bus() {
    static sd_bus_functions functions;
    static bool found;
    if (found) return &functions;
    void *library = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) return nullptr;
    found = look_up_all(library, &functions);
    if (found) return &functions;
    dlclose(library);
    return nullptr;
}

static uint64_t now_us() {
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1000;
}

static uint64_t rest_until;

int note_bus_status(int status) {
    if (status == -ETIMEDOUT) rest_until = now_us() + bus_rest_us;
    return status;
}

bool is_bus_at_rest() {
    return now_us() < rest_until;
}

void bus_rest_reset() {
    rest_until = 0;
}

// The library would wait much longer for a bus that takes the connection and says nothing.
static int wait_until_ready(const sd_bus_functions *functions, sd_bus *bus) {
    uint64_t deadline = now_us() + bus_timeout_us;
    int ready = 0;
    while ((ready = functions->is_ready(bus)) == 0) {
        int status = functions->process(bus, nullptr);
        if (status < 0) return status;
        if (status > 0) continue;
        uint64_t now = now_us();
        if (now >= deadline) return -ETIMEDOUT;
        status = functions->wait(bus, deadline - now);
        if (status < 0 && status != -EINTR) return status;
    }
    return ready < 0 ? ready : 0;
}

int open_bus(const sd_bus_functions *functions, sd_bus **out) {
    sd_bus *bus = nullptr;
    int status = functions->open_system(&bus);
    if (status >= 0) status = note_bus_status(wait_until_ready(functions, bus));
    *out = status >= 0 ? bus : functions->close_unref(bus);
    return status;
}
