// The launcher among the services of a host that keeps a register of them.
#pragma once

struct launcher_options;

// Registers the launcher as a service that is started with these options. Absent, or what has failed.
[[nodiscard]] const char *register_service(const launcher_options &options);
