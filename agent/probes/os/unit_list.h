// The services of a systemd host: its units, in the words of its manager, as a list in the order in which
// they were told.
#pragma once

#include "platform/heap.h"
#include "probes/os/services_ops.h"

struct unit_record {
    char *name;
    char *description;
    uint32_t state; // a service_state
    uint32_t hash;  // of the name
};

struct unit_list {
    unit_record *units;
    uint32_t count;
    uint32_t room;
};

// Active and reloading units run; what has ended or failed is stopped.
uint32_t state_of_unit(const char *active_state);

// Whether a unit can be looked after: it is a service, no template, and it was found.
bool is_service_unit(const char *name, const char *load_state);

// Adds a unit that the manager holds. Others than services are passed over. False when memory is out.
[[nodiscard]] bool add_loaded_unit(unit_list *list, const char *name, const char *description,
                                   const char *load_state, const char *active_state);

// Whether the file of a unit is that of a service that the list lacks. Masked files and second names are
// none. `*out_name` then points to the name in the path.
bool is_new_unit_file(const unit_list &list, const char *path, const char *file_state, const char **out_name);
// Adds such a unit, which is stopped since the manager does not hold it.
[[nodiscard]] bool add_unit_file(unit_list *list, const char *name, const char *description);

// The last Description of the section [Unit] in a unit's file. False, with an empty text, where it has none.
bool parse_unit_description(const char *text, char *out, size_t size);

// Fills a batch as services_ops.EnumServicesStatusA does; false where more follow. Names are cut at 256
// characters, as long as those of any other host, so that at least one fits.
bool fill_service_batch(const unit_list &list, service_record *batch, uint32_t size, uint32_t *out_needed,
                        uint32_t *out_count, uint32_t *resume);

// Clears the list.
void drop_units(unit_list *list);
