"""Starts a launcher, with the agent that it starts in turn."""
import signal
from pathlib import Path

import programs
from programs import Agent, Program, ProgramsTest, STOP_LIMIT_S, wait_until


class Launcher(Program):
    """A tnlauncher with a folder, which starts the agent with this agent's settings and environment."""

    def __init__(self, agent: Agent):
        super().__init__(agent.folder / "launcher.log")
        self.agent = agent
        self.folder = agent.folder / "lib" / "program"
        self.options: tuple = ()

    def start(self, *agent_words) -> "Launcher":
        self.agent.write_settings()
        words = agent_words or ("-f", self.agent.settings_file)
        with open(self.log, "ab") as log:
            self.launch([programs.folder_of_programs / "tnlauncher", *self.options, "--", *words], log,
                        self.agent.environment())
        return self

    def agent_process(self) -> int | None:
        """The agent's process number, while it has one."""
        for entry in Path("/proc").iterdir():
            if entry.name.isdigit() and entry.name != str(self.process.pid):
                try:
                    parent = int((entry / "stat").read_text().rsplit(")", 1)[1].split()[1])
                    if parent == self.process.pid:
                        return int(entry.name)
                except OSError:
                    continue
        return None

    def program(self) -> bytes:
        return (self.folder / "tnagent").read_bytes()

    def kill(self) -> None:
        child = self.agent_process() if self.running else None
        super().kill()
        if child is not None:  # which the end of its pipe may not have reached yet
            wait_until(lambda: not Path(f"/proc/{child}").exists(), "the end of the launcher's agent")


class LauncherTest(ProgramsTest):
    def new_launcher(self, agent: Agent) -> Launcher:
        launcher = Launcher(agent)
        self.addCleanup(launcher.kill)
        return launcher

    def assert_ends(self, launcher: Launcher, number: int = signal.SIGTERM) -> None:
        child = launcher.agent_process()
        took = launcher.end(number)
        self.assertLess(took, STOP_LIMIT_S)
        self.assertFalse(Path(f"/proc/{child}").exists())
        self.assertIn("Agent shutting down.", launcher.agent.lines()[-1])
