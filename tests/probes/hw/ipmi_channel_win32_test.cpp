// The service of a real host. Wine has the locator, the namespaces and some classes, but no IPMI provider:
// what the channel does with that is tested by the way it goes there, each call by a class that Wine has.
#define NOGDI
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "probes/hw/ipmi_channel.h"

#include <cstring>
#include <gtest/gtest.h>
#include <string>
#include <windows.h>

#include <wbemcli.h>

namespace {

const ipmi_channel_ops &service = ipmi_channel_ops_host;

struct wmi_service : testing::Test {
    test_host host;
    wmi_object *locator = nullptr;
    wmi_object *services = nullptr;

    wmi_service() {
        EXPECT_LE(service.CoInitialize(), 1U);
        EXPECT_EQ(service.CoCreateInstance(&locator), 0U);
        EXPECT_NE(locator, nullptr);
    }
    ~wmi_service() override {
        if (services != nullptr) service.Release(services);
        if (locator != nullptr) service.Release(locator);
        service.CoUninitialize();
    }
    uint32_t connect(const char *name) {
        wide_text *wide = service.SysAllocString(name);
        uint32_t status = service.ConnectServer(locator, wide, &services);
        service.SysFreeString(wide);
        return status;
    }
    uint32_t get_class(const char *name, wmi_object **out) {
        wide_text *wide = service.SysAllocString(name);
        uint32_t status = service.GetObject(services, wide, out);
        service.SysFreeString(wide);
        return status;
    }
    uint32_t enumerate(const char *name, wmi_object **out) {
        wide_text *wide = service.SysAllocString(name);
        uint32_t status = service.CreateInstanceEnum(services, wide, out);
        service.SysFreeString(wide);
        return status;
    }
};

std::string words_of(const wide_text *text) {
    std::string words;
    for (auto *c = reinterpret_cast<const char16_t *>(text); *c != 0; c++)
        words += static_cast<char>(*c);
    return words;
}

wmi_value text_value(const char *text) {
    wmi_value value = {.type = VALUE_BSTR};
    value.text = service.SysAllocString(text);
    return value;
}

// Wine takes parameters only in an instance of what GetMethod gives.
wmi_object *new_instance(wmi_object *signature) {
    IWbemClassObject *made = nullptr;
    EXPECT_EQ(reinterpret_cast<IWbemClassObject *>(signature)->SpawnInstance(0, &made), 0);
    return reinterpret_cast<wmi_object *>(made);
}

} // namespace

TEST(wmi_channel, finds_no_interface_on_a_host_without_the_class) {
    test_host host;
    ipmi_channel_host = &ipmi_channel_ops_host;
    ipmi_channel_reset();
    for (int attempt = 0; attempt < 2; attempt++) {
        std::string failure = noted_failure(init_bmcs());
        // Wine enumerates nothing where others say that the class is not there.
        EXPECT_TRUE(failure == "No IPMI interface found" ||
                    failure == "Unable to enumerate IPMI objects: Specified class is invalid" ||
                    failure == "Unable to fetch 1 instance from object enumeration")
            << failure;
        EXPECT_EQ(active_bmcs, nullptr);
    }
    EXPECT_TRUE(host.logged(LOG_TRACE, " Connected to WMI namespace")) << "the locator works here";
    EXPECT_EQ(host.blocks, 0);
    ipmi_channel_host = nullptr;
}

TEST_F(wmi_service, keeps_a_text_as_it_was_given) {
    wide_text *text = service.SysAllocString("ROOT\\WMI");
    EXPECT_EQ(words_of(text), "ROOT\\WMI");
    service.SysFreeString(text);
    service.SysFreeString(nullptr);
}

TEST_F(wmi_service, has_no_instance_of_a_class_that_it_lacks) {
    ASSERT_EQ(connect("ROOT\\CIMV2"), 0U);
    wmi_object *class_object = nullptr;
    EXPECT_NE(get_class("Tarnix_Nothing", &class_object) & 0x80000000, 0U);
    EXPECT_EQ(class_object, nullptr);
    wmi_object *enumerator = nullptr;
    if (enumerate("Tarnix_Nothing", &enumerator) != 0) return; // Wine enumerates nothing instead
    wmi_object *instance = nullptr;
    uint32_t count = 9;
    EXPECT_EQ(service.Next(enumerator, &instance, &count), 1U);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(instance, nullptr);
    service.Release(enumerator);
}

TEST_F(wmi_service, does_not_connect_to_a_namespace_that_it_lacks) {
    EXPECT_NE(connect("ROOT\\TARNIX") & 0x80000000, 0U);
    EXPECT_EQ(services, nullptr);
}

TEST_F(wmi_service, gives_one_instance_with_its_path_and_properties) {
    ASSERT_EQ(connect("ROOT\\CIMV2"), 0U);
    wmi_object *enumerator = nullptr;
    ASSERT_EQ(enumerate("Win32_OperatingSystem", &enumerator), 0U);
    wmi_object *instance = nullptr;
    uint32_t count = 0;
    ASSERT_EQ(service.Next(enumerator, &instance, &count), 0U);
    ASSERT_EQ(count, 1U);
    wmi_value path = {};
    ASSERT_EQ(service.Get(instance, "__PATH", &path), 0U);
    ASSERT_EQ(path.type, VALUE_BSTR);
    EXPECT_NE(words_of(path.text).find("Win32_OperatingSystem"), std::string::npos);
    service.VariantClear(&path);
    EXPECT_EQ(path.type, 0);
    wmi_value other = {.type = 77};
    EXPECT_NE(service.Get(instance, "Tarnix_Nothing", &other) & 0x80000000, 0U);
    EXPECT_EQ(other.type, 77) << "left alone";
    wmi_object *more = nullptr;
    EXPECT_EQ(service.Next(enumerator, &more, &count), 1U) << "no failure, but none";
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(more, nullptr);
    service.Release(instance);
    service.Release(enumerator);
}

// The same way as a command of IPMI: parameters of the method, put by name, the call, outputs by name.
TEST_F(wmi_service, calls_a_method_with_numbers_and_texts) {
    ASSERT_EQ(connect("ROOT\\DEFAULT"), 0U);
    wmi_object *registry = nullptr;
    ASSERT_EQ(get_class("StdRegProv", &registry), 0U);
    wmi_object *signature = nullptr;
    ASSERT_EQ(service.GetMethod(registry, "GetStringValue", &signature), 0U);
    ASSERT_NE(signature, nullptr);
    wmi_object *parameters = new_instance(signature);
    wmi_value hive = {.type = VALUE_I4};
    hive.number = static_cast<int32_t>(0x80000002);
    EXPECT_EQ(service.Put(parameters, "hDefKey", &hive), 0U);
    wmi_value key = text_value("Software\\Microsoft\\Windows NT\\CurrentVersion");
    EXPECT_EQ(service.Put(parameters, "sSubKeyName", &key), 0U);
    service.VariantClear(&key);
    wmi_value name = text_value("CurrentVersion");
    EXPECT_EQ(service.Put(parameters, "sValueName", &name), 0U);
    service.VariantClear(&name);
    wmi_value path = text_value("StdRegProv");
    wmi_object *outputs = nullptr;
    ASSERT_EQ(service.ExecMethod(services, &path, "GetStringValue", parameters, &outputs), 0U);
    service.VariantClear(&path);
    ASSERT_NE(outputs, nullptr);
    wmi_value result = {};
    EXPECT_EQ(service.Get(outputs, "ReturnValue", &result), 0U);
    EXPECT_EQ(result.type, VALUE_I4);
    EXPECT_EQ(result.number, 0);
    wmi_value version = {};
    EXPECT_EQ(service.Get(outputs, "sValue", &version), 0U);
    EXPECT_EQ(version.type, VALUE_BSTR);
    service.VariantClear(&version);
    service.Release(outputs);
    service.Release(parameters);
    service.Release(signature);
    service.Release(registry);
}

TEST_F(wmi_service, gives_bytes_out_of_a_method) {
    ASSERT_EQ(connect("ROOT\\CIMV2"), 0U);
    wmi_object *security = nullptr;
    ASSERT_EQ(get_class("__SystemSecurity", &security), 0U);
    wmi_value path = text_value("__SystemSecurity");
    wmi_object *outputs = nullptr;
    ASSERT_EQ(service.ExecMethod(services, &path, "GetSD", nullptr, &outputs), 0U);
    service.VariantClear(&path);
    wmi_value bytes = {};
    ASSERT_EQ(service.Get(outputs, "SD", &bytes), 0U);
    ASSERT_EQ(bytes.type, VALUE_UI1_ARRAY);
    const uint8_t *data = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(service.SafeArrayAccessData(bytes.bytes, &data, &count), 0U);
    EXPECT_GT(count, 20U);
    EXPECT_EQ(data[0], 1) << "the revision of a security descriptor";
    service.VariantClear(&bytes);
    service.Release(outputs);
    service.Release(security);
}

TEST_F(wmi_service, keeps_the_bytes_of_a_vector) {
    wmi_value value = {.type = VALUE_UI1_ARRAY};
    value.bytes = service.SafeArrayCreateVector(3);
    ASSERT_NE(value.bytes, nullptr);
    for (int32_t i = 0; i < 3; i++)
        EXPECT_EQ(service.SafeArrayPutElement(value.bytes, i, static_cast<uint8_t>(i + 7)), 0U);
    EXPECT_EQ(service.SafeArrayPutElement(value.bytes, 3, 0), 0x8002000BU) << "bad index";
    EXPECT_EQ(service.SafeArrayPutElement(value.bytes, -1, 0), 0x8002000BU);
    const uint8_t *data = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(service.SafeArrayAccessData(value.bytes, &data, &count), 0U);
    ASSERT_EQ(count, 3U);
    EXPECT_EQ(data[2], 9);
    EXPECT_EQ(service.SafeArrayAccessData(nullptr, &data, &count), 0x80070057U);
    service.VariantClear(&value); // which it could not if the data were still in use
    EXPECT_EQ(value.type, 0);
}
