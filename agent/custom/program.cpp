#include "custom/program.h"

#include "custom/command_words.h"
#include "custom/custom_ops.h"
#include "platform/errors.h"

// SEM_FAILCRITICALERRORS, SEM_NOGPFAULTERRORBOX and SEM_NOOPENFILEERRORBOX
static constexpr uint32_t NO_QUESTIONS = 0x8003;

const custom_ops *custom_host;

void set_program_error_mode() {
    if (custom_host->SetErrorMode != nullptr) custom_host->SetErrorMode(NO_QUESTIONS);
}

const char *start_program(const char *command, output_pipe *output, started_program **out) {
    command_words_guard words;
    if (custom_host->takes_words) {
        command_words *split = nullptr;
        if (auto *failure = split_command(command, &split)) return failure;
        words.reset(split);
    }
    const char *const *list = words != nullptr ? words->words : nullptr;
    return custom_host->CreateProcessA(command, list, output, out) ? nullptr : last_error_text();
}
