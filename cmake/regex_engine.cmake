# The engine of regular expressions for a host whose runtime has none: the one of the C library, which the package
# gnulib brings in a form that is built on its own. Made once in the build folder; nothing of it is kept here.
#
# The library's own headers replace those of the runtime, which only its own files can take. So the two that are
# needed, the engine's and the one with the names of its functions, are put in a folder of their own.
include(ExternalProject)
set(regex_folder ${CMAKE_BINARY_DIR}/regex_engine)
ExternalProject_Add(regex_engine_build
    PREFIX ${regex_folder}
    SOURCE_DIR ${regex_folder}/source
    BINARY_DIR ${regex_folder}/build
    DOWNLOAD_COMMAND gnulib-tool --create-testdir --without-tests --dir <SOURCE_DIR> regex
    CONFIGURE_COMMAND <SOURCE_DIR>/configure --quiet --host=x86_64-w64-mingw32 CC=${CMAKE_C_COMPILER} "CFLAGS=-O2 -g"
    BUILD_COMMAND make --silent -C gllib
    INSTALL_COMMAND ${CMAKE_COMMAND} -E copy <SOURCE_DIR>/gllib/regex.h <BINARY_DIR>/config.h ${regex_folder}/include
    BUILD_BYPRODUCTS ${regex_folder}/build/gllib/libgnu.a
    LOG_DOWNLOAD ON LOG_CONFIGURE ON LOG_BUILD ON LOG_OUTPUT_ON_FAILURE ON)
file(MAKE_DIRECTORY ${regex_folder}/include)

add_library(regex_engine STATIC IMPORTED)
add_dependencies(regex_engine regex_engine_build)
set_target_properties(regex_engine PROPERTIES
    IMPORTED_LOCATION ${regex_folder}/build/gllib/libgnu.a
    INTERFACE_INCLUDE_DIRECTORIES ${regex_folder}/include)
