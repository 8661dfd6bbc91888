"""What a fault leaves: the signal, a line in syslog and in the log, and a core where the host writes one there."""
import os
import resource
import shutil
import signal
import socket
import unittest
from pathlib import Path

import programs
from programs import PATIENCE_S, ProgramsTest, QUIET_POLICY, main

SYSLOG = Path("/dev/log")
DETECTED = "An application error has been detected. Please report this error and submit the dump file in"


def hears_syslog() -> bool:
    return not SYSLOG.exists() and os.access(SYSLOG.parent, os.W_OK)


def writes_plain_cores() -> bool:
    pattern = Path("/proc/sys/kernel/core_pattern").read_text().strip()
    return bool(pattern) and "|" not in pattern and "/" not in pattern and "%" not in pattern \
        and resource.getrlimit(resource.RLIMIT_CORE)[1] != 0


class Fault(ProgramsTest):
    def own_program(self, agent) -> Path:
        """A copy of the agent's program in a folder of its own."""
        folder = agent.folder / "program"
        folder.mkdir()
        shutil.copy(programs.folder_of_programs / "tnagent", folder)
        return folder

    def faulted_agent(self):
        server = self.new_server(policy=QUIET_POLICY)
        agent = self.new_agent(server)
        folder = self.own_program(agent)
        agent.program = folder / "tnagent"
        agent.start()
        agent.wait_for("Successful checkin")
        agent.send(signal.SIGSEGV)
        self.assertEqual(agent.process.wait(PATIENCE_S), -signal.SIGSEGV)
        return agent, folder

    def test_ends_the_agent_by_its_signal_with_a_line_in_the_log(self):
        agent, folder = self.faulted_agent()
        self.assertIn(f"{DETECTED} '{folder}/core' along with your error report", agent.lines()[-1])
        self.assertEqual(agent.count(DETECTED), 1)

    @unittest.skipUnless(hears_syslog(), "somebody else listens to syslog, or nobody may")
    def test_is_told_to_syslog(self):
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as syslog:
            syslog.bind(str(SYSLOG))
            self.addCleanup(SYSLOG.unlink)
            syslog.settimeout(PATIENCE_S)
            agent, folder = self.faulted_agent()
            line = syslog.recv(4096).decode()
            while f"Tarnix[{agent.process.pid}]" not in line:  # another agent's of this host
                line = syslog.recv(4096).decode()
        self.assertIn(f"Tarnix[{agent.process.pid}]: {DETECTED} '{folder}/core'", line)
        self.assertTrue(line.startswith("<27>"), "an error of a daemon")

    @unittest.skipUnless(writes_plain_cores(), "this host takes cores elsewhere")
    def test_leaves_a_core_beside_the_program(self):
        _, folder = self.faulted_agent()
        self.assertTrue(any(path.name.startswith("core") for path in folder.iterdir()),
                        [path.name for path in folder.iterdir()])


if __name__ == "__main__":
    main()
