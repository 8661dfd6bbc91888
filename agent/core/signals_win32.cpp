#include "core/signals.h"

// The host has none of them: the agent ends by the launcher's word or by being killed.
const signals_ops signals_ops_host = {};
