#include "launcher/program_folder.h"

#include "launcher/launcher_ops.h"
#include "platform/errors.h"
#include "platform/fatal.h"
#include "platform/files.h"

#include <cstdio>

namespace {

constexpr size_t NAME_SIZE = 32;
constexpr size_t COPY_SIZE = 65536;
constexpr const char *TRIAL = "trial";
constexpr const char *TRIAL_TMP = "trial.tmp";
constexpr const char *COPY_TMP = "copy.tmp";
constexpr int NO_TRIAL = -1;

// A name with the host's ending of programs, and one behind that.
struct program_name {
    char text[NAME_SIZE];
    explicit program_name(const char *base, const char *ending = "") {
        snprintf(text, sizeof text, "%s%s%s", base, process_host->program_suffix, ending);
    }
    operator const char *() const { return text; }
};

program_name backup_file() {
    return program_name("tnagent", ".bak");
}

program_name upgrade_file() {
    return program_name("upgrade");
}

bool exists(const char *name) {
    file_facts facts;
    return files_host->facts_at(name, &facts) && facts.regular;
}

const char *move(const char *from, const char *to) {
    if (files_host->MoveFileExA(from, to)) return nullptr;
    return format_error("cannot rename %s to %s: %s", from, to, last_error_text());
}

// Closes the file; absent when all of it has reached the disk.
const char *finish_file(host_file file, const char *name, bool written) {
    bool synced = written && files_host->sync(file);
    uint32_t error = last_error();
    bool closed = files_host->close(file);
    if (synced && closed) return nullptr;
    return format_error("cannot write %s: %s", name, synced ? last_error_text() : error_text(error));
}

int read_trial() {
    if (!exists(TRIAL)) return NO_TRIAL;
    char digit = '0';
    host_file file = files_host->open(TRIAL, FILE_READ);
    if (file == NO_FILE) return 0;
    bool readable = files_host->read(file, &digit, 1) == 1;
    files_host->close(file);
    return readable && digit >= '0' && digit <= '9' ? digit - '0' : 0;
}

const char *write_trial(int starts) {
    host_file file = files_host->open(TRIAL_TMP, FILE_REPLACE);
    if (file == NO_FILE) return format_error("cannot write %s: %s", TRIAL_TMP, last_error_text());
    char digit = static_cast<char>('0' + starts);
    if (auto *failure = finish_file(file, TRIAL_TMP, file_write_all(file, &digit, 1))) return failure;
    return move(TRIAL_TMP, TRIAL);
}

// A rename reaches the disk before it returns, a removal may not.
const char *remove_trial() {
    return exists(TRIAL) ? move(TRIAL, TRIAL_TMP) : nullptr;
}

void tell_failure(const char *failure) {
    if (failure != nullptr) launcher_host->tell(true, failure);
}

bool copy_content(host_file from, host_file to) {
    static char buffer[COPY_SIZE];
    int64_t got;
    while ((got = files_host->read(from, buffer, sizeof buffer)) > 0)
        if (!file_write_all(to, buffer, static_cast<size_t>(got))) return false;
    return got == 0;
}

const char *make_executable(const char *name) {
    if (files_host->make_executable == nullptr || files_host->make_executable(name)) return nullptr;
    return format_error("cannot make %s a program: %s", name, last_error_text());
}

const char *copy_program(const char *from) {
    host_file source = files_host->open(from, FILE_READ);
    if (source == NO_FILE) return format_error("cannot copy %s: %s", from, last_error_text());
    host_file target = files_host->open(COPY_TMP, FILE_REPLACE);
    const char *failure = target == NO_FILE ? format_error("cannot write %s: %s", COPY_TMP, last_error_text())
                                            : finish_file(target, COPY_TMP, copy_content(source, target));
    files_host->close(source);
    if (failure != nullptr) return failure;
    if (auto *no_program = make_executable(COPY_TMP)) return no_program;
    return move(COPY_TMP, program_file());
}

const char *install(const char *installed) {
    if (auto *failure = copy_program(installed)) return failure;
    launcher_host->tell(false, format_error("the folder held no program: copied %s", installed));
    return nullptr;
}

// Whoever has put the file there may have left its bytes to the host's good will.
const char *sync_upgrade() {
    program_name name = upgrade_file();
    if (auto *failure = make_executable(name)) return failure;
    host_file file = files_host->open(name, FILE_WRITE);
    if (file == NO_FILE) return format_error("cannot open %s: %s", name.text, last_error_text());
    return finish_file(file, name, true);
}

// Without a program to go back to there can be no trial.
const char *take_upgrade() {
    bool proven = read_trial() == NO_TRIAL;
    if (auto *failure = sync_upgrade()) return failure;
    if (proven && exists(program_file()))
        if (auto *failure = move(program_file(), backup_file())) return failure;
    if (exists(backup_file()))
        if (auto *failure = write_trial(0)) return failure;
    if (auto *failure = move(upgrade_file(), program_file())) return failure;
    launcher_host->tell(false, "an upgrade has taken the program's place");
    return nullptr;
}

// The second half of going back, where a cut of power came between the two.
bool finish_rollback() {
    if (!exists(TRIAL) || exists(backup_file())) return false;
    tell_failure(remove_trial());
    return exists(program_file());
}

bool trial_is_over() {
    int starts = read_trial();
    return starts != NO_TRIAL && (starts >= TRIAL_STARTS || !exists(program_file()));
}

// Whether the launcher has gone back.
bool end_hopeless_trial() {
    if (!trial_is_over()) return false;
    auto *failure = roll_back();
    tell_failure(failure);
    return failure == nullptr;
}

} // namespace

const char *program_file() {
    static char name[NAME_SIZE];
    snprintf(name, sizeof name, "%s", program_name("tnagent").text);
    return name;
}

bool upgrade_waits() {
    return exists(upgrade_file());
}

const char *choose_program(const char *installed, program_choice *out) {
    *out = {.upgrade_failed = finish_rollback()};
    const char *missing = nullptr;
    if (!exists(program_file()) && !exists(backup_file())) missing = install(installed);
    tell_failure(missing);
    if (upgrade_waits()) tell_failure(take_upgrade());
    if (end_hopeless_trial()) out->upgrade_failed = true;
    if (!exists(program_file()) && exists(backup_file())) tell_failure(move(backup_file(), program_file()));
    if (!exists(program_file())) return "there is no program to start";
    int starts = exists(backup_file()) ? read_trial() : NO_TRIAL;
    out->trial = starts != NO_TRIAL;
    if (out->trial && starts < TRIAL_STARTS) tell_failure(write_trial(starts + 1));
    return nullptr;
}

const char *end_trial() {
    return remove_trial();
}

const char *roll_back() {
    if (auto *failure = move(backup_file(), program_file())) return failure;
    launcher_host->tell(true, "the upgrade has failed: the program before it has taken its place again");
    tell_failure(remove_trial());
    return nullptr;
}

const char *excuse_trial() {
    int starts = read_trial();
    return starts > 0 ? write_trial(starts - 1) : nullptr;
}
