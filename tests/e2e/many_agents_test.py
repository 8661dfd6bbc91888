"""Fifty agents with made-up results at one server, and a client beside them that is none."""
import time

from programs import ProgramsTest, frequent, main, wait_until
from strangers import Strangers

AGENTS = 50
DEVICES = 8
RUN_S = 20
POLICY = "checkin = 10\n" + frequent("mem", 1)


class ManyAgents(ProgramsTest):
    def start_all(self, server) -> list:
        """Each agent first offers its devices, which the made-up results alone do not."""
        agents = [self.new_agent(server, f"agent{number:02}") for number in range(AGENTS)]
        for agent in agents:
            agent.options = ("--regression-test", DEVICES, 1, 1)  # curves that are over when they begin
            agent.start()
        wait_until(lambda: server.value("SELECT count(*) FROM checks WHERE configured = 1") == AGENTS * DEVICES,
                   "the offers of all agents")
        for agent in agents:
            agent.end()
            agent.log.unlink()
            agent.options = ("--fake-results",)
            agent.start()
        return agents

    def test_all_results_of_all_agents_arrive_once(self):
        server = self.new_server(policy=POLICY)
        agents = self.start_all(server)
        strangers = Strangers(server)
        self.addCleanup(strangers.end)
        time.sleep(RUN_S)
        for agent in agents:
            agent.deliver()
        strangers.end()
        for agent in agents:
            agent.end()
        for agent in agents:
            self.assertEqual(agent.count("Agent failed checkin"), 0, agent.name)
            self.assert_every_result_once(agent, server)
        # A second is lost now and then to the seconds' ends.
        self.assertGreater(server.count_results(), AGENTS * DEVICES * RUN_S * 0.8)
        self.assertTrue(all(strangers.attacks.values()), strangers.attacks)
        server.end()


if __name__ == "__main__":
    main()
