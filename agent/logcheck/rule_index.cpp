#include "logcheck/rule_index.h"

#include "logcheck/clause.h"
#include "logcheck/log_rules.h"

#include <cstring>

struct rule_index {
    lognode *node;
    regex_set *set;      // absent where the engine decides
    uint32_t leaf_count; // of the regular expressions of all clauses
};

static_assert(sizeof(rule_findings::bits) * 8 == REGEX_SET_LIMIT);

namespace {

// What can be said about a clause by the bits alone.
enum verdict { NO, PERHAPS, YES };

struct leaf_list {
    const tn_regex *regexes[REGEX_SET_LIMIT];
    uint32_t count; // may go beyond the limit
};

} // namespace

static void number_leaves(log_check_cond *cond, leaf_list *list) {
    if (cond == nullptr) return;
    if (cond->type == COND_REGEX) {
        if (list->count < REGEX_SET_LIMIT) list->regexes[list->count] = &cond->regex;
        cond->number = list->count++;
    }
    number_leaves(cond->child, list);
    number_leaves(cond->left, list);
    number_leaves(cond->right, list);
}

static verdict both(verdict a, verdict b) {
    return a < b ? a : b;
}
static verdict either(verdict a, verdict b) {
    return a > b ? a : b;
}

static verdict judge(const rule_index *index, const log_check_cond *cond, regex_bits bits) {
    switch (cond != nullptr ? cond->type : 0) {
    case COND_REGEX:
        if (!regex_bit(bits, cond->number)) return NO;
        return regex_set_is_exact(index->set, cond->number) ? YES : PERHAPS;
    case COND_NOT:
        return static_cast<verdict>(YES - judge(index, cond->child, bits));
    case COND_AND:
        return both(judge(index, cond->left, bits), judge(index, cond->right, bits));
    case COND_OR:
        return either(judge(index, cond->left, bits), judge(index, cond->right, bits));
    default:
        return PERHAPS; // the walk has something to say about it
    }
}

// Whether an entry with these bits may leave a trace: the first rule that holds decides, and one that is
// quiet about a good status leaves none.
static bool leaves_trace(void *owner, regex_bits bits) {
    const auto *index = static_cast<const rule_index *>(owner);
    for (const logrule *rule = index->node->rules; rule != nullptr; rule = rule->next) {
        verdict found = judge(index, rule->clause, bits);
        if (found == NO) continue;
        if (!rule_is_silent(rule)) return true;
        if (found == YES) return false;
    }
    return false;
}

static bool separator_of(const lognode *node, record_cut *out) {
    static constexpr record_separator places[] = {SEPARATOR_CLOSES, SEPARATOR_OPENS};
    out->separator = static_cast<uint8_t>(node->separator.literal);
    out->place = node->separatorInclusion < 2 ? places[node->separatorInclusion] : SEPARATOR_DROPPED;
    return out->separator != 0;
}

static void free_index(rule_index *index) {
    if (index == nullptr) return;
    regex_set_free(index->set);
    heap_free(index);
}

static void make_set(rule_index *index) {
    leaf_list list;
    list.count = 0;
    for (const logrule *rule = index->node->rules; rule != nullptr; rule = rule->next)
        number_leaves(rule->clause, &list);
    if (list.count > REGEX_SET_LIMIT) return;
    record_cut cut;
    bool cuts = separator_of(index->node, &cut);
    index->set = regex_set_new(list.regexes, list.count, cuts ? &cut : nullptr, leaves_trace, index);
    index->leaf_count = list.count;
}

// Made when the first entry comes, since most logs say nothing for long.
static rule_index *index_of(lognode *node) {
    if (node->index != nullptr) return node->index;
    auto *index = heap_new<rule_index>();
    if (index == nullptr) return nullptr;
    index->node = node;
    node->index = index;
    node->index_free = free_index;
    make_set(index);
    return index;
}

void find_rules(const char *entry, lognode *node, rule_findings *out) {
    out->entry = entry;
    out->index = nullptr;
    rule_index *index = index_of(node);
    if (index == nullptr || index->set == nullptr) return;
    regex_bits bits = regex_set_match(index->set, entry);
    if (bits == nullptr) return;
    memcpy(out->bits, bits, (index->leaf_count + 63) / 64 * sizeof(uint64_t));
    out->index = index;
}

bool rule_holds(const rule_findings *findings, const logrule *rule) {
    if (findings->index == nullptr) return log_clause_match(findings->entry, rule->clause);
    verdict found = judge(findings->index, rule->clause, findings->bits);
    return found == PERHAPS ? log_clause_match(findings->entry, rule->clause) : found == YES;
}

uint32_t find_reported_records(lognode *node, const char *at, const char *end, bool behind_separator,
                               uint16_t *out) {
    rule_index *index = index_of(node);
    if (index == nullptr || index->set == nullptr || node->separator.literal == '\0')
        return RECORDS_NOT_KNOWN;
    return regex_set_run(index->set, at, end, behind_separator, out);
}
