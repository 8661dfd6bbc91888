// The agent's side of the launcher's protocol and of its own upgrade.
#pragma once

#include <cstdint>

// The launcher has gone back to this program after a newer one failed.
extern uint32_t upgrade_failed;

// The ends of the launcher's pipes, as the command line gives them; 0 for no launcher.
void set_parent_pipes(int32_t read_end, int32_t write_end);

// Ends the process, for the launcher to go on with the upgrade that lies ready.
[[noreturn]] void attempt_upgrade();

// Forgets the launcher, for tests.
void upgrade_reset();
