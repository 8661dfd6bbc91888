#include "protocol/upgrade_resp.h"

#include "fakes/hex.h"
#include "fakes/memory_io.h"
#include "fakes/test_host.h"
#include "protocol/wire.h"

#include <algorithm>
#include <gtest/gtest.h>

// A disk that takes at most a hundred bytes at once.
static size_t writes;

static int64_t partial_write(host_file, const void *, size_t size) {
    writes++;
    return static_cast<int64_t>(std::min<size_t>(size, 100));
}

class upgrade_reply : public testing::Test {
protected:
    upgrade_reply() {
        host.write_file("/run/upgrade", "");
        file = files_host->open("/run/upgrade", FILE_REPLACE);
    }
    ~upgrade_reply() override {
        files_host->close(file);
        EXPECT_EQ(host.blocks, 0);
    }

    static std::string answer(const std::string &package) {
        return wire_record("6D", wire_integer(5) + wire_text(package));
    }
    std::string read(const std::string &reply) {
        memory_io stream(reply);
        number = 0;
        std::string failure = noted_failure(read_upgrade_resp(stream, file, &number));
        left = hex(stream.left());
        return failure;
    }
    std::string stored() const { return host.read_file("/run/upgrade"); }

    test_host host;
    host_file file;
    int32_t number = 0;
    std::string left;
};

static std::string package_of(size_t size) {
    std::string package(size, '\0');
    for (size_t i = 0; i < size; i++)
        package[i] = static_cast<char>(i * 7 % 251);
    return package;
}

TEST_F(upgrade_reply, writes_the_package_into_the_file) {
    EXPECT_EQ(read(answer("package")), "(none)");
    EXPECT_EQ(stored(), "package");
    EXPECT_EQ(number, 5);
    EXPECT_EQ(left, "");
}

TEST_F(upgrade_reply, takes_packages_of_every_length_around_its_pieces) {
    for (size_t size : {0, 1, 1023, 1024, 1025, 2048, 5000}) {
        host.files["/run/upgrade"].content.clear();
        host.open_files[file].second = 0;
        EXPECT_EQ(read(answer(package_of(size))), "(none)");
        EXPECT_TRUE(stored() == package_of(size)) << size;
    }
}

TEST_F(upgrade_reply, takes_ten_megabytes_and_no_more) {
    EXPECT_EQ(read(answer(std::string(10'485'760, 'x'))), "(none)");
    EXPECT_EQ(stored().size(), 10'485'760U);
    EXPECT_EQ(read(answer(std::string(10'485'761, 'x'))), "data out of range in read_string");
}

TEST_F(upgrade_reply, takes_any_number_ahead_of_the_package) {
    for (int64_t ahead : {int64_t{INT32_MIN}, int64_t{INT32_MAX}}) {
        EXPECT_EQ(read(wire_record("6D", wire_integer(ahead) + wire_text("p"))), "(none)");
        EXPECT_EQ(number, ahead);
    }
}

TEST_F(upgrade_reply, repeats_a_write_that_was_cut) {
    files_ops cutting = *files_host;
    cutting.write = partial_write;
    const files_ops *kept = files_host;
    files_host = &cutting;
    writes = 0;
    EXPECT_EQ(read(answer(package_of(1100))), "(none)");
    files_host = kept;
    EXPECT_EQ(writes, 11U + 1U); // 1024 bytes in pieces of 100, then the other 76
}

TEST_F(upgrade_reply, tells_a_write_that_fails) {
    host.broken["write"]["/run/upgrade"] = 28;
    EXPECT_EQ(read(answer("package")), "Error writing to file: system error 28");
}

TEST_F(upgrade_reply, is_no_other_message) {
    EXPECT_EQ(read(wire_record("63", wire_text("no"))), "Wrong tag encountered in read_upgrade_resp");
    EXPECT_EQ(read(WIRE_END), "Wrong tag encountered in read_upgrade_resp");
}

TEST_F(upgrade_reply, has_an_indefinite_length) {
    EXPECT_EQ(read(wire_value("6D", wire_integer(5) + wire_text("p"))),
              "Definite length read in read_upgrade_resp");
}

TEST_F(upgrade_reply, holds_an_integer_and_a_text) {
    EXPECT_EQ(read(wire_record("6D", wire_text("p"))), "Wrong tag, expected BE_INTEGER");
    EXPECT_EQ(read(wire_record("6D", wire_integer(5) + wire_null())), "Wrong tag, expected BE_STRING");
    EXPECT_EQ(read(wire_record("6D", wire_integer(5))), "Wrong tag, expected BE_STRING");
    EXPECT_EQ(read(wire_record("6D", wire_integer(5) + bytes("04 80"))), "data out of range in read_string");
}

TEST_F(upgrade_reply, may_hold_more) {
    EXPECT_EQ(read(wire_record("6D", wire_integer(5) + wire_text("p") + wire_list(wire_null()))), "(none)");
    EXPECT_EQ(left, "");
}

TEST_F(upgrade_reply, fails_wherever_the_stream_ends) {
    std::string reply = answer("package");
    for (size_t length = 0; length < reply.size(); length++)
        EXPECT_EQ(read(reply.substr(0, length)), MEMORY_IO_EMPTY) << length;
}
