#include <config.h> // the names under which the engine has its functions
#include <sys/types.h>

#include <regex.h>

#include "platform/regex_posix.h"

const regex_ops regex_ops_host = posix_regex_ops;
