#include "probes/hw/kernel_smart.h"

#include "platform/agent_log.h"
#include "platform/text.h"
#include "probes/hw/ata_command.h"
#include "probes/hw/bytes.h"
#include "probes/hw/id_text.h"
#include "probes/hw/kernel_lists.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

constexpr uint32_t TIME_OUT_MS = 20000; // a drive that has to start takes its time
constexpr uint8_t SMART_COMMAND = 0xB0;
constexpr size_t WORD_SIZE = 64;

// A command that a drive may have answered before.
struct kept_answer {
    bool known;
    bool done;
    uint8_t data[SMART_DATA_SIZE];
};

struct command_row {
    uint8_t features;
    uint32_t control;
};

constexpr command_row COMMANDS[] = {
    {0xD8, SMART_SEND_DRIVE_COMMAND_CODE}, // enable
    {0xD0, SMART_RCV_DRIVE_DATA_CODE},     // read values
    {0xD1, SMART_RCV_DRIVE_DATA_CODE},     // read thresholds
    {0xDA, SMART_SEND_DRIVE_COMMAND_CODE}, // return status
};
constexpr uint32_t COMMAND_COUNT = sizeof COMMANDS / sizeof *COMMANDS;

struct drive_memory {
    char name[DISK_NAME_SIZE];
    char sequence[WORD_SIZE]; // differs for each disk that comes, on kernels that tell it
    ata_form form;            // the one that worked last
    kept_answer answers[COMMAND_COUNT];
    drive_memory *next;
};

drive_memory *memories;

} // namespace

struct smart_drive {
    drive_memory *memory; // absent for a drive without ATA
    disk_kind kind;
    kernel_node node;
    bool power_known;
    bool asleep;
};

// ---- the disks

static const char *disk_path(const char *disk, const char *file, char path[SYSFS_PATH_SIZE]) {
    snprintf(path, SYSFS_PATH_SIZE, "/sys/block/%s%s", disk, file);
    return path;
}

static bool has_device(const char *disk) {
    char path[SYSFS_PATH_SIZE];
    return kernel_host->exists(disk_path(disk, "/device", path));
}

static bool find_disk(uint32_t number, char name[DISK_NAME_SIZE]) {
    name_list_guard disks(read_names("/sys/block/"));
    uint32_t place = 0;
    for (uint32_t i = 0; disks != nullptr && i < disks->count; i++) {
        const char *disk = disks->names[i];
        if (strlen(disk) >= DISK_NAME_SIZE || !is_whole_disk_name(disk) || !has_device(disk)) continue;
        if (place++ != number) continue;
        copy_bounded(name, disk, DISK_NAME_SIZE);
        return true;
    }
    return false;
}

static disk_kind find_kind(const char *disk) {
    char path[SYSFS_PATH_SIZE];
    char vendor[WORD_SIZE] = "";
    read_word_file(disk_path(disk, "/device/vendor", path), vendor, sizeof vendor);
    // The file may be there for drives without the page, too; it cannot be read then.
    char page[4];
    bool has_ata_page =
        kernel_host->read_source(disk_path(disk, "/device/vpd_pg89", path), page, sizeof page) > 0;
    return kind_of_disk(disk, vendor, has_ata_page);
}

// ---- what drives have answered

static drive_memory *find_memory(const char *disk) {
    for (drive_memory *memory = memories; memory != nullptr; memory = memory->next)
        if (text_equal(memory->name, disk)) return memory;
    return nullptr;
}

static drive_memory *new_memory(const char *disk) {
    auto *memory = heap_new<drive_memory>();
    if (memory == nullptr) return nullptr;
    copy_bounded(memory->name, disk, sizeof memory->name);
    memory->next = memories;
    memories = memory;
    return memory;
}

static drive_memory *memory_of(const char *disk) {
    char path[SYSFS_PATH_SIZE];
    char sequence[WORD_SIZE] = "";
    read_word_file(disk_path(disk, "/diskseq", path), sequence, sizeof sequence);
    drive_memory *memory = find_memory(disk);
    if (memory == nullptr) memory = new_memory(disk);
    if (memory == nullptr || text_equal(memory->sequence, sequence)) return memory;
    memset(memory->answers, 0, sizeof memory->answers);
    memory->form = ATA_16_BYTES;
    copy_bounded(memory->sequence, sequence, sizeof memory->sequence);
    return memory;
}

void kernel_smart_reset() {
    while (memories != nullptr) {
        drive_memory *next = memories->next;
        heap_free(memories);
        memories = next;
    }
}

// ---- opening

static bool open_ata(smart_drive *drive, const char *disk) {
    char path[SYSFS_PATH_SIZE];
    drive->memory = memory_of(disk);
    if (drive->memory == nullptr) {
        kernel_host->set_last_error(ENOMEM);
        return false;
    }
    snprintf(path, sizeof path, "/dev/%s", disk);
    drive->node = kernel_host->open_node(path, NODE_READ);
    return drive->node != NO_NODE;
}

static bool parse_path(const char *path, uint32_t *out_number) {
    return read_word(&path, "\\\\.\\PhysicalDrive") && read_number(&path, out_number) && *path == '\0';
}

smart_drive *kernel_smart_open(const char *path, uint32_t) {
    char disk[DISK_NAME_SIZE];
    uint32_t number = 0;
    if (!parse_path(path, &number) || !find_disk(number, disk)) {
        kernel_host->set_last_error(ENOENT);
        return nullptr;
    }
    agent_log(LOG_DETAIL, "%s is the disk %s", path, disk);
    guard<smart_drive, heap_free> drive(heap_new<smart_drive>());
    if (drive == nullptr) {
        kernel_host->set_last_error(ENOMEM);
        return nullptr;
    }
    drive->node = NO_NODE;
    drive->kind = find_kind(disk);
    if (drive->kind == DISK_ATA && !open_ata(drive.get(), disk)) return nullptr;
    return drive.release();
}

void kernel_smart_close(smart_drive *drive) {
    if (drive->node != NO_NODE) kernel_host->close_node(drive->node);
    heap_free(drive);
}

const char *kernel_smart_foreign_kind(const smart_drive *drive) {
    return foreign_kind_words(drive->kind);
}

// ---- commands

static ata_outcome send_form(const smart_drive *drive, const ata_registers &registers, ata_form form,
                             uint8_t *data, sense_facts *sense) {
    sg_request request = {
        .data = data, .data_length = data != nullptr ? SMART_DATA_SIZE : 0, .timeout_ms = TIME_OUT_MS};
    encode_ata_command(registers, form, data != nullptr, &request);
    if (!kernel_host->send_scsi(drive->node, &request)) return ATA_FAILED;
    ata_outcome outcome = judge_ata_answer(request, sense);
    // A table that has not come whole is none.
    return outcome == ATA_DONE && request.transferred < request.data_length ? ATA_FAILED : outcome;
}

// In the form that worked last, and in the other one where that is refused.
static bool send_ata(const smart_drive *drive, const ata_registers &registers, uint8_t *data,
                     sense_facts *sense) {
    ata_form *form = &drive->memory->form;
    ata_outcome outcome = send_form(drive, registers, *form, data, sense);
    if (outcome != ATA_REFUSED) return outcome == ATA_DONE;
    ata_form other = *form == ATA_16_BYTES ? ATA_12_BYTES : ATA_16_BYTES;
    if (send_form(drive, registers, other, data, sense) != ATA_DONE) return false;
    *form = other;
    return true;
}

static bool is_suspended(const smart_drive *drive) {
    char path[SYSFS_PATH_SIZE];
    char status[WORD_SIZE] = "";
    read_word_file(disk_path(drive->memory->name, "/device/power/runtime_status", path), status,
                   sizeof status);
    return text_equal(status, "suspended");
}

// A drive that does not tell its power mode counts as awake.
static bool is_in_standby(const smart_drive *drive) {
    sense_facts sense;
    return send_ata(drive, CHECK_POWER_MODE, nullptr, &sense) && sense.has_registers &&
           is_standby(sense.ata_count);
}

// Asked once while the drive is open.
static bool is_asleep(smart_drive *drive) {
    if (drive->power_known) return drive->asleep;
    drive->power_known = true;
    drive->asleep = is_suspended(drive) || is_in_standby(drive);
    if (drive->asleep)
        agent_log(LOG_DETAIL, "The disk %s sleeps: what it answered last counts", drive->memory->name);
    return drive->asleep;
}

static kept_answer *answer_to(smart_drive *drive, uint8_t features, uint32_t control) {
    for (uint32_t i = 0; i < COMMAND_COUNT; i++)
        if (COMMANDS[i].features == features && COMMANDS[i].control == control)
            return &drive->memory->answers[i];
    return nullptr;
}

static bool sizes_are_sound(uint32_t control, uint32_t input_size, uint32_t output_size) {
    bool reads = control == SMART_RCV_DRIVE_DATA_CODE;
    return input_size == SMART_COMMAND_SIZE && output_size == (reads ? SMART_REPLY_SIZE : SMART_HEADER_SIZE);
}

static void ask_drive(smart_drive *drive, const ata_registers &registers, bool reads, kept_answer *answer) {
    uint8_t data[SMART_DATA_SIZE] = {};
    sense_facts sense;
    *answer = {.known = true};
    answer->done = send_ata(drive, registers, reads ? data : nullptr, &sense);
    if (answer->done) memcpy(answer->data, data, sizeof data);
}

// The platform's header says how much data follows.
static void give_answer(const kept_answer &answer, bool reads, uint8_t *output) {
    memset(output, 0, SMART_HEADER_SIZE);
    if (!reads) return;
    put_little_32(output, SMART_DATA_SIZE);
    memcpy(output + SMART_HEADER_SIZE, answer.data, SMART_DATA_SIZE);
}

static int32_t fail(uint32_t code) {
    kernel_host->set_last_error(code);
    return 0;
}

int32_t kernel_smart_control(smart_drive *drive, uint32_t control, const uint8_t *input, uint32_t input_size,
                             uint8_t *output, uint32_t output_size) {
    if (drive->memory == nullptr) return fail(ENOTTY);
    if (!sizes_are_sound(control, input_size, output_size)) return fail(EINVAL);
    ata_registers registers;
    decode_command_block(input, &registers);
    kept_answer *answer = answer_to(drive, registers.features, control);
    if (answer == nullptr || registers.command != SMART_COMMAND) return fail(EINVAL);
    bool reads = control == SMART_RCV_DRIVE_DATA_CODE;
    if (!answer->known || !is_asleep(drive)) ask_drive(drive, registers, reads, answer);
    if (!answer->done) return fail(EIO);
    give_answer(*answer, reads, output);
    return 1;
}
