// A host that answers from a record of calls, in place of the one that runs the tests.
#pragma once

#include "fakes/test_host.h"
#include "probes/os/recorded_calls.h"

struct recorded_host {
    explicit recorded_host(const std::string &name);
    ~recorded_host();
    recorded_host(const recorded_host &) = delete;
    recorded_host &operator=(const recorded_host &) = delete;

    test_host host;
    recorded_calls calls;
    int handles = 0; // open ones

    const call_words &ask(const call_words &question) const { return calls.answer(question); }
    // Whether the call succeeded; its reason is left in last_error() where not.
    bool succeeds(const call_words &question);
};
