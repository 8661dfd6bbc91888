#include "platform/fatal.h"

#include "platform/agent_log.h"
#include "platform/version.h"

#include <cstdlib>

const event_ops *event_host;
const process_ops *process_host;
void (*fatal_cleanup)();

void fatal(const char *message) {
    agent_log(LOG_ERROR, "Fatal error: %s", message);
    event_report(message, 0);
    if (fatal_cleanup != nullptr) fatal_cleanup();
    process_exit(1);
}

void process_exit(int status) {
    process_host->exit(status);
    abort();
}

void event_report(const char *message, int informational) {
    void *source = event_host->RegisterEventSourceA(PRODUCT);
    if (source == nullptr) return;
    event_host->ReportEventA(source, informational == 0,
                             informational == 0 ? EVENT_ID_ERROR : EVENT_ID_INFORMATION, message);
    event_host->DeregisterEventSource(source);
}
