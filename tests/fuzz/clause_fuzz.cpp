// The clauses of log rules.
#include "fuzz/accepting_regex.h"
#include "fuzz/fuzz_host.h"
#include "logcheck/clause.h"

static void require_whole(const log_check_cond *cond) {
    fuzz_require(cond != nullptr, "a parsed clause has no empty place");
    switch (cond->type) {
    case COND_REGEX:
        fuzz_require(cond->regex.compiled != nullptr, "a parsed leaf is compiled");
        break;
    case COND_NOT:
        require_whole(cond->child);
        break;
    default:
        require_whole(cond->left);
        require_whole(cond->right);
    }
}

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    std::string text = input.take_rest();
    regex_host = &accepting_regex;
    log_check_cond *cond = nullptr;
    const char *failure = log_clause_parse(text.c_str(), &cond);
    log_clause_guard owner(cond);
    if (failure != nullptr) return;
    require_whole(cond);
    static_cast<void>(log_clause_match("entry", cond));
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
