"""Downtime on the word of a local administrator, with an agent that runs, is busy, refuses, or is dead."""
import contextlib
import os
import socket
import subprocess
import unittest

from programs import PATIENCE_S, ProgramsTest, QUIET_POLICY, main, wait_until

BUSY = "FAILURE Agent is busy. Try later."


def last_line(done: subprocess.CompletedProcess) -> str:
    return done.stderr.splitlines()[-1]


class Channel(ProgramsTest):
    def setUp(self):
        self.server = self.new_server(policy=QUIET_POLICY)
        self.agent = self.new_agent(self.server).start()
        self.agent.wait_for("Successful checkin")

    @property
    def place(self) -> str:
        return str(self.agent.folder / "run" / "command")

    def connect(self) -> socket.socket:
        """A client that has nothing to say yet."""
        client = socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET)
        self.addCleanup(client.close)
        client.settimeout(PATIENCE_S)

        def connected() -> bool:
            """Behind one that was served, the agent needs a moment."""
            with contextlib.suppress(BlockingIOError):
                client.connect(self.place)
                return True
            return False

        wait_until(connected, "a channel that is not busy")
        return client

    def ask(self, request: bytes) -> str:
        with self.connect() as client:
            client.send(request)
            return client.recv(2000).decode()

    def test_carries_downtime_to_the_server_and_its_words_back(self):
        done = self.agent.run("--down=5", "--quiet")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertTrue(last_line(done).startswith("OK "), done.stderr)
        self.agent.wait_for('handle_named_pipe Got "DOWN 5')
        # A client does not wait until the channel is free again.
        wait_until(lambda: self.agent.run("--down").returncode == 0, "an answer to a second client")
        self.agent.wait_for('handle_named_pipe Got "DOWN 30')

    def test_needs_no_settings(self):
        self.agent.settings_file.unlink()
        self.assertEqual(self.agent.run("--down").returncode, 0)

    def test_answers_whatever_it_gets(self):
        self.assertEqual(self.ask(b"DOWN abc"), "FAILED Not a number in DOWN command.")
        self.assertEqual(self.ask(b"up"), "FAILED unknown command.")
        self.assertEqual(self.ask(bytes(range(256)) * 4), "FAILED unknown command.")
        self.assertEqual(self.ask(b"\0" * 1024), "FAILED unknown command.")
        self.assertEqual(self.ask(b""), "FAILURE empty command")
        self.assertTrue(self.ask(b"DOWN 0x10\n").startswith("OK "))

    def test_tells_a_second_client_that_it_is_busy(self):
        with self.connect():
            done = self.agent.run("--down", "--quiet")
            self.assertEqual((done.returncode, last_line(done)), (1, BUSY))

    def test_ends_behind_a_client_that_vanishes_and_comes_back_with_the_agent(self):
        self.connect().close()
        self.agent.wait_for("ReadFile failed GLE=109(ERROR_BROKEN_PIPE) bytesRead=0")
        done = self.agent.run("--down", "--quiet")
        self.assertEqual((done.returncode, last_line(done)), (1, BUSY))
        self.agent.end()
        self.agent.start()
        self.agent.wait_for("Successful checkin", 2)
        self.assertEqual(self.agent.run("--down").returncode, 0)

    def test_follows_a_dead_agent(self):
        self.agent.kill()
        self.assertTrue(os.path.exists(self.place), "what a killed agent leaves")
        done = self.agent.ask_downtime("--down=5")
        self.assertEqual(done.returncode, 0, "the server itself was asked")
        self.assertIn("expected busy pipe", done.stderr)
        self.agent.start()
        self.agent.wait_for("Successful checkin", 2)
        self.assertEqual(self.agent.run("--down").returncode, 0)

    def test_is_gone_with_the_agent(self):
        self.agent.end()
        self.assertFalse(os.path.exists(self.place))

    def test_refuses_a_second_agent(self):
        second = self.agent.run("-f", self.agent.settings_file, "-v")
        self.assertEqual(second.returncode, 1)
        self.assertIn("Fatal error: CreateNamedPipe failed", second.stderr)
        self.assertTrue(self.agent.running)

    def test_leaves_no_descriptor_behind_a_hundred_requests(self):
        before = self.agent.descriptors()
        for _ in range(100):
            self.ask(b"DOWN x")
        # The last one is closed when its client has the reply already.
        wait_until(lambda: self.agent.descriptors() == before, f"{before} descriptors")

    @unittest.skipUnless(os.geteuid() == 0, "another user is needed")
    def test_refuses_another_user(self):
        for folder in (self.folder, self.agent.folder):
            os.chmod(folder, 0o755)
        connect = f"import socket; socket.socket(socket.AF_UNIX, socket.SOCK_SEQPACKET).connect({self.place!r})"
        done = subprocess.run(["python3", "-c", connect], user=65534, capture_output=True, text=True)
        self.assertIn("PermissionError", done.stderr)


if __name__ == "__main__":
    main()
