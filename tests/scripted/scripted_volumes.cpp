// Three mount points on a volume, of which the second one's path is long.

#include <cstdint>
#include <cstring>
#include <string>

#define EXPORTED extern "C" __declspec(dllexport)

static constexpr intptr_t NO_SEARCH = -1;
static const std::string paths[] = {"data\\", std::string(200, 'x') + "\\", "more\\"};
static uint32_t position;

EXPORTED int32_t searches_open;
int32_t searches_open = 0;

static bool give(char *path, uint32_t size) {
    if (position == 3 || paths[position].size() >= size) return false;
    strcpy(path, paths[position++].c_str());
    return true;
}

EXPORTED intptr_t FindFirstVolumeMountPointA(const char *root, char *path, uint32_t size) {
    if (strcmp(root, "D:\\") == 0) return NO_SEARCH;
    position = strcmp(root, "E:\\") == 0 ? 1 : 0; // that one begins with the long path
    if (!give(path, size)) return NO_SEARCH;
    searches_open++;
    return 4711;
}

EXPORTED int32_t FindNextVolumeMountPointA(intptr_t, char *path, uint32_t size) {
    return give(path, size);
}

EXPORTED int32_t FindVolumeMountPointClose(intptr_t) {
    searches_open--;
    return 1;
}
