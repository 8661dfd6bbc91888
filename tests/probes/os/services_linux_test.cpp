// The services of a systemd that is made up, by way of the host's own library for the bus.
#include "probes/os/services.h"

#include "fakes/test_host.h"
#include "platform/errors.h"
#include "platform/text.h"
#include "probes/os/fake_bus_linux.h"
#include "probes/os/sd_bus_linux.h"
#include "probes/os/services_ops.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {

using texts = std::vector<std::string>;

struct systemd_services : testing::Test {
    test_host host;
    fake_bus bus;
    devtree root = {};
    devnode_guard device{alloc_devnode()};
    resnode result = {};
    int64_t blocks = 0;

    systemd_services() {
        services_host = &services_ops_host;
        error_host = &error_ops_host;
        bus_timeout_us = 5'000'000;
        bus_rest_us = 30'000'000;
        bus_rest_reset();
    }
    ~systemd_services() override {
        free_devtree(root.children);
        heap_free(result.comment);
        device.reset();
        EXPECT_EQ(host.blocks, 0);
        services_host = nullptr;
        bus_timeout_us = 5'000'000;
        bus_rest_us = 30'000'000;
        bus_rest_reset();
    }
    void SetUp() override {
        if (find_sd_bus() == nullptr) GTEST_SKIP() << "this machine has no libsystemd";
    }

    // "id|name|comment", first one first.
    texts offered() const {
        texts found;
        for (const devnode *at = root.children != nullptr ? root.children->devices : nullptr; at;
             at = at->next)
            found.insert(found.begin(), std::string(at->id) + "|" + at->name + "|" + at->comment);
        return found;
    }
    std::string check(const char *name) {
        text_replace(&device->id, text_copy(name));
        if (const char *failure = check_service(device.get(), &result)) return failure;
        return std::to_string(result.value) + " " + result.comment;
    }
};

} // namespace

TEST_F(systemd_services, are_its_loaded_units_and_its_files) {
    std::string file = bus.folder.path + "/idle.service";
    std::ofstream(file) << "[Unit]\nDescription=Does nothing\n";
    bus.units = {{"ssh.service", "Secure shell"},
                 {"cron.service", "Cron", "loaded", "activating"},
                 {"ghost.service", "ghost.service", "not-found", "inactive"},
                 {"root.mount", "The root"}};
    bus.files = {{file, "disabled"},
                 {"/nowhere/ssh.service", "enabled"},
                 {"/nowhere/missing.service", "enabled"},
                 {"/nowhere/getty@.service", "enabled"},
                 {"/nowhere/off.service", "masked"}};
    bus.start();
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(offered(), (texts{"ssh.service|Secure shell|The service is running",
                                "cron.service|Cron|The service is starting",
                                "idle.service|Does nothing|The service is stopped",
                                "missing.service|missing.service|The service is stopped"}));
    bus.stop();
    EXPECT_EQ(bus.calls, (texts{"Hello", "NameHasOwner", "ListUnitsByPatterns", "ListUnitFilesByPatterns"}));
}

TEST_F(systemd_services, come_in_many_batches) {
    for (int i = 0; i < 500; i++)
        bus.units.push_back({"unit" + std::to_string(i) + ".service", "Number " + std::to_string(i)});
    bus.start();
    EXPECT_SUCCESS(scan_services(&root));
    texts found = offered();
    ASSERT_EQ(found.size(), 500U);
    for (size_t i = 0; i < 500; i++)
        EXPECT_TRUE(found[i].starts_with("unit" + std::to_string(i) + ".service|Number ")) << found[i];
    bus.stop();
    EXPECT_EQ(bus.calls.size(), 4U) << "asked once";
}

TEST_F(systemd_services, are_checked_by_their_state) {
    bus.units = {{"a.service", "A", "loaded", "active"},       {"b.service", "B", "loaded", "reloading"},
                 {"c.service", "C", "loaded", "deactivating"}, {"d.service", "D", "loaded", "failed"},
                 {"e.service", "E", "not-found", "inactive"},  {"f.mount", "F", "loaded", "active"}};
    bus.start();
    EXPECT_EQ(check("a.service"), "1 The service is running");
    EXPECT_EQ(check("b.service"), "1 The service is running");
    EXPECT_EQ(check("c.service"), "0 The service is stopping");
    EXPECT_EQ(check("d.service"), "0 The service is stopped");
    EXPECT_EQ(check("e.service"), "Error opening the service: No such file or directory");
    EXPECT_EQ(check("f.mount"), "Error opening the service: No such file or directory");
    EXPECT_EQ(check("g.service"), "Error opening the service: No such file or directory");
    EXPECT_EQ(bus.connections, 7) << "nothing is kept between checks";
}

TEST_F(systemd_services, are_none_without_a_bus) {
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(root.children, nullptr);
    EXPECT_EQ(check("a.service"), "Error opening the Service Control Manager: No such file or directory");
}

TEST_F(systemd_services, are_none_behind_a_socket_that_nobody_listens_at) {
    bus.start();
    bus.stop();
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(root.children, nullptr);
    EXPECT_EQ(check("a.service"), "Error opening the Service Control Manager: Connection refused");
}

TEST_F(systemd_services, are_none_on_a_bus_without_systemd) {
    bus.has_systemd = false;
    bus.start();
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(root.children, nullptr);
    EXPECT_EQ(check("a.service"), "Error opening the Service Control Manager: Package not installed");
}

TEST_F(systemd_services, do_not_hold_the_agent_up_on_a_silent_bus) {
    bus_timeout_us = 30'000;
    bus.silent = true;
    bus.start();
    auto started = std::chrono::steady_clock::now();
    EXPECT_FAILURE(scan_services(&root), "Error opening the Service Control Manager: Connection timed out");
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
}

TEST_F(systemd_services, do_not_hold_the_agent_up_where_a_call_is_not_answered) {
    bus_timeout_us = 30'000;
    bus_rest_us = 0;
    bus.unanswered = {"ListUnitFilesByPatterns", "ListUnitsByNames"};
    bus.units = {{"a.service"}};
    bus.start();
    EXPECT_FAILURE(scan_services(&root), "Error retriveing list of services: Connection timed out");
    EXPECT_EQ(check("a.service"), "Error opening the service: Connection timed out");
}

TEST_F(systemd_services, leave_a_bus_alone_for_a_while_that_did_not_answer) {
    bus_timeout_us = 30'000;
    bus.unanswered = {"ListUnitsByNames"};
    bus.units = {{"a.service"}};
    bus.start();
    EXPECT_EQ(check("a.service"), "Error opening the service: Connection timed out");
    for (const char *name : {"a.service", "b.service"})
        EXPECT_EQ(check(name), "Error opening the Service Control Manager: Connection timed out");
    bus.stop();
    EXPECT_EQ(bus.connections, 1);
}

TEST_F(systemd_services, are_asked_for_again_behind_the_rest_of_a_silent_bus) {
    bus_timeout_us = 30'000;
    bus_rest_us = 0;
    bus.silent = true;
    bus.start();
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(check("a.service"), "Error opening the Service Control Manager: Connection timed out");
    bus.stop();
    EXPECT_EQ(bus.connections, 2);
}

TEST_F(systemd_services, fail_with_the_reason_of_a_call) {
    bus.errors = {{"ListUnitsByPatterns", "org.freedesktop.DBus.Error.AccessDenied"},
                  {"ListUnitsByNames", "org.freedesktop.DBus.Error.InvalidArgs"}};
    bus.start();
    EXPECT_FAILURE(scan_services(&root), "Error retriveing list of services: Permission denied");
    EXPECT_EQ(check("a"), "Error opening the service: Invalid argument");
}

TEST_F(systemd_services, are_none_where_the_bus_refuses_to_tell_its_names) {
    bus.errors = {{"NameHasOwner", "org.freedesktop.DBus.Error.AccessDenied"}};
    bus.start();
    EXPECT_FAILURE(scan_services(&root), "Error opening the Service Control Manager: Permission denied");
}

TEST_F(systemd_services, survive_answers_of_another_kind) {
    bus.units = {{"a.service"}};
    bus.cut_signatures = {{"ListUnitsByPatterns", "as"}, {"ListUnitsByNames", "a(ss)"}};
    bus.start();
    EXPECT_NE(scan_services(&root), nullptr);
    EXPECT_EQ(root.children, nullptr);
    EXPECT_NE(check("a.service").find("Error opening the service: "), std::string::npos);
}

TEST_F(systemd_services, end_where_memory_does) {
    bus.units = {{"a.service"}};
    bus.files = {{"/nowhere/b.service", "disabled"}};
    bus.start();
    const char *texts[] = {"Error opening the Service Control Manager: Cannot allocate memory",
                           "Out of memory in scan_services",
                           "Error retriveing list of services: Cannot allocate memory",
                           "Error retriveing list of services: Cannot allocate memory",
                           "Error retriveing list of services: Cannot allocate memory",
                           "Error retriveing list of services: Cannot allocate memory",
                           "Error retriveing list of services: Cannot allocate memory"};
    for (uint32_t n = 1; n <= std::size(texts); n++) {
        host.fail_allocation = n;
        EXPECT_FAILURE(scan_services(&root), texts[n - 1]);
    }
    text_replace(&device->id, text_copy("a.service"));
    host.fail_allocation = 2;
    EXPECT_FAILURE(check_service(device.get(), &result), "Error opening the service: Cannot allocate memory");
}

TEST(has_system_bus, goes_by_the_environment_ahead_of_the_usual_socket) {
    const char *set = getenv("DBUS_SYSTEM_BUS_ADDRESS");
    std::string before = set != nullptr ? set : "";
    setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere", 1);
    EXPECT_TRUE(has_system_bus());
    unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    EXPECT_EQ(has_system_bus(), access("/run/dbus/system_bus_socket", F_OK) == 0);
    if (set != nullptr) setenv("DBUS_SYSTEM_BUS_ADDRESS", before.c_str(), 1);
}
