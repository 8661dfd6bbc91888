#include "server/store_file.h"

#include "platform/errors.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr mode_t OWNER_ALONE = S_IRUSR | S_IWUSR;
static constexpr mode_t FOLDER_OF_OWNER = S_IRWXU;

// Makes every folder on the way to the file. One that cannot be made shows itself when the file is opened.
static void make_folders(const std::string &path) {
    for (size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
        mkdir(path.substr(0, slash).c_str(), FOLDER_OF_OWNER);
}

static const char *refusal(const std::string &path) {
    return format_error("cannot open the store %s: %s", path.c_str(), strerrordesc_np(errno));
}

const char *prepare_store_file(const std::string &path) {
    make_folders(path);
    int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NONBLOCK, OWNER_ALONE);
    if (file < 0) return refusal(path);
    struct stat status;
    const char *failure = nullptr;
    if (fstat(file, &status) != 0 || !S_ISREG(status.st_mode))
        failure = format_error("cannot open the store %s: it is no file", path.c_str());
    else if ((status.st_mode & 07777) != OWNER_ALONE && fchmod(file, OWNER_ALONE) != 0)
        failure = refusal(path);
    close(file);
    return failure;
}

std::string usual_store_path() {
    auto setting = [](const char *name) {
        const char *value = getenv(name);
        return std::string(value != nullptr ? value : "");
    };
    // systemd may name several folders.
    std::string state = setting("STATE_DIRECTORY").substr(0, setting("STATE_DIRECTORY").find(':'));
    if (!state.empty()) return state + "/tnserver.db";
    if (geteuid() == 0) return "/var/lib/tarnix/tnserver.db";
    std::string base = setting("XDG_STATE_HOME");
    return (base.empty() ? setting("HOME") + "/.local/state" : base) + "/tarnix/tnserver.db";
}
