// What the code under test writes to stderr.
#pragma once

#include "fakes/test_host.h"

#include <gtest/gtest.h>

inline std::string stderr_text;

// Keeps in `stderr_text` what goes to stderr from now on, until the next test_host.
inline void keep_stderr() {
    static files_ops keeping;
    keeping = *files_host;
    keeping.write = [](host_file file, const void *bytes, size_t size) {
        EXPECT_EQ(file, files_host->stderr_handle);
        stderr_text.append(static_cast<const char *>(bytes), size);
        return static_cast<int64_t>(size);
    };
    files_host = &keeping;
    stderr_text.clear();
}
