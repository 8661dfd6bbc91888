"""An upgrade's whole way: offered, fetched, swapped in, and proven or taken back."""
import os
import signal

import programs
from launcher import Launcher, LauncherTest
from programs import QUIET_POLICY, Server, main, text_of, wait_until

# Behind the end of a program the system reads nothing, so this is another file of the same program.
MARK = b"\nanother build\n"
NEXT_BUILD = 5154


def own_program() -> bytes:
    return (programs.folder_of_programs / "tnagent").read_bytes()


class Upgrade(LauncherTest):
    def meet(self, package: bytes, **settings) -> Launcher:
        """An agent whose server offers this package, up to its first checks."""
        path = self.folder / "package"
        path.write_bytes(package)
        self.server = Server(self.folder / "server", policy=QUIET_POLICY)
        self.addCleanup(self.server.kill)
        self.server.options = ("--upgrade", path, "--upgrade-build", NEXT_BUILD)
        self.server.start()
        agent = self.new_agent(self.server, **({"allow_autoupgrade": "true"} | settings))
        launcher = self.new_launcher(agent).start()
        return launcher

    def assert_works(self, launcher: Launcher, starts: int) -> None:
        """The agent checks in, and is offered nothing any more."""
        agent = launcher.agent
        agent.wait_for("Agent starting.", starts)
        agent.wait_for("Successful checkin", 2)
        checkins = agent.count("Successful checkin")
        os.kill(launcher.agent_process(), signal.SIGUSR1)
        agent.wait_for("Successful checkin", checkins + 1)
        self.assertEqual(agent.count("Server has an upgrade, downloading ..."), 1)
        self.assertEqual(agent.count("Agent starting."), starts)
        self.assertFalse((launcher.folder / "trial").exists())
        self.assertFalse((launcher.folder / "upgrade").exists())

    def test_is_fetched_swapped_and_proven(self):
        package = own_program() + MARK
        launcher = self.meet(package)
        launcher.wait_for("the new program works: the upgrade is over")
        self.assertEqual(launcher.program(), package)
        self.assertEqual((launcher.folder / "tnagent.bak").read_bytes(), own_program())
        self.assert_works(launcher, starts=2)
        self.assertEqual(launcher.agent.count("Attempting automatic upgrade"), 1)
        self.assertEqual(launcher.agent.count("Upgrade failed"), 0)
        self.assertEqual(self.server.count(f"has fetched the upgrade to build {NEXT_BUILD}"), 1)
        self.assert_ends(launcher)

    def test_that_ends_at_once_is_taken_back(self):
        launcher = self.meet(b"#!/bin/sh\nexit 0\n")
        launcher.wait_for("the upgrade has failed: the program before it has taken its place again")
        launcher.agent.wait_for("Upgrade failed, using latest working version")
        self.assertEqual(launcher.program(), own_program())
        self.assert_works(launcher, starts=2)
        self.assert_ends(launcher)

    def test_that_is_no_program_is_taken_back(self):
        launcher = self.meet(b"what a server took for a program")
        launcher.wait_for("cannot start the agent: Exec format error")
        launcher.agent.wait_for("Upgrade failed, using latest working version")
        self.assertEqual(launcher.program(), own_program())
        self.assert_works(launcher, starts=2)
        self.assert_ends(launcher)

    def test_on_trial_stays_on_trial_over_a_death_of_the_launcher(self):
        # It lives, ends when it is told to, and never proves itself.
        script = b"#!/bin/sh\nread -r word </dev/fd/$2\n"
        launcher = self.meet(script)
        trial = launcher.folder / "trial"
        for start in "123":
            wait_until(lambda: text_of(trial) == start and launcher.agent_process(), f"start {start} of the trial")
            launcher.kill()
            self.assertEqual(launcher.program(), script)
            launcher.start()
        launcher.agent.wait_for("Upgrade failed, using latest working version")
        self.assertEqual(launcher.program(), own_program())
        self.assert_ends(launcher)

    def test_is_not_fetched_by_an_agent_that_may_not(self):
        launcher = self.meet(own_program() + MARK, allow_autoupgrade="false")
        launcher.agent.wait_for("Server has upgrade, but i am not allowed to download it")
        launcher.agent.wait_for("Successful checkin")
        self.assertEqual(launcher.program(), own_program())
        self.assert_ends(launcher)


if __name__ == "__main__":
    main()
