# GoogleTest: the host's library, or for another host its sources, which Debian's package googletest brings.
if(NOT CMAKE_CROSSCOMPILING)
    find_package(GTest REQUIRED)
    return()
endif()
add_subdirectory(/usr/src/googletest/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
target_compile_options(gtest PRIVATE -w)
