// The program: host, log, start-up, main loop.

#include "core/host.h"
#include "core/run_loop.h"
#include "core/startup.h"
#include "platform/agent_log.h"

int main(int argc, char **argv) {
    use_host();
    log_to_stderr();
    start_up(argc, argv);
    run_loop(0);
}
