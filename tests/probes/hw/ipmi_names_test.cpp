#include "probes/hw/ipmi_names.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>
#include <map>

namespace {

struct ipmi_names : testing::Test {
    test_host host;
};

} // namespace

TEST_F(ipmi_names, start_and_end_where_the_standard_does) {
    EXPECT_STREQ(entity_name(0), "Unspecified");
    EXPECT_STREQ(entity_name(7), "SystemBoard");
    EXPECT_STREQ(entity_name(53), "RealTimeClock");
    EXPECT_STREQ(sensor_type_name(0), "Reserved");
    EXPECT_STREQ(sensor_type_name(13), "DriveBay");
    EXPECT_STREQ(sensor_type_name(44), "FRUChange");
}

TEST_F(ipmi_names, name_the_peripheral_bay_twice) {
    EXPECT_STREQ(entity_name(5), "PeripheralBay");
    EXPECT_STREQ(entity_name(27), "PeripheralBay");
}

TEST_F(ipmi_names, give_the_number_where_there_is_no_name) {
    EXPECT_FAILURE(entity_name(54), "Unknown entity id: 54");
    EXPECT_FAILURE(entity_name(255), "Unknown entity id: 255");
    EXPECT_FAILURE(sensor_type_name(45), "Unknown sensor type: 45");
    EXPECT_FAILURE(sensor_unit_name(93), "Unknown sensor unit: 93");
}

TEST_F(ipmi_names, leave_most_units_empty) {
    const std::map<uint32_t, std::string> named = {
        {1, "C"},  {2, "F"},   {3, "K"},   {4, "V"},   {5, "A"},  {6, "W"},   {18, "RPM"}, {19, "Hz"},
        {66, "b"}, {67, "kb"}, {68, "Mb"}, {69, "Gb"}, {70, "B"}, {71, "kB"}, {72, "MB"},  {73, "GB"},
    };
    for (uint32_t unit = 0; unit <= 92; unit++)
        EXPECT_EQ(sensor_unit_name(unit), named.contains(unit) ? named.at(unit) : "") << unit;
}
