"""A virtual machine for hardware that this machine lacks: Debian's kernel, an initramfs of our own, QEMU's devices.

Nothing is installed and nothing is changed outside the folder of the build. The kernel is the package that
linux-image-amd64 depends on, fetched once and unpacked; the initramfs holds busybox, the kernel modules that are asked
for with all that they need, the programs under test with their libraries, and the files of the test. Inside, `init`
(beside this file) loads the modules, runs the test's own script and hands the folder /lab back as it then is. The
processor is emulated: the machine needs no rights, and is the same everywhere.
"""
import gzip
import io
import os
import re
import shutil
import subprocess
import tarfile
import time
from pathlib import Path

HERE = Path(__file__).resolve().parent
NEEDED = ("qemu-system-x86_64", "busybox", "dpkg-deb", "apt-get", "apt-cache")
LIMIT_S = 100


class CannotRun(Exception):
    """Why there can be no machine here."""


def run(*words, **options) -> str:
    return subprocess.run([str(word) for word in words], check=True, capture_output=True, text=True, **options).stdout


class Kernel:
    """Debian's kernel, unpacked below a folder."""

    def __init__(self, folder: Path):
        self.folder = folder
        missing = [name for name in NEEDED if shutil.which(name) is None]
        if missing:
            raise CannotRun(f"not installed: {', '.join(missing)}")
        if not list(folder.glob("root/boot/vmlinuz-*")):
            self.fetch()
        self.image = next(folder.glob("root/boot/vmlinuz-*"))
        self.modules = {path.name.split(".")[0].replace("-", "_"): path for path in folder.glob("root/lib/modules/*/**/*.ko")}

    def fetch(self) -> None:
        found = re.search(r"^Depends:.*?(linux-image-[0-9][^ ,]*)", self.ask_apt(), re.MULTILINE)
        if found is None:
            raise CannotRun("apt knows no linux-image-amd64")
        shutil.rmtree(self.folder, ignore_errors=True)
        self.folder.mkdir(parents=True)
        try:
            run("apt-get", "download", found[1], cwd=self.folder)
        except subprocess.CalledProcessError as error:
            raise CannotRun(f"apt-get download {found[1]}: {error.stderr.strip().splitlines()[-1:]}") from error
        package = next(self.folder.glob("*.deb"))
        run("dpkg-deb", "--extract", package, self.folder / "unpacked")
        package.unlink()
        (self.folder / "unpacked").rename(self.folder / "root")  # only whole ones bear this name

    @staticmethod
    def ask_apt() -> str:
        return run("apt-cache", "show", "linux-image-amd64")

    def module_order(self, wanted: list[str]) -> list[str]:
        """The modules and those that they need, each behind what it needs. What the kernel has built in is none."""
        order: list[str] = []

        def add(name: str) -> None:
            path = self.modules.get(name)
            if path is None or name in order:
                return
            needs = re.search(rb"\0depends=([^\0]*)\0", path.read_bytes())
            for other in needs[1].decode().split(",") if needs else []:
                add(other.replace("-", "_"))
            order.append(name)

        for name in wanted:
            if name not in self.modules:
                raise CannotRun(f"the kernel has no module {name}")
            add(name)
        return order


def libraries_of(program: Path) -> list[Path]:
    """The shared libraries of a program, its loader too."""
    return [Path(path) for path in re.findall(r"(/[^ ]+) \(0x", run("ldd", program))]


class Machine:
    def __init__(self, kernel: Kernel, folder: Path):
        self.kernel = kernel
        self.folder = folder
        self.root = folder / "root"
        shutil.rmtree(folder, ignore_errors=True)
        (self.root / "lab").mkdir(parents=True)
        (self.root / "modules").mkdir()
        self.module_words: list[str] = []  # a line a module: its file and its parameters
        self.devices: list[str] = []  # words of QEMU's command line
        self.seconds = 0.0

    def add_modules(self, modules: dict[str, str]) -> None:
        """Modules by name, with their parameters, in the order of loading."""
        for name in self.kernel.module_order(list(modules)):
            shutil.copy(self.kernel.modules[name], self.root / "modules" / f"{name}.ko")
            self.module_words.append(f"{name} {modules.get(name, '')}".strip())

    def add_program(self, program: Path) -> None:
        """The program goes to /bin, its libraries to where it looks for them."""
        self.copy(program, self.root / "bin" / program.name)
        for library in libraries_of(program):
            self.copy(library, self.root / str(library).lstrip("/"))

    @staticmethod
    def copy(source: Path, target: Path) -> None:
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(source.resolve(), target)

    def write(self, name: str, content: str) -> None:
        (self.root / "lab" / name).write_text(content)

    def pack(self) -> Path:
        self.copy(Path(shutil.which("busybox")), self.root / "bin/busybox")
        self.copy(HERE / "init", self.root / "init")
        (self.root / "init").chmod(0o755)
        (self.root / "modules/order").write_text("\n".join(self.module_words) + "\n")
        for name in ("proc", "sys", "dev", "tmp", "root", "etc", "run"):
            (self.root / name).mkdir(exist_ok=True)
        names = "\n".join(str(path.relative_to(self.root)) for path in [self.root, *sorted(self.root.rglob("*"))])
        packed = subprocess.run(["busybox", "cpio", "-o", "-H", "newc"], cwd=self.root, input=names.encode(), check=True,
                                capture_output=True).stdout
        target = self.folder / "initramfs"
        target.write_bytes(gzip.compress(packed, 1))
        return target

    def boot(self) -> Path:
        """Runs the machine to its end and gives the folder with what /lab then held."""
        back = self.folder / "back.tar"
        command = ["qemu-system-x86_64", "-accel", "tcg", "-cpu", "max", "-m", "384", "-display", "none", "-no-reboot",
                   "-nic", "none", "-kernel", self.kernel.image, "-initrd", self.pack(), "-append",
                   "console=ttyS0 quiet panic=-1", "-serial", f"file:{self.folder / 'console.log'}", "-serial",
                   f"file:{back}", *self.devices]
        start = time.monotonic()
        try:
            subprocess.run([str(word) for word in command], check=True, timeout=LIMIT_S, capture_output=True)
        except subprocess.TimeoutExpired as error:
            raise AssertionError(f"the machine is not down behind {LIMIT_S} s\n{self.console()}") from error
        except subprocess.CalledProcessError as error:
            raise AssertionError(f"{error.stderr.decode()}\n{self.console()}") from error
        finally:
            self.seconds = time.monotonic() - start
        lab = self.folder / "lab"
        try:
            with tarfile.open(fileobj=io.BytesIO(back.read_bytes())) as archive:
                archive.extractall(lab)
        except (tarfile.TarError, OSError) as error:
            raise AssertionError(f"the machine gave nothing back: {error}\n{self.console()}") from error
        return lab

    def console(self) -> str:
        log = self.folder / "console.log"
        return log.read_text(errors="replace") if log.exists() else "the console stayed silent"
