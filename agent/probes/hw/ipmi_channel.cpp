#include "probes/hw/ipmi_channel.h"

#include "platform/agent_log.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/hw/ipmi_texts.h"

#include <algorithm>
#include <cstring>

const ipmi_channel_ops *ipmi_channel_host;
bmc_entry *active_bmcs;
int32_t active_bmc_count;

namespace {

constexpr const char *METHOD = "RequestResponse";
constexpr uint8_t BMC_ADDRESS = 0x20; // IPMI 2.0, clause 5.5: the slave address of every BMC

bool channel_up;
wmi_object *services; // the connection

void release_object(wmi_object *object) {
    if (object != nullptr) ipmi_channel_host->Release(object);
}

using object_guard = guard<wmi_object, release_object>;

void clear_value(wmi_value *value) {
    ipmi_channel_host->VariantClear(value);
}

using value_guard = guard<wmi_value, clear_value>;

void free_wide_text(wide_text *text) {
    ipmi_channel_host->SysFreeString(text);
}

using wide_guard = guard<wide_text, free_wide_text>;

bool failed(uint32_t status) {
    return (status & 0x80000000) != 0;
}

struct wmi_namespace {
    const char *name;
    wide_guard wide;
};

} // namespace

// Lets go of an object that an attempt has made, and takes the one that the next attempt makes.
static uint32_t keep(uint32_t status, wmi_object *made, object_guard *out) {
    out->reset(made);
    return status;
}

// ---- setting up

// Enumerates the class in a namespace. On a failure there is no connection.
static const char *try_namespace(wmi_object *locator, const wmi_namespace *tried, wide_text *class_name,
                                 object_guard *enumerator) {
    wmi_object *made = nullptr;
    uint32_t status = ipmi_channel_host->ConnectServer(locator, tried->wide.get(), &made);
    object_guard connection(made);
    if (failed(status)) {
        const char *failure = format_error("Failed WMI namespace connect: %s", wmi_error_text(status));
        agent_log(LOG_TRACE, "%s", failure);
        return failure;
    }
    agent_log(LOG_TRACE, " Connected to WMI namespace");
    made = nullptr;
    status = ipmi_channel_host->CreateInstanceEnum(connection.get(), class_name, &made);
    if (failed(keep(status, made, enumerator))) {
        const char *failure = "No IPMI interface found";
        if (status != WBEM_INVALID_PARAMETER)
            failure = format_error("Unable to enumerate IPMI objects: %s", wmi_error_text(status));
        agent_log(LOG_TRACE, "%s", failure);
        return failure;
    }
    services = connection.release();
    agent_log(LOG_DETAIL, " Found IPMI class in namespace %s", tried->name);
    return nullptr;
}

static const char *fetch_instance(wmi_object *enumerator, object_guard *instance) {
    wmi_object *made = nullptr;
    uint32_t count = 0;
    uint32_t status = ipmi_channel_host->Next(enumerator, &made, &count);
    if (failed(keep(status, made, instance)))
        return format_error("Unable to fetch enumerated object: %s", wmi_error_text(status));
    if (count != 1) return "Unable to fetch 1 instance from object enumeration";
    return nullptr;
}

static const char *make_bmc(wmi_object *instance, wide_text *class_name) {
    active_bmcs = heap_array<bmc_entry>(1);
    if (active_bmcs == nullptr) return "Out of memory allocating active BMC array";
    active_bmc_count = 1;
    uint32_t status = ipmi_channel_host->Get(instance, "__PATH", &active_bmcs->path);
    if (failed(status)) return format_error("Unable to fetch object path: %s", wmi_error_text(status));
    status = ipmi_channel_host->GetObject(services, class_name, &active_bmcs->class_object);
    if (failed(status)) return format_error("Failed getting IPMI object; error=%u", status);
    return nullptr;
}

static const char *connect_to_bmc(const wmi_namespace *begin, const wmi_namespace *end,
                                  wide_text *class_name) {
    uint32_t status = ipmi_channel_host->CoInitializeSecurity();
    if (failed(status)) return format_error("Failed COM security setup; error=%u", status);
    object_guard locator;
    wmi_object *made = nullptr;
    status = ipmi_channel_host->CoCreateInstance(&made);
    if (failed(keep(status, made, &locator)))
        return format_error("Failed IWbemLocator creation; error=%u", status);

    object_guard enumerator;
    const char *failure = nullptr;
    for (const wmi_namespace *tried = begin; tried != end; tried++) {
        failure = try_namespace(locator.get(), tried, class_name, &enumerator);
        if (failure == nullptr) break;
    }
    if (failure != nullptr) return failure;
    object_guard instance;
    if (auto *no_instance = fetch_instance(enumerator.get(), &instance)) return no_instance;
    return make_bmc(instance.get(), class_name);
}

static const char *set_up_channel() {
    if (channel_up) return nullptr;
    uint32_t status = ipmi_channel_host->CoInitialize();
    if (status > 1) return format_error("Failed COM initialization: %u", status);
    auto wide = [](const char *text) { return wide_guard(ipmi_channel_host->SysAllocString(text)); };
    const wmi_namespace namespaces[] = {{"ROOT\\WMI", wide("ROOT\\WMI")},
                                        {"ROOT\\HARDWARE", wide("ROOT\\HARDWARE")}};
    wide_guard class_name = wide("Microsoft_IPMI");
    // COM stays as it is here: the next attempt finds that it was initialized already.
    if (namespaces[0].wide == nullptr || namespaces[1].wide == nullptr || class_name == nullptr)
        return "SysAllocString failed during init of COM - insufficient memory";
    const char *failure = connect_to_bmc(std::begin(namespaces), std::end(namespaces), class_name.get());
    if (failure != nullptr) {
        release_bmcs();
        ipmi_channel_host->CoUninitialize();
        return failure;
    }
    channel_up = true;
    return nullptr;
}

const char *init_bmcs() {
    if (auto *failure = set_up_channel()) return failure;
    if (active_bmc_count == 0)
        agent_log(LOG_NORMAL, "No BMCs available");
    else
        agent_log(LOG_NORMAL, "Initialized %i BMCs", active_bmc_count);
    return nullptr;
}

void release_bmcs() {
    for (int32_t i = 0; i < active_bmc_count; i++) {
        release_object(active_bmcs[i].class_object);
        clear_value(&active_bmcs[i].path);
    }
    heap_free(active_bmcs);
    active_bmcs = nullptr;
    active_bmc_count = 0;
    release_object(services);
    services = nullptr;
}

void ipmi_channel_reset() {
    heap_free(active_bmcs);
    active_bmcs = nullptr;
    active_bmc_count = 0;
    services = nullptr;
    channel_up = false;
}

// ---- a command. Each step leaves its status in `*status`, for the rule of the restart.

static const char *put(wmi_object *parameters, const char *name, wmi_value value, uint32_t *status) {
    *status = ipmi_channel_host->Put(parameters, name, &value);
    return failed(*status) ? format_error("Unable to set %s: %s", name, wmi_error_text(*status)) : nullptr;
}

static wmi_value byte_value(uint8_t byte) {
    wmi_value value = {.type = VALUE_UI1};
    value.byte = byte;
    return value;
}

static wmi_value number_value(uint32_t number) {
    wmi_value value = {.type = VALUE_I4};
    value.number = static_cast<int32_t>(number);
    return value;
}

// An empty request sends an array of one byte all the same.
static const char *put_data(wmi_object *parameters, const ipmi_request *request, uint32_t *status) {
    constexpr uint8_t NOTHING = 0;
    const uint8_t *bytes = request->data_len > 0 ? request->data : &NOTHING;
    uint32_t count = std::max(request->data_len, uint32_t{1});
    wmi_value value = {.type = VALUE_UI1_ARRAY};
    value.bytes = ipmi_channel_host->SafeArrayCreateVector(count);
    if (value.bytes == nullptr) return "Unable to create RequestData array";
    value_guard cleared(&value);
    for (uint32_t i = 0; i < count; i++) {
        *status = ipmi_channel_host->SafeArrayPutElement(value.bytes, static_cast<int32_t>(i), bytes[i]);
        if (failed(*status))
            return format_error("Unable to zero array index %i (dlen=%i): %s", static_cast<int>(i),
                                static_cast<int>(request->data_len), wmi_error_text(*status));
    }
    return put(parameters, "RequestData", value, status);
}

static const char *put_parameters(wmi_object *parameters, const ipmi_request *request, uint32_t *status) {
    const struct {
        const char *name;
        wmi_value value;
    } values[] = {{"Command", byte_value(request->command)},
                  {"Lun", byte_value(request->lun)},
                  {"NetworkFunction", byte_value(request->netfn)},
                  {"RequestDataSize", number_value(request->data_len)}};
    for (const auto &row : values)
        if (auto *failure = put(parameters, row.name, row.value, status)) return failure;
    if (auto *failure = put_data(parameters, request, status)) return failure;
    return put(parameters, "ResponderAddress", byte_value(BMC_ADDRESS), status);
}

static const char *get(wmi_object *outputs, const char *name, uint16_t type, const char *what, wmi_value *out,
                       uint32_t *status) {
    *status = ipmi_channel_host->Get(outputs, name, out);
    if (failed(*status)) return format_error("Unable to get %s: %s", what, wmi_error_text(*status));
    if (out->type != type) return format_error("Bad type of %s: %i", what, out->type);
    return nullptr;
}

// The bytes behind the completion code, which the array repeats. What the size promises beyond the array is
// not there.
static ipmi_response *alloc_ipmi_response(const ipmi_request *request, uint32_t data_len) {
    auto *response =
        static_cast<ipmi_response *>(heap_alloc(sizeof(ipmi_response) + data_len + ZEROS_BEHIND_RESPONSE));
    if (response == nullptr) return nullptr;
    response->netfn = request->netfn | 1;
    response->lun = request->lun;
    response->command = request->command;
    response->data_len = data_len;
    response->data = reinterpret_cast<uint8_t *>(response + 1);
    return response;
}

static const char *read_outputs(wmi_object *outputs, const ipmi_request *request, ipmi_response **out,
                                uint32_t *status) {
    wmi_value size = {};
    wmi_value ccode = {};
    wmi_value array = {};
    value_guard size_cleared(&size);
    value_guard ccode_cleared(&ccode);
    value_guard array_cleared(&array);
    if (auto *failure = get(outputs, "ResponseDataSize", VALUE_I4, "response data size", &size, status))
        return failure;
    if (auto *failure = get(outputs, "CompletionCode", VALUE_UI1, "completion code", &ccode, status))
        return failure;
    if (auto *failure = get(outputs, "ResponseData", VALUE_UI1_ARRAY, "response data", &array, status))
        return failure;
    if (size.number < 1) return "Must get response data";
    const uint8_t *bytes = nullptr;
    uint32_t count = 0;
    *status = ipmi_channel_host->SafeArrayAccessData(array.bytes, &bytes, &count);
    uint32_t data_len = std::min(static_cast<uint32_t>(size.number), count);
    data_len -= std::min(data_len, uint32_t{1});
    ipmi_response *response = failed(*status) ? nullptr : alloc_ipmi_response(request, data_len);
    if (response == nullptr)
        return format_error("Unable to get response data: %s",
                            wmi_error_text(failed(*status) ? *status : uint32_t{WBEM_NO_MEMORY}));
    response->ccode = ccode.byte;
    if (data_len > 0) memcpy(response->data, bytes + 1, data_len);
    *out = response;
    return nullptr;
}

static const char *call_method(bmc_entry *bmc, ipmi_response **out, const ipmi_request *request,
                               uint32_t *status) {
    wmi_object *made = nullptr;
    *status = ipmi_channel_host->GetMethod(bmc->class_object, METHOD, &made);
    object_guard parameters(made);
    if (!failed(*status) && parameters == nullptr) *status = WBEM_METHOD_NOT_IMPLEMENTED;
    if (failed(*status))
        return format_error("Failed getting method parameters; this usually means that the IPMI provider is "
                            "not installed: %s",
                            wmi_error_text(*status));
    if (auto *failure = put_parameters(parameters.get(), request, status)) return failure;
    made = nullptr;
    *status = ipmi_channel_host->ExecMethod(services, &bmc->path, METHOD, parameters.get(), &made);
    object_guard outputs(made);
    if (failed(*status)) return format_error("Unable to execute method: %s", wmi_error_text(*status));
    return outputs != nullptr ? read_outputs(outputs.get(), request, out, status) : nullptr;
}

// Makes the channel anew and gives the failure to report.
static const char *restart_channel(const char *first) {
    release_bmcs();
    ipmi_channel_host->CoUninitialize();
    channel_up = false;
    text_guard kept(text_copy(first)); // the attempt below needs the buffers of failure texts
    if (kept == nullptr)
        return format_error(
            "Unable to allocate memory while formatting error message details for error='%s'.", first);
    if (auto *failure = init_bmcs())
        return format_error("Failure while initializing bmcs during COM subsystem restart: '%s'. The error "
                            "prompting the restart was: '%s'.",
                            failure, kept.get());
    return format_error("%s", kept.get());
}

const char *ipmi_command(bmc_entry *bmc, ipmi_response **out, const ipmi_request *request) {
    *out = nullptr;
    if (bmc == nullptr) return "No BMCs available";
    uint32_t status = WBEM_OK;
    const char *failure = call_method(bmc, out, request, &status);
    return status == WBEM_SERVICE_RESTARTED ? restart_channel(failure) : failure;
}
