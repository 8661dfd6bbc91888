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

SECONDS = 40      # that agent and server have
PATIENCE_S = 110  # for the whole machine

SETTINGS = """name = laboratory
domain = vm
server_list = 127.0.0.1
logfile = /tmp/agent.log
variable_file = /tmp/variables
"""

POLICY = """checkin = "10 s"
[[check]]
name = "smart"
frequency = "5 s"
[[check]]
name = "ipmisens"
frequency = "5 s"
"""

BOARD, FAN_UNIT, DISK = 0x07, 0x1D, 0x04
TEMPERATURE, VOLTAGE, FAN, POWER_SUPPLY, DRIVE_BAY = 1, 2, 4, 8, 13
NATURAL_LOG, INVERSE, SQUARE_ROOT = 1, 7, 10

# A sensor, what it reads (a byte and its states), and what the server is to get.
SENSORS = [
    (sdr.Sensor(1, "Inlet", BOARD, 1, TEMPERATURE, unit=1), 42, 0, 42.0),
    (sdr.Sensor(2, "Outside", BOARD, 2, TEMPERATURE, unit=1, sign=sdr.TWOS_COMPLEMENT), 0xF6, 0, -10.0),
    (sdr.Sensor(3, "Fan 1", FAN_UNIT, 1, FAN, unit=18, m=100), 35, 0, 3500.0),
    (sdr.Sensor(4, "3.3 V", BOARD, 1, VOLTAGE, unit=4, m=59, r_exp=-3), 56, 0, 3.304),
    (sdr.Sensor(5, "Offset", BOARD, 1, VOLTAGE, unit=4, m=2, b=5, b_exp=1, r_exp=-1), 10, 0, 7.0),
    (sdr.Sensor(6, "Root", BOARD, 1, VOLTAGE, unit=4, linearization=SQUARE_ROOT), 144, 0, 12.0),
    (sdr.Sensor(7, "Inverse", BOARD, 1, VOLTAGE, unit=4, linearization=INVERSE), 4, 0, 0.25),
    (sdr.Sensor(8, "Log", BOARD, 1, VOLTAGE, unit=4, linearization=NATURAL_LOG), 20, 0, math.log(20)),
    (sdr.Sensor(9, "Stands", FAN_UNIT, 2, FAN, unit=18, m=100), None, 0, 0.0),  # left at 0
    (sdr.Sensor(10, "Bay 0", DISK, 0, DRIVE_BAY, reading_type=sdr.SENSOR_SPECIFIC), 0, 0x0001, 0),
    (sdr.Sensor(11, "Bay 1", DISK, 1, DRIVE_BAY, reading_type=sdr.SENSOR_SPECIFIC), 0, 0x0002, 3),
    (sdr.Sensor(12, "Bay 2", DISK, 2, DRIVE_BAY, reading_type=sdr.SENSOR_SPECIFIC), 0, 0x0000, 5),
    (sdr.Sensor(13, "Supply", 0x0A, 1, POWER_SUPPLY, reading_type=sdr.DIGITAL), 0, 0x0002, 1),
    (sdr.Sensor(14, "Spare", 0x0A, 2, POWER_SUPPLY, reading_type=sdr.DIGITAL), 0, 0x0001, 0),
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
        readings = [f"{sensor.number:#x} {reading} {states:#x}" for sensor, reading, states, _ in SENSORS
                    if reading is not None]
        try:
            machine.prepare({"tnagent.conf": SETTINGS, "policy.toml": POLICY, "sensors": "\n".join(readings) + "\n",
                             "seconds": f"{SECONDS}\n"}, sdr.repository([sensor for sensor, *_ in SENSORS]))
        except Missing as reason:
            raise unittest.SkipTest(str(reason)) from reason
        machine.run(PATIENCE_S)
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
        self.assertNotIn("LABORATORY no module", self.machine.console)
        self.assertIn("LABORATORY is done", self.machine.console)

    def test_sensors_tell_what_the_bmc_reads(self):
        for sensor, _, _, expected in SENSORS:
            with self.subTest(sensor.name):
                found = self.results(check_name(sensor))
                self.assertGreaterEqual(len(found), 2, self.agent_log[-3000:])
                for status, value, comment in found:
                    self.assertLess(status, 3, comment)
                    self.assertAlmostEqual(value, expected, delta=abs(expected) * 1e-5)

    def test_a_zero_is_verified_before_it_is_believed(self):
        self.assertIn("RAW value is 0 but has not been zero long will re-read(2) to verify", self.agent_log)
        self.assertEqual(self.agent_log.count("RAW value verified 0"), 2)

    def test_the_chassis_is_well(self):
        for name in ("poweroverload", "mainpowerfault", "powercontrolfault", "drivefault", "coolingfault"):
            found = self.results(f"ipmisens.chassisstatus.{name}")
            self.assertTrue(found, name)
            self.assertEqual({(status, value) for status, value, _ in found}, {(0, 0)}, name)

    def test_the_drive_is_well(self):
        found = self.results("smart.PhysicalDrive0")
        self.assertTrue(found, self.agent_log[-3000:])
        self.assertEqual(set(found), {(0, 0, "Drive is OK")})

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
