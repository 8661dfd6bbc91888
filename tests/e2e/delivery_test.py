"""Every result arrives exactly once, whatever happens between the agent and the server's store."""
import random
import signal

from programs import NOTHING_ELSE, POLICY, ProgramsTest, frequent, main, wait_until
from proxy import Proxy, REPLY_TO_RESULTS, cut_at_byte, cut_at_turn, cut_behind_question, forward, trickle

FREQUENT = POLICY + frequent("mem", 1)
SEED = 20261121


class Delivery(ProgramsTest):
    def setUp(self):
        self.server = self.new_server(policy=FREQUENT)
        self.proxy = Proxy(self.server)
        self.addCleanup(self.proxy.close)
        self.agent = self.new_agent(self.proxy).start()
        self.agent.wait_for_checks()

    def fail_checkin(self, rule) -> None:
        failures = self.agent.count("Agent failed checkin")
        self.proxy.rule = rule
        self.agent.send(signal.SIGUSR1)
        self.agent.wait_for("Agent failed checkin", failures + 1)
        self.proxy.rule = forward

    def wait_for_new_results(self) -> None:
        runs = self.agent.count("Agent will check")
        self.agent.wait_for("Agent will check", runs + 3)

    def assert_all_arrived(self) -> None:
        self.agent.deliver()
        self.agent.end()
        self.assert_every_result_once(self.agent, self.server)

    def test_is_once_where_the_reply_was_lost(self):
        for _ in range(4):
            self.wait_for_new_results()
            stored = self.server.count_results()
            self.fail_checkin(cut_at_turn(REPLY_TO_RESULTS))
            self.assertGreater(self.server.count_results(), stored)  # the server has taken them
        self.assert_all_arrived()

    def test_is_once_where_the_reply_was_lost_and_the_server_waits_on(self):
        for _ in range(3):
            self.wait_for_new_results()
            self.fail_checkin(cut_at_turn(REPLY_TO_RESULTS, server_notices=False))
        self.assert_all_arrived()

    def test_is_once_where_the_results_were_lost(self):
        for _ in range(4):
            self.wait_for_new_results()
            stored = self.server.count_results()
            self.fail_checkin(cut_at_turn(REPLY_TO_RESULTS - 1))
            self.assertEqual(self.server.count_results(), stored)
        self.assert_all_arrived()

    def test_is_once_where_the_server_is_killed_before_it_can_answer(self):
        for _ in range(4):
            self.wait_for_new_results()
            self.fail_checkin(cut_behind_question(REPLY_TO_RESULTS, self.server.kill))
            self.server.start()
        self.assert_all_arrived()

    def test_is_once_where_the_server_is_killed_behind_its_answer(self):
        for _ in range(4):
            self.wait_for_new_results()
            self.fail_checkin(cut_at_turn(REPLY_TO_RESULTS, self.server.kill))
            self.server.start()
        self.assert_all_arrived()

    def test_is_once_where_the_server_is_killed_at_any_moment(self):
        dice = random.Random(SEED)
        for _ in range(8):
            self.wait_for_new_results()
            self.agent.send(signal.SIGUSR1)
            talks = len(self.proxy.talks)
            wait_until(lambda: len(self.proxy.talks) > talks, "the checkin")
            end = dice.randrange(0, 900)
            wait_until(lambda: self.proxy.talks[-1].bytes >= end or self.proxy.talks[-1].ended, f"byte {end}")
            self.server.kill()
            self.server.start()
        self.assert_all_arrived()

    def test_is_once_where_the_line_is_cut_at_any_byte(self):
        dice = random.Random(SEED)
        for _ in range(30):
            attempts = self.agent.count("Agent failed checkin") + self.agent.count("Successful checkin")
            self.proxy.rule = cut_at_byte(dice.randrange(1, 900))
            self.agent.send(signal.SIGUSR1)
            wait_until(lambda: self.agent.count("Agent failed checkin") + self.agent.count("Successful checkin") >
                       attempts, "the end of an attempt")
        self.proxy.rule = forward
        self.assertGreater(self.agent.count("Agent failed checkin"), 10)
        self.assert_all_arrived()

    def test_is_whole_where_every_byte_comes_alone(self):
        self.wait_for_new_results()
        self.proxy.rule = trickle
        self.agent.deliver()
        self.assertNotIn("Agent failed checkin", self.agent.text())
        self.assert_all_arrived()


class RegressionRun(ProgramsTest):
    """Made-up results have times that are known beforehand."""

    START, STEPS, FREQUENCY, DEVICES = 1800000000, 40, 60, 5

    def test_leaves_its_curves_in_the_store_once_though_replies_are_lost(self):
        server = self.new_server(policy=f"checkin = 10\n{NOTHING_ELSE}" + frequent("mem", self.FREQUENCY))
        lost = []

        def lose_some(talk, from_server, data):
            if talk.turn == REPLY_TO_RESULTS and len(lost) < 4 and server.count_results() > 40 * len(lost):
                lost.append(talk)
                return cut_at_turn(REPLY_TO_RESULTS)(talk, from_server, data)
            return data

        proxy = Proxy(server, lose_some)
        self.addCleanup(proxy.close)
        end = self.START + self.STEPS * self.FREQUENCY
        agent = self.new_agent(proxy, options=("--regression-test", self.DEVICES, self.START, end, 1000)).start()

        def ended() -> bool:
            if agent.running:
                agent.send(signal.SIGUSR1)
            return not agent.running

        agent.wait_for_checks()
        wait_until(ended, "the end of the run")
        self.assertEqual(agent.process.returncode, 0)
        self.assertEqual(len(lost), 4)
        times = list(range(self.START, end, self.FREQUENCY))
        arrived = server.check_times(agent.name)
        self.assertEqual(set(arrived), {f"fakephys{number}" for number in range(1, self.DEVICES + 1)})
        for name, found in arrived.items():
            self.assertEqual(len(found), self.STEPS, name)
            self.assertLessEqual(max(abs(own - other) for own, other in zip(found, times)), 1)


if __name__ == "__main__":
    main()
