#include "platform/heap.h"

#include <cstdlib>

const heap_ops *heap_host = &heap_ops_host;

void *heap_alloc(size_t size) {
    return heap_host->allocate(size);
}

void heap_free(void *block) {
    heap_host->release(block);
}

static void *allocate(size_t size) {
    return calloc(1, size != 0 ? size : 1);
}

static void release(void *block) {
    free(block);
}

const heap_ops heap_ops_host = {.allocate = allocate, .release = release};
