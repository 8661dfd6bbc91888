#include "probes/hw/ipmi_channel_ops.h"

#define NOGDI // which would rename GetObject
#include <windows.h>

#include <oleauto.h>
#include <wbemcli.h>

namespace {

constexpr GUID LOCATOR_CLASS = {0x4590F811, 0x1D3A, 0x11D0, {0x89, 0x1F, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
constexpr GUID LOCATOR = {0xDC12A687, 0x737F, 0x11CF, {0x88, 0x4D, 0x00, 0xAA, 0x00, 0x4B, 0x2E, 0x24}};
static_assert(CLSCTX_INPROC_SERVER == 1 && RPC_C_IMP_LEVEL_IMPERSONATE == 3);
static_assert(+VALUE_I4 == +VT_I4 && +VALUE_BSTR == +VT_BSTR && +VALUE_UI1 == +VT_UI1 &&
              VALUE_UI1_ARRAY == (+VT_ARRAY | +VT_UI1));

constexpr size_t NAME_SIZE = 64;

// A name of a class, a property or a method, which are all ASCII, in wide characters.
struct wide_name {
    wchar_t text[NAME_SIZE];

    explicit wide_name(const char *name) : text() {
        for (size_t i = 0; name[i] != '\0' && i < NAME_SIZE - 1; i++)
            text[i] = static_cast<unsigned char>(name[i]);
    }
};

template <class Interface>
Interface *as(wmi_object *object) {
    return reinterpret_cast<Interface *>(object);
}

BSTR text_of(wide_text *text) {
    return reinterpret_cast<BSTR>(text);
}

SAFEARRAY *array_of(byte_array *array) {
    return reinterpret_cast<SAFEARRAY *>(array);
}

// Both hold the same; what is pointed to belongs to whoever cleared it last.
VARIANT variant_of(const wmi_value *value) {
    VARIANT variant = {};
    VariantInit(&variant);
    variant.vt = value->type;
    switch (value->type) {
    case VT_UI1:
        variant.bVal = value->byte;
        break;
    case VT_I4:
        variant.lVal = value->number;
        break;
    default: // a text, an array or what nobody here reads: all are pointers
        variant.byref = value->text;
    }
    return variant;
}

wmi_value value_of(const VARIANT *variant) {
    wmi_value value = {};
    value.type = variant->vt;
    switch (variant->vt) {
    case VT_UI1:
        value.byte = variant->bVal;
        break;
    case VT_I4:
        value.number = variant->lVal;
        break;
    default:
        value.text = static_cast<wide_text *>(variant->byref);
    }
    return value;
}

uint32_t status_of(HRESULT result) {
    return static_cast<uint32_t>(result);
}

// What a failed call has set is nobody's.
uint32_t give(HRESULT result, IUnknown *made, wmi_object **out) {
    if (SUCCEEDED(result)) *out = reinterpret_cast<wmi_object *>(made);
    return status_of(result);
}

} // namespace

static uint32_t initialize() {
    return status_of(CoInitialize(nullptr));
}

static void uninitialize() {
    CoUninitialize();
}

static uint32_t initialize_security() {
    return status_of(CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                          RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr));
}

static uint32_t create_locator(wmi_object **locator) {
    void *made = nullptr;
    HRESULT result = CoCreateInstance(LOCATOR_CLASS, nullptr, CLSCTX_INPROC_SERVER, LOCATOR, &made);
    return give(result, static_cast<IUnknown *>(made), locator);
}

static wide_text *alloc_text(const char *text) {
    return reinterpret_cast<wide_text *>(SysAllocString(wide_name(text).text));
}

static void free_text(wide_text *text) {
    SysFreeString(text_of(text));
}

static uint32_t connect_server(wmi_object *locator, wide_text *name_space, wmi_object **services) {
    IWbemServices *made = nullptr;
    HRESULT result = as<IWbemLocator>(locator)->ConnectServer(text_of(name_space), nullptr, nullptr, nullptr,
                                                              0, nullptr, nullptr, &made);
    return give(result, made, services);
}

static uint32_t create_instance_enum(wmi_object *services, wide_text *class_name, wmi_object **enumerator) {
    IEnumWbemClassObject *made = nullptr;
    HRESULT result = as<IWbemServices>(services)->CreateInstanceEnum(text_of(class_name), 0, nullptr, &made);
    return give(result, made, enumerator);
}

static uint32_t next_object(wmi_object *enumerator, wmi_object **instance, uint32_t *count) {
    IWbemClassObject *made = nullptr;
    ULONG found = 0;
    HRESULT result =
        as<IEnumWbemClassObject>(enumerator)->Next(static_cast<LONG>(WBEM_INFINITE), 1, &made, &found);
    *count = found;
    return give(result, made, instance);
}

static uint32_t get_object(wmi_object *services, wide_text *class_name, wmi_object **class_object) {
    IWbemClassObject *made = nullptr;
    HRESULT result = as<IWbemServices>(services)->GetObject(text_of(class_name), 0, nullptr, &made, nullptr);
    return give(result, made, class_object);
}

static uint32_t get_method(wmi_object *class_object, const char *method, wmi_object **parameters) {
    IWbemClassObject *made = nullptr;
    HRESULT result = as<IWbemClassObject>(class_object)->GetMethod(wide_name(method).text, 0, &made, nullptr);
    return give(result, made, parameters);
}

static uint32_t put(wmi_object *parameters, const char *name, wmi_value *value) {
    VARIANT variant = variant_of(value);
    return status_of(as<IWbemClassObject>(parameters)->Put(wide_name(name).text, 0, &variant, 0));
}

static uint32_t exec_method(wmi_object *services, const wmi_value *path, const char *method,
                            wmi_object *parameters, wmi_object **outputs) {
    BSTR name = SysAllocString(wide_name(method).text);
    if (name == nullptr) return WBEM_NO_MEMORY;
    IWbemClassObject *made = nullptr;
    HRESULT result = as<IWbemServices>(services)->ExecMethod(
        text_of(path->text), name, 0, nullptr, as<IWbemClassObject>(parameters), &made, nullptr);
    SysFreeString(name);
    return give(result, made, outputs);
}

static uint32_t get(wmi_object *object, const char *name, wmi_value *value) {
    VARIANT variant = {};
    VariantInit(&variant);
    HRESULT result = as<IWbemClassObject>(object)->Get(wide_name(name).text, 0, &variant, nullptr, nullptr);
    if (SUCCEEDED(result)) *value = value_of(&variant);
    return status_of(result);
}

static void release(wmi_object *object) {
    as<IUnknown>(object)->Release();
}

static void clear_variant(wmi_value *value) {
    VARIANT variant = variant_of(value);
    VariantClear(&variant);
    *value = {};
}

static byte_array *create_vector(uint32_t count) {
    return reinterpret_cast<byte_array *>(SafeArrayCreateVector(VT_UI1, 0, count));
}

static uint32_t put_element(byte_array *array, int32_t index, uint8_t value) {
    LONG place = index;
    return status_of(SafeArrayPutElement(array_of(array), &place, &value));
}

static uint32_t access_data(byte_array *array, const uint8_t **bytes, uint32_t *count) {
    SAFEARRAY *vector = array_of(array);
    if (vector == nullptr || SafeArrayGetDim(vector) != 1 || SafeArrayGetElemsize(vector) != 1)
        return status_of(E_INVALIDARG);
    void *data = nullptr;
    HRESULT result = SafeArrayAccessData(vector, &data);
    if (FAILED(result)) return status_of(result);
    *bytes = static_cast<const uint8_t *>(data);
    *count = vector->rgsabound[0].cElements;
    return status_of(SafeArrayUnaccessData(vector));
}

const ipmi_channel_ops ipmi_channel_ops_host = {
    .CoInitialize = initialize,
    .CoUninitialize = uninitialize,
    .CoInitializeSecurity = initialize_security,
    .CoCreateInstance = create_locator,
    .SysAllocString = alloc_text,
    .SysFreeString = free_text,
    .ConnectServer = connect_server,
    .CreateInstanceEnum = create_instance_enum,
    .Next = next_object,
    .GetObject = get_object,
    .GetMethod = get_method,
    .Put = put,
    .ExecMethod = exec_method,
    .Get = get,
    .Release = release,
    .VariantClear = clear_variant,
    .SafeArrayCreateVector = create_vector,
    .SafeArrayPutElement = put_element,
    .SafeArrayAccessData = access_data,
};
