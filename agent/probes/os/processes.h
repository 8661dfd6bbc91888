// Whether a process of a given name runs: the family "proc".
//
// With the setting `use_psapi` the scan and the check go over the table of process ids, process by process;
// without it, as usual, they walk a snapshot of all processes.
#pragma once

#include "devtree/devtree.h"

// Offers each running process under its name. Two processes of one name give two devices with the same id.
const char *scan_processes(devtree *root);
const char *scan_processes_old(devtree *root);

// 1 with "Available" where a process has the device's id as its name, in whatever case, otherwise 0 with
// "Missing".
const char *check_process(devnode *device, resnode *result);
const char *check_process_old(devnode *device, resnode *result);
