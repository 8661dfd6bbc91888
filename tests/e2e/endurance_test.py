"""What an agent takes of its host does not grow with its checkins."""
import signal

from programs import POLICY, Program, ProgramsTest, frequent, main, wait_until
from proxy import Proxy, cut_at_byte, forward

WARM_UP, CHECKINS = 10, 101
# What the allocators may still move about behind the warm-up; with the server, its store's cache as well.
SLACK_KB, SERVER_SLACK_KB = 64, 1024


class Endurance(ProgramsTest):
    def setUp(self):
        self.server = self.new_server(policy=POLICY + frequent("mem", 1))

    def assert_flat(self, checkin, *watched: tuple[Program, int]) -> None:
        """A hundred checkins leave each program with the memory, but for its slack, and the descriptors that it had."""
        for _ in range(WARM_UP):
            checkin()
        before = [(program, slack_kb, program.descriptors(), program.memory_kb()) for program, slack_kb in watched]
        for _ in range(CHECKINS):
            checkin()
        for program, slack_kb, descriptors, memory_kb in before:
            # A server may still be closing the last connection.
            wait_until(lambda: program.descriptors() <= descriptors, f"no more descriptors of {program.log}", 5)
            self.assertLessEqual(program.memory_kb() - memory_kb, slack_kb)

    def test_nobody_grows_with_checkins(self):
        agent = self.new_agent(self.server).start()
        agent.wait_for_checks()
        self.assert_flat(agent.deliver, (agent, SLACK_KB), (self.server, SERVER_SLACK_KB))
        agent.end()
        self.assert_every_result_once(agent, self.server)

    def test_agent_does_not_grow_with_failed_checkins(self):
        proxy = Proxy(self.server)
        self.addCleanup(proxy.close)
        agent = self.new_agent(proxy).start()
        agent.wait_for_checks()

        def fail() -> None:
            failures = agent.count("Agent failed checkin")
            proxy.rule = cut_at_byte(1 + failures * 37 % 400)
            agent.send(signal.SIGUSR1)
            agent.wait_for("Agent failed checkin", failures + 1)

        self.assert_flat(fail, (agent, SLACK_KB))
        proxy.rule = forward
        agent.deliver()
        agent.end()
        self.assert_every_result_once(agent, self.server)

    def test_agent_does_not_grow_with_a_server_that_is_away(self):
        agent = self.new_agent(self.server).start()
        agent.wait_for_checks()
        self.server.kill()

        def fail() -> None:
            failures = agent.count("Agent failed checkin")
            agent.send(signal.SIGUSR1)
            agent.wait_for("Agent failed checkin", failures + 1)

        self.assert_flat(fail, (agent, SLACK_KB))


if __name__ == "__main__":
    main()
