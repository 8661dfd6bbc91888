"""What an administrator types: downtime, version, usage, and options in the place of settings."""
from programs import DOMAIN, ProgramsTest, QUIET_POLICY, main

VERSION = "v.3.8.0 build 5153 on Linux (x86-64)"
USAGE = """Usage:  {}  [-v][-V] [-f <config file>]
                 [-c <name>] [-d <domain>]
                 [-s <server name>] [-p <server port>]
                 [-t <variables file>]
                 [-l <log level>]
                 [-m <log file>]
                 [--down[=<minutes>]] --quiet
"""


class Downtime(ProgramsTest):
    """Asked for while no agent runs, so that the process asks the server itself."""

    def setUp(self):
        self.server = self.new_server(policy=QUIET_POLICY)
        self.agent = self.new_agent(self.server).start()
        self.agent.wait_for("Successful checkin")
        self.agent.end()

    def minutes(self) -> list[int]:
        return [minutes for (minutes,) in self.server.rows("SELECT minutes FROM downtimes ORDER BY id")]

    def test_is_granted_in_the_servers_words(self):
        told = self.agent.ask_downtime("--down")
        self.assertEqual(told.returncode, 0, told.stderr)
        self.assertRegex(told.stderr.splitlines()[-1], r"^OK Downtime until \d{4}-\d\d-\d\d \d\d:\d\d:\d\d$")
        self.assertEqual(self.minutes(), [30])

    def test_takes_the_minutes_of_the_option(self):
        self.assertEqual(self.agent.ask_downtime("--down=5", "--quiet").returncode, 0)
        self.assertEqual(self.agent.ask_downtime("--quiet", "--down=0x10").returncode, 0)
        self.assertEqual(self.agent.ask_downtime("--down=soon").returncode, 0)
        self.assertEqual(self.minutes(), [5, 16, 1])

    def test_is_refused_in_the_servers_words(self):
        told = self.agent.ask_downtime("--down=1000000")
        self.assertEqual(told.returncode, 1)
        self.assertEqual(told.stderr.splitlines()[-1], "FAILURE A downtime takes 1 to 43200 minutes")
        self.assertEqual(self.minutes(), [])

    def test_without_a_server_fails_and_says_why(self):
        self.server.kill()
        told = self.agent.ask_downtime("--down", "--quiet")
        self.assertEqual(told.returncode, 1)
        self.assertEqual(told.stderr.splitlines()[-1],
                         "FAILED Could not connect to server: Error connecting: Connection refused (111)")

    def test_may_be_the_first_meeting(self):
        stranger = self.new_agent(self.server, "stranger")
        told = stranger.ask_downtime("--down")
        self.assertEqual(told.returncode, 0, told.stderr)
        stranger.start()
        stranger.wait_for_checks()
        self.assertNotIn("Server said", stranger.text())

    def test_leaves_log_and_keys_alone(self):
        before = self.agent.text(), self.agent.variables.read_text()
        self.agent.ask_downtime("--down")
        self.assertEqual((self.agent.text(), self.agent.variables.read_text()), before)

    def test_without_settings_is_a_fatal_error(self):
        self.agent.settings_file.unlink()
        told = self.agent.run("-f", self.agent.settings_file, "--down")
        self.assertEqual(told.returncode, 1)
        self.assertIn("Fatal error: Unable to read agent configuration.", told.stderr)


class ShortLives(ProgramsTest):
    def test_version_is_told_and_ends_well(self):
        told = self.new_agent("nobody").run("-V")
        self.assertEqual((told.returncode, told.stdout, told.stderr), (0, "", f"\n Tarnix Agent : {VERSION}\n\n"))

    def test_usage_is_told_and_ends_well(self):
        agent = self.new_agent("nobody")
        for words in (["--help"], ["-x"], ["-l"], ["-v", "-f"], ["now"]):
            with self.subTest(words=words):
                told = agent.run(*words)
                self.assertEqual((told.returncode, told.stdout), (0, ""))
                self.assertEqual(told.stderr, USAGE.format(told.args[0]))


class Options(ProgramsTest):
    def setUp(self):
        self.server = self.new_server(policy=QUIET_POLICY)

    def five_options(self, agent) -> list:
        return ["-c", "typed", "-s", self.server.place, "-d", DOMAIN, "-t", agent.variables, "-m", agent.log]

    def test_five_of_them_stand_for_settings(self):
        agent = self.new_agent("nobody", domain=None)  # whose settings file alone is not enough
        agent.options = [*self.five_options(agent), "-l", "0"]
        agent.start()
        agent.wait_for("Successfully registered")
        self.assertIn(f"Tarnix agent name: {DOMAIN}: typed", agent.text())
        self.assertEqual(self.server.value("SELECT name FROM agents"), "typed")
        self.assertTrue(agent.variables.exists())
        # A level of 0 counts beside settings alone.
        self.assertEqual(agent.count("Will authenticate"), 0)

    def test_four_of_them_do_not(self):
        agent = self.new_agent("nobody")
        words = self.five_options(agent)
        for left_out in range(0, len(words), 2):
            told = agent.run(*words[:left_out], *words[left_out + 2:])
            self.assertEqual(told.returncode, 1)
            self.assertIn("Fatal error: Unable to read agent configuration.", told.stderr)

    def test_win_over_settings(self):
        agent = self.new_agent("127.0.0.1:9", options=["-s", self.server.address[0], "-p", self.server.address[1],
                                                       "-c", "typed", "-d", "other"]).start()
        agent.wait_for("Successful checkin")
        self.assertEqual(self.server.rows("SELECT name, domain FROM agents"), [("typed", "other")])

    def test_log_stays_on_stderr(self):
        agent = self.new_agent(self.server, options=["-v"]).start()
        self.server.wait_for("is to perform", 2)
        agent.end()
        self.assertFalse(agent.log.exists())
        self.assertIn("Successful checkin", agent.stderr.read_text())

    def test_log_file_counts_with_the_log_on_stderr_alone(self):
        other = self.folder / "other.log"
        agent = self.new_agent(self.server, options=["-m", other]).start()
        agent.wait_for("Successful checkin")
        agent.end()
        self.assertFalse(other.exists())
        agent.options = ["-v", "-m", other]
        agent.log.unlink()
        agent.start()
        self.server.wait_for("has started")
        agent.end()
        self.assertFalse(agent.log.exists())
        self.assertIn("Agent starting.", other.read_text())


if __name__ == "__main__":
    main()
