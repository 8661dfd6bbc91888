"""The Windows launcher and its agent: start, stop, crash, upgrades, and life as a service."""
import os
import re
import signal
import unittest
from pathlib import Path

import windows_programs
from programs import Program, QUIET_POLICY, Server, wait_until
from windows_programs import (IN_WINE, WindowsAgent, WindowsTest, in_wine, main, stranger, windows_path,
                              wine_environment)

# Behind the end of a program the system reads nothing, so this is another file of the same program.
MARK = b"\nanother build\n"
NEXT_BUILD = 5154

SERVICE = "tnagent"
CURRENT_SERVICE = r"HKLM\SYSTEM\CurrentControlSet\Control\ServiceCurrent"
EVENT_SOURCE = r"HKLM\SYSTEM\CurrentControlSet\Services\EventLog\Application\Tarnix"
STOP_LIMIT_S = 15  # Wine takes its time to tell the end of a process
ERROR_OF_ITS_OWN = 1066
ACCESS_VIOLATION = -1073741819
DETECTED = "An application error has been detected. Please report this error and submit the dump file in"


def launcher_program() -> Path:
    return windows_programs.agent_program.parent / "tnlauncher.exe"


def own_program() -> bytes:
    return windows_programs.agent_program.read_bytes()


def spare_the_wait_for_services() -> None:
    """Under Wine a program takes the newest service's pipe for its own and waits ten seconds at it, until the service
    manager names another one."""
    in_wine("reg", "add", CURRENT_SERVICE, "/ve", "/t", "REG_DWORD", "/d", "9999", "/f")


def launched_agents() -> list[int]:
    """The process numbers of agents that a launcher has started in this Wine."""
    found = []
    for entry in Path("/proc").iterdir():
        try:
            if entry.name.isdigit() and b"--parent-pipes" in (entry / "cmdline").read_bytes() and \
                    f"WINEPREFIX={wine_environment()['WINEPREFIX']}".encode() in (entry / "environ").read_bytes():
                found.append(int(entry.name))
        except OSError:
            continue
    return found


class WindowsLauncher(Program):
    """A tnlauncher.exe with a folder, which starts the agent with this agent's settings."""

    def __init__(self, agent: WindowsAgent):
        super().__init__(agent.folder / "launcher.log")
        self.agent = agent
        self.folder = agent.folder / "lib" / "program"

    def start(self, *agent_words) -> "WindowsLauncher":
        self.agent.write_settings()
        spare_the_wait_for_services()
        with open(self.log, "ab") as log:
            self.launch([IN_WINE, launcher_program(), "--folder", windows_path(self.folder), "--", *agent_words], log,
                        wine_environment())
        return self

    def agent_process(self) -> int:
        return wait_until(launched_agents, "an agent of the launcher")[0]

    def program(self) -> bytes:
        return (self.folder / "tnagent.exe").read_bytes()

    def kill(self) -> None:
        super().kill()
        wait_until(lambda: not launched_agents(), "the end of the launcher's agent")


class LauncherTest(WindowsTest):
    def new_launcher(self, server, **settings) -> WindowsLauncher:
        launcher = WindowsLauncher(self.new_windows_agent(server, **settings))
        self.addCleanup(launcher.kill)
        return launcher

    def assert_stopped(self, agent: WindowsAgent) -> None:
        wait_until(lambda: not launched_agents(), "the end of the agent")
        self.assertIn("Agent shutting down.", agent.lines()[-1])

    def assert_ends(self, launcher: WindowsLauncher) -> None:
        """At Ctrl-C, for which Wine takes this signal."""
        self.assertLess(launcher.end(signal.SIGINT), STOP_LIMIT_S)
        self.assertEqual(launcher.count("has ended"), launcher.count("the agent has ended with status") + 1)
        self.assert_stopped(launcher.agent)


class Start(LauncherTest):
    def test_gives_an_empty_folder_the_program_beside_the_launcher(self):
        launcher = self.new_launcher(self.new_server(policy=QUIET_POLICY)).start()
        launcher.agent.wait_for_checks()
        self.assertEqual(launcher.program(), own_program())
        self.assertEqual(launcher.count("copied"), 1)
        self.assert_ends(launcher)

    def test_brings_the_agent_its_words(self):
        launcher = self.new_launcher(self.new_server(policy=QUIET_POLICY))
        launcher.start("-c", 'a "quoted" name\\')
        launcher.agent.wait_for('a "quoted" name\\')
        self.assert_ends(launcher)

    def test_is_refused_to_a_second_launcher(self):
        launcher = self.new_launcher(self.new_server(policy=QUIET_POLICY)).start()
        launcher.wait_for("keeps the program in")
        second = in_wine(launcher_program(), "--folder", windows_path(launcher.folder))
        self.assertEqual(second.returncode, 1)
        self.assertIn("another launcher may use it", second.stderr)
        self.assert_ends(launcher)

    @unittest.skipUnless(os.geteuid() == 0, "a folder of another user's is needed")
    def test_is_refused_in_a_folder_of_somebody_elses(self):
        spare_the_wait_for_services()
        folder = self.folder / "planted"
        folder.mkdir()
        os.chown(folder, 65534, 65534)
        done = in_wine(launcher_program(), "--folder", windows_path(folder))
        self.assertEqual(done.returncode, 1)
        self.assertIn("cannot enter ", done.stderr)
        self.assertEqual(list(folder.iterdir()), [])

    def test_explains_itself(self):
        usage = in_wine(launcher_program(), "--help")
        self.assertEqual((usage.returncode, usage.stdout[:17]), (0, "usage: tnlauncher"))
        self.assertIn("--uninstall", usage.stdout)
        wrong = in_wine(launcher_program(), "-v")
        self.assertEqual(wrong.returncode, 2)
        self.assertIn("unknown argument -v", wrong.stderr)


class Crash(LauncherTest):
    def test_leaves_a_dump_and_is_followed_by_another_start(self):
        launcher = self.new_launcher(self.new_server(policy=QUIET_POLICY)).start()
        agent = launcher.agent
        agent.wait_for("Successful checkin")
        self.assertEqual(stranger("fault").returncode, 0)
        launcher.wait_for(f"the agent has ended with status {ACCESS_VIOLATION}")
        dump = launcher.folder / "tnagent.dmp"
        self.assertEqual(dump.read_bytes()[:4], b"MDMP")
        agent.wait_for(f"{DETECTED} '{windows_path(dump)}' along with your error report")
        agent.wait_for("Successful checkin", 2)
        self.assert_ends(launcher)

    def test_of_the_launcher_stops_the_agent(self):
        launcher = self.new_launcher(self.new_server(policy=QUIET_POLICY)).start()
        launcher.agent.wait_for("Successful checkin")
        launcher.process.kill()
        launcher.process.wait()
        self.assert_stopped(launcher.agent)

    def test_of_an_agent_without_settings_comes_with_growing_pauses(self):
        launcher = self.new_launcher(self.new_server(policy=QUIET_POLICY), server_list=None).start()
        launcher.wait_for("the agent has ended with status 1", 2)
        launcher.wait_for("next start in 2 s")
        self.assertLess(launcher.end(signal.SIGINT), STOP_LIMIT_S)


class Upgrade(LauncherTest):
    def meet(self, package: bytes) -> WindowsLauncher:
        """An agent whose server offers this package, up to its first start."""
        path = self.folder / "package"
        path.write_bytes(package)
        self.server = Server(self.folder / "server", policy=QUIET_POLICY)
        self.addCleanup(self.server.kill)
        self.server.options = ("--upgrade", path, "--upgrade-build", NEXT_BUILD)
        self.server.start()
        return self.new_launcher(self.server, allow_autoupgrade="true").start()

    def assert_works(self, launcher: WindowsLauncher, starts: int) -> None:
        agent = launcher.agent
        agent.wait_for("Agent starting.", starts)
        agent.wait_for("Successful checkin", 2)
        self.assertEqual(agent.count("Server has an upgrade, downloading ..."), 1)
        self.assertEqual(agent.count("Agent starting."), starts)
        self.assertFalse((launcher.folder / "trial").exists())
        self.assertFalse((launcher.folder / "upgrade.exe").exists())

    def test_is_fetched_swapped_and_proven(self):
        package = own_program() + MARK
        launcher = self.meet(package)
        launcher.wait_for("the new program works: the upgrade is over")
        self.assertEqual(launcher.program(), package)
        self.assertEqual((launcher.folder / "tnagent.exe.bak").read_bytes(), own_program())
        self.assert_works(launcher, starts=2)
        self.assertEqual(launcher.agent.count("Attempting automatic upgrade"), 1)
        self.assertEqual(launcher.agent.count("Upgrade failed"), 0)
        self.assertEqual(self.server.count(f"has fetched the upgrade to build {NEXT_BUILD}"), 1)
        self.assert_ends(launcher)

    def test_that_ends_at_once_is_taken_back(self):
        launcher = self.meet(launcher_program().read_bytes())  # which takes none of the agent's arguments
        launcher.wait_for("the agent has ended with status 2")
        launcher.wait_for("the upgrade has failed: the program before it has taken its place again")
        launcher.agent.wait_for("Upgrade failed, using latest working version")
        self.assertEqual(launcher.program(), own_program())
        self.assert_works(launcher, starts=2)
        self.assert_ends(launcher)

    def test_that_is_no_program_is_taken_back(self):
        launcher = self.meet(b"what a server took for a program")
        launcher.wait_for("cannot start the agent: ")
        launcher.agent.wait_for("Upgrade failed, using latest working version")
        self.assertEqual(launcher.program(), own_program())
        self.assert_works(launcher, starts=2)
        self.assert_ends(launcher)


class Service(LauncherTest):
    def setUp(self):
        super().setUp()
        self.program_folder = self.folder / "a service's"
        self.addCleanup(in_wine, launcher_program(), "--uninstall")

    def install(self) -> None:
        done = in_wine(launcher_program(), "--install", "--folder", windows_path(self.program_folder), "--", "-l", "0")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn("the service tnagent is registered", done.stderr)

    @staticmethod
    def state() -> tuple[str, int, int] | None:
        """What the service manager says of the service, with the system's code of its end and its own; nothing where
        there is none."""
        told = in_wine("sc", "query", SERVICE).stdout
        if match := re.search(r"STATE\s*: \d+\s+(\w+)[\s\S]*WIN32_EXIT_CODE\s*: (\d+)[\s\S]*SERVICE_EXIT_CODE\s*: (\d+)",
                              told):
            return match[1], int(match[2]), int(match[3])
        return None

    def test_is_registered_with_its_words_and_its_source_of_events(self):
        self.install()
        line = in_wine("reg", "query", rf"HKLM\SYSTEM\CurrentControlSet\Services\{SERVICE}", "/v", "ImagePath").stdout
        program = windows_path(launcher_program())
        self.assertIn(f'{program} --folder "{windows_path(self.program_folder)}" -- -l 0', line)
        source = in_wine("reg", "query", EVENT_SOURCE).stdout
        self.assertRegex(source, r"EventMessageFile\s+REG_EXPAND_SZ\s+" + re.escape(program))
        self.assertRegex(source, r"TypesSupported\s+REG_DWORD\s+0x7")
        self.install()  # once more changes what is registered

    def test_runs_and_stops_the_agent(self):
        agent = self.new_windows_agent(self.new_server(policy=QUIET_POLICY))
        agent.write_settings()
        self.install()
        self.assertEqual(in_wine("sc", "start", SERVICE).returncode, 0)
        agent.wait_for_checks()
        self.assertEqual(self.state(), ("RUNNING", 0, 0))
        self.assertTrue((self.program_folder / "tnagent.exe").exists())
        in_wine("sc", "stop", SERVICE)
        wait_until(lambda: self.state() == ("STOPPED", 0, 0), "the end of the service")
        self.assert_stopped(agent)

    def test_is_stopped_and_removed_without_a_trace(self):
        agent = self.new_windows_agent(self.new_server(policy=QUIET_POLICY))
        agent.write_settings()
        self.install()
        in_wine("sc", "start", SERVICE)
        agent.wait_for("Successful checkin")
        done = in_wine(launcher_program(), "--uninstall")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assert_stopped(agent)
        self.assertIsNone(self.state())
        self.assertNotEqual(in_wine("reg", "query", EVENT_SOURCE).returncode, 0)
        done = in_wine(launcher_program(), "--uninstall")
        self.assertEqual(done.returncode, 1)
        self.assertIn("cannot find the service", done.stderr)

    def test_that_cannot_serve_tells_the_service_manager(self):
        launcher = self.new_launcher(self.new_server(policy=QUIET_POLICY))
        launcher.folder = self.program_folder
        launcher.start()
        launcher.wait_for("keeps the program in")
        self.install()
        in_wine("sc", "start", SERVICE)
        wait_until(lambda: self.state() == ("STOPPED", ERROR_OF_ITS_OWN, 1), "a service that has failed")
        launcher.agent.wait_for("Successful checkin")
        self.assert_ends(launcher)


if __name__ == "__main__":
    main()
