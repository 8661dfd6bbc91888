// The process snapshot of 64-bit Windows NT: a chain of records, each with the distance to the next one.
#pragma once

#include "probes/os/processes_ops.h"

// Copies the image name of the record at the walk's place, empty for a record without one, and moves on.
// False behind the last record, and where a record does not lie in the snapshot as a whole. Names are cut at
// what fits; what a record says lies outside the snapshot is not looked at.
bool next_in_chain(process_walk *walk, char16_t name[IMAGE_NAME_SIZE]);
