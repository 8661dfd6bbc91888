// The agent's own upgrade: fetched in the background at the lowest priority, placed beside the program, told
// to the launcher, which swaps the files when the agent has gone.
//
//     idle          the server offers, and the settings allow it      downloading
//     downloading   further offers change nothing
//                   the thread ends with a code other than 0           idle; the server offers again
//                   the thread ends with 0: byte 1 to the launcher     ready
//     ready         the main loop leaves, and waits for the launcher   gone
#pragma once

#include "settings/settings.h"

#include <cstdint>

// The launcher has gone back to this program after a newer one failed.
extern uint32_t upgrade_failed;

// Starts the download, unless one is under way.
void start_download(agent_config *config);

// Looks whether the download has ended; sets upgrade_pending behind a good one.
void poll_download();

// Ends the process, for the launcher to go on with the upgrade that lies ready.
[[noreturn]] void attempt_upgrade();

// Forgets the download, for tests.
void upgrade_reset();
