#include <regex.h>

#include "platform/regex_posix.h"

const regex_ops regex_ops_host = posix_regex_ops;
