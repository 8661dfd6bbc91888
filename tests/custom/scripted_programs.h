// A host whose programs are scripted: what each read of the output gives, how the program ends, and which
// call fails. Its reader is a real thread; a wait for what cannot come ends at once, and moves the clock by
// its limit.
#pragma once

#include "custom/custom_ops.h"

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

struct scripted_read {
    std::string text;   // what comes; empty for what follows
    uint32_t error = 0; // the read fails with this, 0 and no text: nothing comes until reads are cancelled
    int64_t milliseconds = 0; // that pass ahead of it
};

struct scripted_programs {
    scripted_programs();
    ~scripted_programs(); // expects that nothing is left open
    scripted_programs(const scripted_programs &) = delete;

    std::vector<scripted_read> reads; // behind the last one the output has ended
    std::vector<uint32_t> ends;       // what each wait for the program's end gives; ended where none is left
    uint32_t exit_code = 0;

    // The n-th call of an operation fails, or gives another answer.
    std::map<std::string, int> fails;
    std::map<std::string, std::map<int, uint32_t>> answers; // of waits: "read_complete", "thread", "process"
    bool takes_words = false;
    bool inherits = true; // whether the host has DuplicateHandle
    bool deaf = false;    // cancelling does not end a read

    int64_t now_ms = 1'000'000;
    std::vector<std::string> calls; // of the main thread, in their order
    std::vector<uint32_t> limits;   // of the waits for the program's end
    std::vector<uint32_t> sizes;    // of the reads
    std::string started;            // the command line, or its words in brackets
    bool with_output = false;
    int called(const std::string &name) const;

    int open = 0;       // pipes, programs, events and threads that are not closed
    void use();         // puts the table in force; again behind a change of it
    void join();        // lets threads that were left to themselves end
    void end_process(); // what the system does when a process has gone in the midst of a run
};
