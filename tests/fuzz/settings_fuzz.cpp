// The files of settings and variables. A printed file of variables reads back as the same values.
#include "fuzz/fuzz_host.h"
#include "settings/value_list.h"

#include <cstring>

static void check_order(value_list *list) {
    for (uint32_t i = 0; i < list->count; i++) {
        const file_value *found = find_value(list, list->values[i].key);
        fuzz_require(found == &list->values[i], "each key stands once and is found");
    }
}

static void read_settings(const std::string &text) {
    value_list list = {};
    fuzz_require(parse_settings(text.data(), text.size(), "settings", true, &list), "settings are read");
    check_order(&list);
    free_values(&list);
}

static void require_equal(const value_list &a, const value_list &b) {
    fuzz_require(a.count == b.count, "all variables come back");
    for (uint32_t i = 0; i < a.count; i++)
        fuzz_require(strcmp(a.values[i].key, b.values[i].key) == 0 &&
                         strcmp(a.values[i].value, b.values[i].value) == 0,
                     "a variable comes back");
}

static void read_variables(const std::string &text) {
    value_list list = {};
    value_list again = {};
    fuzz_require(parse_variables(text.data(), text.size(), "variables", &list), "variables are read");
    check_order(&list);
    text_guard printed(print_variables(&list));
    fuzz_require(parse_variables(printed.get(), strlen(printed.get()), "variables", &again),
                 "variables are read");
    require_equal(list, again);
    free_values(&list);
    free_values(&again);
}

static void run(const uint8_t *data, size_t size) {
    fuzz_input input = {data, size};
    bool settings = input.take_byte() % 2 == 0;
    std::string text = input.take_rest();
    if (settings)
        read_settings(text);
    else
        read_variables(text);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_one(run, data, size);
    return 0;
}
