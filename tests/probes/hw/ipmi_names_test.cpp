#include "probes/hw/ipmi_names.h"

#include "fakes/test_host.h"

#include <gtest/gtest.h>
#include <iterator>
#include <map>

namespace {

struct ipmi_names : testing::Test {
    test_host host;
};

constexpr const char *ENTITIES[] = {"Unspecified",
                                    "Other",
                                    "Unknown",
                                    "Processor",
                                    "Disk",
                                    "PeripheralBay",
                                    "SystemManagementModule",
                                    "SystemBoard",
                                    "MemoryModule",
                                    "ProcessorModule",
                                    "PowerSupply",
                                    "AddInCard",
                                    "FrontPanelBoard",
                                    "BackPanelBoard",
                                    "PowerSystemBoard",
                                    "DriveBackplane",
                                    "SystemInternalExpansionBoard",
                                    "OtherSystemBoard",
                                    "ProcessorBoard",
                                    "PowerUnit",
                                    "PowerModule",
                                    "PowerManagementBoard",
                                    "ChassisBackPanelBoard",
                                    "SystemChassis",
                                    "SubChassis",
                                    "OtherChassisBoard",
                                    "DiskDriveBay",
                                    "PeripheralBay",
                                    "DeviceBay",
                                    "CoolingDevice",
                                    "CoolingUnit",
                                    "Cable",
                                    "MemoryDevice",
                                    "SystemManagementSoftware",
                                    "SystemFirmware",
                                    "OperatingSystem",
                                    "SystemBus",
                                    "Group",
                                    "RemoteMCDevice",
                                    "ExternalEnvironment",
                                    "Battery",
                                    "ProcessingBlade",
                                    "ConnectivitySwitch",
                                    "ProcessorMemoryModule",
                                    "IOModule",
                                    "ProcessorIOModule",
                                    "ManagementControllerFirmware",
                                    "IPMIChannel",
                                    "PCIBus",
                                    "PCIEBus",
                                    "SCSIBus",
                                    "SATAorSASBus",
                                    "ProcessorBus",
                                    "RealTimeClock"};

constexpr const char *SENSOR_TYPES[] = {"Reserved",
                                        "Temperature",
                                        "Voltage",
                                        "Current",
                                        "Fan",
                                        "PhysicalSecurity",
                                        "PlatformSecurity",
                                        "Processor",
                                        "PowerSupply",
                                        "PowerUnit",
                                        "CoolingDevice",
                                        "OtherUnitsSensor",
                                        "Memory",
                                        "DriveBay",
                                        "POSTMemoryResize",
                                        "SystemFirmwareProgress",
                                        "EventLoggingDisabled",
                                        "Watchdog1",
                                        "SystemEvent",
                                        "CriticalInterrupt",
                                        "ButtonOrSwitch",
                                        "ModuleOrBoard",
                                        "MicroController",
                                        "AddInCard",
                                        "Chassis",
                                        "ChipSet",
                                        "OtherFRU",
                                        "Cable",
                                        "Terminator",
                                        "SystemBoot",
                                        "BootError",
                                        "OSBoot",
                                        "OSStop",
                                        "Slot",
                                        "SystemACPIPowerState",
                                        "Watchdog2",
                                        "PlatformAlert",
                                        "EntityPresence",
                                        "MonitorASIC",
                                        "LAN",
                                        "ManagementSubsystemHealth",
                                        "Battery",
                                        "SessionAudit",
                                        "VersionChange",
                                        "FRUChange"};

} // namespace

TEST_F(ipmi_names, stand_in_the_order_of_their_numbers) {
    for (uint32_t id = 0; id < std::size(ENTITIES); id++)
        EXPECT_STREQ(entity_name(id), ENTITIES[id]) << id;
    for (uint32_t type = 0; type < std::size(SENSOR_TYPES); type++)
        EXPECT_STREQ(sensor_type_name(type), SENSOR_TYPES[type]) << type;
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
