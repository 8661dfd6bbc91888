// Everything that is watched: groups that contain groups and leaf checks, each leaf with the queue of its
// results that the server has not acknowledged yet.
//
// Plain records on the heap with one owner each: a group owns its devices, its children and, through `next`,
// the siblings behind it; a leaf owns its results and its check's private state. A scan builds a tree to tell
// the server what there is; the server answers with the tree of what shall be checked.
//
// Out of memory in an alloc_ function is fatal; none of them returns absent.
#pragma once

#include "platform/heap.h"
#include "platform/regex.h"

#include <cstdint>

struct log_check_cond;
struct rule_index;
struct devnode;

// Kinds of a configured check.
enum : uint32_t {
    TYPE_CONTINUOUS = 0,
    TYPE_BITMAP = 1,
    TYPE_LOG = 6,
    TYPE_REAL_CONTINUOUS = 7,
    TYPE_ACTION = 8,
    TYPE_ADV_LOG = 9,
};

// Further kinds of a scanned check.
enum : uint32_t { TYPE_TWO_STATE = 3, TYPE_SECONDS = 4 };

enum : uint32_t { STATUS_GOOD = 0, STATUS_WARNING = 1, STATUS_ALERT = 2, STATUS_ERROR = 3 };

inline constexpr uint32_t NO_STATE_MAGIC = 23;
inline constexpr uint32_t GROUP_OF_INSTANCES = 1; // bit 0 of group_flags
inline constexpr size_t NAME_LIMIT = 128;         // characters of an id or a name on the wire
inline constexpr size_t FULL_NAME_SIZE = 2048;
inline constexpr size_t COMMENT_LIMIT = 127; // characters of an error text that a result carries

// One result, an element of a check's queue.
struct resnode {
    char *comment;
    int64_t check_time; // seconds since 1970 on the local clock
    int32_t value;
    char *log_text;
    double real_value;
    uint32_t status;
    resnode *next; // the next younger one
};

// One rule of a log check.
struct logrule {
    log_check_cond *clause;
    uint32_t decision;
    uint32_t status;
    char *destination;
    devnode *target; // not owned
    logrule *next;
};

// What the server says about a log check. Only `rules` and what follows are clear in a new one.
struct lognode {
    tn_regex separator;
    uint32_t separatorInclusion;
    int64_t warningSilence; // seconds, -1 for off
    int64_t alertSilence;
    logrule *rules;
    int64_t activity_stored; // the time of activity that stands in its variable, 0 where that is not known
    rule_index *index;       // private to the walk of the rules
    void (*index_free)(rule_index *index);
};

// One line of host information. Without a value it is a heading, without a label it goes on with the item
// above.
struct clinfo {
    char *label;
    char *value;
    clinfo *next;
};

// One storage area, read by `type`. A negative limit is off. A scanned check has a range hint instead.
union check_limits {
    struct {
        int32_t warn_low, warn_high, alert_low, alert_high;
    } continuous;
    struct {
        uint32_t warn_mask, alert_mask; // bit n for value n
    } bitmap;
    struct {
        double real_warn_low, real_warn_high, real_alert_low, real_alert_high;
    } real;
    struct {
        uint32_t hint_present;
        double hint_min, hint_value, hint_max;
    } hint;
};

struct devtree {
    char *id;
    char *name;                // absent in trees that come from the server
    const char *name_template; // a literal of the scan that set it, not owned
    uint32_t group_flags;
    devnode *devices;
    devtree *children;
    devtree *next;
    devtree *parent;
};

struct devnode {
    char *id; // the key within its group, and what the check function looks at
    char *conf_id;
    char *name;
    char *comment;
    char *unit;
    uint32_t type;
    check_limits limits;
    uint32_t description; // 1 to 30: the texts for good, warning and alert
    int32_t frequency;    // seconds between runs
    devnode *next;
    devtree *parent;
    resnode *results;       // the oldest
    resnode **results_tail; // where the next result is to be stored
    int64_t next_check;     // seconds since 1970, 0 for at once
    uint32_t in_rule_walk;
    struct lognode *lognode;
    void *state; // private to the check function
    void (*state_free)(devnode *device);
    uint32_t state_magic; // which kind of state, NO_STATE_MAGIC for none
};

// All clear but for `results_tail`, at `results`, and the marks of no state.
devnode *alloc_devnode();
logrule *alloc_logrule();
lognode *alloc_lognode();
resnode *alloc_resnode();
clinfo *alloc_clinfo();

// Each takes absent and frees what the record owns.
void free_resnode(resnode *result);
void free_devnode(devnode *device); // runs state_free in every case
void free_devnode_list(devnode *first);
void free_devtree(devtree *group); // with its siblings
void free_lognode(lognode *node);
void free_logrule_list(logrule *first);
void free_clinfo_list(clinfo *first);

using resnode_guard = guard<resnode, free_resnode>;
using devnode_guard = guard<devnode, free_devnode>;
using devtree_guard = guard<devtree, free_devtree>;
using lognode_guard = guard<lognode, free_lognode>;
using logrule_guard = guard<logrule, free_logrule_list>;
using clinfo_guard = guard<clinfo, free_clinfo_list>;

// The child with this id; made with copies of both texts, as the last one, where there is none. Absent when
// memory is out, with the tree as it was.
devtree *devtree_child(devtree *parent, const char *id, const char *name);

// Puts a chain of devices, linked by `next`, in front of the group's present ones.
void devtree_add_devices(devtree *group, devnode *chain);

// Takes the state's marks away without freeing it.
void clear_state(devnode *device);
void free_no_state(devnode *device);

// Appends at the tail of the device's queue, which then owns the result.
void append_result(devnode *device, resnode *result);

// Forgets what was made of the separator and the rules.
void lognode_changed(lognode *node);

// Appends at the end of the rules.
void lognode_add_rule(lognode *node, logrule *rule);

// The group `depth` levels from the top above the device, 1 for the top one; absent where the chain is
// shorter.
devtree *group_at_depth(const devnode *device, uint32_t depth);

// Stores the chain from the top down to `group`, at most `max` entries, and returns its whole length.
uint32_t group_path(devtree *group, devtree **array, uint32_t max);

uint32_t devtree_count_checks(const devtree *tree);
bool is_bitmap_type(uint32_t type);
