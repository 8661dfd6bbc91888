#include "probes/hw/property_bag.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>

namespace {

struct property_bag_test : testing::Test {
    test_host host;
    property_bag_guard bag{alloc_property_bag()};

    ~property_bag_test() override {
        bag.reset();
        EXPECT_EQ(host.blocks, 0);
    }
};

} // namespace

TEST_F(property_bag_test, gives_copies_of_what_was_put) {
    const uint8_t bytes[] = {1, 2, 3};
    EXPECT_EQ(bag_put_bytes(bag.get(), "Bytes", bytes, 3), WBEM_OK);
    EXPECT_EQ(bag_put_byte(bag.get(), "Byte", 200), WBEM_OK);
    EXPECT_EQ(bag_put_number(bag.get(), "Number", -5), WBEM_OK);
    wmi_value first = {};
    wmi_value second = {};
    EXPECT_EQ(bag_get(bag.get(), "Bytes", &first), WBEM_OK);
    EXPECT_EQ(bag_get(bag.get(), "Bytes", &second), WBEM_OK);
    EXPECT_EQ(first.type, VALUE_UI1_ARRAY);
    EXPECT_NE(first.bytes, second.bytes);
    bag_clear_value(&first);
    const uint8_t *found = nullptr;
    uint32_t count = 0;
    EXPECT_EQ(bag_access_data(second.bytes, &found, &count), WBEM_OK);
    EXPECT_EQ(std::vector<uint8_t>(found, found + count), (std::vector<uint8_t>{1, 2, 3}));
    bag_clear_value(&second);
    EXPECT_EQ(bag_byte(bag.get(), "Byte"), 200);
    EXPECT_EQ(bag_number(bag.get(), "Number"), -5);
}

TEST_F(property_bag_test, keeps_the_last_value_of_a_name) {
    const uint8_t bytes[] = {1};
    EXPECT_EQ(bag_put_bytes(bag.get(), "A", bytes, 1), WBEM_OK);
    EXPECT_EQ(bag_put_number(bag.get(), "A", 7), WBEM_OK);
    uint32_t count = 9;
    EXPECT_EQ(bag_bytes(bag.get(), "A", &count), nullptr);
    EXPECT_EQ(count, 0U);
    EXPECT_EQ(bag_number(bag.get(), "A"), 7);
    EXPECT_EQ(bag_byte(bag.get(), "A"), 0) << "another type";
}

TEST_F(property_bag_test, compares_names_exactly) {
    EXPECT_EQ(bag_put_byte(bag.get(), "Lun", 1), WBEM_OK);
    wmi_value value = {.type = 1};
    EXPECT_EQ(bag_get(bag.get(), "lun", &value), WBEM_NOT_FOUND);
    EXPECT_EQ(value.type, 1) << "left alone";
}

TEST_F(property_bag_test, has_room_for_eight) {
    for (char name = 'a'; name < 'i'; name++)
        EXPECT_EQ(bag_put_byte(bag.get(), std::string(1, name).c_str(), 1), WBEM_OK);
    EXPECT_EQ(bag_put_byte(bag.get(), "i", 1), WBEM_NO_MEMORY);
    EXPECT_EQ(bag_put_byte(bag.get(), "a", 2), WBEM_OK) << "but it is no new one";
    EXPECT_EQ(bag_byte(bag.get(), "a"), 2);
}

TEST_F(property_bag_test, refuses_bytes_outside_a_vector) {
    byte_array *array = bag_create_vector(2);
    EXPECT_EQ(bag_put_element(array, 1, 5), WBEM_OK);
    EXPECT_EQ(bag_put_element(array, 2, 5), WBEM_BAD_INDEX);
    EXPECT_EQ(bag_put_element(array, -1, 5), WBEM_BAD_INDEX);
    wmi_value value = {.type = VALUE_UI1_ARRAY};
    value.bytes = array;
    bag_clear_value(&value);
    EXPECT_EQ(value.type, 0);
}

TEST_F(property_bag_test, stays_as_it_was_when_memory_is_out) {
    const uint8_t bytes[] = {1, 2};
    EXPECT_EQ(bag_put_number(bag.get(), "A", 7), WBEM_OK);
    for (uint32_t n : {1, 2}) { // the bytes, and the copy of them
        host.fail_allocation = n;
        EXPECT_EQ(bag_put_bytes(bag.get(), "A", bytes, 2), WBEM_NO_MEMORY) << n;
        EXPECT_EQ(bag_number(bag.get(), "A"), 7);
    }
    EXPECT_EQ(bag_put_bytes(bag.get(), "A", bytes, 2), WBEM_OK);
    host.fail_allocation = 1;
    wmi_value value = {};
    EXPECT_EQ(bag_get(bag.get(), "A", &value), WBEM_NO_MEMORY);
    EXPECT_EQ(value.type, 0);
}
