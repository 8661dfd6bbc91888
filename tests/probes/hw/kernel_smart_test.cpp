#include "probes/hw/kernel_smart.h"

#include "fakes/hex.h"
#include "fakes/test_host.h"
#include "platform/text.h"
#include "probes/hw/fake_kernel.h"
#include "probes/hw/smart.h"
#include "probes/hw/smart_table.h"
#include "settings/settings.h"

#include <gtest/gtest.h>

namespace {

using names = std::vector<std::string>;

const smart_ops kernel_smart = {.CreateFileA = kernel_smart_open,
                                .DeviceIoControl = kernel_smart_control,
                                .CloseHandle = kernel_smart_close,
                                .foreign_kind = kernel_smart_foreign_kind};

// The drive behind a node: ATA commands in, with what became of each.
struct fake_ata_drive {
    uint8_t power_count = 0xFF;
    bool tells_registers = true;
    bool takes_16 = true;
    bool takes_12 = true;
    std::string failing; // features of SMART commands that the drive fails
    std::string values = std::string(512, '\0');
    std::string thresholds = std::string(512, '\0');
    uint32_t missing = 0; // bytes of data that do not come
    uint16_t host_status = 0;
    bool kernel_refuses = false;
    names commands; // "E5" or "B0 D0" of what reached the drive, and "16"/"12" of what was refused on the way
    uint32_t timeout_ms = 0;

    bool answer(sg_request *request);
    bool answer_sense(sg_request *request, const std::string &sense) const;
    bool answer_smart(sg_request *request, uint8_t features);
};

bool fake_ata_drive::answer_sense(sg_request *request, const std::string &sense) const {
    request->status = 2;
    request->driver_status = 8;
    request->sense_length = static_cast<uint32_t>(sense.size());
    memcpy(request->sense, sense.data(), sense.size());
    return true;
}

// The registers as a descriptor.
std::string registers(uint8_t key, uint8_t count, uint8_t status) {
    std::string sense = bytes("72 00 00 1D 00 00 00 0E 09 0C 00 00 00 00 00 00 00 00 00 00 00 00");
    sense[1] = static_cast<char>(key);
    sense[13] = static_cast<char>(count);
    sense[21] = static_cast<char>(status);
    return sense;
}

bool fake_ata_drive::answer_smart(sg_request *request, uint8_t features) {
    if (failing.find(static_cast<char>(features)) != std::string::npos)
        return answer_sense(request, registers(0x0B, 0, 0x51));
    if (features == 0xD0 || features == 0xD1) {
        const std::string &table = features == 0xD0 ? values : thresholds;
        EXPECT_EQ(request->data_length, 512U);
        memcpy(request->data, table.data(), 512 - missing);
        request->transferred = 512 - missing;
        return true;
    }
    EXPECT_EQ(request->data_length, 0U);
    return !tells_registers || answer_sense(request, registers(1, 1, 0x50));
}

bool fake_ata_drive::answer(sg_request *request) {
    if (kernel_refuses) return false;
    request->host_status = host_status;
    timeout_ms = request->timeout_ms;
    bool wide = request->cdb[0] == 0x85;
    if (wide ? !takes_16 : !takes_12) {
        commands.emplace_back(wide ? "16" : "12");
        return answer_sense(request, bytes("70 00 05 00 00 00 00 0A 00 00 00 00 20 00 00 00 00 00"));
    }
    uint8_t command = request->cdb[wide ? 14 : 9];
    uint8_t features = request->cdb[wide ? 4 : 3];
    commands.push_back(hex(std::string(1, static_cast<char>(command))));
    if (command == 0xE5) return !tells_registers || answer_sense(request, registers(1, power_count, 0x50));
    commands.back() += " " + hex(std::string(1, static_cast<char>(features)));
    return answer_smart(request, features);
}

struct kernel_smart_test : testing::Test {
    test_host host;
    fake_kernel kernel;
    agent_config config = {};
    fake_ata_drive ata;

    kernel_smart_test() {
        kernel.set_last_error = [this](uint32_t code) { host.last_error = code; };
        smart_host = &kernel_smart;
        config_in_force = &config;
        kernel_smart_reset();
    }
    ~kernel_smart_test() override {
        EXPECT_TRUE(kernel.open_nodes.empty()) << "nodes left open";
        kernel_smart_reset();
        EXPECT_EQ(host.blocks, 0);
        smart_host = nullptr;
        config_in_force = nullptr;
    }

    void add_disk(const std::string &name, const std::string &vendor = "ATA     ") {
        kernel.files["/sys/block/" + name + "/device/vendor"] = vendor + "\n";
        kernel.nodes["/dev/" + name].scsi = [this](sg_request *request) { return ata.answer(request); };
    }

    struct outcome {
        std::string failure;
        int32_t value;
        std::string comment;
        bool operator==(const outcome &) const = default;
    };
    // One check of drive 0.
    outcome check() {
        devnode_guard device(alloc_devnode());
        device->id = text_copy("PhysicalDrive0");
        resnode result = {};
        std::string failure = noted_failure(check_smart(device.get(), &result));
        outcome found = {failure, result.value, result.comment != nullptr ? result.comment : ""};
        heap_free(result.comment);
        return found;
    }
    names scan() {
        devtree root = {};
        EXPECT_SUCCESS(scan_smart_ide(&root));
        names ids;
        for (devnode *device = root.children != nullptr ? root.children->devices : nullptr; device;
             device = device->next)
            ids.emplace_back(device->id);
        free_devtree(root.children);
        return ids;
    }

    names take_commands() {
        names taken = ata.commands;
        ata.commands.clear();
        return taken;
    }
};

const kernel_smart_test::outcome OK = {"(none)", 0, "Drive is OK"};
const kernel_smart_test::outcome PAST = {"(none)", 1, "Drive has exceeded lifetime"};
const kernel_smart_test::outcome FAILING = {"(none)", 2, "Drive is about to fail"};

void trip(fake_ata_drive *drive) {
    drive->values[2] = 5;
    drive->values[2 + 3] = 1;
    drive->thresholds[2] = 5;
    drive->thresholds[2 + 1] = 9;
}

} // namespace

// ---- the disks

TEST_F(kernel_smart_test, numbers_whole_disks_with_a_device_by_name) {
    add_disk("sdb");
    add_disk("sda");
    add_disk("sr0");
    kernel.files["/sys/block/loop0/size"] = "0\n";
    kernel.files["/sys/block/md0/size"] = "0\n"; // no device below it
    kernel.files["/sys/block/dm-0/device"] = "";
    EXPECT_EQ(scan(), (names{"PhysicalDrive1", "PhysicalDrive0"}));
    EXPECT_TRUE(host.logged(0, "\\\\.\\PhysicalDrive0 is the disk sda"));
    EXPECT_TRUE(host.logged(0, "\\\\.\\PhysicalDrive1 is the disk sdb"));
    EXPECT_EQ(kernel.opened, (names{"/dev/sda", "/dev/sdb"}));
    EXPECT_EQ(kernel.open_writable, 0U);
}

TEST_F(kernel_smart_test, finds_nothing_where_nothing_is) {
    EXPECT_EQ(scan(), names{});
    EXPECT_EQ(host.last_error, 2U);
}

TEST_F(kernel_smart_test, says_what_is_not_ata_and_sends_it_nothing) {
    add_disk("nvme0n1", "");
    add_disk("sda", "SEAGATE ");
    add_disk("sdb");
    add_disk("vda", "0x1af4");
    EXPECT_EQ(scan(), names{"PhysicalDrive2"});
    EXPECT_EQ(kernel.opened, names{"/dev/sdb"});
    EXPECT_TRUE(host.logged(0, "\\\\.\\PhysicalDrive0 is an NVMe drive, which has no such SMART data"));
    EXPECT_TRUE(host.logged(0, "\\\\.\\PhysicalDrive1 is a SCSI or SAS drive, which has no such SMART data"));
    EXPECT_TRUE(host.logged(0, "\\\\.\\PhysicalDrive3 is a drive without ATA, which has no such SMART data"));
}

TEST_F(kernel_smart_test, knows_an_ata_drive_behind_an_adapter_by_its_page) {
    add_disk("sda", "WDC     ");
    kernel.files["/sys/block/sda/device/vpd_pg89"] = std::string("\0\x89\x02\x38", 4);
    EXPECT_EQ(scan(), names{"PhysicalDrive0"});
    kernel.files["/sys/block/sda/device/vpd_pg89"] = "";
    EXPECT_EQ(scan(), names{});
}

TEST_F(kernel_smart_test, fails_a_check_of_what_is_not_ata_any_more) {
    add_disk("nvme0n1", "");
    EXPECT_EQ(check(), (outcome{"Cannot open device PhysicalDrive0: it is an NVMe drive", 0, ""}));
}

TEST_F(kernel_smart_test, ends_a_scan_at_a_disk_that_may_not_be_opened) {
    add_disk("sda");
    add_disk("sdb");
    kernel.nodes["/dev/sda"].open_error = 13;
    EXPECT_EQ(scan(), names{});
    EXPECT_EQ(check(), (outcome{"Cannot open device PhysicalDrive0: system error 13", 0, ""}));
}

TEST_F(kernel_smart_test, opens_no_other_path) {
    add_disk("sda");
    for (const char *path : {"PhysicalDrive0", "\\\\.\\PhysicalDrive", "\\\\.\\PhysicalDrive0x", "\\\\.\\sda",
                             "\\\\.\\PhysicalDrive1", "\\\\.\\PhysicalDrive4294967296"}) {
        host.last_error = 0;
        EXPECT_EQ(kernel_smart_open(path, 0), nullptr) << path;
        EXPECT_EQ(host.last_error, 2U);
    }
    EXPECT_TRUE(kernel.opened.empty());
}

TEST_F(kernel_smart_test, needs_memory_to_open_a_disk) {
    add_disk("sda");
    int refused = 0;
    for (uint32_t n = 1;; n++) {
        kernel_smart_reset();
        host.fail_allocation = n;
        smart_drive *drive = kernel_smart_open("\\\\.\\PhysicalDrive0", 0);
        if (drive != nullptr) {
            kernel_smart_close(drive);
            break;
        }
        refused++;
    }
    EXPECT_EQ(refused, 5); // three for the list, the drive and its memory
    host.fail_allocation = 0;
}

// ---- commands

TEST_F(kernel_smart_test, reads_both_tables) {
    add_disk("sda");
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), (names{"B0 D0", "B0 D1"}));
    trip(&ata);
    EXPECT_EQ(check(), PAST);
    EXPECT_GT(ata.timeout_ms, 10000U);
}

TEST_F(kernel_smart_test, falls_back_from_sixteen_bytes_to_twelve_and_stays_there) {
    add_disk("sda");
    ata.takes_16 = false;
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), (names{"16", "B0 D0", "B0 D1"}));
    ata.takes_16 = true;
    ata.takes_12 = false;
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), (names{"12", "E5", "B0 D0", "B0 D1"}));
}

TEST_F(kernel_smart_test, takes_a_drive_behind_a_layer_that_knows_neither_form_for_failing) {
    add_disk("sda");
    ata.takes_16 = ata.takes_12 = false;
    EXPECT_EQ(scan(), names{});
    take_commands();
    EXPECT_EQ(check(), FAILING);
    EXPECT_EQ(take_commands(), (names{"16", "12", "16", "12"}));
}

TEST_F(kernel_smart_test, does_not_try_the_other_form_where_the_drive_itself_fails) {
    add_disk("sda");
    ata.failing = "\xD0";
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), (names{"B0 D0", "B0 DA"}));
}

TEST_F(kernel_smart_test, takes_success_without_registers) {
    add_disk("sda");
    ata.tells_registers = false;
    EXPECT_EQ(scan(), names{"PhysicalDrive0"});
}

TEST_F(kernel_smart_test, takes_a_table_that_is_cut_for_none) {
    add_disk("sda");
    ata.missing = 1;
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), (names{"B0 D0", "B0 DA"}));
}

TEST_F(kernel_smart_test, takes_a_drive_that_is_not_reached_for_failing) {
    add_disk("sda");
    ata.host_status = 1;
    EXPECT_EQ(check(), FAILING);
    ata.host_status = 0;
    ata.kernel_refuses = true;
    EXPECT_EQ(check(), FAILING);
}

// ---- sleep

TEST_F(kernel_smart_test, leaves_a_sleeping_drive_asleep) {
    add_disk("sda");
    trip(&ata);
    EXPECT_EQ(scan(), names{"PhysicalDrive0"});
    EXPECT_EQ(check(), PAST);
    take_commands();
    for (uint8_t count : {uint8_t{0x00}, uint8_t{0x01}, uint8_t{0x40}}) {
        ata.power_count = count;
        host.log.clear();
        EXPECT_EQ(check(), PAST);
        EXPECT_EQ(scan(), names{"PhysicalDrive0"});
        EXPECT_EQ(take_commands(), (names{"E5", "E5"})) << "one question in the check, one in the scan";
        EXPECT_EQ(host.count_logged("The disk sda sleeps"), 2);
        EXPECT_TRUE(host.logged(0, "The disk sda sleeps: what it answered last counts"));
    }
}

TEST_F(kernel_smart_test, reads_a_drive_again_when_it_is_awake) {
    add_disk("sda");
    EXPECT_EQ(check(), OK);
    ata.power_count = 0;
    trip(&ata);
    EXPECT_EQ(check(), OK) << "the tables of before";
    ata.power_count = 0x80;
    take_commands();
    EXPECT_EQ(check(), PAST);
    EXPECT_EQ(take_commands(), (names{"E5", "B0 D0", "B0 D1"}));
}

TEST_F(kernel_smart_test, reads_a_sleeping_drive_once_that_was_never_read) {
    add_disk("sda");
    ata.power_count = 0;
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), (names{"B0 D0", "B0 D1"}));
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), names{"E5"});
}

TEST_F(kernel_smart_test, remembers_a_failed_answer_too) {
    add_disk("sda");
    ata.failing = "\xD0\xDA";
    EXPECT_EQ(check(), FAILING);
    take_commands();
    ata.power_count = 0;
    ata.failing = "";
    EXPECT_EQ(check(), FAILING);
    EXPECT_EQ(take_commands(), names{"E5"});
}

TEST_F(kernel_smart_test, asks_nothing_of_a_drive_that_the_kernel_has_suspended) {
    add_disk("sda");
    EXPECT_EQ(check(), OK);
    take_commands();
    kernel.files["/sys/block/sda/device/power/runtime_status"] = "suspended\n";
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), names{});
    kernel.files["/sys/block/sda/device/power/runtime_status"] = "active\n";
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), (names{"E5", "B0 D0", "B0 D1"}));
}

TEST_F(kernel_smart_test, takes_a_drive_that_does_not_tell_its_mode_for_awake) {
    add_disk("sda");
    ata.tells_registers = false;
    EXPECT_EQ(check(), OK);
    take_commands();
    EXPECT_EQ(check(), OK);
    EXPECT_EQ(take_commands(), (names{"E5", "B0 D0", "B0 D1"}));
}

TEST_F(kernel_smart_test, forgets_the_tables_when_another_disk_has_the_name) {
    add_disk("sda");
    kernel.files["/sys/block/sda/diskseq"] = "9\n";
    EXPECT_EQ(check(), OK);
    trip(&ata);
    ata.power_count = 0;
    EXPECT_EQ(check(), OK);
    kernel.files["/sys/block/sda/diskseq"] = "10\n";
    EXPECT_EQ(check(), PAST);
}

TEST_F(kernel_smart_test, keeps_tables_by_disk) {
    add_disk("sda");
    EXPECT_EQ(check(), OK);
    add_disk("nvme0n1", "");
    kernel.remove("/sys/block/sda");
    kernel.remove("/sys/block/nvme0n1");
    add_disk("sdb");
    trip(&ata);
    ata.power_count = 0;
    EXPECT_EQ(check(), PAST) << "sdb was never read";
}

// ---- the language of the controls

struct kernel_smart_control_test : kernel_smart_test {
    uint8_t block[32] = {0, 0, 0, 0, 0xD0, 1, 1, 0x4F, 0xC2, 0, 0xB0};
    uint8_t reply[528];
    smart_drive *drive = nullptr;

    void SetUp() override {
        add_disk("sda");
        drive = kernel_smart_open("\\\\.\\PhysicalDrive0", 0);
        memset(reply, 'x', sizeof reply);
        host.last_error = 0;
    }
    void TearDown() override { kernel_smart_close(drive); }

    int32_t send(uint32_t control, uint32_t input_size, uint32_t output_size) {
        return kernel_smart_control(drive, control, block, input_size, reply, output_size);
    }
};

TEST_F(kernel_smart_control_test, gives_a_header_and_the_table) {
    ata.values = std::string(512, 'v');
    EXPECT_EQ(send(0x7C088, 32, 528), 1);
    EXPECT_EQ(hex(std::string(reinterpret_cast<char *>(reply), 18)),
              "00 02 00 00 00 00 00 00 00 00 00 00 00 00 00 00 76 76");
    EXPECT_EQ(reply[527], 'v');
}

TEST_F(kernel_smart_control_test, gives_a_header_without_data) {
    block[4] = 0xDA;
    EXPECT_EQ(send(0x7C084, 32, 16), 1);
    EXPECT_EQ(std::string(reinterpret_cast<char *>(reply), 17), std::string(16, '\0') + "x");
}

TEST_F(kernel_smart_control_test, takes_nothing_else) {
    EXPECT_EQ(send(0x7C088, 31, 528), 0);
    EXPECT_EQ(send(0x7C088, 32, 527), 0);
    EXPECT_EQ(send(0x7C088, 32, 16), 0);
    EXPECT_EQ(send(0x7C084, 32, 528), 0);
    EXPECT_EQ(send(0x7C084, 32, 16), 0) << "a read by the other control";
    EXPECT_EQ(send(0x7C080, 32, 16), 0);
    block[4] = 0xD9; // would turn SMART off
    EXPECT_EQ(send(0x7C084, 32, 16), 0);
    block[4] = 0xD8;
    block[10] = 0xEC;
    EXPECT_EQ(send(0x7C084, 32, 16), 0);
    EXPECT_EQ(host.last_error, 22U);
    EXPECT_TRUE(ata.commands.empty());
}

TEST_F(kernel_smart_control_test, leaves_a_reason) {
    ata.failing = "\xD0";
    EXPECT_EQ(send(0x7C088, 32, 528), 0);
    EXPECT_EQ(host.last_error, 5U);
}
