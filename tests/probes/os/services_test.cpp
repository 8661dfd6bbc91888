#include "probes/os/services.h"

#include "fakes/notes.h"
#include "fakes/test_host.h"
#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/os/services_ops.h"
#include "probes/os/snapshot_chain.h"
#include "probes/os/unit_list.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <vector>

namespace {

using texts = std::vector<std::string>;

struct scripted_service {
    std::string name;
    std::string display_name;
    uint32_t state = 4;
};

struct services_fixture : testing::Test {
    test_host host;
    services_ops ops = {};
    devtree root = {};
    devnode_guard device{alloc_devnode()};
    resnode result = {};

    uint32_t manager_error = 0;
    bool has_manager = true;
    std::vector<scripted_service> services;
    size_t batch_limit = 1000; // services a batch
    uint32_t list_error = 0;   // of the batch that starts at `fails_at`
    uint32_t fails_at = 0;
    bool moves = true;        // the resume handle
    uint32_t false_count = 0; // in place of the count, unless 0
    uint32_t status_error = 0;
    int batches = 0;
    int open_managers = 0;
    int open_services = 0;

    services_fixture();
    ~services_fixture() override;

    texts offered() const {
        texts ids;
        for (const devnode *found = root.children != nullptr ? root.children->devices : nullptr; found;
             found = found->next)
            ids.emplace_back(found->id);
        return ids;
    }
    std::string check(const char *name) {
        text_replace(&device->id, text_copy(name));
        if (const char *failure = check_service(device.get(), &result)) return noted_failure(failure);
        note_text(result.comment);
        return std::to_string(result.value) + " " + result.comment;
    }
};

services_fixture *the_services;

bool refuse(uint32_t code) {
    the_host->last_error = code;
    return code == 0;
}

service_manager *scripted_open_manager(const char *machine, const char *database, uint32_t access) {
    EXPECT_EQ(machine, nullptr);
    EXPECT_STREQ(database, "ServicesActive");
    EXPECT_EQ(access, 0x80000000U);
    if (!refuse(the_services->manager_error)) return nullptr;
    the_services->open_managers++;
    return reinterpret_cast<service_manager *>(1);
}

bool scripted_has_none(uint32_t error) {
    EXPECT_EQ(error, the_services->manager_error);
    return !the_services->has_manager;
}

// Each batch ends with what is left in last_error by the call before, unless that was cleared.
bool scripted_enum(service_manager *manager, uint32_t kinds, uint32_t states, service_record *batch,
                   uint32_t size, uint32_t *, uint32_t *out_count, uint32_t *resume) {
    EXPECT_EQ(manager, reinterpret_cast<service_manager *>(1));
    EXPECT_EQ(kinds, 48U);
    EXPECT_EQ(states, 3U);
    EXPECT_EQ(size, 4096U);
    EXPECT_EQ(the_host->last_error, 0U);
    auto *fixture = the_services;
    fixture->batches++;
    if (fixture->list_error != 0 && *resume >= fixture->fails_at) {
        *resume += 1; // what a call leaves behind that fails is worth nothing
        *out_count = 1;
        return refuse(fixture->list_error);
    }
    size_t at = *resume;
    uint32_t count = 0;
    for (; at < fixture->services.size() && count < std::min<size_t>(85, fixture->batch_limit); at++)
        batch[count++] = {.service_name = fixture->services[at].name.c_str(),
                          .display_name = fixture->services[at].display_name.c_str(),
                          .status = {.type = 16, .current_state = fixture->services[at].state}};
    *out_count = fixture->false_count != 0 ? fixture->false_count : count;
    if (fixture->moves) *resume = static_cast<uint32_t>(at < fixture->services.size() ? at : 0);
    if (at == fixture->services.size()) return true;
    return refuse(MORE_DATA);
}

service *scripted_open_service(service_manager *, const char *name, uint32_t access) {
    EXPECT_EQ(access, 4U);
    for (scripted_service &found : the_services->services) {
        if (found.name != name) continue;
        the_services->open_services++;
        return reinterpret_cast<service *>(&found);
    }
    refuse(1060);
    return nullptr;
}

bool scripted_status(service *handle, service_status *out) {
    out->current_state = reinterpret_cast<scripted_service *>(handle)->state;
    return refuse(the_services->status_error);
}

// What closes something may fail and change the reason of an earlier failure.
void scripted_close_service(service *) {
    the_services->open_services--;
    the_host->last_error = 6;
}

void scripted_close_manager(service_manager *) {
    the_services->open_managers--;
    the_host->last_error = 6;
}

services_fixture::services_fixture() {
    the_services = this;
    ops = {.OpenSCManagerA = scripted_open_manager,
           .has_no_manager = scripted_has_none,
           .SetLastError = [](uint32_t code) { the_host->last_error = code; },
           .EnumServicesStatusA = scripted_enum,
           .OpenServiceA = scripted_open_service,
           .QueryServiceStatus = scripted_status,
           .CloseServiceHandle = scripted_close_service,
           .CloseServiceHandle_manager = scripted_close_manager};
    services_host = &ops;
    host.last_error = 99;
    host.error_words = {{5, "Access is denied."},
                        {234, "More data is available."},
                        {1060, "The service does not exist."},
                        {1722, "The server is unavailable."}};
}

services_fixture::~services_fixture() {
    EXPECT_EQ(open_managers, 0);
    EXPECT_EQ(open_services, 0);
    free_devtree(root.children);
    heap_free(result.comment);
    device.reset();
    EXPECT_EQ(host.blocks, 0);
    services_host = nullptr;
    the_services = nullptr;
}

struct scan_services_test : services_fixture {};
struct check_service_test : services_fixture {};

const std::pair<uint32_t, const char *> STATES[] = {
    {0, "Unknown service state"},          {1, "The service is stopped"}, {2, "The service is starting"},
    {3, "The service is stopping"},        {4, "The service is running"}, {5, "The service is continuing"},
    {6, "The service is pausing"},         {7, "The service is paused"},  {8, "Unknown service state"},
    {0xFFFFFFFF, "Unknown service state"},
};

} // namespace

TEST_F(scan_services_test, offers_each_service_last_one_first) {
    services = {{"Spooler", "Print Spooler"}, {"RpcSs", "Remote Procedure Call"}};
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(offered(), (texts{"RpcSs", "Spooler"}));
    EXPECT_TRUE(host.logged(LOG_TRACE, "In scan_services"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Reporting service Spooler"));
    EXPECT_TRUE(host.logged(LOG_TRACE, "Reporting service RpcSs"));
}

TEST_F(scan_services_test, tells_a_service_in_the_words_of_its_family) {
    services = {{"Spooler", "Print Spooler", 7}};
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_STREQ(root.children->id, "scm");
    EXPECT_STREQ(root.children->name, "Services");
    EXPECT_STREQ(root.children->name_template, "Service %0r");
    EXPECT_EQ(root.children->group_flags, 0U);
    const devnode *found = root.children->devices;
    EXPECT_STREQ(found->id, "Spooler");
    EXPECT_STREQ(found->name, "Print Spooler");
    EXPECT_STREQ(found->comment, "The service is paused");
    EXPECT_STREQ(found->unit, "");
    EXPECT_EQ(found->type, 1U);
    EXPECT_EQ(found->description, 18U);
    EXPECT_EQ(found->limits.hint.hint_present, 0U);
}

TEST_F(scan_services_test, offers_nothing_that_the_wire_would_refuse) {
    services = {{std::string(128, 'a'), std::string(200, 'A')}, {std::string(129, 'b'), "B"}};
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(offered(), texts{std::string(128, 'a')});
    EXPECT_EQ(root.children->devices->name, std::string(128, 'A'));
    EXPECT_TRUE(host.logged(LOG_WARNING, "Service name too long: " + std::string(129, 'b')));
}

TEST_F(scan_services_test, comments_each_service_with_its_state) {
    for (auto [state, text] : STATES)
        services.insert(services.begin(), {"s", "S", state});
    EXPECT_SUCCESS(scan_services(&root));
    const devnode *found = root.children->devices;
    for (auto [state, text] : STATES) {
        EXPECT_STREQ(found->comment, text);
        found = found->next;
    }
}

TEST_F(scan_services_test, goes_on_batch_by_batch) {
    for (int i = 0; i < 500; i++)
        services.push_back({"service" + std::to_string(i), "Service"});
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(batches, 6);
    texts ids = offered();
    ASSERT_EQ(ids.size(), 500U);
    EXPECT_EQ(ids.front(), "service499");
    EXPECT_EQ(ids[415], "service84");
    EXPECT_EQ(ids.back(), "service0");
}

TEST_F(scan_services_test, adds_no_group_without_a_service) {
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_services_test, tells_why_there_is_no_manager_to_ask) {
    manager_error = 5;
    EXPECT_FAILURE(scan_services(&root), "Error opening the Service Control Manager: Access is denied.");
    ops.has_no_manager = nullptr;
    EXPECT_FAILURE(scan_services(&root), "Error opening the Service Control Manager: Access is denied.");
}

TEST_F(scan_services_test, offers_nothing_on_a_host_without_a_manager) {
    manager_error = 5;
    has_manager = false;
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(root.children, nullptr);
    EXPECT_TRUE(host.logged(LOG_TRACE, "In scan_services"));
}

TEST_F(scan_services_test, needs_memory_for_a_batch) {
    host.fail_allocation = 1;
    EXPECT_FAILURE(scan_services(&root), "Out of memory in scan_services");
    EXPECT_EQ(batches, 0);
}

TEST_F(scan_services_test, keeps_nothing_where_any_batch_fails) {
    services = {{"a", "A"}, {"b", "B"}, {"c", "C"}};
    batch_limit = 2;
    list_error = 1722;
    EXPECT_FAILURE(scan_services(&root), "Error retriveing list of services: The server is unavailable.");
    fails_at = 1;
    EXPECT_FAILURE(scan_services(&root), "Error retriveing list of services: The server is unavailable.");
    EXPECT_EQ(batches, 3);
    EXPECT_EQ(root.children, nullptr);
}

TEST_F(scan_services_test, ends_where_the_host_takes_no_step_ahead) {
    services = {{"a", "A"}, {"b", "B"}};
    batch_limit = 1;
    moves = false;
    EXPECT_FAILURE(scan_services(&root), "Error retriveing list of services: More data is available.");
    moves = true;
    batch_limit = 0;
    EXPECT_FAILURE(scan_services(&root), "Error retriveing list of services: More data is available.");
}

TEST_F(scan_services_test, believes_in_no_more_records_than_a_batch_holds) {
    services.assign(85, {"a", "A"});
    false_count = 86;
    EXPECT_SUCCESS(scan_services(&root));
    EXPECT_EQ(offered().size(), 85U);
}

TEST_F(scan_services_test, frees_its_devices_where_the_group_cannot_be_made) {
    services = {{"a", "A"}};
    host.fail_allocation = 7; // the batch and a device with its four texts come first
    EXPECT_FAILURE(scan_services(&root), "Couldn't allocate devtree_child mem");
}

TEST_F(check_service_test, tells_the_state_and_whether_that_is_running) {
    for (auto [state, text] : STATES) {
        services = {{"s", "S", state}};
        EXPECT_EQ(check("s"), (state == 4 ? "1 " : "0 ") + std::string(text));
    }
}

TEST_F(check_service_test, leaves_what_the_scan_said_as_it_is) {
    services = {{"s", "S", 1}};
    device->comment = text_copy("The service is running");
    EXPECT_EQ(check("s"), "0 The service is stopped");
    EXPECT_STREQ(device->comment, "The service is running");
    EXPECT_EQ(device->state, nullptr);
}

TEST_F(check_service_test, tells_why_there_is_no_manager_to_ask) {
    manager_error = 5;
    EXPECT_EQ(check("s"), "Error opening the Service Control Manager: Access is denied.");
    has_manager = false;
    EXPECT_EQ(check("s"), "Error opening the Service Control Manager: Access is denied.");
    EXPECT_EQ(result.comment, nullptr);
}

TEST_F(check_service_test, fails_for_a_service_that_is_missing) {
    services = {{"s", "S"}};
    EXPECT_EQ(check("t"), "Error opening the service: The service does not exist.");
}

TEST_F(check_service_test, fails_where_the_state_cannot_be_had) {
    services = {{"s", "S"}};
    status_error = 5;
    EXPECT_EQ(check("s"), "Error getting service status: Access is denied.");
    EXPECT_EQ(result.comment, nullptr);
}

// ---- a recorded batch

TEST(recorded_service_batch, has_its_services) {
    recorded_answer answer("wine_service_batch.bin");
    ASSERT_EQ(answer.bytes.size(), 4096U);
    uint64_t base = reinterpret_cast<uintptr_t>(answer.bytes.data());
    std::vector<service_record> records(16);
    memcpy(records.data(), answer.bytes.data(), records.size() * sizeof records[0]);
    for (service_record &record : records) {
        for (const char **text : {&record.service_name, &record.display_name})
            *text =
                reinterpret_cast<const char *>(reinterpret_cast<uintptr_t>(*text) - answer.address + base);
    }
    EXPECT_STREQ(records[4].service_name, "RpcSs");
    EXPECT_STREQ(records[4].display_name, "Remote Procedure Call (RPC)");
    EXPECT_EQ(records[4].status.current_state, 1U);
    EXPECT_STREQ(records[8].service_name, "PlugPlay");
    EXPECT_EQ(records[8].status.current_state, 4U);
    EXPECT_STREQ(records[15].service_name, "Winedevice2");
    for (const service_record &record : records)
        EXPECT_NE(record.status.type & SERVICE_WIN32_KINDS, 0U) << record.service_name;
}
