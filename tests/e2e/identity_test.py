"""Who an agent is for its server: keys over restarts, sudden ends in the midst of making them, and their loss."""
import signal

from programs import DOMAIN, ProgramsTest, QUIET_POLICY, main, wait_until
from proxy import Proxy, cut_at_byte, cut_at_turn, cut_behind_question, forward

KEYS = "SELECT master_key, hallmark FROM agents"
# The server's words of a first meeting: offers, parameters, its value with the nonce, its proof, the configuration.
TURNS_OF_MEETING = 5


class Restart(ProgramsTest):
    def test_goes_on_with_the_stored_hallmark(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for("Successful checkin")
        keys = server.rows(KEYS)
        agent.end()
        agent.start()
        agent.wait_for("Successful checkin", 2)
        self.assertEqual(server.rows(KEYS), keys)
        self.assertEqual(keys, [(agent.variable("hostkey"), agent.variable("hallmark"))])
        self.assertEqual((server.count("with a new key"), server.count("has started")), (1, 1))

    def test_of_the_server_keeps_the_keys(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for("Successful checkin")
        keys = server.rows(KEYS)
        server.kill()
        server.start()
        agent.deliver()
        self.assertEqual(server.rows(KEYS), keys)

    def test_behind_a_kill_right_after_registration_goes_on(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        wait_until(lambda: server.count("with a new key"), "the registration")
        agent.kill()
        agent.start()
        agent.wait_for("Successful checkin")
        self.assertEqual(server.count("with a new key"), 1)

    def test_with_an_older_hallmark_makes_a_new_one_of_the_same_key(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for("Successful checkin")
        agent.end()
        stored = agent.variables.read_text()
        agent.variables.write_text(stored.replace(agent.variable("hallmark"), "0" * 32))
        agent.start()
        agent.wait_for("probably hallmark is out of sync")
        agent.send(signal.SIGUSR1)  # ends the pause
        agent.wait_for("Successful checkin", 2)
        self.assertEqual(server.rows(KEYS), [(agent.variable("hostkey"), agent.variable("hallmark"))])
        self.assertIn(agent.variable("hostkey"), stored)
        self.assertNotIn(agent.variable("hallmark"), stored)


class SuddenEnd(ProgramsTest):
    """Whatever ends at whatever point of the first meeting, agent and server find together again."""

    def meet(self, number: int):
        """An agent of its own for each point, all of the same server."""
        agent = self.new_agent(self.proxy, f"agent{number}")
        self.proxy.rule = forward
        return agent

    def setUp(self):
        self.server = self.new_server(policy=QUIET_POLICY)
        self.proxy = Proxy(self.server)
        self.addCleanup(self.proxy.close)

    def rules(self, first):
        for turn in range(1, TURNS_OF_MEETING + 1):
            yield f"before the answer {turn} has come", cut_at_turn(turn, first)
            yield f"before the question of answer {turn} was read", cut_behind_question(turn, first)

    def test_of_the_agent_in_the_first_meeting_never_locks_it_out(self):
        for number, (point, rule) in enumerate(self.rules(lambda: agent.kill())):
            with self.subTest(point):
                agent = self.meet(number)
                self.proxy.rule = rule
                agent.start()
                wait_until(lambda: not agent.running, "the kill")
                self.proxy.rule = forward
                agent.start()
                agent.wait_for("Successful checkin")
                self.assertNotIn("Server said", agent.text())
                agent.kill()

    def test_of_the_server_in_the_first_meeting_never_locks_the_agent_out(self):
        for number, (point, rule) in enumerate(self.rules(self.server.kill)):
            with self.subTest(point):
                agent = self.meet(number)
                self.proxy.rule = rule
                agent.start()
                agent.wait_for("Failed to register")
                self.proxy.rule = forward
                self.server.start()
                agent.send(signal.SIGUSR1)
                agent.wait_for("Successful checkin")
                self.assertNotIn("Server said", agent.text())
                agent.kill()

    def test_of_the_line_at_any_byte_of_the_first_meeting_never_locks_the_agent_out(self):
        agent = self.meet(0)
        place = 1
        self.proxy.rule = cut_at_byte(place)
        agent.start()
        for failures in range(1, 1000):
            wait_until(lambda: agent.count("Failed to register") >= failures or agent.count("Successfully registered"),
                       f"the end of an attempt that is cut at byte {place}")
            if agent.count("Successfully registered"):
                break
            place += 37
            self.proxy.rule = cut_at_byte(place)
            agent.send(signal.SIGUSR1)
        self.assertGreater(place, 700)
        self.proxy.rule = forward
        agent.send(signal.SIGUSR1)
        agent.wait_for("Successful checkin")
        self.assertNotIn("Server said", agent.text())


class LostVariables(ProgramsTest):
    def test_are_refused_in_the_servers_words_until_a_rekey(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for("Successful checkin")
        agent.end()
        old_key = agent.variable("hostkey")
        agent.variables.unlink()
        agent.start()
        agent.wait_for("Failed to register")
        reason = agent.last("Server said: ")
        self.assertIn(f'Agent "agent" in domain "{DOMAIN}" is registered with a key that this agent does not have', reason)
        self.assertIn("tnserver rekey", reason)
        self.assertEqual(agent.last("Reason given: "), '"Server rejected us"')

        self.assertEqual(server.command("rekey", "agent", DOMAIN).returncode, 0)
        agent.send(signal.SIGUSR1)
        agent.wait_for("Successful checkin", 2)
        self.assertEqual(server.value("SELECT master_key FROM agents"), agent.variable("hostkey"))
        self.assertNotEqual(agent.variable("hostkey"), old_key)

    def test_are_allowed_a_new_key_once_alone(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for("Successful checkin")
        server.command("rekey", "agent", DOMAIN)
        for seen in (2, 3):
            agent.end()
            agent.variables.unlink()
            agent.start()
            agent.wait_for("Tarnix agent name", seen)
            if seen == 2:
                agent.wait_for("Successful checkin", seen)
        agent.wait_for("Server said: ")

    def test_rekey_of_an_unknown_agent_is_told_to_be_none(self):
        server = self.new_server()
        told = server.command("rekey", "nobody", DOMAIN)
        self.assertEqual(told.returncode, 2)
        self.assertIn('no agent "nobody"', told.stderr)

    def test_of_the_server_make_the_agent_say_so_and_keep_its_key(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server).start()
        agent.wait_for("Successful checkin")
        key = agent.variable("hostkey")
        server.kill()
        for path in server.store.parent.glob("store.db*"):
            path.unlink()
        server.start()
        agent.send(signal.SIGUSR1)
        agent.wait_for("Agent failed checkin")
        self.assertIn('does not have a master key for the "agent" node in the "e2e" domain', agent.text())
        agent.end()
        self.assertEqual(agent.variable("hostkey"), key)


if __name__ == "__main__":
    main()
