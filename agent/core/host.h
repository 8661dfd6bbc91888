// The host that this program is built for.
#pragma once

// Puts all its operation tables in force.
void use_host();
