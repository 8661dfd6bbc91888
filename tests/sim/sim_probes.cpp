#include "sim/sim_probes.h"

#include "platform/heap.h"
#include "platform/text.h"
#include "probes/hw/ipmi_channel_ops.h"
#include "probes/os/counter_provider.h"
#include "probes/os/drives_ops.h"
#include "probes/os/host_info_ops.h"
#include "probes/os/memory_ops.h"
#include "probes/os/perf_counter_ops.h"
#include "sim/host_sim.h"

#include <cstring>

static constexpr uint32_t CODE_MISSING = 2;
static constexpr uint32_t CODE_INPUT_OUTPUT = 5;

static bool sim_has_module(const char *module) {
    return !sim_fails("GetModuleHandleA", module);
}

static bool sim_has_function(const char *function) {
    return !sim_fails("GetProcAddress", function);
}

// ---- volumes

static const char *sim_drive_root(uint32_t index) {
    const auto &volumes = the_sim->probes.volumes;
    if (index >= volumes.size()) return nullptr;
    return std::next(volumes.begin(), index)->first.c_str();
}

static uint32_t sim_drive_type(const char *path) {
    sim_note("GetDriveTypeA", path);
    return the_sim->probes.volumes.contains(path) ? DRIVE_FIXED : DRIVE_NO_ROOT_DIR;
}

static bool sim_free_space(const char *path, uint64_t *available, uint64_t *total, uint64_t *total_free) {
    if (sim_fails("GetDiskFreeSpaceExA", path)) {
        the_sim->last_error = CODE_INPUT_OUTPUT;
        return false;
    }
    if (int64_t delay = the_sim->probes.delay_s; delay > 0)
        the_sim->scheduler.sleep_until(the_sim->scheduler.now_ms + delay * 1000);
    auto found = the_sim->probes.volumes.find(path);
    if (found == the_sim->probes.volumes.end()) {
        the_sim->last_error = CODE_MISSING;
        return false;
    }
    *available = *total_free = found->second.free_bytes;
    *total = found->second.total_bytes;
    return true;
}

static mount_search *sim_first_mount(const char *, char *, uint32_t) {
    return nullptr;
}

// One disk holds them all.
static bool sim_drive_device(const char *path, uint32_t *out_major, uint32_t *out_minor) {
    if (sim_fails("drive_device", path)) return false;
    *out_major = 8;
    *out_minor = 0;
    return true;
}

static bool sim_next_mount(mount_search *, char *, uint32_t) {
    return false;
}

static void sim_close_mounts(mount_search *) {}

// ---- memory

static bool sim_memory_status(memory_status *out) {
    if (sim_fails("GlobalMemoryStatusEx")) return false;
    sim_probes *probes = &the_sim->probes;
    uint64_t free_memory = probes->free_memory + (probes->counts_looks ? probes->looks++ * 1024 : 0);
    out->total_phys = probes->total_memory;
    out->available_phys = free_memory;
    out->total_page_file = 2 * probes->total_memory;
    out->available_page_file = free_memory + probes->total_memory;
    return true;
}

static void sim_short_memory_status(memory_status *out) {
    out->length = 56;
}

// ---- counters: the texts that a kernel would print

static std::string stat_text() {
    long long ticks = the_sim->scheduler.now_ms / 10;
    long long idle = ticks * the_sim->probes.idle_percent / 100;
    char text[256];
    snprintf(text, sizeof text,
             "cpu  %lld 0 0 %lld 0 0 0 0 0 0\ncpu0 %lld 0 0 %lld 0 0 0 0 0 0\nctxt %lld\nprocesses "
             "100\nprocs_running 1\nintr 1000\nsoftirq 1000\n",
             ticks - idle, idle, ticks - idle, idle, ticks * 5);
    return text;
}

// 1000 bytes and 10 packets a second each way; a disk that reads 8 times a second.
static std::string interface_text() {
    long long s = the_sim->scheduler.now_ms / 1000;
    char text[256];
    snprintf(text, sizeof text, "eth0: %lld %lld 0 0 0 0 0 0 %lld %lld 0 0 0 0 0 0\n", s * 1000, s * 10,
             s * 1000, s * 10);
    return text;
}

static std::string disk_text() {
    long long s = the_sim->scheduler.now_ms / 1000;
    char text[256];
    snprintf(text, sizeof text, "8 0 sda %lld 0 %lld %lld 0 0 0 0 0 %lld %lld\n", s * 8, s * 64, s * 100,
             s * 100, s * 100);
    return text;
}

static constexpr const char *PROTOCOL_TEXT =
    "Ip: InReceives InHdrErrors InAddrErrors ForwDatagrams InUnknownProtos InDiscards InDelivers OutRequests "
    "OutDiscards OutNoRoutes ReasmReqds ReasmOKs ReasmFails FragOKs FragFails FragCreates\n"
    "Ip: 1 0 0 0 0 0 1 1 0 0 0 0 0 0 0 0\n"
    "Tcp: ActiveOpens PassiveOpens AttemptFails EstabResets CurrEstab InSegs OutSegs RetransSegs\n"
    "Tcp: 1 1 0 0 2 1 1 0\n"
    "Udp: InDatagrams NoPorts InErrors OutDatagrams\n"
    "Udp: 1 0 0 1\n";

// Paths and what they hold, beside those that change with the time.
static const std::map<std::string, std::string> still_texts = {
    {"/proc/", "1\n"},
    {"/proc/1/stat", "1 (init) S 0 1 1 0 -1 0 9 0 0 0 1 1 0 0 20 0 1 0 1 4096 1\n"},
    {"/proc/1/io", "rchar: 1000\nwchar: 100\nsyscr: 10\nsyscw: 1\n"},
    {"/proc/1/statm", "1 1 0 0 0 1 0\n"},
    {"/proc/1/status", "Name:\tinit\nVmPeak:\t4 kB\nVmHWM:\t4 kB\nVmSwap:\t0 kB\nThreads:\t1\n"},
    {"/proc/interrupts", "      CPU0\n  0:  1000 timer\n"},
    {"/proc/loadavg", "0.00 0.00 0.00 1/100 1\n"},
    {"/proc/meminfo", "MemTotal: 8388608 kB\nMemAvailable: 2097152 kB\nCommitLimit: 8388608 kB\n"},
    {"/proc/net/snmp", PROTOCOL_TEXT},
    {"/proc/swaps", "Filename Type Size Used Priority\n"},
    {"/proc/vmstat", "pgfault 1000\npgmajfault 10\n"},
    {"/sys/class/net/eth0/speed", "1000\n"},
};

static int64_t sim_read_source(const char *path, char *buffer, size_t size) {
    if (sim_fails("read_source", path)) return -1;
    std::string text;
    if (strcmp(path, "/proc/stat") == 0)
        text = stat_text();
    else if (strcmp(path, "/proc/uptime") == 0)
        text = std::to_string(the_sim->scheduler.now_ms / 1000 + 100) + ".00 0.00\n";
    else if (strcmp(path, "/proc/net/dev") == 0)
        text = interface_text();
    else if (strcmp(path, "/proc/diskstats") == 0)
        text = disk_text();
    else if (auto found = still_texts.find(path); found != still_texts.end())
        text = found->second;
    else
        return -1;
    size_t count = std::min(text.size(), size);
    memcpy(buffer, text.data(), count);
    return static_cast<int64_t>(count);
}

static uint64_t sim_ticks() {
    return static_cast<uint64_t>(the_sim->scheduler.now_ms) * 1000000;
}

// ---- host information

static void sim_system_info(system_facts *out) {
    sim_note("GetSystemInfo");
    *out = {.processor_architecture = 9, .processors = 2, .active_processor_mask = 3};
}

static bool sim_version(version_facts *out) {
    if (sim_fails("GetVersionExA")) return false;
    *out = {.in_words = true, .os_id = "Simulated", .platform = "Sim", .version = "1.0", .build = "1"};
    return true;
}

static uint32_t sim_network_params(network_params *out, uint32_t *) {
    if (sim_fails("GetNetworkParams")) return CODE_INPUT_OUTPUT;
    *out = {.domain_name = "example.test"};
    return 0;
}

static uint32_t sim_adapters(adapter_facts *out, uint32_t *) {
    if (sim_fails("GetAdaptersInfo")) return CODE_INPUT_OUTPUT;
    static address_entry address = {.address = "10.0.0.7", .mask = "255.0.0.0"};
    *out = {.description = "eth0", .type = 6, .hardware_length = 6, .addresses = &address};
    return 0;
}

static uint32_t sim_page_size() {
    return 4096;
}

static uint32_t sim_clock_rate() {
    return 100;
}

static int64_t sim_open_files(const char *folder) {
    return sim_fails("count_open_files", folder) ? -1 : 12;
}

const counter_sources_ops sim_counter_sources = {.read_source = sim_read_source,
                                                 .ticks = sim_ticks,
                                                 .uptime = sim_ticks,
                                                 .page_size = sim_page_size,
                                                 .clock_rate = sim_clock_rate,
                                                 .count_open_files = sim_open_files};

// ---- the BMC: the service is there, and nothing behind it

// Every object of it; nobody looks inside.
static wmi_object *const sim_object = reinterpret_cast<wmi_object *>(&the_sim);

static uint32_t sim_give(const char *name, wmi_object **out) {
    if (sim_fails(name)) return WBEM_FAILED;
    *out = sim_object;
    return WBEM_OK;
}

static uint32_t sim_start_com() {
    return sim_fails("CoInitialize") ? WBEM_FAILED : WBEM_OK;
}

static uint32_t sim_secure_com() {
    return sim_fails("CoInitializeSecurity") ? WBEM_FAILED : WBEM_OK;
}

static void sim_stop_com() {
    sim_note("CoUninitialize");
}

static uint32_t sim_locator(wmi_object **locator) {
    return sim_give("CoCreateInstance", locator);
}

static wide_text *sim_wide_text(const char *text) {
    return sim_fails("SysAllocString", text) ? nullptr : reinterpret_cast<wide_text *>(text_copy(text));
}

static void sim_free_wide_text(wide_text *text) {
    heap_free(text);
}

static uint32_t sim_connect_wmi(wmi_object *, wide_text *, wmi_object **services) {
    return sim_give("ConnectServer", services);
}

static uint32_t sim_no_class(wmi_object *, wide_text *, wmi_object **) {
    return sim_fails("CreateInstanceEnum") ? WBEM_FAILED : WBEM_INVALID_PARAMETER;
}

static void sim_release(wmi_object *) {}

const drives_ops sim_drives = {
    .drive_root = sim_drive_root,
    .GetDriveTypeA = sim_drive_type,
    .GetDiskFreeSpaceExA = sim_free_space,
    .drive_device = sim_drive_device,
    .GetModuleHandleA = sim_has_module,
    .GetProcAddress = sim_has_function,
    .FindFirstVolumeMountPointA = sim_first_mount,
    .FindNextVolumeMountPointA = sim_next_mount,
    .FindVolumeMountPointClose = sim_close_mounts,
};

const host_info_ops sim_host_info = {
    .GetSystemInfo = sim_system_info,
    .GetVersionExA = sim_version,
    .GetNetworkParams = sim_network_params,
    .GetAdaptersInfo = sim_adapters,
};

const ipmi_channel_ops sim_ipmi_channel = {
    .CoInitialize = sim_start_com,
    .CoUninitialize = sim_stop_com,
    .CoInitializeSecurity = sim_secure_com,
    .CoCreateInstance = sim_locator,
    .SysAllocString = sim_wide_text,
    .SysFreeString = sim_free_wide_text,
    .ConnectServer = sim_connect_wmi,
    .CreateInstanceEnum = sim_no_class,
    .Release = sim_release,
};

const memory_ops sim_memory = {
    .GetModuleHandleA = sim_has_module,
    .GetProcAddress = sim_has_function,
    .GlobalMemoryStatusEx = sim_memory_status,
    .GlobalMemoryStatus = sim_short_memory_status,
};

const perf_counter_ops sim_counters = {
    .PdhOpenQueryA = provider_open_query,
    .PdhAddCounterA = provider_add_counter,
    .PdhRemoveCounter = provider_remove_counter,
    .PdhCloseQuery = provider_close_query,
    .PdhCollectQueryData = provider_collect,
    .PdhGetFormattedCounterValue = provider_format_value,
    .PdhLookupPerfNameByIndexA = provider_name_by_index,
    .PdhLookupPerfIndexByNameA = provider_index_by_name,
    .RegQueryValueExA = provider_query_value,
    .PdhEnumObjectsA = provider_enum_objects,
    .PdhEnumObjectItemsA = provider_enum_object_items,
    .PdhGetCounterInfoA = provider_counter_info,
};
