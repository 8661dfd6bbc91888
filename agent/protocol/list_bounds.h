// How much of a tree is read. No sound tree comes near these bounds; they keep a hostile one from the end of
// the stack and of the memory. One tree is read at a time, by the main thread.
#pragma once

// A list is being read while this lives. The outermost one starts a tree.
struct list_level {
    list_level();
    ~list_level();
    list_level(const list_level &) = delete;
    list_level &operator=(const list_level &) = delete;
};

// Counts one element of the tree. True when it is one too many, or lies too deep; never where no list is
// being read.
bool tree_is_full();
