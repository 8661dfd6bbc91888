"""A Windows agent under Wine, beside the programs of this machine: what programs.py has for its own agent.

Its settings and variables are in the registry of the Wine that lies in the agent's build folder, below the key of the
product, which each test finds empty. It has no signals: what a test wants of it, it must wait for, and its end is a
kill."""
import os
import re
import subprocess
from pathlib import Path

import programs
from programs import Agent, PATIENCE_S, ProgramsTest

PRODUCT = r"HKEY_CURRENT_USER\SOFTWARE\Tarnix"
SETTINGS = PRODUCT + r"\TNAgent"
VARIABLES = SETTINGS + r"\Variables"
VALUE = re.compile(r'"((?:[^"\\]|\\.)*)"="((?:[^"\\]|\\.)*)"')

IN_WINE = Path(__file__).resolve().parent.parent.parent / "tools/in_wine"
agent_program = Path("build/windows/tnagent.exe")


def windows_path(path: Path) -> str:
    return "Z:" + str(path).replace("/", "\\")


def escaped(text: str) -> str:
    return text.replace("\\", "\\\\").replace('"', '\\"')


def wine_environment() -> dict:
    return {"PATH": os.environ["PATH"], "TZ": "UTC", "HOME": os.environ.get("HOME", "/"),
            "WINEPREFIX": str(agent_program.parent / "wine")}


def in_wine(*words) -> subprocess.CompletedProcess:
    return subprocess.run([str(IN_WINE), *map(str, words)], capture_output=True, text=True, errors="replace",
                          timeout=2 * PATIENCE_S, env=wine_environment())


def stranger_program() -> Path:
    """Its commands stand at the head of stranger/stranger_win32.cpp."""
    return agent_program.parent / "stranger.exe"


def stranger(*words) -> subprocess.CompletedProcess:
    return in_wine(stranger_program(), *words)


def import_values(folder: Path, key: str, values: dict) -> None:
    """Values into the registry, from a file such as an administrator writes."""
    lines = ["REGEDIT4", "", f"[{key}]", *(f'"{escaped(name)}"="{escaped(str(value))}"' for name, value in values.items())]
    file = folder / "import.reg"
    file.write_text("\r\n".join([*lines, ""]))
    done = in_wine("regedit", "/S", windows_path(file))
    if done.returncode != 0:
        raise AssertionError(f"regedit gave {done.returncode}: {done.stderr}")


def stored_values(folder: Path, key: str) -> dict[str, str]:
    """The texts of a key, none where there is no such key."""
    file = folder / "export.reg"
    file.unlink(missing_ok=True)
    in_wine("reg", "export", key, windows_path(file), "/y")
    if not file.exists():
        return {}
    found = VALUE.findall(file.read_text(encoding="utf-16"))
    return {re.sub(r"\\(.)", r"\1", name): re.sub(r"\\(.)", r"\1", value) for name, value in found}


class WindowsAgent(Agent):
    def __init__(self, folder: Path, servers: str, options: tuple = (), **settings):
        super().__init__(folder, servers, options, logfile=windows_path(folder / "agent.log"), variable_file=None,
                         **settings)

    def write_settings(self) -> None:
        import_values(self.folder, SETTINGS,
                      {key: value for key, value in self.settings.items() if value is not None})

    def start(self) -> "WindowsAgent":
        self.write_settings()
        with open(self.stderr, "ab") as stderr:
            self.launch([IN_WINE, agent_program, *self.options], subprocess.DEVNULL, wine_environment(), stderr)
        return self

    def run(self, *words) -> subprocess.CompletedProcess:
        return in_wine(agent_program, *words)

    def variable(self, key: str) -> str | None:
        return stored_values(self.folder, VARIABLES).get(key)


class WindowsTest(ProgramsTest):
    """A test with an empty key of the product."""

    def setUp(self):
        self.assertTrue(agent_program.exists(), f"{agent_program} is not built")
        in_wine("reg", "delete", PRODUCT, "/f")
        self.addCleanup(in_wine, "reg", "delete", PRODUCT, "/f")

    def new_windows_agent(self, servers, place: str = "agent", **how) -> WindowsAgent:
        agent = WindowsAgent(self.folder / place, servers if isinstance(servers, str) else servers.place, **how)
        self.addCleanup(agent.kill)
        return agent


def main() -> None:
    global agent_program
    import argparse
    import sys
    parser = argparse.ArgumentParser(add_help=False)
    parser.add_argument("--agent", type=Path, default=agent_program)
    known, rest = parser.parse_known_args()
    agent_program = known.agent.resolve()
    sys.argv[1:] = rest
    programs.main()
