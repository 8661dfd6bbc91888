#include "platform/fatal.h"

#include <cstdlib>
#include <syslog.h>
#include <unistd.h>

static void *register_source(const char *source) {
    static char opened;
    openlog(source, LOG_PID | LOG_NDELAY, LOG_DAEMON);
    return &opened;
}

static void report(void *, bool error, uint32_t, const char *message) {
    syslog(error ? LOG_ERR : LOG_INFO, "%s", message);
}

static void deregister_source(void *) {
    closelog();
}

static void host_exit(int status) {
    exit(status);
}

static uint32_t process_id() {
    return static_cast<uint32_t>(getpid());
}

// Behind a replacement the kernel adds a word to the name; the folder stays right.
static bool program_path(char *buffer, size_t size) {
    ssize_t length = readlink("/proc/self/exe", buffer, size - 1);
    if (length < 0) return false;
    buffer[length] = '\0';
    return true;
}

const event_ops event_ops_host = {
    .RegisterEventSourceA = register_source,
    .ReportEventA = report,
    .DeregisterEventSource = deregister_source,
};
const process_ops process_ops_host = {
    .exit = host_exit,
    .GetCurrentProcessId = process_id,
    .GetModuleFileNameA = program_path,
    .program_suffix = "",
};
