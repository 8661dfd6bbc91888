#include "platform/heap.h"
#include "platform/host_files_linux.h"
#include "probes/os/sd_bus_linux.h"
#include "probes/os/services_ops.h"
#include "probes/os/unit_list.h"

#include <cerrno>

struct service_manager {
    const sd_bus_functions *functions;
    sd_bus *bus;
    unit_list units; // as of the last enumeration that began
};

struct service {
    uint32_t state;
};

namespace {

constexpr char MANAGER[] = "org.freedesktop.systemd1";
constexpr char MANAGER_PATH[] = "/org/freedesktop/systemd1";
constexpr char MANAGER_INTERFACE[] = "org.freedesktop.systemd1.Manager";
constexpr char BUS[] = "org.freedesktop.DBus";
constexpr char BUS_PATH[] = "/org/freedesktop/DBus";

// Name, description, load state, active state, sub-state, followed unit, path, and a job's id, type and path.
constexpr char UNIT_TYPES[] = "(ssssssouso)";
constexpr char FILE_TYPES[] = "(ss)"; // path and state
constexpr char SERVICES[] = "*.service";

// A message, and the library that frees it.
struct message_holder {
    const sd_bus_functions *functions;
    sd_bus_message *message;

    explicit message_holder(const sd_bus_functions *of) : functions(of), message(nullptr) {}
    ~message_holder() { functions->message_unref(message); }
    message_holder(const message_holder &) = delete;
    message_holder &operator=(const message_holder &) = delete;
};

} // namespace

static int new_call(const service_manager &manager, const char *member, message_holder *call) {
    return manager.functions->message_new_method_call(manager.bus, &call->message, MANAGER, MANAGER_PATH,
                                                      MANAGER_INTERFACE, member);
}

static int send_call(const service_manager &manager, const message_holder &call, message_holder *reply) {
    return note_bus_status(
        manager.functions->call(manager.bus, call.message, bus_timeout_us, nullptr, &reply->message));
}

// Calls a function that takes states and patterns, and goes to its list.
static int call_with_patterns(const service_manager &manager, const char *member, const char *types,
                              message_holder *reply) {
    message_holder call(manager.functions);
    int status = new_call(manager, member, &call);
    if (status >= 0) status = manager.functions->message_append(call.message, "asas", 0, 1, SERVICES);
    if (status >= 0) status = send_call(manager, call, reply);
    if (status >= 0) status = manager.functions->message_enter_container(reply->message, 'a', types);
    return status;
}

struct unit_words {
    const char *name, *description, *load_state, *active_state;
};

// 0 behind the last one.
static int read_unit(const service_manager &manager, sd_bus_message *reply, unit_words *out) {
    const char *not_read = nullptr;
    uint32_t job = 0;
    return manager.functions->message_read(reply, UNIT_TYPES, &out->name, &out->description, &out->load_state,
                                           &out->active_state, &not_read, &not_read, &not_read, &job,
                                           &not_read, &not_read);
}

static int list_loaded_units(service_manager *manager) {
    message_holder reply(manager->functions);
    int status = call_with_patterns(*manager, "ListUnitsByPatterns", UNIT_TYPES, &reply);
    unit_words unit = {};
    while (status >= 0 && (status = read_unit(*manager, reply.message, &unit)) > 0)
        if (!add_loaded_unit(&manager->units, unit.name, unit.description, unit.load_state,
                             unit.active_state))
            return -ENOMEM;
    return status;
}

// A unit that is not loaded is told by its file alone: to ask the manager for it would load it.
static bool add_file(unit_list *units, const char *path, const char *name) {
    char text[8192];
    char description[512] = "";
    if (read_host_text(path, text, sizeof text))
        parse_unit_description(text, description, sizeof description);
    return add_unit_file(units, name, description);
}

static int list_unit_files(service_manager *manager) {
    message_holder reply(manager->functions);
    int status = call_with_patterns(*manager, "ListUnitFilesByPatterns", FILE_TYPES, &reply);
    const char *path = nullptr;
    const char *state = nullptr;
    const char *name = nullptr;
    while (status >= 0 &&
           (status = manager->functions->message_read(reply.message, FILE_TYPES, &path, &state)) > 0)
        if (is_new_unit_file(manager->units, path, state, &name) && !add_file(&manager->units, path, name))
            return -ENOMEM;
    return status;
}

// Whether a systemd is on the bus. A call to it might make the bus start something in its place.
static int find_manager(const service_manager &manager) {
    message_holder call(manager.functions);
    message_holder reply(manager.functions);
    int has_owner = 0;
    int status = manager.functions->message_new_method_call(manager.bus, &call.message, BUS, BUS_PATH, BUS,
                                                            "NameHasOwner");
    if (status >= 0) status = manager.functions->message_append(call.message, "s", MANAGER);
    if (status >= 0) status = send_call(manager, call, &reply);
    if (status >= 0) status = manager.functions->message_read(reply.message, "b", &has_owner);
    return status < 0 || has_owner != 0 ? status : -ENOPKG;
}

static void close_manager(service_manager *manager) {
    drop_units(&manager->units);
    manager->functions->close_unref(manager->bus);
    heap_free(manager);
}

static int start_manager(service_manager *manager) {
    if (!has_system_bus()) return -ENOENT;
    if (is_bus_at_rest()) return -ETIMEDOUT;
    manager->functions = find_sd_bus();
    if (manager->functions == nullptr) return -ENOPKG;
    int status = open_bus(manager->functions, &manager->bus);
    return status < 0 ? status : find_manager(*manager);
}

static service_manager *open_manager(const char *, const char *, uint32_t) {
    auto *manager = heap_new<service_manager>();
    if (manager == nullptr) {
        errno = ENOMEM;
        return nullptr;
    }
    int status = start_manager(manager);
    if (status >= 0) return manager;
    if (manager->functions != nullptr)
        close_manager(manager);
    else
        heap_free(manager);
    errno = -status;
    return nullptr;
}

// No library, no systemd, no socket of a bus, or nobody behind it.
static bool has_no_manager(uint32_t error) {
    return error == ENOPKG || error == ENOENT || error == ECONNREFUSED;
}

static void set_last_error(uint32_t code) {
    errno = static_cast<int>(code);
}

static bool enum_services(service_manager *manager, uint32_t, uint32_t, service_record *buffer, uint32_t size,
                          uint32_t *out_needed, uint32_t *out_count, uint32_t *resume) {
    if (*resume == 0) {
        drop_units(&manager->units);
        int status = list_loaded_units(manager);
        if (status >= 0) status = list_unit_files(manager);
        if (status < 0) {
            errno = -status;
            return false;
        }
    }
    if (fill_service_batch(manager->units, buffer, size, out_needed, out_count, resume)) return true;
    errno = MORE_DATA;
    return false;
}

// The manager tells the states of a unit by its name alone where it is asked for a list of one.
static int find_unit(const service_manager &manager, const char *name, uint32_t *out_state) {
    message_holder call(manager.functions);
    message_holder reply(manager.functions);
    unit_words unit = {};
    int status = new_call(manager, "ListUnitsByNames", &call);
    if (status >= 0) status = manager.functions->message_append(call.message, "as", 1, name);
    if (status >= 0) status = send_call(manager, call, &reply);
    if (status >= 0) status = manager.functions->message_enter_container(reply.message, 'a', UNIT_TYPES);
    if (status >= 0) status = read_unit(manager, reply.message, &unit);
    if (status < 0) return status;
    if (status == 0 || !is_service_unit(unit.name, unit.load_state)) return -ENOENT;
    *out_state = state_of_unit(unit.active_state);
    return 0;
}

static service *open_service(service_manager *manager, const char *name, uint32_t) {
    uint32_t state = 0;
    int status = find_unit(*manager, name, &state);
    auto *opened = status >= 0 ? heap_new<service>() : nullptr;
    if (opened != nullptr)
        opened->state = state;
    else
        errno = status < 0 ? -status : ENOMEM;
    return opened;
}

// The state came with the opening, a moment ago.
static bool query_status(service *opened, service_status *out) {
    *out = {.type = SERVICE_WIN32_KINDS, .current_state = opened->state};
    return true;
}

static void close_service(service *opened) {
    heap_free(opened);
}

const services_ops services_ops_host = {
    .OpenSCManagerA = open_manager,
    .has_no_manager = has_no_manager,
    .SetLastError = set_last_error,
    .EnumServicesStatusA = enum_services,
    .OpenServiceA = open_service,
    .QueryServiceStatus = query_status,
    .CloseServiceHandle = close_service,
    .CloseServiceHandle_manager = close_manager,
};
