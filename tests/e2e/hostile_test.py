"""A server whose port is open to anyone goes on serving its agents."""
import contextlib
import random
import signal
import socket
import time

from programs import POLICY, ProgramsTest, frequent, main, wait_until
from strangers import ATTACKS, Strangers, crowd, impostor

FREQUENT = POLICY + frequent("mem", 1)
# More connections than the server keeps.
CROWD = 600
MEMORY_LIMIT_KB = 64 * 1024


class Hostile(ProgramsTest):
    def setUp(self):
        self.server = self.new_server(policy=FREQUENT)
        self.agent = self.new_agent(self.server).start()
        self.agent.wait_for_checks()

    def deliver_for(self, seconds: float) -> None:
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            self.agent.deliver()

    def assert_unharmed(self) -> None:
        self.agent.deliver()
        self.assertEqual(self.agent.count("Agent failed checkin"), 0)
        self.assertLess(self.server.memory_kb(), MEMORY_LIMIT_KB)
        self.agent.end()
        self.assert_every_result_once(self.agent, self.server)
        self.server.end()

    def test_clients_of_every_kind_do_not_disturb_an_agent(self):
        strangers = Strangers(self.server)
        self.addCleanup(strangers.end)
        self.deliver_for(12)
        strangers.end()
        self.assertGreater(min(count for name, count in strangers.attacks.items() if name in ATTACKS), 5)
        self.assert_unharmed()
        self.assertEqual(self.server.rows("SELECT name FROM agents"), [("agent",)])

    def test_impostor_is_refused_and_changes_nothing_for_the_agent(self):
        for number in range(5):
            with socket.create_connection(self.server.address, timeout=5) as line:
                line.sendall(impostor(random.Random(number)))
                with contextlib.suppress(OSError):
                    while line.recv(4096):
                        pass
            self.agent.deliver()
        self.assertEqual(self.server.count("no proof of the hallmark"), 5)
        self.assertEqual(self.server.value("SELECT master_key FROM agents"), self.agent.variable("hostkey"))
        self.assert_unharmed()

    def test_silent_crowd_does_not_keep_an_agent_out(self):
        with crowd(self.server, CROWD):
            self.deliver_for(3)
        wait_until(lambda: self.server.descriptors() < 50, "the end of the crowd's connections")
        self.assert_unharmed()

    def test_trouble_of_strangers_does_not_fill_the_servers_log(self):
        strangers = Strangers(self.server)
        self.addCleanup(strangers.end)
        started = time.monotonic()
        self.deliver_for(4)
        strangers.end()
        lines = [line for line in self.server.lines() if "refused: " in line or "failed: " in line]
        self.assertLessEqual(len(lines), 20 * (time.monotonic() - started + 2))

    def test_server_ends_in_time_with_strangers_on_its_lines(self):
        with crowd(self.server, 20):
            self.agent.deliver()
            self.assertLess(self.server.end(signal.SIGTERM), 8)  # sessions have five seconds


if __name__ == "__main__":
    main()
