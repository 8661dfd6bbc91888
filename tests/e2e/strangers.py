"""Clients that are no agents: what a server may meet on an open port."""
import contextlib
import random
import socket
import struct
import threading
import time

from programs import DOMAIN

SEED = 20261121
# How an agent begins: client_wants with its version, and in it client_private_key.
OPENING = bytes.fromhex("6080 02020202 a180")
END = b"\0\0"
NEGOTIATE_ACK = bytes.fromhex("6280 0000")


def text(words: str) -> bytes:
    return bytes([4, len(words)]) + words.encode()


def identity(name: str, knows_secrets: bool) -> bytes:
    """Name, domain, identity, and whether there are a master key and a hallmark."""
    return text(name) + text(DOMAIN) + text("") + (b"\1\1\xff" if knows_secrets else b"\1\1\0") * 2 + b"\1\1\0"


def nested(depth: int) -> bytes:
    """Values within values, each of indefinite length, where a later version of the protocol may have some."""
    return OPENING + identity("nest", False) + b"\x30\x80" * depth


def long_text(size: int) -> bytes:
    """A name that says it is that long."""
    return OPENING + b"\4\x84" + struct.pack(">I", size) + b"name"


def impostor(dice: random.Random) -> bytes:
    """Says it is the agent and cannot prove it."""
    return OPENING + identity("agent", True) + END + END + NEGOTIATE_ACK + dice.randbytes(64)


ATTACKS = {
    "random bytes": lambda dice: dice.randbytes(dice.randrange(1, 4000)),
    "zeros": lambda dice: bytes(4000),
    "words of another protocol": lambda dice: b"GET / HTTP/1.1\r\nHost: localhost\r\n\r\n",
    "half an opening": lambda dice: OPENING[:dice.randrange(1, len(OPENING))],
    "a long text": lambda dice: long_text(dice.choice([0x7FFFFFFF, 0xFFFFFFFF, 0x10000000, 16384])),
    "a length of many bytes": lambda dice: b"\x60\xff" + b"\xff" * 127,
    "deep nesting": lambda dice: nested(dice.choice([63, 64, 65, 2000, 8000])),
    "a long number": lambda dice: b"\x60\x80\2\x82\x3f\xff" + b"\x7f" * 16000,
    "an opening and noise": lambda dice: OPENING + dice.randbytes(300),
    "an impostor": impostor,
}


class Strangers:
    """Threads that attack a server, each in its own way, until they are ended."""

    def __init__(self, server):
        self.server = server
        self.ending = threading.Event()
        self.attacks = dict.fromkeys([*ATTACKS, "slow bytes"], 0)
        ways = [(self.attack, name) for name in ATTACKS] + [(self.trickle, "slow bytes")]
        self.threads = [threading.Thread(target=way, args=(name,), daemon=True) for way, name in ways]
        for thread in self.threads:
            thread.start()

    def attack(self, name: str) -> None:
        dice = random.Random(f"{SEED} {name}")
        while not self.ending.wait(0.05):
            with contextlib.suppress(OSError), socket.create_connection(self.server.address, timeout=1) as line:
                line.sendall(ATTACKS[name](dice))
                if dice.randrange(2):
                    line.shutdown(socket.SHUT_WR)
                line.settimeout(0.2)
                while line.recv(4096):
                    pass
            self.attacks[name] += 1

    def trickle(self, name: str) -> None:
        while not self.ending.is_set():
            with contextlib.suppress(OSError), socket.create_connection(self.server.address, timeout=1) as line:
                self.attacks[name] += 1
                for byte in OPENING + bytes(1000):
                    line.sendall(bytes([byte]))
                    if self.ending.wait(0.1):
                        return

    def end(self) -> None:
        self.ending.set()
        for thread in self.threads:
            thread.join()


def crowd(server, size: int) -> contextlib.ExitStack:
    """Connections that say nothing. Closing the stack closes them."""
    lines = contextlib.ExitStack()
    for _ in range(size):
        lines.enter_context(socket.create_connection(server.address, timeout=5))
        time.sleep(0.001)
    return lines
