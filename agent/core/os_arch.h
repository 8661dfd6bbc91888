// The platform's half of start-up and its reverse.
#pragma once

struct waitable;

void init_os_arch_specific();

// Takes back what init_os_arch_specific has set up. Also reached from fatal.
void platform_cleanup();

// Forgets the events of a process that has gone, for tests.
void os_arch_reset();

// Ends the main loop's sleep and the sleeps inside probes.
extern waitable *signal_ev;
