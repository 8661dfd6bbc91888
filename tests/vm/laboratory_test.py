"""The hardware families on a machine that has the hardware: an emulated one, with a drive that answers SMART, a processor
unit that is no enclosure, and a simulated BMC.

    python3 tests/vm/laboratory_test.py --programs build/linux [-v]

The machine boots once, agent and server meet in it, and each test asks what the server has stored. Where the machine
cannot be had, all is skipped, with the reason.
"""
import argparse
import math
import sqlite3
import sys
import unittest
from pathlib import Path

import sdr
from kernel import Missing
from machine import Machine

RUNS = 3          # of each check
PATIENCE_S = 120  # for agent and server
BOOT_S = 60       # for the rest of the machine's life

SETTINGS = """name = laboratory
domain = vm
server_list = 127.0.0.1
logfile = /tmp/agent.log
variable_file = /tmp/variables
"""

# Nothing but the hardware: an emulated processor has enough to do.
POLICY = """checkin = "10 s"
[[check]]
name = "*"
enabled = false
[[check]]
name = "smart"
enabled = true
frequency = "5 s"
[[check]]
name = "ipmisens"
enabled = true
frequency = "5 s"
"""

BOARD, FAN_UNIT, DISK = 0x07, 0x1D, 0x04
TEMPERATURE, VOLTAGE, FAN, POWER_SUPPLY, DRIVE_BAY = 1, 2, 4, 8, 13
NATURAL_LOG, INVERSE, SQUARE_ROOT = 1, 7, 10

# A record is long enough where the name has six letters.
# A sensor, the byte that it reads, and what the server is to get. The simulator keeps the states that it is told to
# itself: its bays are empty, and its digital sensors deasserted. Only its own watchdog, the sensor 0, sets one.
SENSORS = [
    (sdr.Sensor(1, "Inlet air", BOARD, 1, TEMPERATURE, unit=1), 42, 42.0),
    (sdr.Sensor(2, "Outside", BOARD, 2, TEMPERATURE, unit=1, sign=sdr.TWOS_COMPLEMENT), 0xF6, -10.0),
    (sdr.Sensor(3, "Fan one", FAN_UNIT, 1, FAN, unit=18, m=100), 35, 3500.0),
    (sdr.Sensor(4, "3.3 volts", BOARD, 1, VOLTAGE, unit=4, m=59, r_exp=-3), 56, 3.304),
    (sdr.Sensor(5, "Offset", BOARD, 1, VOLTAGE, unit=4, m=2, b=5, b_exp=1, r_exp=-1), 10, 7.0),
    (sdr.Sensor(6, "Square root", BOARD, 1, VOLTAGE, unit=4, linearization=SQUARE_ROOT), 144, 12.0),
    (sdr.Sensor(7, "Inverse", BOARD, 1, VOLTAGE, unit=4, linearization=INVERSE), 4, 0.25),
    (sdr.Sensor(8, "Logarithm", BOARD, 1, VOLTAGE, unit=4, linearization=NATURAL_LOG), 20, math.log(20)),
    (sdr.Sensor(9, "Stands", FAN_UNIT, 2, FAN, unit=18, m=100), None, 0.0),  # left at 0
    (sdr.Sensor(10, "Bay zero", DISK, 0, DRIVE_BAY, reading_type=sdr.SENSOR_SPECIFIC), None, 5),
    (sdr.Sensor(0, "Bay one", DISK, 1, DRIVE_BAY, reading_type=sdr.SENSOR_SPECIFIC), None, 3),  # a rebuild aborted
    (sdr.Sensor(11, "Supply", 0x0A, 1, POWER_SUPPLY, reading_type=sdr.DIGITAL), None, 0),
]

# Set Watchdog Timer and Reset Watchdog Timer (IPMI 2.0, 27): 250 seconds, told of behind the first one, by state 8.
WATCHDOG = ["6 0x24 0x84 0x31 249 0 0xC4 0x09", "6 0x22"]

CHASSIS = ("poweroverload", "mainpowerfault", "powercontrolfault", "drivefault", "coolingfault")

# Sensors of which the agent can make nothing: a bay of no disk, a timer, and one whose record is too short.
LEFT_OUT = [
    sdr.Sensor(15, "Other bay", 0x0F, 0, DRIVE_BAY, reading_type=sdr.SENSOR_SPECIFIC),
    sdr.Sensor(16, "Stopwatch", BOARD, 1, 0x23, reading_type=sdr.SENSOR_SPECIFIC),
    sdr.Sensor(17, "Short", BOARD, 1, TEMPERATURE),
]

programs_folder: Path


def check_name(sensor: sdr.Sensor) -> str:
    number = f"00:{sensor.number:02X}"
    if sensor.reading_type != sdr.THRESHOLD:
        number += f":{sensor.reading_type:02X}"
    return f"ipmisens.E{sensor.entity:02X}.I{sensor.instance:02X}.S{sensor.sensor_type:02X}.{number}"


class Laboratory(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        machine = Machine(programs_folder.parent / "vm", programs_folder)
        # Set Sensor Reading (IPMI 2.0, 35.17): the reading is written, all else stays.
        commands = [f"4 0x30 {sensor.number} 1 {reading} 0 0" for sensor, reading, _ in SENSORS if reading is not None]
        commands += WATCHDOG
        try:
            machine.prepare({"tnagent.conf": SETTINGS, "policy.toml": POLICY, "commands": "\n".join(commands) + "\n",
                             "patience": f"{PATIENCE_S}\n",
                             "results": f"{RUNS * (len(SENSORS) + len(CHASSIS) + 1)}\n"}, sdr.repository([sensor for sensor, *_ in SENSORS] + LEFT_OUT))
        except Missing as reason:
            raise unittest.SkipTest(str(reason)) from reason
        machine.run(PATIENCE_S + BOOT_S)
        store = machine.folder / "store.db"
        store.write_bytes(machine.left_behind("store.db"))
        cls.machine = machine
        cls.agent_log = machine.left_behind("agent.log").decode(errors="replace")
        cls.server_log = machine.left_behind("server.log").decode(errors="replace")
        (machine.folder / "agent.log").write_text(cls.agent_log)
        (machine.folder / "server.log").write_text(cls.server_log)
        (machine.folder / "console").write_text(machine.console)
        cls.store = sqlite3.connect(store)
        print(f"the machine was up for {machine.boot_s:.0f} s", file=sys.stderr)

    @classmethod
    def tearDownClass(cls):
        cls.store.close()

    def results(self, name: str) -> list[tuple]:
        """Status, value and comment of the check's results, in their order."""
        return self.store.execute("SELECT status, value, comment FROM results JOIN checks ON checks.id = check_id"
                                  " WHERE checks.name = ? ORDER BY results.id", (name,)).fetchall()

    def test_the_machine_has_all_its_devices(self):
        self.assertNotIn("LABORATORY no ", self.machine.console)
        self.assertIn("LABORATORY is done", self.machine.console)

    def test_sensors_tell_what_the_bmc_reads(self):
        for sensor, _, expected in SENSORS:
            with self.subTest(sensor.name):
                found = self.results(check_name(sensor))
                self.assertGreaterEqual(len(found), 2, self.agent_log[-3000:])
                for status, value, comment in found:
                    self.assertLess(status, 3, comment)
                    self.assertAlmostEqual(value, expected, delta=abs(expected) * 1e-5)

    def test_a_zero_is_verified_before_it_is_believed(self):
        self.assertIn("RAW value is 0 but has not been zero long will re-read(2) to verify", self.agent_log)
        # By the scan of the start; by the second one, whose records are new, and by the first check behind that.
        self.assertEqual(self.agent_log.count("RAW value verified 0"), 3)

    def test_nothing_else_is_offered(self):
        offered = {key for key, in self.store.execute("SELECT key FROM devices WHERE key LIKE '00:%'")}
        self.assertEqual(offered, {check_name(sensor).rsplit(".", 1)[1] for sensor, *_ in SENSORS})
        self.assertIn("Error parsing record: Full Sensor Record too short", self.agent_log)

    def test_the_chassis_is_well(self):
        for name in CHASSIS:
            found = self.results(f"ipmisens.chassisstatus.{name}")
            self.assertTrue(found, name)
            self.assertEqual({(status, value) for status, value, _ in found}, {(0, 0)}, name)

    def test_the_drive_is_well(self):
        found = self.results("smart.PhysicalDrive0")
        self.assertTrue(found, self.agent_log[-3000:])
        self.assertEqual({(status, value) for status, value, _ in found}, {(0, 0)})
        self.assertEqual(found[-1][2], "Drive is OK")  # the comment goes with a delivery's last

    def test_a_processor_unit_that_is_no_enclosure_is_refused(self):
        offered = {key for key, in self.store.execute("SELECT key FROM groups WHERE parent_id IS NULL")}
        self.assertNotIn("safte", offered)
        self.assertIn("Not claimed by a class driver", self.agent_log)

    def test_nothing_of_it_fails(self):
        failed = self.store.execute("SELECT checks.name, comment FROM results JOIN checks ON checks.id = check_id"
                                    " WHERE status = 3 AND family IN ('smart', 'ipmisens', 'safte')").fetchall()
        self.assertEqual(failed, [])


def main() -> None:
    global programs_folder
    parser = argparse.ArgumentParser()
    parser.add_argument("--programs", type=Path, required=True)
    known, rest = parser.parse_known_args()
    programs_folder = known.programs.resolve()
    unittest.main(argv=[sys.argv[0], *rest])


if __name__ == "__main__":
    main()
