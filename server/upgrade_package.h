// The program that the server offers to agents of a lower build, read from its file piece by piece.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

// What an agent takes.
inline constexpr uint32_t PACKAGE_LIMIT = 10'485'760;

// The build that a program of this kind names in its version text, "v.3.8.0 build 5153 on ...".
std::optional<int32_t> find_build(const std::string &program);

class upgrade_package {
public:
    upgrade_package() = default;
    ~upgrade_package();
    upgrade_package(const upgrade_package &) = delete;
    upgrade_package &operator=(const upgrade_package &) = delete;

    // `build` is what the package makes of an agent; where it is 0, the program has to name it.
    [[nodiscard]] const char *open(const std::string &path, int32_t build);

    int32_t build() const { return build_number; }
    uint32_t size() const { return bytes; }
    // Exactly `count` bytes, from any thread. False where the file has become shorter.
    bool read(uint32_t offset, void *buffer, size_t count) const;

private:
    int file = -1;
    int32_t build_number = 0;
    uint32_t bytes = 0;
};
