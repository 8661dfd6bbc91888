// The start of a test program: it runs its tests and writes down the texts that they have seen.

#include "fakes/notes.h"

#include <gtest/gtest.h>

int main(int argc, char **argv) {
    testing::InitGoogleTest(&argc, argv);
    int status = RUN_ALL_TESTS();
    write_notes();
    return status;
}
