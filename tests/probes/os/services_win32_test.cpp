// Real services of this host.
#include "probes/os/services.h"

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/services_ops.h"

#include <gtest/gtest.h>
#include <map>
#include <string>
#include <windows.h>

namespace {

struct windows_services : testing::Test {
    test_host host;
    windows_services() {
        services_host = &services_ops_host;
        error_host = &error_ops_host;
    }
    ~windows_services() override { services_host = nullptr; }

    static std::map<std::string, std::string> scan() {
        devtree root = {};
        EXPECT_SUCCESS(scan_services(&root));
        devtree_guard group(root.children);
        std::map<std::string, std::string> found;
        for (const devnode *device = group->devices; device != nullptr; device = device->next)
            found[device->id] = device->comment;
        return found;
    }
    static std::string check(const char *name) {
        devnode_guard device(alloc_devnode());
        device->id = text_copy(name);
        resnode result = {};
        if (const char *failure = check_service(device.get(), &result)) return failure;
        text_guard comment(result.comment);
        return std::to_string(result.value) + " " + comment.get();
    }
};

} // namespace

TEST_F(windows_services, are_offered_with_their_states) {
    auto found = scan();
    EXPECT_TRUE(found.contains("RpcSs"));
    EXPECT_TRUE(found.contains("PlugPlay"));
    for (const auto &[name, comment] : found)
        EXPECT_TRUE(comment.starts_with("The service is ")) << name;
}

TEST_F(windows_services, are_checked) {
    EXPECT_EQ(check("PlugPlay"), "1 The service is running");
    auto stopped = scan();
    for (const auto &[name, comment] : stopped) {
        if (comment != "The service is stopped") continue;
        EXPECT_EQ(check(name.c_str()), "0 The service is stopped");
        break;
    }
    EXPECT_TRUE(check("no such service").starts_with("Error opening the service: "));
}

TEST_F(windows_services, say_that_a_buffer_was_too_small) {
    service_manager *manager =
        services_ops_host.OpenSCManagerA(nullptr, "ServicesActive", GENERIC_READ_ACCESS);
    ASSERT_NE(manager, nullptr);
    service_record batch[10] = {};
    uint32_t needed = 0;
    uint32_t count = 0;
    uint32_t resume = 0;
    services_ops_host.SetLastError(0);
    EXPECT_FALSE(
        services_ops_host.EnumServicesStatusA(manager, 48, 3, batch, sizeof batch, &needed, &count, &resume));
    EXPECT_EQ(last_error(), MORE_DATA);
    EXPECT_GT(count, 0U);
    EXPECT_GT(needed, 0U);
    EXPECT_STRNE(batch[0].service_name, "");
    services_ops_host.CloseServiceHandle_manager(manager);
}

TEST_F(windows_services, need_a_database_of_the_right_name) {
    EXPECT_EQ(services_ops_host.OpenSCManagerA(nullptr, "no such database", GENERIC_READ_ACCESS), nullptr);
    EXPECT_NE(last_error(), 0U);
}
