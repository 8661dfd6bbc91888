"""Two servers in an agent's list: with one store, as a cluster has it, and with nothing in common."""
import signal

from programs import POLICY, QUIET_POLICY, ProgramsTest, frequent, main

FREQUENT = POLICY.replace("1 h", "10 s") + frequent("mem", 1)


class OneStore(ProgramsTest):
    def setUp(self):
        self.first = self.new_server("first", policy=FREQUENT)
        self.second = self.new_server("second", policy=FREQUENT, store=self.first.store)
        self.agent = self.new_agent(f"{self.first.place},{self.second.place}").start()
        self.agent.wait_for_checks()

    def test_second_server_takes_over_at_once_and_knows_the_agent(self):
        self.agent.deliver()
        self.first.kill()
        stored, checkins = self.first.count_results(), self.agent.count("Successful checkin")
        self.agent.wait_for("Successful checkin", checkins + 1)
        lines = [line for line in self.agent.lines() if "checkin" in line or "On hold" in line]
        failed, succeeded = lines[-2:]
        self.assertIn("Agent failed checkin (failures = 1)!", failed)
        self.assertIn("Successful checkin (failures = 0)!", succeeded)
        self.assertEqual(self.agent.last("Changed server to: "), self.second.address[0])
        self.assertGreater(self.second.count_results(), stored)
        self.assertNotIn("with a new key", self.second.text())
        self.agent.deliver()
        self.agent.end()
        self.assert_every_result_once(self.agent, self.second)

    def test_results_arrive_once_while_servers_come_and_go(self):
        here, away = self.first, self.second
        away.kill()
        for _ in range(5):
            runs = self.agent.count("Agent will check")
            self.agent.wait_for("Agent will check", runs + 3)
            away.start()
            self.agent.send(signal.SIGUSR1)
            here.kill()  # in the midst of the checkin, or before or behind it
            here, away = away, here
            self.agent.deliver()
        self.agent.end()
        self.assert_every_result_once(self.agent, here)

    def test_agent_starts_with_the_server_that_is_there(self):
        self.agent.end()
        self.first.kill()
        registered = self.agent.count("Successfully registered")
        self.agent.start()
        self.agent.wait_for("On hold for")
        self.agent.send(signal.SIGUSR1)  # ends the pause
        self.agent.wait_for("Successfully registered", registered + 1)
        self.assertEqual(self.agent.last("Changed server to: "), self.second.address[0])


class StrangeServers(ProgramsTest):
    def test_second_server_is_not_trusted_with_results_of_the_first(self):
        first = self.new_server("first", policy=FREQUENT)
        second = self.new_server("second", policy=FREQUENT)
        agent = self.new_agent(f"{first.place},{second.place}").start()
        agent.wait_for_checks()
        first.kill()
        agent.send(signal.SIGUSR1)
        agent.wait_for("does not have a master key for")
        first.start()
        agent.deliver()
        agent.end()
        self.assertEqual(second.count_results(), 0)
        self.assert_every_result_once(agent, first)

    def test_first_meeting_is_with_the_server_that_is_there(self):
        first = self.new_server("first", policy=QUIET_POLICY)
        second = self.new_server("second", policy=QUIET_POLICY)
        first.kill()
        agent = self.new_agent(f"{first.place},{second.place}").start()
        agent.wait_for("On hold for")
        agent.send(signal.SIGUSR1)
        agent.wait_for_checks()
        agent.deliver()
        self.assert_every_result_once(agent, second)


if __name__ == "__main__":
    main()
