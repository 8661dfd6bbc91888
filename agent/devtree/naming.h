// The name of a leaf: its path from the top group down, with points between the components.
#pragma once

#include "devtree/devtree.h"

// A new text with a backslash before every `sep` and every backslash; absent when memory is out.
char *escape_component(const char *text, char sep);

// New texts that the caller frees. In the full name the leaf's id is escaped like the groups', in the plain
// name it stands as it is. Out of memory is fatal.
char *devnode_full_name(const devnode *device);
char *devnode_plain_name(const devnode *device);
