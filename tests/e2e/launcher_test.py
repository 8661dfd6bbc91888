"""The launcher and its agent: start, crash, stop, and a folder of its own."""
import os
import shutil
import signal
import subprocess
from pathlib import Path

import programs
from launcher import LauncherTest
from programs import PATIENCE_S, QUIET_POLICY, main, wait_until


class Start(LauncherTest):
    def test_gives_an_empty_folder_the_program_beside_the_launcher(self):
        server = self.new_server(policy=QUIET_POLICY)
        launcher = self.new_launcher(self.new_agent(server)).start()
        launcher.agent.wait_for_checks()
        self.assertEqual(launcher.program(), (programs.folder_of_programs / "tnagent").read_bytes())
        self.assertEqual(launcher.count("copied"), 1)
        self.assertEqual(os.readlink(f"/proc/{launcher.agent_process()}/cwd"), str(launcher.folder))
        self.assertEqual(launcher.folder.stat().st_mode & 0o777, 0o700)
        self.assert_ends(launcher)

    def test_takes_folder_and_program_from_the_command_line(self):
        program = self.folder / "other"
        program.write_text("#!/bin/sh\necho started \"$@\"\nexec sleep 60\n")
        launcher = self.new_launcher(self.new_agent("127.0.0.1"))
        launcher.folder = self.folder / "a" / "b"
        launcher.options = ("--folder", launcher.folder, "--program", program)
        launcher.start("one word", "--two")
        launcher.wait_for("started --parent-pipes ")
        self.assertTrue(launcher.last("started --parent-pipes ").endswith(" one word --two"))
        os.kill(launcher.agent_process(), signal.SIGKILL)
        launcher.wait_for("the agent has ended with status 137")
        launcher.end()

    def test_is_refused_to_a_second_launcher(self):
        launcher = self.new_launcher(self.new_agent("127.0.0.1")).start()
        launcher.wait_for("keeps the program in")
        second = subprocess.run([programs.folder_of_programs / "tnlauncher"], capture_output=True, text=True,
                                timeout=PATIENCE_S, env=launcher.agent.environment())
        self.assertEqual(second.returncode, 1)
        self.assertIn("another launcher may use it", second.stderr)
        launcher.end()

    def test_needs_a_program(self):
        lone = shutil.copy(programs.folder_of_programs / "tnlauncher", self.folder)
        run = subprocess.run([lone, "--folder", self.folder / "empty"], capture_output=True, text=True,
                             timeout=PATIENCE_S)
        self.assertEqual(run.returncode, 1)
        self.assertIn("there is no program to start", run.stderr)

    def test_explains_itself(self):
        launcher = str(programs.folder_of_programs / "tnlauncher")
        usage = subprocess.run([launcher, "--help"], capture_output=True, text=True, timeout=PATIENCE_S)
        self.assertEqual((usage.returncode, usage.stdout[:17]), (0, "usage: tnlauncher"))
        wrong = subprocess.run([launcher, "-v"], capture_output=True, text=True, timeout=PATIENCE_S)
        self.assertEqual(wrong.returncode, 2)
        self.assertIn("unknown argument -v", wrong.stderr)


class Crash(LauncherTest):
    def test_is_followed_by_another_start(self):
        server = self.new_server(policy=QUIET_POLICY)
        launcher = self.new_launcher(self.new_agent(server)).start()
        launcher.agent.wait_for_checks()
        first = launcher.agent_process()
        os.kill(first, signal.SIGKILL)
        launcher.agent.wait_for("Agent starting.", 2)
        self.assertNotEqual(launcher.agent_process(), first)
        self.assertEqual(launcher.count("the agent has ended with status 137"), 1)
        launcher.agent.wait_for("Successful checkin", 2)
        self.assert_ends(launcher)

    def test_of_an_agent_without_settings_comes_with_growing_pauses(self):
        launcher = self.new_launcher(self.new_agent("127.0.0.1"))
        launcher.start("-f", self.folder / "missing")
        launcher.wait_for("the agent has ended with status 1", 2)
        launcher.wait_for("next start in 2 s")
        launcher.end()

    def test_of_the_launcher_stops_the_agent(self):
        server = self.new_server(policy=QUIET_POLICY)
        launcher = self.new_launcher(self.new_agent(server)).start()
        launcher.agent.wait_for_checks()
        child = launcher.agent_process()
        launcher.process.kill()
        launcher.process.wait()
        wait_until(lambda: not Path(f"/proc/{child}").exists(), "the end of the agent")
        self.assertIn("Agent shutting down.", launcher.agent.lines()[-1])


class Stop(LauncherTest):
    def test_ends_the_agent_in_order(self):
        server = self.new_server(policy=QUIET_POLICY)
        for number in (signal.SIGTERM, signal.SIGINT):
            # The log of another would tell of checks before this one has started.
            launcher = self.new_launcher(self.new_agent(server, number.name)).start()
            launcher.agent.wait_for_checks()
            self.assert_ends(launcher, number)


if __name__ == "__main__":
    main()
