// The registration that begins a life: the opening, the configure exchange without a scan, and the server's
// time.
#pragma once

#include "settings/settings.h"

// One attempt with the current server.
[[nodiscard]] const char *server_register(agent_config *config);

// server_register, with the next server of the list behind a failure.
[[nodiscard]] const char *register_with_server(agent_config *config);
