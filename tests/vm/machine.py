"""A machine without hardware of this host: what it starts with, and one run of it."""
import base64
import os
import re
import shutil
import subprocess
import time
from pathlib import Path

import kernel

HERE = Path(__file__).resolve().parent

FOLDERS_OF_MODULES = ["drivers/char/ipmi", "drivers/scsi", "drivers/ata", "crypto", "lib", "block"]
# In the order of loading; each brings what it needs.
MODULES = {
    "ipmi_devintf": "",
    "ipmi_si": "type=kcs ports=0xca2",
    "sd_mod": "",
    "sg": "",
    "ahci": "",
    "scsi_debug": "ptype=3",
}
NEEDED_PROGRAMS = ["qemu-system-x86_64", "cpio", "apt-get", "dpkg-deb"]


def require_programs() -> None:
    for name in NEEDED_PROGRAMS:
        if shutil.which(name) is None:
            raise kernel.Missing(f"there is no {name}")
    if not Path("/bin/busybox").exists():
        raise kernel.Missing("there is no /bin/busybox")


def libraries(program: Path) -> set[Path]:
    """What the program needs to start, its loader included."""
    told = subprocess.run(["ldd", program], capture_output=True, text=True, check=False).stdout
    return {Path(path) for path in re.findall(r"(/\S+) \(0x", told)}


class Machine:
    def __init__(self, folder: Path, programs: Path):
        self.folder = folder
        self.programs = programs
        self.kernel = folder / "kernel"
        self.root = folder / "root"
        self.console = ""
        self.boot_s = 0.0

    def prepare(self, files: dict[str, str], sdr: bytes) -> None:
        """Lays out the first file system: programs, modules, and these texts."""
        require_programs()
        kernel.unpack(kernel.fetch(self.folder / "packages"), self.kernel, FOLDERS_OF_MODULES)
        shutil.rmtree(self.root, ignore_errors=True)
        for name in ("bin", "dev", "modules", "proc", "programs", "sys", "tmp"):
            (self.root / name).mkdir(parents=True)
        shutil.copy("/bin/busybox", self.root / "bin")
        shutil.copy(HERE / "init", self.root / "init")
        self._add_programs(["tnagent", "tnserver", "ipmi_command"])
        self._add_modules()
        for name, text in files.items():
            (self.root / name).write_text(text)
        (self.folder / "sdr.bin").write_bytes(sdr)
        names = subprocess.run(["find", "."], cwd=self.root, capture_output=True, check=True).stdout
        with open(self.folder / "initramfs", "wb") as out:
            subprocess.run(["cpio", "-o", "-H", "newc", "--quiet"], cwd=self.root, input=names, stdout=out, check=True)

    def _add_programs(self, names: list[str]) -> None:
        for name in names:
            program = self.programs / name
            shutil.copy(program, self.root / "programs")
            for library in libraries(program):
                place = self.root / library.relative_to("/")
                place.parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(library, place)

    def _add_modules(self) -> None:
        order = kernel.in_order(self.kernel, list(MODULES))
        lines = []
        for path in order:
            shutil.copy(path, self.root / "modules")
            lines.append(f"{path.name} {MODULES.get(path.stem.replace('-', '_'), '')}".strip())
        (self.root / "modules" / "order").write_text("\n".join(lines) + "\n")

    def run(self, patience_s: int) -> None:
        """Boots, and waits for the machine to go down again."""
        disk = self.folder / "disk.img"
        with open(disk, "wb") as out:
            os.truncate(out.fileno(), 16 << 20)
        started = time.monotonic()
        done = subprocess.run(
            ["qemu-system-x86_64", "-accel", "tcg", "-m", "512", "-smp", "1", "-nographic", "-no-reboot", "-nic", "none",
             "-kernel", kernel.image(self.kernel), "-initrd", self.folder / "initramfs",
             "-append", "console=ttyS0 quiet panic=-1",
             "-device", f"ipmi-bmc-sim,id=bmc,sdrfile={self.folder / 'sdr.bin'}", "-device", "isa-ipmi-kcs,bmc=bmc",
             "-device", "ahci,id=ahci", "-drive", f"if=none,id=disk,format=raw,file={disk}",
             "-device", "ide-hd,drive=disk,bus=ahci.0"],
            stdin=subprocess.DEVNULL, capture_output=True, timeout=patience_s, check=False)
        self.boot_s = time.monotonic() - started
        self.console = (done.stdout + done.stderr).decode(errors="replace").replace("\r", "")

    def left_behind(self, name: str) -> bytes:
        """A file that the machine has told by its console."""
        found = re.search(rf"LABORATORY begins {re.escape(name)}\n(.*?)LABORATORY ends {re.escape(name)}\n", self.console,
                          re.DOTALL)
        if found is None:
            raise AssertionError(f"the machine has not told {name}; its console ends in\n{self.console[-3000:]}")
        # What the kernel says in between stands on lines of its own.
        lines = [line for line in found.group(1).splitlines() if re.fullmatch(r"[A-Za-z0-9+/=]+", line)]
        return base64.b64decode("".join(lines))
