// The file of the store on the disk: it holds keys, so it belongs to its owner alone.
#pragma once

#include <string>

// Makes the file and the folder that it stands in where they are missing, and takes other users' rights to it
// away.
[[nodiscard]] const char *prepare_store_file(const std::string &path);

// Where the store is unless the command line says otherwise.
std::string usual_store_path();
