"""Other agents of Debian, to compare with: fetched and unpacked below the build folder, not installed, so that no daemon
starts; configured to do comparable work on the loopback interface alone."""
import os
import shutil
import socket
import subprocess
import sys
import time
from collections.abc import Callable
from dataclasses import dataclass
from pathlib import Path

from measuring import Process, free_port

PACKAGES = {"collectd": "collectd-core", "snmpd": "snmpd", "monit": "monit", "nrpe": "nagios-nrpe-server"}
PERIOD_S = 10


@dataclass
class Peer:
    """A peer that is ready to run: `answers` is where it can be seen to have started, `ask` has it do its work where
    it does none by itself."""
    name: str
    start: Callable[[], Process]
    answers: str | tuple[str, int]
    does: str
    ask: Callable[[], None] | None = None
    lives: bool = True  # measured over a minute, and not only at its start


def missing_packages(package: str) -> list[str]:
    """The package and what else this host would have to install for it, by the package manager's own reckoning."""
    plan = subprocess.run(["apt-get", "-s", "install", "--no-install-recommends", package], capture_output=True,
                          text=True, env={"LC_ALL": "C", "PATH": "/usr/bin:/bin:/usr/sbin:/sbin"})
    names = [line.split()[1] for line in plan.stdout.splitlines() if line.startswith("Inst ")]
    return names if names and package in names else [package]


def fetch(package: str, folder: Path) -> str | None:
    """Unpacks the package and its libraries below the folder. Absent, or why that cannot be."""
    if (folder / f".{package}").exists():
        return None
    archives = folder / "archives"
    archives.mkdir(parents=True, exist_ok=True)
    for name in missing_packages(package):
        done = subprocess.run(["apt-get", "download", "-q", name], cwd=archives, capture_output=True, text=True)
        found = sorted(archives.glob(f"{name}_*.deb"))
        if done.returncode != 0 or not found:
            return (done.stderr.strip().splitlines() or ["no such package"])[-1]
        unpacked = subprocess.run(["dpkg", "-x", found[-1], folder], capture_output=True, text=True)
        if unpacked.returncode != 0:
            return unpacked.stderr.strip()
    (folder / f".{package}").touch()
    return None


def library_path(folder: Path) -> dict[str, str]:
    folders = [*folder.glob("usr/lib/*-linux-gnu"), *folder.glob("lib/*-linux-gnu")]
    return {"LD_LIBRARY_PATH": ":".join(map(str, folders))}


def write(path: Path, text: str, mode: int = 0o600) -> Path:
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    path.chmod(mode)
    return path


def starter(root: Path, work: Path, command: list[str], **environment: str) -> Callable[[], Process]:
    return lambda: Process(command, {**library_path(root), **environment}, work / "output")


def make_collectd(root: Path, work: Path) -> Peer:
    door = work / "socket"
    sink = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)  # takes what is delivered, unread
    sink.bind(("127.0.0.1", 0))
    path = write(work / "collectd.conf", f"""
Hostname "bench"
FQDNLookup false
BaseDir "{work}"
PIDFile "{work}/pid"
PluginDir "{root}/usr/lib/collectd"
TypesDB "{root}/usr/share/collectd/types.db"
Interval {PERIOD_S}
ReadThreads 1
WriteThreads 1
LoadPlugin contextswitch
LoadPlugin cpu
LoadPlugin df
LoadPlugin load
LoadPlugin memory
LoadPlugin network
LoadPlugin swap
LoadPlugin unixsock
LoadPlugin uptime
<Plugin cpu>
  ReportByCpu false
</Plugin>
<Plugin df>
  MountPoint "/"
</Plugin>
<Plugin network>
  Server "127.0.0.1" "{sink.getsockname()[1]}"
</Plugin>
<Plugin unixsock>
  SocketFile "{door}"
</Plugin>
""")

    def start() -> Process:
        _keep = sink  # for as long as collectd may send
        door.unlink(missing_ok=True)
        return starter(root, work, [f"{root}/usr/sbin/collectd", "-f", "-C", str(path)])()

    return Peer("collectd", start, str(door), f"9 plugins every {PERIOD_S} s, sent by UDP")


def make_monit(root: Path, work: Path) -> Peer:
    port = free_port()
    file_systems = "".join(f"check filesystem fs{i} with path /\n  if space usage > 101% then alert\n"
                           for i in range(16))
    path = write(work / "monitrc", f"""
set daemon {PERIOD_S}
set log {work}/log
set pidfile {work}/pid
set idfile {work}/id
set statefile {work}/state
set httpd port {port} and use address 127.0.0.1
  allow 127.0.0.1
check system bench
  if memory usage > 101% then alert
  if swap usage > 101% then alert
  if cpu usage > 101% then alert
  if loadavg (1min) > 100000 then alert
{file_systems}""")
    command = [f"{root}/usr/bin/monit", "-I", "-c", str(path)]
    return Peer("monit", starter(root, work, command), ("127.0.0.1", port), f"20 tests every {PERIOD_S} s")


def ber(tag: int, content: bytes) -> bytes:
    length = len(content)
    size = bytes([length]) if length < 128 else bytes([0x82, length >> 8, length & 255])
    return bytes([tag]) + size + content


def object_id(text: str) -> bytes:
    numbers = [int(number) for number in text.split(".")]
    out = bytes([numbers[0] * 40 + numbers[1]])
    for number in numbers[2:]:
        part = [number & 127]
        while number := number >> 7:
            part.append(number & 127 | 128)
        out += bytes(reversed(part))
    return ber(6, out)


UCD = "1.3.6.1.4.1.2021"
READINGS = ["1.3.6.1.2.1.1.3.0", "1.3.6.1.2.1.25.1.1.0", *(f"{UCD}.4.{i}.0" for i in (3, 4, 5, 6, 11, 14, 15)),
            *(f"{UCD}.10.1.3.{i}" for i in (1, 2, 3)), *(f"{UCD}.11.{i}.0" for i in (50, 51, 52, 53, 59, 60)),
            f"{UCD}.9.1.7.1", f"{UCD}.9.1.9.1"]


def snmp_request(number: int) -> bytes:
    """A GetRequest of SNMPv2c (RFC 3416) for all readings."""
    names = b"".join(ber(0x30, object_id(name) + ber(5, b"")) for name in READINGS)
    numbers = ber(2, number.to_bytes(4, "big")) + ber(2, b"\0") + ber(2, b"\0")
    return ber(0x30, ber(2, b"\1") + ber(4, b"public") + ber(0xA0, numbers + ber(0x30, names)))


def make_snmpd(root: Path, work: Path) -> Peer:
    port = free_port()
    path = write(work / "bench.conf", f"""
agentAddress udp:127.0.0.1:{port},tcp:127.0.0.1:{port}
rocommunity public 127.0.0.1
disk /
""")
    command = [f"{root}/usr/sbin/snmpd", "-f", "-Lf", str(work / "log"), "-C", "-c", str(path), "-p",
               str(work / "pid")]
    asking = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    asking.settimeout(2)
    answered = [0]

    def ask() -> None:
        answered[0] += 1
        asking.sendto(snmp_request(answered[0]), ("127.0.0.1", port))
        try:
            asking.recv(65536)
        except OSError as failure:
            print(f"snmpd has not answered: {failure}", file=sys.stderr)

    start = starter(root, work, command, SNMP_PERSISTENT_DIR=str(work / "kept"), MIBS="")
    return Peer("snmpd", start, ("127.0.0.1", port), f"asked for {len(READINGS)} readings every {PERIOD_S} s", ask)


def make_nrpe(root: Path, work: Path) -> Peer:
    port = free_port()
    account = "nrpe_user=nobody\nnrpe_group=nogroup" if os.geteuid() == 0 else ""
    path = write(work / "nrpe.cfg", f"""
server_port={port}
server_address=127.0.0.1
allowed_hosts=127.0.0.1
pid_file={work}/pid
log_file={work}/log
{account}
""", 0o644)
    command = [f"{root}/usr/sbin/nrpe", "-n", "-f", "-c", str(path)]
    return Peer("nrpe", starter(root, work, command), ("127.0.0.1", port), "start alone", lives=False)


MAKERS = {"collectd": make_collectd, "snmpd": make_snmpd, "monit": make_monit, "nrpe": make_nrpe}


def prepare(folder: Path, work: Path) -> tuple[list[Peer], list[str]]:
    """The peers that can be had, and for each other one why it cannot."""
    ready: list[Peer] = []
    missing: list[str] = []
    if not shutil.which("apt-get") or not shutil.which("dpkg"):
        return ready, ["the peers: their packages take apt-get and dpkg"]
    for name, package in PACKAGES.items():
        if failure := fetch(package, folder):
            missing.append(f"{name}: {failure}")
            continue
        (work / name).mkdir(parents=True, exist_ok=True)
        ready.append(MAKERS[name](folder, work / name))
    return ready, missing


def ask_all(peers: list[Peer], until: float) -> None:
    """Has the passive ones work, period by period, until that time."""
    due = time.monotonic()
    while due < until:
        time.sleep(max(0.0, due - time.monotonic()))
        for peer in peers:
            if peer.ask:
                peer.ask()
        due += PERIOD_S
    time.sleep(max(0.0, until - time.monotonic()))
