// Signals of the host that mean something to the main loop.
//
// SIGTERM and SIGINT stop the agent in order, SIGUSR1 forces a checkin, SIGUSR2 a burst, SIGHUP re-opens the
// log. A handler sets a flag and wakes the main loop, and does nothing else.
#pragma once

struct waitable;

// What the signals wake; each may be absent.
struct signal_events {
    waitable *stop;       // by SIGTERM and SIGINT
    waitable *watch_stop; // by the same: the thread that watches the launcher
    waitable *user;       // by the others
};

struct signals_ops {
    // Optional: absent where the host has no signals.
    void (*install)(const signal_events &events);
    void (*remove)();
};

extern const signals_ops signals_ops_host;
extern const signals_ops *signals_host;

// What each signal does; the host's handlers call these.
void stop_signalled();
void force_signalled();
void burst_signalled();
void reopen_signalled();
