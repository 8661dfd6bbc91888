"""Reads from /proc what a running process costs.

CPU time is that of the process's own clock (clock_getcpuclockid), which the scheduler counts in nanoseconds over all
threads, ended ones included; utime and stime of /proc/PID/stat count ticks of 10 ms, longer than what is measured."""
import os
import re
import select
import socket
import struct
import time
from dataclasses import dataclass
from pathlib import Path


@dataclass
class Sample:
    """What a process has used up since its start, and what it holds now."""
    at: float  # seconds since its start
    cpu_s: float
    waits: int  # context switches that it asked for
    preemptions: int  # and those that it did not
    faults: int
    resident_kb: int
    proportional_kb: int
    threads: int


def cpu_seconds(pid: int) -> float:
    return time.clock_gettime((~pid << 3) | 2)  # 2: the scheduler's count, of the whole process


def status_number(text: str, name: str) -> int:
    return int(re.search(rf"^{name}:\s*(\d+)", text, re.M)[1])


def context_switches(pid: int) -> tuple[int, int, int]:
    """Voluntary and other switches of all threads that live, and the number of these."""
    waits = preemptions = threads = 0
    for task in Path(f"/proc/{pid}/task").iterdir():
        text = (task / "status").read_text()
        waits += status_number(text, "voluntary_ctxt_switches")
        preemptions += status_number(text, "nonvoluntary_ctxt_switches")
        threads += 1
    return waits, preemptions, threads


def minor_faults(pid: int) -> int:
    return int(Path(f"/proc/{pid}/stat").read_text().rpartition(")")[2].split()[7])


def take_sample(pid: int, started: float) -> Sample:
    at = time.monotonic() - started
    waits, preemptions, threads = context_switches(pid)
    rollup = Path(f"/proc/{pid}/smaps_rollup").read_text()
    return Sample(at, cpu_seconds(pid), waits, preemptions, minor_faults(pid), status_number(rollup, "Rss"),
                  status_number(rollup, "Pss"), threads)


def mappings(pid: int) -> dict[str, tuple[int, int]]:
    """Resident and proportional kB by what is mapped; the parts of a file are told apart by how they are mapped."""
    kinds = {"r-xp": "code", "r--p": "constants", "rw-p": "data"}
    found: dict[str, tuple[int, int]] = {}
    name = ""
    for line in Path(f"/proc/{pid}/smaps").read_text().splitlines():
        if head := re.match(r"[0-9a-f]+-[0-9a-f]+ (\S{4}) \S+ \S+ \d+ *(.*)", line):
            path = head[2] or "anonymous"
            name = f"{os.path.basename(path)} {kinds.get(head[1], head[1])}" if path.startswith("/") else path
        elif match := re.match(r"(Rss|Pss): *(\d+) kB", line):
            resident, proportional = found.get(name, (0, 0))
            add = int(match[2])
            found[name] = (resident + add, proportional) if match[1] == "Rss" else (resident, proportional + add)
    return {name: sizes for name, sizes in found.items() if sizes[0] > 0}


class Process:
    """A program run by hand, in a session of its own, which is ended as a whole."""

    living: list["Process"] = []

    def __init__(self, command: list[str], environment: dict[str, str] | None = None, output: Path | None = None):
        target = os.open(output or os.devnull, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o600)
        nothing = os.open(os.devnull, os.O_RDONLY)
        actions = [(os.POSIX_SPAWN_DUP2, nothing, 0), (os.POSIX_SPAWN_DUP2, target, 1), (os.POSIX_SPAWN_DUP2, target, 2)]
        self.started = time.monotonic()
        self.pid = os.posix_spawn(command[0], command, {**os.environ, **(environment or {})}, file_actions=actions,
                                  setsid=True)
        os.close(target)
        os.close(nothing)
        self.status: int | None = None
        Process.living.append(self)

    def alive(self) -> bool:
        if self.status is None:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid != 0:
                self.status = status
        return self.status is None

    def sample(self) -> Sample:
        return take_sample(self.pid, self.started)

    def end(self, signal: int = 15) -> None:
        Process.living.remove(self)
        if not self.alive():
            return
        os.killpg(self.pid, signal)
        limit = time.monotonic() + 5
        while self.alive():
            if time.monotonic() > limit:
                os.killpg(self.pid, 9)
            time.sleep(0.01)


def end_all() -> None:
    for process in list(Process.living):
        process.end()


def free_port(kind: int = socket.SOCK_STREAM) -> int:
    with socket.socket(socket.AF_INET, kind) as probe:
        probe.bind(("127.0.0.1", 0))
        return probe.getsockname()[1]


def text_of(path: Path) -> str:
    return path.read_text() if path.exists() else ""


def wait_for_line(process: Process, path: Path, pattern: str, seconds: float) -> re.Match | None:
    """What matches in a file that the process writes; absent when it does not come in time or the process ends."""
    limit = time.monotonic() + seconds
    while time.monotonic() < limit:
        lives = process.alive()
        if match := re.search(pattern, text_of(path)):
            return match
        if not lives:
            return None
        time.sleep(0.02)
    return None


def answers_at(address: str | tuple[str, int]) -> bool:
    family = socket.AF_UNIX if isinstance(address, str) else socket.AF_INET
    with socket.socket(family, socket.SOCK_STREAM) as probe:
        # Closing with a reset leaves the port free for the next start.
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        try:
            probe.connect(address)
        except OSError:
            return False
    return True


def start_to_answer(start, address: str | tuple[str, int], seconds: float = 5) -> tuple[float, Process] | None:
    """Milliseconds from the start of a program until somebody answers at the address, and the program; absent when
    nobody does."""
    process = start()
    while time.monotonic() - process.started < seconds:
        if answers_at(address):
            return (time.monotonic() - process.started) * 1000, process
        time.sleep(0.0001)
    process.end(9)
    return None


def start_to_call(start, door: socket.socket, seconds: float = 5) -> tuple[float, Process, Sample] | None:
    """Milliseconds from the start of a program until it calls at the door, the program, and what it has used till
    then."""
    process = start()
    if not select.select([door], [], [], seconds)[0]:
        process.end(9)
        return None
    elapsed = (time.monotonic() - process.started) * 1000
    sample = process.sample()  # it waits for an answer
    door.accept()[0].close()
    return elapsed, process, sample


def start_to_end(command: list[str]) -> float:
    """Milliseconds of a program's whole life."""
    process = Process(command)
    os.waitpid(process.pid, 0)
    elapsed = (time.monotonic() - process.started) * 1000
    process.status = 0
    process.end()
    return elapsed
