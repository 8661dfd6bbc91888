"""The unit, as systemd reads it."""
import shutil
import subprocess
import unittest
from pathlib import Path

import programs
from programs import PATIENCE_S, ProgramsTest, main

UNIT = Path(__file__).resolve().parent.parent.parent / "packaging/tnagent.service"
INSTALLED = "ExecStart=/usr/bin/tnlauncher"


@unittest.skipUnless(shutil.which("systemd-analyze"), "systemd is not there")
class Unit(ProgramsTest):
    def complaints(self, text: str) -> str:
        unit = self.folder / UNIT.name
        unit.write_text(text.replace(INSTALLED, f"ExecStart={programs.folder_of_programs / 'tnlauncher'}"))
        return subprocess.run(["systemd-analyze", "verify", "--recursive-errors=no", str(unit)], capture_output=True,
                              text=True, timeout=PATIENCE_S).stderr

    def test_has_nothing_that_systemd_does_not_know(self):
        text = UNIT.read_text()
        self.assertIn(INSTALLED, text)
        self.assertEqual(self.complaints(text), "")
        self.assertIn("kill mode", self.complaints(text.replace("KillMode=mixed", "KillMode=mixt")))


if __name__ == "__main__":
    main()
