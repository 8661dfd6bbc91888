#include "server/upgrade_package.h"

#include "platform/errors.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

upgrade_package::~upgrade_package() {
    if (file >= 0) close(file);
}

static const char *judge_file(int file, const std::string &path, uint32_t *out_size) {
    struct stat found;
    if (fstat(file, &found) != 0)
        return format_error("cannot read the upgrade %s: %s", path.c_str(), strerrordesc_np(errno));
    if (!S_ISREG(found.st_mode)) return format_error("the upgrade %s is no file", path.c_str());
    if (found.st_size == 0) return format_error("the upgrade %s is empty", path.c_str());
    if (found.st_size > PACKAGE_LIMIT)
        return format_error("the upgrade %s has %lld bytes, and agents take %u at most", path.c_str(),
                            static_cast<long long>(found.st_size), PACKAGE_LIMIT);
    *out_size = static_cast<uint32_t>(found.st_size);
    return nullptr;
}

const char *upgrade_package::open(const std::string &path, int32_t build) {
    file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (file < 0) return format_error("cannot read the upgrade %s: %s", path.c_str(), strerrordesc_np(errno));
    if (auto *failure = judge_file(file, path, &bytes)) return failure;
    std::string program(bytes, '\0');
    if (!read(0, program.data(), program.size()))
        return format_error("cannot read the upgrade %s", path.c_str());
    std::optional<int32_t> own = build != 0 ? build : find_build(program);
    if (!own)
        return format_error("the upgrade %s does not name its build: --upgrade-build says it", path.c_str());
    build_number = *own;
    return nullptr;
}

bool upgrade_package::read(uint32_t offset, void *buffer, size_t count) const {
    auto *at = static_cast<char *>(buffer);
    while (count > 0) {
        ssize_t got = pread(file, at, count, offset);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        at += got;
        offset += static_cast<uint32_t>(got);
        count -= static_cast<size_t>(got);
    }
    return true;
}
