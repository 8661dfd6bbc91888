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

const event_ops event_ops_host = {
    .RegisterEventSourceA = register_source,
    .ReportEventA = report,
    .DeregisterEventSource = deregister_source,
};
const process_ops process_ops_host = {.exit = host_exit, .GetCurrentProcessId = process_id};
