// What others must know of the handler of faults.
#pragma once

#include <csignal>

// The signals that it takes. A fault in a thread that blocks them would end the process without a word.
inline constexpr int FAULT_SIGNALS[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGSYS};

// Puts the limit on cores, which programs inherit, back to what it was before the handler was installed. For
// the child of a fork.
void restore_core_limit();
