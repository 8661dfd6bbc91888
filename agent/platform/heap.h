// The heap: every block that the agent allocates comes from here, so that tests can refuse one.
#pragma once

#include <cstddef>
#include <memory>

struct heap_ops {
    // A cleared block of `size` bytes, or absent when memory is out.
    void *(*allocate)(size_t size);
    // Takes absent.
    void (*release)(void *block);
};

extern const heap_ops heap_ops_host;
extern const heap_ops *heap_host;

// A cleared block, or absent.
void *heap_alloc(size_t size);
void heap_free(void *block);

// A cleared record of type T, or absent.
template <class T>
T *heap_new() {
    return static_cast<T *>(heap_alloc(sizeof(T)));
}

// A cleared array of `count` records or pointers, or absent.
template <class T>
T *heap_array(size_t count) {
    return static_cast<T *>(heap_alloc(count * sizeof(T)));
}

// A guard keeps a record until the line that hands it to its owner releases it.
template <auto Free>
struct freeing {
    template <class T>
    void operator()(T *record) const {
        Free(record);
    }
};
template <class T, auto Free>
using guard = std::unique_ptr<T, freeing<Free>>;

using text_guard = guard<char, heap_free>;
