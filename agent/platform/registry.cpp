#include "platform/registry.h"

const registry_ops *registry_host;
