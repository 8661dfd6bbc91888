"""SIGTERM and SIGINT end the agent in order, at once, wherever it is."""
import contextlib
import signal
import socket

from programs import Agent, ProgramsTest, QUIET_POLICY, STOP_LIMIT_S, main, own_address, wait_until
from proxy import Proxy, REPLY_TO_RESULTS, forward, stall_at_turn


class Stop(ProgramsTest):
    number = signal.SIGTERM

    def proxied_agent(self, server, rule):
        proxy = Proxy(server, rule)
        self.addCleanup(proxy.close)
        return proxy, self.new_agent(proxy)

    def stalled_agent(self, turn: int) -> Agent:
        """One in the midst of a checkin whose server says nothing from that turn on."""
        server = self.new_server(policy=QUIET_POLICY)
        proxy, agent = self.proxied_agent(server, forward)
        agent.start()
        agent.wait_for_checks()
        proxy.rule = stall_at_turn(turn)
        agent.send(signal.SIGUSR1)
        wait_until(lambda: proxy.talks[-1].turn >= turn, "the turn that stalls")
        return agent

    def test_ends_an_agent_that_sleeps(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for_checks()
        self.assert_stops(agent, self.number)

    def test_ends_an_agent_that_waits_for_the_first_word_of_a_checkin(self):
        self.assert_stops(self.stalled_agent(1), self.number)

    def test_ends_an_agent_that_waits_for_the_answer_to_its_results(self):
        self.assert_stops(self.stalled_agent(REPLY_TO_RESULTS), self.number)

    def test_ends_an_agent_that_registers_with_a_silent_server(self):
        for turn in (1, 2, 3, 5):
            with self.subTest(turn=turn):
                server = self.new_server(f"server{turn}", policy=QUIET_POLICY)
                proxy = Proxy(server, stall_at_turn(turn))
                self.addCleanup(proxy.close)
                agent = self.new_agent(proxy, f"agent{turn}").start()
                wait_until(lambda: proxy.talks and proxy.talks[-1].turn >= turn, "the turn that stalls")
                self.assert_stops(agent, self.number)

    def test_ends_an_agent_that_waits_for_a_connection(self):
        with contextlib.ExitStack() as open_sockets:
            listener = open_sockets.enter_context(socket.create_server((own_address(), 0), backlog=0))
            # A full backlog: further connections are neither taken nor refused.
            for _ in range(4):
                filler = open_sockets.enter_context(socket.socket())
                filler.setblocking(False)
                filler.connect_ex(listener.getsockname())
            agent = self.new_agent("%s:%d" % listener.getsockname()).start()
            agent.wait_for("Talking to server")
            self.assert_stops(agent, self.number)

    def test_ends_an_agent_that_pauses_between_registrations(self):
        agent = self.new_agent("127.0.0.1:9").start()
        agent.wait_for("On hold for")
        self.assert_stops(agent, self.number)

    def test_ends_an_agent_that_pauses_between_checkins(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for_checks()
        server.kill()
        agent.send(signal.SIGUSR1)
        agent.wait_for("On hold for")
        self.assert_stops(agent, self.number)

    def test_ends_an_agent_that_cannot_open_its_log_again(self):
        server = self.new_server(policy=QUIET_POLICY)
        place = self.folder / "logs"
        agent = self.new_agent(server, logfile=place / "agent.log")
        agent.log = place / "agent.log"
        agent.start()
        agent.wait_for_checks()
        aside = place.rename(self.folder / "aside")
        place.write_text("no folder")
        agent.log = aside / "agent.log"
        agent.send(signal.SIGHUP)
        agent.wait_for("Closing logfile")
        self.assertLess(agent.end(self.number), STOP_LIMIT_S)

    def test_twice_ends_the_agent_in_order_too(self):
        agent = self.stalled_agent(1)
        agent.send(self.number)
        self.assert_stops(agent, self.number)


class Interrupt(Stop):
    number = signal.SIGINT


class ServerStop(ProgramsTest):
    def test_ends_the_server_in_order_while_an_agent_is_there(self):
        server = self.new_server()
        agent = self.new_agent(server).start()
        agent.wait_for_checks()
        server.end()
        self.assertIn("has ended", server.lines()[-1])


if __name__ == "__main__":
    main()
