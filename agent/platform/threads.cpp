#include "platform/threads.h"

const threads_ops *threads_host;
