#!/usr/bin/env python3
"""The agent on hardware that it can speak to: a virtual machine with a simulated BMC, server and agent inside.

    python3 tests/vm/hardware_test.py --programs build/linux [--folder build/vm]

One boot serves all tests: they look at what the server has stored and at the agent's log. Where there can be no machine,
the reason is told and the status is 77.
"""
import argparse
import contextlib
import math
import sqlite3
import sys
import unittest
from pathlib import Path

from machine import CannotRun, Kernel, Machine
from sdr_file import COMPACT, DIGITAL, SENSOR_SPECIFIC, THRESHOLD, TWOS_COMPLEMENT, Sensor, sdr_file

SKIPPED = 77
RPM, CELSIUS, VOLTS = 18, 1, 4
TEMPERATURE, VOLTAGE, FAN, SECURITY, DRIVE_BAY = 1, 2, 4, 5, 13
DISK, BACK_PANEL, BOARD = 4, 10, 7

# Sensor, raw reading; then the path of its check, its unit, and what the server must have stored: a value and a comment.
# The simulated BMC takes readings, but no states: those that Get Sensor Reading gives stay clear.
SENSORS = [
    (Sensor(1, "CPU Temp", entity=3, sensor_type=TEMPERATURE, unit=CELSIUS), 45, "E03.I01.S01.00:01", "C", 45, ""),
    (Sensor(2, "Fan 1", entity=29, sensor_type=FAN, unit=RPM, m=60), 50, "E1D.I01.S04.00:02", "RPM", 3000, ""),
    (Sensor(3, "12 V", sensor_type=VOLTAGE, unit=VOLTS, m=2, b=5, b_exp=1, r_exp=-2), 120, "E07.I01.S02.00:03", "V", 2.9,
     ""),
    (Sensor(4, "Reciprocal", linearization=7), 8, "E07.I01.S01.00:04", "", 0.125, ""),
    (Sensor(5, "Root", linearization=10), 16, "E07.I01.S01.00:05", "", 4, ""),
    (Sensor(6, "Logarithm", linearization=1, r_exp=1), 100, "E07.I01.S01.00:06", "", math.log(1000), ""),
    (Sensor(7, "Below zero", unit=CELSIUS, number_format=TWOS_COMPLEMENT), 0xF6, "E07.I01.S01.00:07", "C", -10, ""),
    (Sensor(8, "Load", percentage=True, unit=CELSIUS), 33, "E07.I01.S01.00:08", "1%", 33, ""),
    (Sensor(9, "Stopped fan", entity=29, instance=2, sensor_type=FAN, unit=RPM, m=60), None, "E1D.I02.S04.00:09", "RPM",
     0, ""),
    (Sensor(10, "Door", kind=COMPACT, sensor_type=SECURITY, reading_type=DIGITAL), None, "E07.I01.S05.00:0A:03", "", 0,
     "State Deasserted"),
    (Sensor(12, "Bay 1", kind=COMPACT, entity=DISK, sensor_type=DRIVE_BAY, reading_type=SENSOR_SPECIFIC), None,
     "E04.I01.S0D.00:0C:6F", "", 5, "No disk in slot"),
]
# Not offered: a bay of something else than a disk, and a sensor of a kind that nobody reads.
LEFT_OUT = [
    Sensor(15, "Other bay", kind=COMPACT, entity=BACK_PANEL, sensor_type=DRIVE_BAY, reading_type=SENSOR_SPECIFIC),
    Sensor(16, "Timer", kind=COMPACT, sensor_type=35, reading_type=SENSOR_SPECIFIC),
]
CHASSIS = {"poweroverload": "Power load is OK", "mainpowerfault": "Main power is OK",
           "powercontrolfault": "Power control is OK", "drivefault": "Drives are OK", "coolingfault": "Cooling/Fans are OK"}

KINDS = {THRESHOLD: "Analog", DIGITAL: "Discrete State", SENSOR_SPECIFIC: "Drive Bay State"}

POLICY = """
checkin = "10 s"
[[check]]
name = "ipmisens"
frequency = "2 s"
"""
SETTINGS = """
name = machine
domain = lab
server_list = 127.0.0.1
logfile = /lab/agent.log
variable_file = /lab/variables
loglevel = -1
disable_checks = fs mem system proc ifthrough ifevents custom log scm perf action block
"""
# Two rounds of all checks, and a checkin behind them. Whatever is waited for, the wait has an end.
SCRIPT = """
cd /lab
{readings}
wait_for() {{ # WORDS COUNT FILE
    for turn in $(seq 300); do
        [ "$(grep -c "$1" "$3")" -ge "$2" ] && return
        sleep 0.1
    done
    echo "$1 did not come $2 times in $3"
}}
: >server.log
: >agent.log
tnserver --listen 127.0.0.1:3241 --store store.db --policy policy.toml --watch >server.log 2>&1 &
server=$!
wait_for 'listens at' 1 server.log
tnagent -f tnagent.conf 2>agent.stderr &
agent=$!
wait_for 'Agent will check device ' {runs} agent.log
seen=$(grep -c 'Successful checkin' agent.log)
kill -USR1 $agent
wait_for 'Successful checkin' $((seen + 1)) agent.log
kill $agent
wait $agent
kill $server
wait $server
"""
ROUNDS = 2

options = argparse.Namespace()


def readings() -> str:
    """Commands to the BMC: Set Sensor Reading for each sensor that has one."""
    lines = [f"vm_ipmi 4 0x30 {row[0].number} 1 {row[1]} 0 0 >/dev/null" for row in SENSORS if row[1] is not None]
    return "\n".join(lines)


def make_machine() -> Machine:
    machine = Machine(Kernel(options.folder / "kernel"), options.folder / "machine")
    machine.add_modules({"ipmi_devintf": "", "ipmi_si": "type=kcs ports=0xca2"})
    for name in ("tnagent", "tnserver", "vm_ipmi"):
        machine.add_program(options.programs / name)
    sdr = options.folder / "machine/sensors.sdr"
    sdr.write_bytes(sdr_file([row[0] for row in SENSORS] + LEFT_OUT))
    machine.devices += ["-device", f"ipmi-bmc-sim,id=bmc,sdrfile={sdr}", "-device", "isa-ipmi-kcs,bmc=bmc,ioport=0xca2"]
    machine.write("policy.toml", POLICY)
    machine.write("tnagent.conf", SETTINGS)
    machine.write("script", SCRIPT.format(runs=ROUNDS * (len(SENSORS) + len(CHASSIS)),
                                            readings=readings()))
    return machine


class Hardware(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.machine = make_machine()
        cls.lab = cls.machine.boot()
        cls.log = (cls.lab / "agent.log").read_text(errors="replace")
        with contextlib.closing(sqlite3.connect(cls.lab / "store.db")) as store:
            cls.checks = {path.split(".", 1)[1] for path, in
                          store.execute("SELECT path FROM checks WHERE family = 'ipmisens'")}
            cls.offered = {key: (name, unit) for key, name, unit in store.execute("SELECT key, name, unit FROM devices")}
            cls.results: dict[str, list[tuple]] = {}
            for path, status, value, comment in store.execute(
                    "SELECT path, status, value, comment FROM results JOIN checks ON checks.id = check_id "
                    "WHERE family = 'ipmisens' ORDER BY check_time, results.id"):
                cls.results.setdefault(path.split(".", 1)[1], []).append((status, value, comment))
        print(f"the machine was down again behind {cls.machine.seconds:.1f} s")

    def test_script_had_nothing_to_complain_of(self):
        self.assertEqual((self.lab / "script.log").read_text(), "")
        self.assertNotIn("failed", self.machine.console())

    def test_bmc_was_found(self):
        self.assertIn("Initialized 1 BMCs", self.log)
        self.assertIn("provides ipmi version 2.0", self.log)
        self.assertIn("Read full SDR repository record", self.log)

    def test_every_sensor_is_stored_with_its_reading(self):
        for sensor, _, path, unit, value, comment in SENSORS:
            with self.subTest(sensor.text):
                self.assertIn(path, self.checks)
                name = f"{sensor.text} ({KINDS[sensor.reading_type]})"
                self.assertEqual(self.offered[path.rsplit(".", 1)[1]], (name, unit))
                found = self.results.get(path)
                self.assertTrue(found, "no result")
                for status, stored, words in found:
                    self.assertNotEqual(status, 3, words)
                    self.assertAlmostEqual(float(stored), value, places=5)
                self.assertEqual(found[-1][2], comment, "a delivery has a comment for its last result alone")

    def test_chassis_is_stored_without_faults(self):
        for fault, words in CHASSIS.items():
            with self.subTest(fault):
                found = self.results.get(f"chassisstatus.{fault}")
                self.assertTrue(found, "no result")
                self.assertEqual({row[:2] for row in found}, {(0, 0)})
                self.assertEqual(found[-1][2], words)

    def test_nothing_else_is_offered(self):
        paths = {row[2] for row in SENSORS} | {f"chassisstatus.{fault}" for fault in CHASSIS}
        self.assertEqual(self.checks, paths)
        self.assertEqual(set(self.offered), {path.rsplit(".", 1)[1] for path in paths})
        self.assertIn(" Non-disk found in drive bay: Other bay", self.log)
        self.assertIn(" Unsupported IPMI sensor: Timer", self.log)

    def test_zero_is_verified_at_the_scan_and_believed_behind_it(self):
        reads = self.log.count("Read RAW value: 0x00 from sensor Stopped fan")
        runs = self.log.count("Agent will check device 00:09 type 7")
        verified = self.log.count("RAW value verified 0")
        self.assertGreater(runs, 1)
        scans = self.log.count('Sensor 0x9 (lun 0) "Stopped fan" has format 0 - will use')
        self.assertEqual(verified, self.log.count("will re-read(2) to verify"))
        self.assertEqual(reads, scans + runs + 2 * verified)


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--programs", type=Path, default=Path("build/linux"), help="where the programs are")
    parser.add_argument("--folder", type=Path, default=Path("build/vm"), help="where kernel and machine are made")
    parser.parse_args(namespace=options)
    options.folder = options.folder.resolve()
    try:
        Kernel(options.folder / "kernel")
    except CannotRun as reason:
        print(f"skipped: {reason}")
        return SKIPPED
    result = unittest.TextTestRunner(verbosity=2).run(unittest.defaultTestLoader.loadTestsFromTestCase(Hardware))
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
