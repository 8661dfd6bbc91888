#include "logcheck/clause.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/fatal.h"

#include <cstring>

namespace {

// Where the parser stands. Lines count from 0 and columns from 1; the closing zero byte has a column too.
struct clause_reader {
    const char *at;
    uint32_t line;
    uint32_t column;
    char *token; // room for the longest string that the clause can hold
};

} // namespace

static void step(clause_reader *reader) {
    if (*reader->at == '\n') {
        reader->line++;
        reader->column = 0;
    }
    reader->column++;
    reader->at++;
}

static void skip_blanks(clause_reader *reader) {
    for (bool comment = false; *reader->at != '\0'; step(reader)) {
        auto code = static_cast<unsigned char>(*reader->at);
        comment = (comment || code == '#') && code != '\n';
        if (!comment && code > ' ') return;
    }
}

// A keyword is its letters alone: what stands behind it is not looked at.
static bool take_keyword(clause_reader *reader, const char *letters) {
    for (; *letters != '\0'; letters++) {
        if (*reader->at != *letters) return false;
        step(reader);
    }
    return true;
}

static void *allocate(size_t size) {
    void *block = heap_alloc(size);
    if (block == nullptr) fatal("Out of memory");
    return block;
}

static log_check_cond *new_cond(uint32_t type) {
    auto *cond = static_cast<log_check_cond *>(allocate(sizeof(log_check_cond)));
    cond->type = type;
    return cond;
}

// Reads into the token buffer; two quotes stand for one.
static const char *read_string(clause_reader *reader) {
    if (*reader->at != '\'') return "' expected";
    step(reader);
    char *end = reader->token;
    for (; *reader->at != '\0'; step(reader)) {
        if (*reader->at == '\'') {
            step(reader);
            if (*reader->at != '\'') {
                *end = '\0';
                return nullptr;
            }
        }
        *end++ = *reader->at;
    }
    return "Unterminated character string";
}

static const char *parse_regex(clause_reader *reader, log_check_cond **slot) {
    static char message[80];
    *slot = new_cond(COND_REGEX);
    if (auto *failure = read_string(reader)) return failure;
    tn_regex *regex = &(*slot)->regex;
    int code = tn_regcomp(regex, reader->token);
    if (code == 0) return nullptr;
    tn_regerror(code, regex, message, sizeof message);
    return message;
}

static const char *parse_or(clause_reader *reader, log_check_cond **slot);

static const char *parse_parentheses(clause_reader *reader, log_check_cond **slot) {
    step(reader);
    if (auto *failure = parse_or(reader, slot)) return failure;
    if (*reader->at != ')') return "')' expected";
    step(reader);
    return nullptr;
}

static const char *parse_primary(clause_reader *reader, log_check_cond **slot) {
    for (;;) {
        skip_blanks(reader);
        switch (*reader->at) {
        case '\'':
            return parse_regex(reader, slot);
        case '(':
            return parse_parentheses(reader, slot);
        case 'n':
            break;
        default:
            return "Expected condition";
        }
        if (!take_keyword(reader, "not")) return "not expected";
        *slot = new_cond(COND_NOT);
        slot = &(*slot)->child;
    }
}

// Puts a node in the place of the condition in `*slot`, which becomes its left side, and returns its right
// side.
static log_check_cond **join(log_check_cond **slot, uint32_t type) {
    log_check_cond *cond = new_cond(type);
    cond->left = *slot;
    *slot = cond;
    return &cond->right;
}

// A loop instead of a recursion: each further condition goes to the right side of the one before.
static const char *parse_and(clause_reader *reader, log_check_cond **slot) {
    for (;;) {
        if (auto *failure = parse_primary(reader, slot)) return failure;
        skip_blanks(reader);
        if (*reader->at != 'a') return nullptr;
        if (!take_keyword(reader, "and")) return "and expected";
        slot = join(slot, COND_AND);
    }
}

static const char *parse_or(clause_reader *reader, log_check_cond **slot) {
    for (;;) {
        if (auto *failure = parse_and(reader, slot)) return failure;
        skip_blanks(reader);
        if (*reader->at != 'o') return nullptr;
        if (!take_keyword(reader, "or")) return "or expected";
        slot = join(slot, COND_OR);
    }
}

const char *log_clause_parse(const char *text, log_check_cond **slot) {
    agent_log(LOG_TRACE, "Reading log check clauses string");
    *slot = nullptr;
    text_guard token(static_cast<char *>(allocate(strlen(text) + 1)));
    clause_reader reader = {.at = text, .line = 0, .column = 1, .token = token.get()};
    const char *failure = parse_or(&reader, slot);
    // Whatever stops the parser ahead of the end is reported as extra input, a more precise failure too.
    if (*reader.at != '\0') failure = "Extra input";
    return failure != nullptr ? format_error("line %u column %u: %s", reader.line, reader.column, failure)
                              : nullptr;
}

static bool match_regex(const char *entry, const tn_regex *regex) {
    int code = tn_regexec(regex, entry, 0, nullptr);
    if (code != 0 && code != TN_REG_NOMATCH) agent_log(LOG_ERROR, "regexec returned error %d", code);
    return code == 0;
}

bool log_clause_match(const char *entry, const log_check_cond *cond) {
    switch (cond != nullptr ? cond->type : 0) {
    case COND_REGEX:
        return match_regex(entry, &cond->regex);
    case COND_NOT:
        return !log_clause_match(entry, cond->child);
    case COND_AND:
        return log_clause_match(entry, cond->left) && log_clause_match(entry, cond->right);
    case COND_OR:
        return log_clause_match(entry, cond->left) || log_clause_match(entry, cond->right);
    default:
        agent_log(LOG_ERROR, "Uninitialized log_check_cond");
        return false;
    }
}

void log_clause_free(log_check_cond *cond) {
    if (cond == nullptr) return;
    tn_regfree(&cond->regex);
    log_clause_free(cond->child);
    log_clause_free(cond->left);
    log_clause_free(cond->right);
    heap_free(cond);
}
