"""Custom checks and actions, from the administrator's files to the server's store and the program that ran."""
import os
import textwrap
from pathlib import Path

from programs import NOTHING_ELSE, ProgramsTest, frequent, main, wait_until

POLICY = f"""
checkin = "1 h"
{NOTHING_ELSE}
{frequent("custom", 3)}
alert_values = [0]
"""


def is_alive(process: int) -> bool:
    try:
        return Path(f"/proc/{process}/stat").read_text().rsplit(")", 1)[1].split()[0] != "Z"
    except OSError:
        return False


class CustomChecks(ProgramsTest):
    def start(self, checks: str = "", actions: str = "") -> None:
        self.server = self.new_server(policy=POLICY)
        for name, text in (("checks", checks), ("actions", actions)):
            (self.folder / name).write_text(textwrap.dedent(text))
        self.agent = self.new_agent(self.server, custom_chk_conf=self.folder / "checks",
                                    actions_conf=self.folder / "actions").start()
        self.agent.wait_for("Instructed by server to perform ", 2)  # at the start, and behind the scan

    def results(self, name: str, count: int) -> list[tuple]:
        """Status, value and comment of so many results of the check."""
        def found() -> list[tuple]:
            self.agent.deliver()
            rows = self.server.rows("SELECT status, value, comment FROM results JOIN checks ON checks.id = check_id"
                                    " WHERE checks.name = ? ORDER BY results.id", f"custom.{name}")
            return rows if len(rows) >= count else []

        return wait_until(found, f"{count} results of {name}")

    def test_every_type_arrives(self):
        self.start(f"""\
            # what the administrator wants to know
            [well]
            command=/bin/sh -c 'exit 0'

            [ill]
            command=/bin/sh -c 'exit 3'

            [count]
            command=/bin/echo "Result: 42"
            type=integer

            [size]
            command=/bin/echo "size is 2.5 of 9"
            type=real
            result_pattern=size is ([0-9.]+)

            [rate]
            command=/bin/sh -c 'echo x >>{self.folder}/rate; echo "Result: $(wc -c <{self.folder}/rate)"'
            type=diff_integer
            """)
        self.assertEqual(self.results("well", 1)[0], (0, 1, "Success"))
        self.assertEqual(self.results("ill", 1)[0], (2, 0, "Failed"))
        self.assertEqual(self.results("count", 1)[0][:2], (0, 42))
        self.assertEqual(self.results("size", 1)[0][:2], (0, 2.5))
        first, second = self.results("rate", 2)[:2]
        self.assertEqual((first[0], first[2]), (3, "Value available after one more reading"))
        self.assertEqual(second[0], 0)
        self.assertGreater(second[1], 0)

    def test_a_time_out_leaves_no_process(self):
        pids = self.folder / "pids"
        self.start(f"""\
            [stuck]
            command=/bin/sh -c 'echo $$ >>{pids}; setsid sleep 600 & echo $! >>{pids}; trap "" TERM; sleep 600; true'
            timeout=1
            """)
        status, _, comment = self.results("stuck", 1)[0]
        self.assertEqual((status, comment), (3, "Timeout (1 s)"))
        self.agent.end()
        started = [int(line) for line in pids.read_text().split()]
        self.assertTrue(started)
        self.assertEqual([process for process in started if is_alive(process)], [])

    def test_an_action_runs_once_and_outlives_the_agent(self):
        ran = self.folder / "ran"
        self.start(actions=f"""\
            [restart web]
            command=/bin/sh -c 'echo $$ >>{ran}; exec sleep 30'
            """)
        ordered = self.server.command("action", "agent", "restart web")
        self.assertEqual(ordered.returncode, 0, ordered.stderr)
        self.assertEqual(self.server.command("action", "agent", "reboot").returncode, 2)
        self.agent.deliver()
        self.server.wait_for("has taken the order to start restart web")
        wait_until(ran.exists, "the program's start")
        self.agent.deliver()
        self.server.wait_for("has started and pruned restart web")
        self.agent.deliver()
        self.agent.end()
        (process,) = map(int, ran.read_text().split())
        self.addCleanup(os.kill, process, 9)
        self.assertTrue(is_alive(process))
        self.assertIn("restart web, taken ", self.server.command("summary").stdout)


if __name__ == "__main__":
    main()
