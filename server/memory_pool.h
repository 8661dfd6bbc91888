// The memory that messages from agents may take: a limit over all connections, and one for each.
//
// A reader takes what it is about to keep before it allocates it, so that a lie about a length or an endless
// list costs the liar its connection and nobody else anything.
#pragma once

#include <atomic>
#include <cstddef>

class memory_pool {
public:
    explicit memory_pool(size_t most) : limit(most) {}
    bool take(size_t bytes);
    void give(size_t bytes) { taken -= bytes; }
    size_t in_use() const { return taken; }

private:
    const size_t limit;
    std::atomic<size_t> taken = 0;
};

// One connection's part of the pool, given back when it ends.
class memory_share {
public:
    memory_share(memory_pool *from, size_t most) : pool(from), limit(most) {}
    ~memory_share() { give_all(); }
    memory_share(const memory_share &) = delete;
    memory_share &operator=(const memory_share &) = delete;

    bool take(size_t bytes);
    // Behind a message whose content is no longer held.
    void give_all();

private:
    memory_pool *const pool;
    const size_t limit;
    size_t taken = 0;
};
