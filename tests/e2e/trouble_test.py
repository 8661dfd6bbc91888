"""A host that does not let the agent write."""
import signal

from programs import ProgramsTest, QUIET_POLICY, main, wait_until

WRITE_FAILURE = "Flush error: Cannot open variables path for write returncode "


class Log(ProgramsTest):
    def assert_delivers(self, agent, server) -> None:
        wait_until(lambda: server.rows("SELECT 1 FROM checks WHERE configured = 1"), "the checks")

        def delivered() -> bool:
            agent.send(signal.SIGUSR1)
            return server.count_results() > 0

        wait_until(delivered, "results without a log")
        agent.end()

    def test_that_cannot_be_opened_does_not_keep_the_agent_from_delivering(self):
        server = self.new_server()
        (self.folder / "file").write_text("no folder")
        agent = self.new_agent(server, logfile=self.folder / "file" / "agent.log").start()
        self.assert_delivers(agent, server)

    def test_on_a_full_disk_does_not_keep_the_agent_from_delivering(self):
        server = self.new_server()
        agent = self.new_agent(server, logfile="/dev/full").start()
        self.assert_delivers(agent, server)


class Variables(ProgramsTest):
    """They stand below a file in place of a folder, which stops every user, root as well."""

    def setUp(self):
        self.server = self.new_server()
        self.agent = self.new_agent(self.server)
        self.blocked = self.agent.variables.parent
        self.blocked.write_text("no folder")

    def test_that_cannot_be_written_do_not_keep_the_agent_from_delivering(self):
        self.agent.start()
        self.agent.wait_for_checks(rounds=2)
        self.agent.send(signal.SIGUSR1)
        wait_until(lambda: self.server.count_results() > 0, "results")
        # Acknowledged or not, a checkin that cannot keep its variables counts as failed.
        wait_until(lambda: self.agent.count("Checking in") == self.agent.count("Agent failed checkin"), "a quiet moment")
        self.agent.end()
        self.assertIn(WRITE_FAILURE, self.agent.text())
        self.assert_every_result_once(self.agent, self.server)

    def test_are_written_as_soon_as_they_can_be(self):
        self.agent.start()
        self.agent.wait_for(WRITE_FAILURE)
        self.blocked.unlink()
        wait_until(lambda: self.agent.variable("hostkey"), "the variables")
        self.agent.end()
        self.agent.start()
        self.server.wait_for("has started")
        self.assertEqual(self.server.count("with a new key"), 1)

    def test_that_are_spoilt_are_told_line_by_line(self):
        self.blocked.unlink()
        self.blocked.mkdir()
        self.agent.variables.write_bytes(b"no tab\nname_conf\tagent\n\x00\xff\xfe\nkey\tbad \\q escape\n")
        self.agent.start()
        self.agent.wait_for("Successful checkin")
        for line in (1, 3, 4):
            self.assertIn(f"{self.agent.variables}, line {line}: no variable, passed over", self.agent.text())


class Settings(ProgramsTest):
    def test_that_cannot_be_read_end_the_agent_with_a_reason(self):
        agent = self.new_agent("nobody")
        told = agent.run("-f", self.folder)
        self.assertEqual(told.returncode, 1)
        self.assertIn("Fatal error: Unable to read agent configuration.", told.stderr)

    def test_port_that_is_none_ends_the_agent(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(f"{server.address[0]}:here").start()
        self.assertEqual(agent.process.wait(10), 1)
        self.assertIn("Fatal error: Could not parse port number", agent.text())


if __name__ == "__main__":
    main()
