"""The command channel of the Windows agent, whatever its clients say or leave unsaid."""
import subprocess

from programs import PATIENCE_S, QUIET_POLICY, wait_until
from windows_programs import IN_WINE, WindowsTest, main, stranger, stranger_program, wine_environment

BUSY = "FAILURE Agent is busy. Try later."


class Channel(WindowsTest):
    def setUp(self):
        super().setUp()
        self.server = self.new_server(policy=QUIET_POLICY)
        self.agent = self.new_windows_agent(self.server).start()
        self.agent.wait_for("Successful checkin")

    def ask(self, *requests: bytes) -> list[str]:
        done = stranger("ask", *(request.hex() for request in requests))
        self.assertEqual(done.returncode, 0, done.stderr)
        return done.stdout.splitlines()

    def assert_busy(self) -> None:
        done = self.agent.run("--down", "--quiet")
        self.assertEqual((done.returncode, done.stderr.splitlines()[-1]), (1, BUSY))

    def test_answers_whatever_it_gets(self):
        replies = self.ask(b"DOWN abc", b"up", bytes(range(256)) * 4, b"\0" * 1024, b"DOWN 0x10\n", b"DOWN 0")
        self.assertEqual(replies[:4], ["FAILED Not a number in DOWN command."] + 3 * ["FAILED unknown command."])
        self.assertTrue(replies[4].startswith("OK "))
        self.assertEqual(replies[5], "FAILED Not a number in DOWN command.")
        self.agent.wait_for('handle_named_pipe Got "up"')

    def begin(self, *words) -> subprocess.Popen:
        client = subprocess.Popen([str(IN_WINE), str(stranger_program()), *words], stdin=subprocess.PIPE,
                                  stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=wine_environment())
        self.addCleanup(client.communicate)
        self.addCleanup(client.kill)
        return client

    def test_ends_behind_a_message_that_is_too_long(self):
        client = self.begin("ask", (1025 * b"x").hex())
        self.agent.wait_for("handle_named_pipe: ReadFile failed GLE=234")
        self.assert_busy()
        self.assertIsNone(client.poll(), "its reply never comes")
        self.agent.kill()
        self.assertEqual(client.wait(PATIENCE_S), 1)

    def test_tells_a_second_client_that_it_is_busy(self):
        client = self.begin("hold")
        self.assertEqual(client.stdout.readline().strip(), b"connected")
        self.assert_busy()

    def test_ends_behind_a_client_that_vanishes_and_comes_back_with_the_agent(self):
        self.assertEqual(stranger("vanish").returncode, 0)
        self.agent.wait_for("[cmd] handle_named_pipe")
        gone = ("ReadFile failed GLE=109(ERROR_BROKEN_PIPE) bytesRead=0", "handle_named_pipe: not connected GLE=232")
        wait_until(lambda: any(map(self.agent.count, gone)), "news of a client that has gone")
        self.assert_busy()
        self.agent.kill()
        self.agent.start()
        self.agent.wait_for("Successful checkin", 2)
        self.assertTrue(self.ask(b"DOWN 5\n")[0].startswith("OK "))

    def test_leaves_no_handle_behind_a_hundred_requests(self):
        self.ask(b"DOWN x")
        before = int(stranger("handles").stdout)
        self.assertGreater(before, 0)
        self.ask(*[b"DOWN x"] * 100)
        # The last one is done with when its client has the reply already.
        wait_until(lambda: int(stranger("handles").stdout) <= before, f"{before} handles")


if __name__ == "__main__":
    main()
