"""Starts the real programs for the end-to-end tests and reads what they leave behind.

Each x_test.py beside this file is a ctest entry with the label "e2e", and runs alone as well:

    python3 tests/e2e/signals_test.py --programs build/linux [-v] [CLASS[.TEST]]

What every test gets is a folder of its own, programs of its own and an address of its own: a test file serves at an
address of 127.0.0.0/8 that is made of its process number. So nothing is shared between files that run at the same
time, and a port that a server has left stays free until that server comes back.

Programs: Server is a tnserver with a store, a policy and `--watch`; Agent is a tnagent with a settings file and a log
at level 0. Both may be stopped, killed and started again in the same folder. Proxy (proxy.py) stands between the two
and cuts, delays, stalls or swallows what they say. Whatever a test leaves running is killed behind it; where a test
fails, the ends of its logs are printed.

What is true: at level 0 the agent's log has a line for each check that it runs, and the store has a row for each
result that arrived. `assert_every_result_once` holds one against the other, check by check and time by time.

Nobody here sleeps for a fixed time to let something happen: `wait_until` waits for a condition, within a patience that
a loaded machine does not use up. A time limit that is a rule itself is measured.
"""
import argparse
import calendar
import contextlib
import os
import shutil
import signal
import sqlite3
import subprocess
import sys
import tempfile
import time
import unittest
from pathlib import Path

PATIENCE_S = 45
POLL_S = 0.02
LOG_TAIL = 60

# The rule for an agent that is told to stop, and what starting it and seeing its end costs on a busy machine.
STOP_LIMIT_S = 2.0

DOMAIN = "e2e"

# Of what the machine offers nothing is checked but what a test asks for.
NOTHING_ELSE = """
[[check]]
name = "*"
enabled = false
"""

# Checks every few seconds, so that there is something to deliver; checkins only when a test forces them. The first
# check of idle time takes a second, in which the agent hears nothing.
POLICY = f"""
checkin = "1 h"
{NOTHING_ELSE}
[[check]]
name = "fs"
enabled = true
frequency = "3 s"
[[check]]
name = "mem"
enabled = true
frequency = "3 s"
[[check]]
name = "system.*"
enabled = true
frequency = "3 s"
[[check]]
name = "system.idle"
enabled = false
"""

# Nothing happens behind the first round.
QUIET_POLICY = POLICY.replace("3 s", "1 h")


def frequent(name: str, seconds: int) -> str:
    """More words of a policy: checks of this name every so many seconds."""
    return f'[[check]]\nname = "{name}"\nenabled = true\nfrequency = {seconds}\n'


folder_of_programs = Path("build/linux")


def own_address() -> str:
    number = os.getpid()
    return f"127.{1 + (number >> 16) % 254}.{(number >> 8) % 256}.{number % 256}"


def text_of(file: Path) -> str:
    """What a file holds; nothing while there is none, as for a moment of each rotation of a log."""
    try:
        return file.read_text(errors="replace")
    except FileNotFoundError:
        return ""


def wait_until(condition, what: str, patience_s: float = PATIENCE_S):
    """What the condition gives as soon as that is true."""
    end = time.monotonic() + patience_s
    while True:
        found = condition()
        if found:
            return found
        if time.monotonic() > end:
            raise AssertionError(f"{what}: not within {patience_s:.0f} s")
        time.sleep(POLL_S)


class Program:
    """A process with a log file, which may be started more than once."""

    def __init__(self, log: Path):
        self.log = log
        self.process = None

    def launch(self, arguments: list, stdout, environment: dict | None = None, stderr=subprocess.STDOUT) -> None:
        self.process = subprocess.Popen([str(word) for word in arguments], stdin=subprocess.DEVNULL, stdout=stdout,
                                        stderr=stderr, env=environment)

    @property
    def running(self) -> bool:
        return self.process is not None and self.process.poll() is None

    def send(self, number: int) -> None:
        self.process.send_signal(number)

    def kill(self) -> None:
        if self.running:
            self.process.kill()
        if self.process is not None:
            self.process.wait()

    def end(self, number: int = signal.SIGTERM) -> float:
        """Asks the program to stop, holds that its status is 0, and tells how long it took."""
        start = time.monotonic()
        self.send(number)
        status = self.process.wait(PATIENCE_S)
        if status != 0:
            raise AssertionError(f"{self.log.parent.name} ended with status {status}")
        return time.monotonic() - start

    def memory_kb(self) -> int:
        """What is resident."""
        status = Path(f"/proc/{self.process.pid}/status").read_text()
        return int(next(line.split()[1] for line in status.splitlines() if line.startswith("VmRSS:")))

    def descriptors(self) -> int:
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def text(self) -> str:
        return text_of(self.log)

    def lines(self) -> list[str]:
        return self.text().splitlines()

    def count(self, words: str) -> int:
        """How many lines of the log hold these words."""
        return sum(words in line for line in self.lines())

    def last(self, words: str) -> str:
        """What follows these words in the last line that has them."""
        return [line for line in self.lines() if words in line][-1].split(words, 1)[1]

    def wait_for(self, words: str, count: int = 1, patience_s: float = PATIENCE_S) -> None:
        wait_until(lambda: self.count(words) >= count, f'"{words}" ({count} times) in {self.log}', patience_s)


class Server(Program):
    def __init__(self, folder: Path, policy: str = POLICY, store: Path | None = None):
        folder.mkdir(exist_ok=True)
        super().__init__(folder / "server.log")
        self.store = store or folder / "store.db"
        self.policy = folder / "policy.toml"
        self.policy.write_text(policy)
        self.address = (own_address(), 0)
        self.options: tuple = ()

    @property
    def place(self) -> str:
        return f"{self.address[0]}:{self.address[1]}"

    def start(self) -> "Server":
        starts = self.count("listens at ")
        with open(self.log, "ab") as log:
            self.launch([folder_of_programs / "tnserver", "--listen", self.place, "--store", self.store, "--policy",
                         self.policy, "--watch", *self.options], log)
        wait_until(lambda: self.count("listens at ") > starts or not self.running, f"the server's start, {self.log}")
        if not self.running:
            raise AssertionError(f"the server did not start: {self.text()}")
        self.address = (self.address[0], int(self.last("listens at ").split(",")[0].rsplit(":", 1)[1]))
        return self

    def command(self, *words) -> subprocess.CompletedProcess:
        """A run of one of the program's commands on the store."""
        arguments = [folder_of_programs / "tnserver", words[0], "--store", self.store, *words[1:]]
        return subprocess.run([str(word) for word in arguments], capture_output=True, text=True, timeout=PATIENCE_S)

    def rows(self, sql: str, *values) -> list[tuple]:
        with contextlib.closing(sqlite3.connect(self.store, timeout=PATIENCE_S)) as store:
            return store.execute(sql, values).fetchall()

    def value(self, sql: str, *values):
        rows = self.rows(sql, *values)
        return rows[0][0] if rows else None

    def count_results(self, agent: str = "%") -> int:
        return self.value("SELECT count(*) FROM results JOIN agents ON agents.id = agent_id WHERE agents.name LIKE ?",
                          agent)

    def check_times(self, agent: str) -> dict[str, list[int]]:
        """The times of an agent's results by the check's id, each list in the order of time."""
        times: dict[str, list[int]] = {}
        for path, when in self.rows("SELECT checks.path, check_time FROM results JOIN checks ON checks.id = check_id "
                                    "JOIN agents ON agents.id = checks.agent_id WHERE agents.name = ? "
                                    "ORDER BY check_time", agent):
            times.setdefault(path.split(".", 1)[1], []).append(when)
        return times


class Agent(Program):
    def __init__(self, folder: Path, servers: str, options: tuple = (), more_settings: str = "", **settings):
        folder.mkdir(exist_ok=True)
        super().__init__(folder / "agent.log")
        self.folder = folder
        self.variables = folder / "state" / "variables"
        self.stderr = folder / "agent.stderr"
        self.settings_file = folder / "tnagent.conf"
        self.options = options
        self.program = None  # another one than that of the build
        self.more_settings = more_settings
        self.settings = {"name": folder.name, "domain": DOMAIN, "server_list": servers, "logfile": self.log,
                         "variable_file": self.variables, "loglevel": 0} | settings
        self.name = self.settings["name"]

    def environment(self) -> dict:
        """One in which nothing of this machine's own agent can be met."""
        home = str(self.folder)
        return {"PATH": os.environ["PATH"], "TZ": "UTC", "HOME": home, "CONFIGURATION_DIRECTORY": home + "/etc",
                "STATE_DIRECTORY": home + "/lib", "LOGS_DIRECTORY": home + "/log", "RUNTIME_DIRECTORY": home + "/run"}

    def write_settings(self) -> None:
        lines = [f"{key} = {value}" for key, value in self.settings.items() if value is not None]
        self.settings_file.write_text("\n".join(["# written by a test", "", *lines, self.more_settings, ""]))

    def start(self) -> "Agent":
        self.write_settings()
        with open(self.stderr, "ab") as stderr:
            self.launch([self.program or folder_of_programs / "tnagent", "-f", self.settings_file, *self.options], subprocess.DEVNULL,
                        self.environment(), stderr)
        return self

    def run(self, *words) -> subprocess.CompletedProcess:
        """A run of the program that ends by itself, with these words alone on the command line."""
        return subprocess.run([str(folder_of_programs / "tnagent"), *map(str, words)], capture_output=True, text=True,
                              timeout=PATIENCE_S, env=self.environment())

    def ask_downtime(self, *words) -> subprocess.CompletedProcess:
        self.write_settings()
        return self.run("-f", self.settings_file, *words)

    def variable(self, key: str) -> str | None:
        for line in text_of(self.variables).splitlines():
            if line.startswith(key + "\t"):
                return line.split("\t", 1)[1]
        return None

    def wait_for_checks(self, rounds: int = 1) -> None:
        """Until each check that the server has sent has run that often."""
        self.wait_for("Instructed by server to perform ")

        def done() -> bool:
            wanted = int(self.last("Instructed by server to perform ").split()[0])
            runs = self.check_times()
            return 0 < wanted == len(runs) and min(map(len, runs.values())) >= rounds

        wait_until(done, f"{rounds} rounds of checks of {self.name}")

    def deliver(self) -> None:
        """Forces checkins until one of them has delivered everything."""
        seen, forced_at = self.count("Successful checkin"), -1

        def delivered() -> bool:
            nonlocal forced_at
            done = self.count("Successful checkin")
            if done > seen and "throttling" not in self.last("Checking in"):
                return True
            ends = done + self.count("Agent failed checkin")
            if ends != forced_at:
                forced_at = ends
                self.send(signal.SIGUSR1)
            return False

        wait_until(delivered, f"a delivery of {self.name}")

    def check_times(self, until_delivery: bool = False) -> dict[str, list[int]]:
        """When each check ran, by its id. With `until_delivery`, those alone that ran before the last checkin."""
        lines = self.lines()
        if until_delivery:
            last = max(at for at, line in enumerate(lines) if "Checking in" in line)
            lines = lines[:last]
        times: dict[str, list[int]] = {}
        for line in lines:
            if "Agent will check device " in line:
                name = line.split("Agent will check device ")[1].rsplit(" type ", 1)[0]
                times.setdefault(name, []).append(calendar.timegm(time.strptime(line[:24])))
        return times


class ProgramsTest(unittest.TestCase):
    """A test with a folder, whose programs end with it."""

    def run(self, result=None):
        self.folder = Path(tempfile.mkdtemp(prefix="tn-e2e-"))
        seen = self.troubles(result)
        super().run(result)
        if self.troubles(result) > seen:
            self.print_logs()
        shutil.rmtree(self.folder, ignore_errors=True)

    @staticmethod
    def troubles(result) -> int:
        return len(result.failures) + len(result.errors) if result is not None else 0

    def print_logs(self) -> None:
        for log in sorted([*self.folder.rglob("*.log"), *self.folder.rglob("*.stderr")]):
            lines = log.read_text(errors="replace").splitlines()
            print(f"--- {log.relative_to(self.folder)}, {len(lines)} lines", *lines[-LOG_TAIL:], sep="\n",
                  file=sys.stderr)

    def new_server(self, place: str = "server", **how) -> Server:
        server = Server(self.folder / place, **how)
        self.addCleanup(server.kill)
        return server.start()

    def new_agent(self, servers, place: str = "agent", **how) -> Agent:
        """An agent of a server, a proxy or a text with a list of them, not yet started."""
        agent = Agent(self.folder / place, servers if isinstance(servers, str) else servers.place, **how)
        self.addCleanup(agent.kill)
        return agent

    def assert_every_result_once(self, agent: Agent, server: Server) -> None:
        """What the agent had found before its last checkin stands in the store once. That checkin was a whole one."""
        ran, arrived = agent.check_times(until_delivery=True), server.check_times(agent.name)
        self.assertTrue(ran, "no check has run")
        counts = {name: len(times) for name, times in ran.items()}
        self.assertEqual({name: len(times) for name, times in arrived.items()}, counts)
        for name, times in ran.items():
            # A second passes between the line and the check, and one may be lost where the clocks are compared.
            far = [(own, other) for own, other in zip(times, arrived[name]) if abs(own - other) > 2]
            self.assertEqual(far, [], f"times of {name} in the log and in the store")

    def assert_stops(self, agent: Agent, number: int = signal.SIGTERM) -> None:
        took = agent.end(number)
        self.assertIn("Agent shutting down.", agent.lines()[-1])
        self.assertLess(took, STOP_LIMIT_S)


def main() -> None:
    global folder_of_programs
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--programs", type=Path, default=folder_of_programs)
    known, rest = parser.parse_known_args()
    folder_of_programs = known.programs.resolve()
    unittest.main(argv=[sys.argv[0], *rest])
