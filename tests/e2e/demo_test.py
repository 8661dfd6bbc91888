"""tools/demo, which is what `./dev run` shows."""
import os
import signal
import subprocess
import unittest
from pathlib import Path

import programs
from programs import PATIENCE_S, main, wait_until

DEMO = Path(__file__).resolve().parent.parent.parent / "tools" / "demo"


def name_of(process: int) -> str:
    try:
        return Path(f"/proc/{process}/comm").read_text().strip()
    except OSError:
        return ""


def children(process: int) -> dict[str, int]:
    """The programs that the demo has started, by name."""
    found = Path(f"/proc/{process}/task/{process}/children").read_text().split()
    return {name_of(int(child)): int(child) for child in found}


class Demo(unittest.TestCase):
    def start(self, seconds: int) -> subprocess.Popen:
        demo = subprocess.Popen([DEMO, "--for", str(seconds), "--programs", programs.folder_of_programs],
                                stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        self.addCleanup(demo.stdout.close)
        self.addCleanup(demo.wait)
        self.addCleanup(demo.terminate)
        return demo

    def wait_for_agent(self, demo) -> dict[str, int]:
        wait_until(lambda: {"tnagent", "tnserver"} <= children(demo.pid).keys(), "both programs")
        return children(demo.pid)

    def test_shows_results_of_every_family_rules_that_fire_and_an_action(self):
        demo = self.start(40)
        told, _ = demo.communicate(timeout=2 * PATIENCE_S)
        self.assertEqual(demo.returncode, 0, told)
        rows = {line.split()[0]: line.split()[1:] for line in told.splitlines() if line.split()}
        for family in ("fs", "log", "mem", "proc", "system"):
            _, checks, results, *_, errors = map(int, rows[family])
            self.assertGreaterEqual(results, max(checks, 1), told)
            self.assertEqual(errors, 0, told)
        self.assertGreaterEqual(int(rows["custom"][3]), 3, told)  # good ones
        self.show_rules(told)
        self.show_the_action(told)

    def show_rules(self, told: str) -> None:
        lines = [line for line in told.splitlines() if "/app.log  " in line]
        self.assertTrue([line for line in lines if "  alert    " in line and "error: request" in line], told)
        self.assertTrue([line for line in lines if "  warning  " in line and "warning: request" in line], told)
        self.assertNotIn("served", told)

    def show_the_action(self, told: str) -> None:
        for step in ("is ordered to start", "has taken the order to start", "has started and pruned"):
            self.assertIn(f"{step} note the time", told)
        run = Path(programs.folder_of_programs) / "run"
        self.assertRegex((run / "actions.log").read_text(), r"^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d, by order")

    def test_fails_where_the_agent_does(self):
        demo = self.start(30)
        os.kill(self.wait_for_agent(demo)["tnagent"], signal.SIGKILL)
        told, _ = demo.communicate(timeout=10)
        self.assertEqual(demo.returncode, 1)
        self.assertIn("the agent has ended", told)

    def test_leaves_no_program_behind_when_it_is_told_to_end(self):
        demo = self.start(30)
        started = self.wait_for_agent(demo)
        demo.terminate()
        demo.communicate(timeout=PATIENCE_S)
        self.assertEqual([name for name, process in started.items() if name_of(process) == name], [])


if __name__ == "__main__":
    main()
