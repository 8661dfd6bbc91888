// The configuration of an advanced log check: separator, rules, silence limits.

#include "logcheck/clause.h"
#include "platform/agent_log.h"
#include "platform/regex.h"
#include "protocol/ber.h"
#include "protocol/list_bounds.h"
#include "protocol/lists.h"

static const char *compile_separator(const char *pattern, tn_regex *out) {
    static char words[80];
    if (*pattern == '\0') {
        *out = {};
        return nullptr;
    }
    int code = tn_regcomp(out, pattern);
    if (code == 0) return nullptr;
    tn_regerror(code, out, words, sizeof words);
    return words;
}

static const char *read_separator(io *stream, lognode *node, uint32_t tag) {
    adv_log_conf record;
    if (auto *failure = read_adv_log_conf_incomplete(stream, &record, tag)) return failure;
    text_guard pattern(record.recordSeparator);
    node->separatorInclusion = record.separatorInclusion;
    agent_log(LOG_TRACE, "Separator: \"%s\"", pattern.get());
    return compile_separator(pattern.get(), &node->separator);
}

static const char *read_log_rule(io *stream, lognode *node, uint32_t tag) {
    rule record;
    if (auto *failure = read_rule(stream, &record, tag)) return failure;
    text_guard clause(record.regex);
    text_guard destination(record.destination);
    logrule_guard made(alloc_logrule());
    if (auto *failure = log_clause_parse(clause.get(), &made->clause)) {
        agent_log(LOG_ERROR, "Parse error: %s", failure);
        agent_log(LOG_ERROR, "Input was: \"%s\"", clause.get());
        return "Unexpected parse error in read_devnode";
    }
    made->decision = record.decision;
    made->status = record.status;
    made->destination = destination.release();
    lognode_add_rule(node, made.release());
    return nullptr;
}

// More than any sound server sends for one check; appending one walks those before it.
static constexpr uint32_t RULE_LIMIT = 16384;

static const char *read_rules(io *stream, lognode *node) {
    if (auto *failure =
            read_list_start(stream, "Expected BE_SEQ", "List not started correctly in read_devnode_list"))
        return failure;
    for (uint32_t count = 0;; count++) {
        uint32_t tag;
        if (auto *failure = read_tag(stream, &tag)) return failure;
        if (tag == 0) return read_list_end(stream, "List not terminated correctly in read_devnode_list");
        if (count == RULE_LIMIT || tree_is_full()) return "Out of memory in read_devtree_list";
        if (auto *failure = read_log_rule(stream, node, tag)) return failure;
    }
}

// A server that leaves the two values out loses what follows in the enclosing record: the skip behind the end
// takes that record's end as well. It stays so, and a server has to send them.
static const char *read_silences(io *stream, lognode *node) {
    uint32_t tag;
    if (auto *failure = read_tag(stream, &tag)) return failure;
    if (tag == 0) {
        if (auto *failure = read_list_end(stream, "Record not terminated correctly in AdvLogConf"))
            return failure;
        return skip_to_eol(stream);
    }
    if (auto *failure = read_check_value_time(stream, &node->warningSilence, tag)) return failure;
    if (auto *failure = read_check_value_time(stream, &node->alertSilence, -1)) return failure;
    return skip_to_eol(stream);
}

const char *read_adv_log_check(io *stream, devnode *device, uint32_t tag) {
    lognode *node = alloc_lognode();
    device->lognode = node;
    node->warningSilence = node->alertSilence = -1; // off until the server says otherwise
    if (auto *failure = read_separator(stream, node, tag)) return failure;
    if (auto *failure = read_rules(stream, node)) return failure;
    if (auto *failure = read_silences(stream, node)) return failure;
    device->type = TYPE_ADV_LOG;
    agent_log(LOG_DETAIL, "Configured AdvLOG check");
    return nullptr;
}
