// Cuts what follows in a log into records, at the separator that the server gave for it.
#pragma once

#include "logcheck/followed_file.h"

#include "devtree/devtree.h"

// Reads on from the file's position to the file's end, or until a check-in is due, and hands each record to
// the rules of the check. `*out_remainder` is the count of bytes read that belong to no record yet. A failed
// read is told only where the file has not grown, since the next check of one that has comes back to it.
[[nodiscard]] const char *cut_log_records(followed_file *log, devnode *device, bool still_growing,
                                          size_t *out_remainder);
