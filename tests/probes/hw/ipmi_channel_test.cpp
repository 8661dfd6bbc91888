#include "probes/hw/ipmi_channel.h"

#include "platform/agent_log.h"
#include "probes/hw/ipmi_fixture.h"

namespace {

using init_bmcs_test = ipmi_fixture;
using release_bmcs_test = ipmi_fixture;

constexpr uint32_t RESTARTED = 0x80041033;

// A request for the device id, unless said otherwise.
struct ipmi_command_test : ipmi_fixture {
    ipmi_request request = {.netfn = 6, .command = 1};
    ipmi_response *response = nullptr;

    ipmi_command_test() { come_up(); }
    ~ipmi_command_test() override { free_ipmi_response(response); }

    const char *send() {
        free_ipmi_response(response);
        return ipmi_command(active_bmcs, &response, &request);
    }
};

using restart_rule = ipmi_command_test;

} // namespace

// ---- setting up

TEST_F(init_bmcs_test, makes_one_bmc_from_the_first_namespace) {
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_EQ(channel.steps, (std::vector<std::string>{
                                 "CoInitialize", "SysAllocString ROOT\\WMI", "SysAllocString ROOT\\HARDWARE",
                                 "SysAllocString Microsoft_IPMI", "CoInitializeSecurity", "CoCreateInstance",
                                 "ConnectServer ROOT\\WMI", "CreateInstanceEnum Microsoft_IPMI", "Next",
                                 "Get __PATH", "GetObject Microsoft_IPMI"}));
    ASSERT_EQ(active_bmc_count, 1);
    ASSERT_NE(active_bmcs, nullptr);
    EXPECT_NE(active_bmcs[0].class_object, nullptr);
    EXPECT_EQ(active_bmcs[0].path.type, 8);
    EXPECT_EQ(channel.objects, 2) << "the services and the class object";
    EXPECT_EQ(channel.texts, 0);
    EXPECT_EQ(channel.started, 1);
}

TEST_F(init_bmcs_test, tells_how_it_came_up) {
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_EQ(host.told(),
              (std::vector<std::string>{" Connected to WMI namespace",
                                        " Found IPMI class in namespace ROOT\\WMI", "Initialized 1 BMCs"}));
    EXPECT_TRUE(host.logged(LOG_TRACE, " Connected to WMI namespace"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, " Found IPMI class in namespace ROOT\\WMI"));
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Initialized 1 BMCs"));
}

TEST_F(init_bmcs_test, does_nothing_where_the_channel_is_up) {
    come_up();
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_TRUE(channel.steps.empty());
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Initialized 1 BMCs"));
}

TEST_F(init_bmcs_test, says_when_an_open_channel_has_no_bmcs) {
    come_up();
    release_bmcs();
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_TRUE(host.logged(LOG_NORMAL, "No BMCs available"));
    EXPECT_EQ(active_bmcs, nullptr);
}

TEST_F(init_bmcs_test, takes_com_that_was_initialized_already) {
    channel.statuses["CoInitialize"] = {1};
    EXPECT_SUCCESS(init_bmcs());
}

TEST_F(init_bmcs_test, fails_where_com_does_not_start) {
    for (uint32_t status : {2U, 0x80010106U}) {
        channel.statuses["CoInitialize"] = {status};
        EXPECT_FAILURE(init_bmcs(), "Failed COM initialization: " + std::to_string(status));
        EXPECT_EQ(channel.started, 0);
        EXPECT_EQ(channel.count("CoUninitialize"), 0);
    }
}

TEST_F(init_bmcs_test, frees_its_texts_where_one_is_refused) {
    for (int n = 0; n < 3; n++) {
        channel.statuses["SysAllocString"].assign(static_cast<size_t>(n), 0);
        channel.statuses["SysAllocString"].push_back(1);
        EXPECT_FAILURE(init_bmcs(), "SysAllocString failed during init of COM - insufficient memory");
        channel.statuses.clear();
        EXPECT_EQ(channel.texts, 0);
        EXPECT_EQ(channel.count("CoInitializeSecurity"), 0);
        EXPECT_EQ(channel.count("CoUninitialize"), 0) << "only later failures stop COM";
    }
}

TEST_F(init_bmcs_test, stops_com_at_each_later_failure_and_starts_from_the_beginning_next_time) {
    const std::pair<const char *, const char *> failures[] = {
        {"CoInitializeSecurity", "Failed COM security setup; error=2147749891"},
        {"CoCreateInstance", "Failed IWbemLocator creation; error=2147749891"},
        {"Next", "Unable to fetch enumerated object: Current user not authorized"},
        {"Get __PATH", "Unable to fetch object path: Current user not authorized"},
        {"GetObject", "Failed getting IPMI object; error=2147749891"},
    };
    int stops = 0;
    for (auto [step, text] : failures) {
        channel.statuses[step] = {0x80041003};
        EXPECT_FAILURE(init_bmcs(), text);
        EXPECT_EQ(channel.count("CoUninitialize"), ++stops) << step;
        EXPECT_EQ(channel.steps.back(), "CoUninitialize");
        EXPECT_EQ(channel.objects, 0) << step;
        EXPECT_EQ(active_bmcs, nullptr);
        EXPECT_EQ(active_bmc_count, 0);
        EXPECT_EQ(host.count_logged("BMCs"), 0) << "only a success is counted";
    }
    EXPECT_EQ(channel.started, 0);
    EXPECT_SUCCESS(init_bmcs());
}

TEST_F(init_bmcs_test, takes_only_one_instance) {
    for (uint32_t status : {0U, 1U})
        for (uint32_t count : {0U, 2U}) {
            channel.instances = count;
            channel.next_status = status;
            EXPECT_FAILURE(init_bmcs(), "Unable to fetch 1 instance from object enumeration");
            EXPECT_EQ(channel.objects, 0);
        }
}

TEST_F(init_bmcs_test, uses_the_second_namespace_where_the_first_lacks_the_class) {
    channel.class_namespaces = {"ROOT\\HARDWARE"};
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_TRUE(host.logged(LOG_TRACE, "No IPMI interface found"));
    EXPECT_TRUE(host.logged(LOG_DETAIL, " Found IPMI class in namespace ROOT\\HARDWARE"));
    EXPECT_EQ(host.count_logged(" Connected to WMI namespace"), 2);
    EXPECT_EQ(channel.objects, 2) << "the first services are released";
}

TEST_F(init_bmcs_test, uses_the_second_namespace_where_the_first_does_not_connect) {
    channel.namespaces = channel.class_namespaces = {"ROOT\\HARDWARE"};
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_TRUE(host.logged(LOG_TRACE, "Failed WMI namespace connect: The specified namespace did not exist "
                                       "on the server."));
    EXPECT_EQ(host.count_logged(" Connected to WMI namespace"), 1);
}

TEST_F(init_bmcs_test, reports_the_last_failure_of_the_namespaces) {
    channel.class_namespaces.clear();
    EXPECT_FAILURE(init_bmcs(), "No IPMI interface found");
    EXPECT_EQ(host.count_logged("No IPMI interface found"), 2);

    channel.namespaces = {"ROOT\\WMI"};
    EXPECT_FAILURE(init_bmcs(), "Failed WMI namespace connect: The specified namespace did not exist on the "
                                "server.");

    channel.namespaces = {"ROOT\\HARDWARE"};
    channel.statuses["CreateInstanceEnum"] = {0x80041001};
    EXPECT_FAILURE(init_bmcs(), "Unable to enumerate IPMI objects: General failure");
    EXPECT_TRUE(host.logged(LOG_TRACE, "Unable to enumerate IPMI objects: General failure"));

    channel.statuses["ConnectServer"] = {0x80041001, 0x92345678};
    EXPECT_FAILURE(init_bmcs(), "Failed WMI namespace connect: (2452903544) Not a known WBEM error");
    EXPECT_EQ(channel.objects, 0);
    EXPECT_EQ(channel.started, 0);
}

TEST_F(init_bmcs_test, gives_up_where_there_is_no_memory_for_the_bmc) {
    host.fail_allocation = 1;
    EXPECT_FAILURE(init_bmcs(), "Out of memory allocating active BMC array");
    EXPECT_EQ(channel.objects, 0);
    EXPECT_EQ(channel.started, 0);
    EXPECT_EQ(host.blocks, 0);
    EXPECT_SUCCESS(init_bmcs());
}

TEST_F(release_bmcs_test, lets_go_of_everything) {
    come_up();
    int64_t before = host.blocks;
    release_bmcs();
    EXPECT_EQ(channel.objects, 0);
    EXPECT_EQ(active_bmcs, nullptr);
    EXPECT_EQ(active_bmc_count, 0);
    EXPECT_LT(host.blocks, before);
    EXPECT_EQ(host.blocks, 0);
    release_bmcs();
    EXPECT_EQ(channel.objects, 0) << "a second time there is nothing to let go of";
}

// ---- commands

TEST_F(ipmi_command_test, sets_the_parameters_in_their_order_and_types) {
    const uint8_t data[] = {7, 8, 9};
    request = {.netfn = 10, .lun = 2, .command = 0x23, .data_len = 3, .data = data};
    EXPECT_SUCCESS(send());
    EXPECT_EQ(channel.steps,
              (std::vector<std::string>{
                  "GetMethod RequestResponse", "Put Command 17 35", "Put Lun 17 2",
                  "Put NetworkFunction 17 10", "Put RequestDataSize 3 3", "SafeArrayCreateVector 3",
                  "SafeArrayPutElement", "SafeArrayPutElement", "SafeArrayPutElement",
                  "Put RequestData 8209 7 8 9", "Put ResponderAddress 17 32",
                  "ExecMethod \\\\.\\ROOT\\WMI:Microsoft_IPMI.InstanceName=\"0\" RequestResponse",
                  "Get ResponseDataSize", "Get CompletionCode", "Get ResponseData", "SafeArrayAccessData"}));
    EXPECT_EQ(bmc.asked.back(), (bmc_request{10, 2, 0x23, {7, 8, 9}}));
}

TEST_F(ipmi_command_test, sends_one_zero_byte_of_size_0_where_there_are_no_data) {
    EXPECT_SUCCESS(send());
    EXPECT_EQ(channel.count("Put RequestDataSize 3 0"), 1);
    EXPECT_EQ(channel.count("Put RequestData 8209 0"), 1);
    EXPECT_EQ(bmc.asked.back(), (bmc_request{6, 0, 1, {}}));
}

TEST_F(ipmi_command_test, gives_the_bytes_behind_the_completion_code) {
    request.lun = 3;
    bmc.device_id = {0xC9, 11, 12, 13};
    EXPECT_SUCCESS(send());
    ASSERT_NE(response, nullptr);
    EXPECT_EQ(response->netfn, 7);
    EXPECT_EQ(response->lun, 3);
    EXPECT_EQ(response->command, 1);
    EXPECT_EQ(response->ccode, 0xC9U) << "no failure here";
    ASSERT_EQ(response->data_len, 3U);
    EXPECT_EQ(response->data[0], 11);
    EXPECT_EQ(response->data[2], 13);
}

TEST_F(ipmi_command_test, has_no_data_in_a_response_of_size_1_and_zeros_behind_it) {
    bmc.device_id = {0xC1};
    EXPECT_SUCCESS(send());
    EXPECT_EQ(response->data_len, 0U);
    for (uint32_t i = 0; i < 5; i++)
        EXPECT_EQ(response->data[i], 0);
}

TEST_F(ipmi_command_test, has_five_zeros_behind_any_data) {
    bmc.device_id.assign(200, 0xFF);
    EXPECT_SUCCESS(send());
    ASSERT_EQ(response->data_len, 199U);
    EXPECT_EQ(response->data[198], 0xFF);
    for (uint32_t i = 199; i < 204; i++)
        EXPECT_EQ(response->data[i], 0);
}

TEST_F(ipmi_command_test, counts_only_bytes_that_are_there) {
    bmc.device_id = {0, 1, 2, 3};
    for (int32_t size : {5, 100, 0x7FFFFFFF}) {
        channel.response_size = size;
        EXPECT_SUCCESS(send());
        EXPECT_EQ(response->data_len, 3U) << size;
    }
    channel.response_size = 3;
    EXPECT_SUCCESS(send());
    EXPECT_EQ(response->data_len, 2U);
    EXPECT_EQ(response->data[2], 0) << "what the size leaves out is not there either";
    bmc.device_id.clear();
    channel.response_size = 4;
    EXPECT_SUCCESS(send());
    EXPECT_EQ(response->data_len, 0U);
}

TEST_F(ipmi_command_test, needs_a_completion_code_at_least) {
    for (int32_t size : {0, -1, INT32_MIN}) {
        channel.response_size = size;
        EXPECT_FAILURE(send(), "Must get response data");
        EXPECT_EQ(response, nullptr);
    }
}

TEST_F(ipmi_command_test, names_the_step_that_failed) {
    const std::pair<const char *, const char *> failures[] = {
        {"GetMethod", "Failed getting method parameters; this usually means that the IPMI provider is not "
                      "installed: Specified class is invalid"},
        {"Put Command", "Unable to set Command: Specified class is invalid"},
        {"Put Lun", "Unable to set Lun: Specified class is invalid"},
        {"Put NetworkFunction", "Unable to set NetworkFunction: Specified class is invalid"},
        {"Put RequestDataSize", "Unable to set RequestDataSize: Specified class is invalid"},
        {"SafeArrayCreateVector", "Unable to create RequestData array"},
        {"SafeArrayPutElement", "Unable to zero array index 0 (dlen=0): Specified class is invalid"},
        {"Put RequestData", "Unable to set RequestData: Specified class is invalid"},
        {"Put ResponderAddress", "Unable to set ResponderAddress: Specified class is invalid"},
        {"ExecMethod", "Unable to execute method: Specified class is invalid"},
        {"Get ResponseDataSize", "Unable to get response data size: Specified class is invalid"},
        {"Get CompletionCode", "Unable to get completion code: Specified class is invalid"},
        {"Get ResponseData", "Unable to get response data: Specified class is invalid"},
        {"SafeArrayAccessData", "Unable to get response data: Specified class is invalid"},
    };
    for (auto [step, text] : failures) {
        channel.steps.clear();
        channel.statuses[step] = {0x80041010};
        EXPECT_FAILURE(send(), text);
        EXPECT_EQ(response, nullptr);
        EXPECT_TRUE(channel.steps.back().starts_with(step)) << "nothing follows " << step;
        EXPECT_EQ(channel.objects, 2) << step;
    }
    EXPECT_SUCCESS(send());
}

TEST_F(ipmi_command_test, names_the_byte_that_is_refused) {
    const uint8_t data[] = {7, 8, 9};
    request.data_len = 3;
    request.data = data;
    channel.statuses["SafeArrayPutElement"] = {0, 0, 0x8002000B};
    EXPECT_FAILURE(send(), "Unable to zero array index 2 (dlen=3): Bad index");
}

TEST_F(ipmi_command_test, names_outputs_of_a_wrong_type) {
    const std::pair<const char *, const char *> failures[] = {
        {"ResponseDataSize", "Bad type of response data size: 19"},
        {"CompletionCode", "Bad type of completion code: 19"},
        {"ResponseData", "Bad type of response data: 19"},
    };
    for (auto [output, text] : failures) {
        channel.output_types = {{output, uint16_t{19}}};
        EXPECT_FAILURE(send(), text);
        EXPECT_EQ(response, nullptr);
    }
}

TEST_F(ipmi_command_test, fails_where_the_method_takes_no_parameters) {
    channel.gives_parameters = false;
    EXPECT_FAILURE(send(),
                   "Failed getting method parameters; this usually means that the IPMI provider is not "
                   "installed: Method not implemented");
}

TEST_F(ipmi_command_test, has_no_response_where_the_method_gives_no_outputs) {
    channel.gives_outputs = false;
    EXPECT_SUCCESS(send());
    EXPECT_EQ(response, nullptr);
}

TEST_F(ipmi_command_test, has_nobody_to_ask_without_bmcs) {
    release_bmcs();
    EXPECT_FAILURE(send(), "No BMCs available");
}

TEST_F(ipmi_command_test, says_that_memory_is_out_for_the_response) {
    int64_t before = host.blocks;
    host.fail_allocation = 1;
    EXPECT_FAILURE(send(), "Unable to get response data: Out of memory");
    EXPECT_EQ(host.fail_allocation, 0U);
    EXPECT_EQ(response, nullptr);
    EXPECT_EQ(host.blocks, before);
    EXPECT_SUCCESS(send());
    free_ipmi_response(response);
    response = nullptr;
    EXPECT_EQ(host.blocks, before);
}

// ---- the restart

TEST_F(restart_rule, reports_the_failure_and_lets_the_next_command_work) {
    channel.statuses["ExecMethod"] = {RESTARTED};
    EXPECT_FAILURE(send(), "Unable to execute method: WMI restarted. Must re-connect to server");
    EXPECT_EQ(channel.count("CoUninitialize"), 1);
    EXPECT_EQ(channel.count("ConnectServer"), 1);
    EXPECT_TRUE(host.logged(LOG_NORMAL, "Initialized 1 BMCs"));
    EXPECT_EQ(channel.objects, 2);
    EXPECT_EQ(channel.started, 1);
    EXPECT_SUCCESS(send());
}

TEST_F(restart_rule, holds_for_each_step_with_a_status) {
    int restarts = 0;
    for (const char *step :
         {"GetMethod", "Put Lun", "SafeArrayPutElement", "Put ResponderAddress", "ExecMethod",
          "Get ResponseDataSize", "Get ResponseData", "SafeArrayAccessData"}) {
        channel.statuses[step] = {RESTARTED};
        EXPECT_NE(send(), nullptr);
        EXPECT_EQ(channel.count("ConnectServer"), ++restarts) << step;
        EXPECT_SUCCESS(send());
    }
}

TEST_F(restart_rule, holds_for_no_other_status) {
    channel.statuses["ExecMethod"] = {0x80041015};
    EXPECT_FAILURE(send(), "Unable to execute method: RPC link failure");
    EXPECT_EQ(channel.count("CoUninitialize"), 0);
}

TEST_F(restart_rule, tells_both_failures_where_the_channel_stays_down) {
    channel.statuses["ExecMethod"] = {RESTARTED};
    channel.class_namespaces.clear();
    EXPECT_FAILURE(send(),
                   "Failure while initializing bmcs during COM subsystem restart: 'No IPMI interface found'. "
                   "The error prompting the restart was: 'Unable to execute method: WMI restarted. Must "
                   "re-connect to server'.");
    EXPECT_EQ(active_bmcs, nullptr);
    EXPECT_EQ(channel.started, 0);
    EXPECT_FAILURE(send(), "No BMCs available");
    channel.class_namespaces = {"ROOT\\WMI"};
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_SUCCESS(send());
}

TEST_F(restart_rule, tells_a_failure_with_words_of_its_own_too) {
    channel.statuses["ExecMethod"] = {RESTARTED};
    channel.statuses["Next"] = {0x80041001};
    EXPECT_FAILURE(send(),
                   "Failure while initializing bmcs during COM subsystem restart: 'Unable to fetch "
                   "enumerated object: General failure'. The error prompting the restart was: 'Unable "
                   "to execute method: WMI restarted. Must re-connect to server'.");
}

TEST_F(restart_rule, says_that_memory_is_out_for_its_words) {
    channel.statuses["GetMethod"] = {RESTARTED};
    host.fail_allocation = 1;
    EXPECT_FAILURE(send(), "Unable to allocate memory while formatting error message details for "
                           "error='Failed getting method parameters; this usually means that the IPMI "
                           "provider is not installed: WMI restarted. Must re-connect to server'.");
    EXPECT_EQ(channel.started, 0);
    EXPECT_FAILURE(send(), "No BMCs available");
    EXPECT_SUCCESS(init_bmcs());
    EXPECT_SUCCESS(send());
}
