"""The signals that do not end the agent: SIGUSR1, SIGUSR2, and SIGHUP for its log."""
import signal
import time

from programs import POLICY, QUIET_POLICY, ProgramsTest, frequent, main, wait_until

BURST = 1000
AT_ONCE_S = 2.0


class ForcedCheckin(ProgramsTest):
    def test_comes_at_once_and_delivers_all(self):
        server = self.new_server(policy=QUIET_POLICY)  # a checkin is due in an hour
        agent = self.new_agent(server).start()
        agent.wait_for_checks()
        self.assertEqual(server.count_results(), 0)
        start = time.monotonic()
        agent.deliver()
        self.assertLess(time.monotonic() - start, AT_ONCE_S)
        self.assertEqual(agent.count("Checkin forced by SIGUSR1"), 1)
        self.assert_every_result_once(agent, server)

    def test_comes_during_the_pause_behind_a_failed_one(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for_checks()
        server.kill()
        agent.send(signal.SIGUSR1)
        agent.wait_for("On hold for")
        server.start()
        agent.deliver()
        self.assert_every_result_once(agent, server)

    def test_ends_the_pause_between_registrations(self):
        server = self.new_server(policy=QUIET_POLICY)
        server.kill()
        agent = self.new_agent(server).start()
        agent.wait_for("On hold for")
        server.start()
        agent.send(signal.SIGUSR1)
        agent.wait_for("Successful checkin", patience_s=8)  # the shortest pause is 9 s


class Burst(ProgramsTest):
    def test_runs_every_check_a_thousand_times(self):
        # The burst begins when the check that was due next is due.
        server = self.new_server(policy=QUIET_POLICY + frequent("system.uptime", 2))
        agent = self.new_agent(server).start()
        agent.wait_for_checks()
        agent.end()
        # Made-up values, so that no check takes its time.
        agent.options = ("--fake-results",)
        agent.start()
        agent.wait_for("Successful checkin", 2)
        agent.wait_for_checks(rounds=2)
        agent.send(signal.SIGUSR2)
        agent.wait_for_checks(rounds=3)
        self.assertEqual(agent.count("Burst requested by SIGUSR2"), 1)
        agent.deliver()
        arrived = {name: len(times) for name, times in server.check_times(agent.name).items()}
        self.assertEqual(set(arrived), set(agent.check_times()))
        self.assertGreater(arrived.pop("uptime"), BURST)  # which has run on before and behind the burst
        self.assertEqual(set(arrived.values()), {1 + BURST})


class LogFile(ProgramsTest):
    """An agent that says something every second, whose log is re-opened."""

    def setUp(self):
        self.server = self.new_server(policy=POLICY + frequent("mem", 1))
        self.agent = self.new_agent(self.server).start()
        self.agent.wait_for_checks()
        self.old = self.agent.log.with_name("agent.log.1.txt")

    def assert_no_line_is_lost(self, *logs) -> None:
        """Each result that the store has stands in one of the logs, from the oldest log to the youngest."""
        self.agent.deliver()
        lines = [line for log in logs for line in log.read_text().splitlines()]
        self.agent.end()
        last = max(at for at, line in enumerate(lines) if "Checking in" in line)
        self.assertEqual(sum("Agent will check" in line for line in lines[:last]), self.server.count_results())

    def test_is_written_anew_where_another_program_has_moved_it(self):
        moved = self.agent.log.rename(self.agent.log.with_name("agent.log-20261121"))
        checks = moved.read_text().count("Agent will check")
        wait_until(lambda: moved.read_text().count("Agent will check") > checks, "a line in the moved file")
        self.agent.send(signal.SIGHUP)
        self.agent.wait_for("Agent reopened logfile...")
        self.assertFalse(self.old.exists())
        self.assertTrue(moved.read_text().endswith("Closing logfile\n"))
        self.assertIn("Agent reopened logfile...", self.agent.lines()[0])
        self.assert_no_line_is_lost(moved, self.agent.log)

    def test_is_rotated_where_nobody_has_moved_it(self):
        self.agent.send(signal.SIGHUP)
        self.agent.wait_for("Agent reopened logfile...")
        self.assertTrue(self.old.read_text().endswith("Closing logfile\n"))
        self.assertIn("Agent starting.", self.old.read_text())
        self.assert_no_line_is_lost(self.old, self.agent.log)

    def test_is_rotated_as_often_as_old_logs_are_kept(self):
        self.agent.end()
        self.agent.settings["max_log_files"] = 2
        self.agent.start()
        self.agent.wait_for("Successful checkin", 2)
        for number in range(1, 4):
            self.agent.send(signal.SIGHUP)
            self.agent.wait_for("Agent reopened logfile...")
            self.agent.log.write_text(f"This was log {number}.\n")
        self.agent.end()
        ends = {log.name: log.read_text().splitlines()[0] for log in self.agent.log.parent.glob("agent.log*")}
        self.assertEqual(ends, {"agent.log": "This was log 3.", "agent.log.1.txt": "This was log 2.",
                                "agent.log.2.txt": "This was log 1."})

    def test_is_made_again_where_it_was_removed(self):
        self.agent.log.unlink()
        self.agent.send(signal.SIGHUP)
        self.agent.wait_for("Agent reopened logfile...")
        self.assertFalse(self.old.exists())

    def test_on_stderr_is_left_alone(self):
        self.agent.end()
        self.agent.options = ("-v",)
        self.agent.start()
        self.agent.log = self.agent.stderr
        self.agent.wait_for_checks(rounds=2)
        self.agent.send(signal.SIGHUP)
        self.agent.deliver()
        self.assertEqual(self.agent.count("Re-opening log"), 0)


if __name__ == "__main__":
    main()
