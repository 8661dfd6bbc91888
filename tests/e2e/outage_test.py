"""A server that is away for longer than an agent waits between two checkins."""
import signal
import time

from programs import POLICY, ProgramsTest, frequent, main

AWAY_S = 32
# Nine tenths of the checkin interval and a fifth of it at random, and what the machine adds.
LONGEST_PAUSE_S = 11 + 4
OFTEN = POLICY.replace("1 h", "10 s") + frequent("mem", 2)


class Outage(ProgramsTest):
    def test_loses_no_result_and_doubles_none(self):
        server = self.new_server(policy=OFTEN)
        agents = [self.new_agent(server, f"agent{number}").start() for number in range(3)]
        for agent in agents:
            agent.wait_for_checks()
        # One whose delivery was stored and not acknowledged, and which delivers it again behind the outage.
        agents[0].send(signal.SIGUSR1)
        server.kill()
        left, before = time.time(), server.count_results()
        time.sleep(AWAY_S)
        back = time.time()
        for agent in agents:
            self.assertGreater(agent.count("Agent failed checkin"), 2)
        checkins = [agent.count("Successful checkin") for agent in agents]
        server.start()
        for agent, count in zip(agents, checkins):
            agent.wait_for("Successful checkin", count + 1, patience_s=LONGEST_PAUSE_S)
        for agent in agents:
            agent.deliver()
            agent.end()
            self.assert_every_result_once(agent, server)
        self.assertGreater(server.count_results(), before + len(agents) * AWAY_S)
        for agent in agents:
            self.assert_no_gap(server.check_times(agent.name)["phys"], 2, left, back)

    def assert_no_gap(self, times: list[int], frequency: int, left: float, back: float) -> None:
        """The agent has gone on checking all the time. A second is lost now and then to the seconds' ends."""
        during = [when for when in times if left - frequency <= when <= back]
        self.assertGreaterEqual(len(during), (back - left) / (frequency + 1))
        self.assertLessEqual(max(later - earlier for earlier, later in zip(during, during[1:])), frequency + 2)


if __name__ == "__main__":
    main()
