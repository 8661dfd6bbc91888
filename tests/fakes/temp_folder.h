// A new folder among the host's temporary ones, gone with everything in it when it goes out of scope.
#pragma once

#include <filesystem>
#include <random>
#include <string>

struct temp_folder {
    std::string path; // with slashes, which every host takes

    temp_folder() {
        std::random_device chance;
        do
            path = (std::filesystem::temp_directory_path() / ("tarnix." + std::to_string(chance())))
                       .generic_string();
        while (!std::filesystem::create_directory(path));
    }
    ~temp_folder() {
        std::error_code ignored;
        std::filesystem::remove_all(path, ignored);
    }
    temp_folder(const temp_folder &) = delete;
    temp_folder &operator=(const temp_folder &) = delete;
};
