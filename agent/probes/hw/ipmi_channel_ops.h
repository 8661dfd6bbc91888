// What the IPMI channel asks of a host: the service that carries commands to the BMC, in the words of WMI.
//
// A command is a method call: parameters are put into an object by name, the method runs, and outputs are got
// by name. A host without WMI answers from property_bag and carries the command in its own way.
#pragma once

#include <cstddef>
#include <cstdint>

// Any object of the service: locator, services, enumerator, instance, class, parameters, outputs.
struct wmi_object;
// A text in the service's own characters, and a vector of bytes.
struct wide_text;
struct byte_array;

enum : uint16_t {
    VALUE_I4 = 3,
    VALUE_BSTR = 8,
    VALUE_UI1 = 17,
    VALUE_UI1_ARRAY = 0x2011,
};

// A variant. What the type doesn't name is undefined.
struct wmi_value {
    uint16_t type;
    union {
        uint8_t byte;
        int32_t number;
        wide_text *text;
        byte_array *bytes;
    };
};

// Statuses that a host without the service uses, or that mean more than their words.
enum : uint32_t {
    WBEM_OK = 0,
    WBEM_BAD_INDEX = 0x8002000B,
    WBEM_FAILED = 0x80041001,
    WBEM_NOT_FOUND = 0x80041002,
    WBEM_ACCESS_DENIED = 0x80041003,
    WBEM_OUT_OF_MEMORY = 0x80041006,
    WBEM_INVALID_PARAMETER = 0x80041008,
    WBEM_SERVICE_RESTARTED = 0x80041033,
    WBEM_METHOD_NOT_IMPLEMENTED = 0x80041055,
    WBEM_NO_MEMORY = 0x8007000E,
};

// Each call that gives a status gives 0, a status with its top bit set on failure, or another small one where
// the host has something to say about its success. What a failed call was to set stays as it was.
struct ipmi_channel_ops {
    // For the calling thread: 0, or 1 where that was done already.
    uint32_t (*CoInitialize)();
    void (*CoUninitialize)();
    // Default authentication, and the service may act as the caller.
    uint32_t (*CoInitializeSecurity)();
    uint32_t (*CoCreateInstance)(wmi_object **locator);

    // Absent when memory is out. The free function takes absent.
    wide_text *(*SysAllocString)(const char *text);
    void (*SysFreeString)(wide_text *text);

    uint32_t (*ConnectServer)(wmi_object *locator, wide_text *name_space, wmi_object **services);
    uint32_t (*CreateInstanceEnum)(wmi_object *services, wide_text *class_name, wmi_object **enumerator);
    // Waits for one object, without limit.
    uint32_t (*Next)(wmi_object *enumerator, wmi_object **instance, uint32_t *count);
    uint32_t (*GetObject)(wmi_object *services, wide_text *class_name, wmi_object **class_object);

    // The object that takes the method's parameters; absent for a method without any.
    uint32_t (*GetMethod)(wmi_object *class_object, const char *method, wmi_object **parameters);
    uint32_t (*Put)(wmi_object *parameters, const char *name, wmi_value *value);
    // Runs the method on the instance at the path. `*outputs` stays absent where it gave none.
    uint32_t (*ExecMethod)(wmi_object *services, const wmi_value *path, const char *method,
                           wmi_object *parameters, wmi_object **outputs);
    // A property of an object. The caller clears the value.
    uint32_t (*Get)(wmi_object *object, const char *name, wmi_value *value);

    void (*Release)(wmi_object *object);
    void (*VariantClear)(wmi_value *value);

    // A vector of cleared bytes, absent when memory is out. Whoever holds the value that it is put into owns
    // it then.
    byte_array *(*SafeArrayCreateVector)(uint32_t count);
    uint32_t (*SafeArrayPutElement)(byte_array *array, int32_t index, uint8_t byte);
    // The bytes stay where they are as long as the vector is there.
    uint32_t (*SafeArrayAccessData)(byte_array *array, const uint8_t **bytes, uint32_t *count);
};

extern const ipmi_channel_ops ipmi_channel_ops_host;
extern const ipmi_channel_ops *ipmi_channel_host;
