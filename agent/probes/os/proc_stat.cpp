#include "probes/os/proc_stat.h"

#include "platform/text.h"
#include "probes/os/host_text.h"

#include <cstdio>
#include <cstring>

uint64_t total_time(const processor_times &times) {
    return idle_time(times) + kernel_time(times) + program_time(times) + times.steal;
}

uint64_t idle_time(const processor_times &times) {
    return times.idle + times.iowait;
}

uint64_t kernel_time(const processor_times &times) {
    return times.system + times.irq + times.softirq;
}

uint64_t program_time(const processor_times &times) {
    return times.user + times.nice;
}

uint64_t interrupt_time(const processor_times &times) {
    return times.irq;
}

uint64_t soft_interrupt_time(const processor_times &times) {
    return times.softirq;
}

bool parse_processor_times(const char *stat, const char *processor, processor_times *out) {
    bool all = text_equal(processor, ALL_PROCESSORS);
    char key[PROCESSOR_NAME_SIZE + 4];
    int length = snprintf(key, sizeof key, "cpu%s ", all ? "" : processor);
    if (length >= static_cast<int>(sizeof key)) return false;
    const char *at = find_line(stat, key);
    if (at == nullptr) return false;
    *out = {};
    uint64_t *const fields[] = {&out->user,   &out->nice, &out->system,  &out->idle,
                                &out->iowait, &out->irq,  &out->softirq, &out->steal};
    size_t count = 0;
    while (count < 8 && read_number(&at, fields[count]))
        count++;
    return count >= 4;
}

bool next_processor(const char **at, char out[PROCESSOR_NAME_SIZE]) {
    while (const char *behind = next_line(*at)) {
        const char *line = *at;
        *at = behind;
        if (strncmp(line, "cpu", 3) != 0) continue;
        size_t digits = strspn(line + 3, "0123456789");
        if (digits == 0 || digits >= PROCESSOR_NAME_SIZE || line[3 + digits] != ' ') continue;
        copy_bounded(out, line + 3, digits + 1);
        return true;
    }
    return false;
}

uint32_t count_processors(const char *stat) {
    char name[PROCESSOR_NAME_SIZE];
    uint32_t count = 0;
    while (next_processor(&stat, name))
        count++;
    return count;
}

// The head of the table names its columns "CPU0 CPU1 …", only those that are switched on. Gives the column of
// the processor and their number.
static bool find_column(const char *head, const char *processor, uint32_t *out_column, uint32_t *out_count) {
    bool found = false;
    size_t wanted = strlen(processor);
    uint32_t count = 0;
    for (const char *at = head + strspn(head, " "); strncmp(at, "CPU", 3) == 0; at += strspn(at, " ")) {
        at += 3;
        size_t length = strcspn(at, " \n");
        if (length == wanted && strncmp(at, processor, length) == 0) {
            *out_column = count;
            found = true;
        }
        at += length;
        count++;
    }
    *out_count = count;
    return found;
}

// The number in one column of a row, which has to have them all.
static bool read_column(const char *row, uint32_t column, uint32_t columns, uint64_t *out) {
    const char *at = row + strcspn(row, ":\n");
    if (*at++ != ':') return false;
    for (uint32_t place = 0; place < columns; place++) {
        uint64_t number = 0;
        if (!read_number(&at, &number)) return false;
        if (place == column) *out = number;
    }
    return true;
}

bool parse_processor_interrupts(const char *interrupts, const char *processor, uint64_t *out) {
    uint32_t column = 0;
    uint32_t columns = 0;
    if (!find_column(interrupts, processor, &column, &columns)) return false;
    uint64_t sum = 0;
    bool any = false;
    const char *row = next_line(interrupts);
    for (; row != nullptr && next_line(row) != nullptr; row = next_line(row)) {
        uint64_t number = 0;
        if (!read_column(row, column, columns, &number)) continue;
        sum += number;
        any = true;
    }
    *out = sum;
    return any;
}

bool has_processor_column(const char *interrupts, const char *processor) {
    uint32_t column = 0;
    uint32_t columns = 0;
    return find_column(interrupts, processor, &column, &columns);
}
