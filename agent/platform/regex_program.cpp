#include "platform/regex_program.h"

#include "platform/heap.h"

namespace {

constexpr uint32_t STEP_LIMIT = 4'000;

struct program_writer {
    const regex_tree *tree;
    regex_program *program;
    bool full;
    uint32_t repeats; // around what is written now
};

} // namespace

// ---- starts inside a pattern

// An engine may take the start of the text to hold behind a line feed that the pattern has matched. Only a
// start that nothing can stand before is certain; the others are taken out. Returns whether nothing can stand
// before what follows the node.
static bool take_out_inner_starts(regex_tree *tree, uint16_t index, bool leading, bool *exact) {
    regex_node *node = &tree->nodes[index];
    switch (node->kind) {
    case RX_ASSERT:
        if (node->assertion != AT_START || leading) return leading;
        *exact = false;
        node->kind = RX_EMPTY;
        return false;
    case RX_JOIN:
        leading = take_out_inner_starts(tree, node->left, leading, exact);
        return take_out_inner_starts(tree, node->right, leading, exact);
    case RX_EITHER: {
        bool left = take_out_inner_starts(tree, node->left, leading, exact);
        return take_out_inner_starts(tree, node->right, leading, exact) && left;
    }
    case RX_REPEAT:
        return take_out_inner_starts(tree, node->left, leading, exact);
    case RX_EMPTY:
        return leading;
    case RX_BYTES:
    case RX_COPY:
        break;
    }
    return false;
}

// ---- steps

static uint16_t add_step(program_writer *writer, program_step step) {
    regex_program *program = writer->program;
    if (program->step_count == STEP_LIMIT) {
        writer->full = true;
        return 0;
    }
    program->steps[program->step_count] = step;
    return static_cast<uint16_t>(program->step_count++);
}

// Each writes the steps of a node, which go on at `next`, and returns the first of them.
static uint16_t write_node(program_writer *writer, uint16_t index, uint16_t next);

static uint16_t write_bytes(program_writer *writer, uint16_t set, uint16_t next) {
    return add_step(writer, {.op = OP_BYTES, .set = set, .out = next});
}

static uint16_t write_loop(program_writer *writer, uint16_t inner, uint16_t next) {
    uint16_t loop = add_step(writer, {.op = OP_SPLIT, .other = next});
    if (!writer->full) writer->program->steps[loop].out = write_node(writer, inner, loop);
    return loop;
}

static uint16_t write_repeat(program_writer *writer, const regex_node *node, uint16_t next) {
    writer->repeats++;
    uint16_t entry = next;
    if (node->most == WITHOUT_END)
        entry = write_loop(writer, node->left, next);
    else
        for (int32_t i = node->least; i < node->most && !writer->full; i++) {
            uint16_t once_more = write_node(writer, node->left, entry);
            entry = add_step(writer, {.op = OP_SPLIT, .out = once_more, .other = next});
        }
    for (int32_t i = 0; i < node->least && !writer->full; i++)
        entry = write_node(writer, node->left, entry);
    writer->repeats--;
    return entry;
}

// An engine may take the end of the text to hold ahead of a line feed, where more of the pattern follows.
static bool is_known(const program_writer *writer, const regex_node *node, uint16_t next) {
    bool is_last = writer->program->steps[next].op == OP_FOUND;
    return writer->repeats == 0 && (node->assertion != AT_END || is_last);
}

static uint16_t write_assertion(program_writer *writer, const regex_node *node, uint16_t next) {
    if (is_known(writer, node, next))
        return add_step(writer, {.op = OP_ASSERT, .assertion = node->assertion, .out = next});
    writer->program->exact = false;
    return next;
}

// Any text, by the set behind those of the tree.
static uint16_t write_copy(program_writer *writer, uint16_t next) {
    writer->program->exact = false;
    auto any = static_cast<uint16_t>(writer->tree->set_count);
    uint16_t loop = add_step(writer, {.op = OP_SPLIT, .other = next});
    uint16_t byte = write_bytes(writer, any, loop);
    if (!writer->full) writer->program->steps[loop].out = byte;
    return loop;
}

static uint16_t write_node(program_writer *writer, uint16_t index, uint16_t next) {
    const regex_node *node = &writer->tree->nodes[index];
    if (writer->full) return 0;
    switch (node->kind) {
    case RX_EMPTY:
        return next;
    case RX_BYTES:
        return write_bytes(writer, node->set, next);
    case RX_JOIN:
        return write_node(writer, node->left, write_node(writer, node->right, next));
    case RX_EITHER: {
        uint16_t left = write_node(writer, node->left, next);
        uint16_t right = write_node(writer, node->right, next);
        return add_step(writer, {.op = OP_SPLIT, .out = left, .other = right});
    }
    case RX_REPEAT:
        return write_repeat(writer, node, next);
    case RX_ASSERT:
        return write_assertion(writer, node, next);
    case RX_COPY:
        return write_copy(writer, next);
    }
    return next;
}

static bool copy_sets(const regex_tree *tree, regex_program *program) {
    program->set_count = tree->set_count + 1;
    program->sets = heap_array<byte_set>(program->set_count);
    if (program->sets == nullptr) return false;
    for (uint32_t i = 0; i < tree->set_count; i++)
        program->sets[i] = tree->sets[i];
    program->sets[tree->set_count] = {{~uint64_t{1}, ~uint64_t{0}, ~uint64_t{0}, ~uint64_t{0}}};
    return true;
}

// Into a block of its own, since most programs are far below the limit.
static bool write_program(regex_tree *tree, regex_program *program) {
    program_step steps[STEP_LIMIT];
    program->steps = steps;
    program->exact = true;
    take_out_inner_starts(tree, tree->root, true, &program->exact);
    program_writer writer = {.tree = tree, .program = program};
    uint16_t found = add_step(&writer, {.op = OP_FOUND});
    program->start = write_node(&writer, tree->root, found);
    program->steps = nullptr;
    if (writer.full) return false;
    program->steps = heap_array<program_step>(program->step_count);
    for (uint32_t i = 0; program->steps != nullptr && i < program->step_count; i++)
        program->steps[i] = steps[i]; // cppcheck-suppress uninitvar; add_step writes them by program->steps
    return program->steps != nullptr;
}

using program_guard = guard<regex_program, regex_program_free>;

regex_program *regex_program_new(const char *pattern) {
    regex_tree tree;
    if (!regex_tree_parse(pattern, &tree)) return nullptr;
    program_guard program(heap_new<regex_program>());
    bool written =
        program != nullptr && copy_sets(&tree, program.get()) && write_program(&tree, program.get());
    regex_tree_free(&tree);
    return written ? program.release() : nullptr;
}

void regex_program_free(regex_program *program) {
    if (program == nullptr) return;
    heap_free(program->steps);
    heap_free(program->sets);
    heap_free(program);
}
