"""Debian's kernel for the machine: fetched and unpacked below the build folder, never installed."""
import re
import subprocess
from pathlib import Path


class Missing(Exception):
    """Something that this host cannot be given: the laboratory is skipped, with this reason."""


def fetch(folder: Path) -> Path:
    """The kernel's package, once."""
    folder.mkdir(parents=True, exist_ok=True)
    kept = sorted(folder.glob("linux-image-*.deb"))
    if kept:
        return kept[-1]
    told = subprocess.run(["apt-cache", "depends", "linux-image-amd64"], capture_output=True, text=True, check=False)
    names = re.findall(r"Depends: (linux-image-\S+)", told.stdout)
    if not names:
        raise Missing("the package lists name no linux-image-amd64")
    got = subprocess.run(["apt-get", "download", "-q", names[0]], cwd=folder, capture_output=True, text=True, check=False)
    if got.returncode != 0:
        raise Missing(f"{names[0]} cannot be fetched: {got.stderr.strip()[-200:]}")
    return sorted(folder.glob("linux-image-*.deb"))[-1]


def unpack(package: Path, folder: Path, folders_of_modules: list[str]) -> None:
    """The kernel itself, and the modules of these folders."""
    if (folder / "boot").is_dir():
        return
    folder.mkdir(parents=True, exist_ok=True)
    wanted = ["./boot/vmlinuz-*"] + [f"./lib/modules/*/kernel/{name}/*" for name in folders_of_modules]
    with subprocess.Popen(["dpkg-deb", "--fsys-tarfile", package], stdout=subprocess.PIPE) as archive:
        subprocess.run(["tar", "-x", "-C", folder, "--wildcards", *wanted], stdin=archive.stdout, check=True)


def image(folder: Path) -> Path:
    return next((folder / "boot").glob("vmlinuz-*"))


def depends_on(module: Path) -> list[str]:
    """What the module says of itself."""
    found = re.search(rb"\0depends=([^\0]*)\0", module.read_bytes())
    return [name for name in found.group(1).decode().split(",") if name] if found else []


def in_order(folder: Path, wanted: list[str]) -> list[Path]:
    """The modules with all that they need, in the order in which they can be loaded. What is built in is left out."""
    known = {path.stem.replace("-", "_"): path for path in (folder / "lib" / "modules").rglob("*.ko")}
    order: list[Path] = []

    def add(name: str) -> None:
        path = known.get(name.replace("-", "_"))
        if path is None or path in order:
            return
        for needed in depends_on(path):
            add(needed)
        order.append(path)

    for name in wanted:
        add(name)
    return order
