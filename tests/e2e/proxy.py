"""A proxy between agent and server that can cut, delay, stall and swallow what they say.

What becomes of the bytes is told by the rule in force, a function of the talk (one connection), the direction and the
bytes that came: it gives the bytes that go on, b"" for none, or raises Cut to break the line. All
but the first few messages are enciphered, so a rule tells the place in a talk by its turns: agent and server strictly
take turns, and `talk.turn` is the number of the server's, 1 for its first word. With a hallmark that both sides know a
checkin goes

    turn  the server says
    1     server_offers
    2     auth_challenge
    3     auth_response
    4     server_time_resp
    5     checkin_resp: what was delivered is in the store
"""
import contextlib
import select
import socket
import struct
import threading
import time

from programs import own_address

REPLY_TO_RESULTS = 5


class Cut(Exception):
    """The line breaks here. Both sides see a reset, which is not the end that a peer makes; or the agent alone does,
    and its server goes on waiting."""

    def __init__(self, server_notices: bool = True):
        super().__init__()
        self.server_notices = server_notices


def forward(talk, from_server: bool, data: bytes) -> bytes:
    return data


def cut_at_turn(turn: int, first=None, server_notices: bool = True):
    """Breaks the line when the server's turn comes, whose bytes the agent never sees."""

    def rule(talk, from_server, data):
        if talk.turn < turn:
            return data
        if first is not None:
            first()
        raise Cut(server_notices)

    return rule


def cut_behind_question(turn: int, first=None):
    """Passes on what the agent says before the server's turn, and breaks the line without waiting for the answer."""

    def rule(talk, from_server, data):
        if not from_server and talk.turn == turn - 1:
            talk.pass_on(from_server, data)
            if first is not None:
                first()
            raise Cut
        return data

    return rule


def stall_at_turn(turn: int):
    """From the server's turn on the agent hears nothing, and the connection stays."""
    return lambda talk, from_server, data: b"" if from_server and talk.turn >= turn else data


def cut_at_byte(place: int):
    """Breaks the line when that many bytes went through, in the midst of whatever they were."""

    def rule(talk, from_server, data):
        left = place - talk.bytes
        if left >= len(data):
            return data
        talk.pass_on(from_server, data[:max(left, 0)])
        raise Cut

    return rule


def trickle(talk, from_server: bool, data: bytes) -> bytes:
    """Every byte goes alone."""
    for at in range(len(data)):
        talk.pass_on(from_server, data[at:at + 1])
        time.sleep(0.0005)
    return b""


class Talk:
    """One connection of an agent and the one to the server that belongs to it."""

    def __init__(self, proxy: "Proxy", agent: socket.socket):
        self.proxy = proxy
        self.agent = agent
        self.server = socket.create_connection(proxy.target.address)
        self.turn = 0
        self.bytes = 0
        self.heard_agent = False
        self.ended = False
        for side in (self.agent, self.server):
            side.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)

    def pass_on(self, from_server: bool, data: bytes) -> None:
        self.bytes += len(data)
        (self.agent if from_server else self.server).sendall(data)

    def serve(self) -> None:
        try:
            while self.serve_one():
                pass
        except OSError:
            pass
        except Cut as cut:
            self.break_line(cut)
        for side in (self.agent, self.server):
            side.close()
        self.ended = True

    def break_line(self, cut: Cut) -> None:
        reset_at_close = (socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        self.agent.setsockopt(*reset_at_close)
        if cut.server_notices:
            self.server.setsockopt(*reset_at_close)
            return
        self.agent.close()
        with contextlib.suppress(OSError):
            while self.server.recv(65536):
                pass

    def serve_one(self) -> bool:
        ready, _, _ = select.select([self.agent, self.server], [], [])
        from_server = ready[0] is self.server
        data = ready[0].recv(65536)
        if not data:
            return False
        if from_server and self.heard_agent:
            self.turn += 1
        self.heard_agent = not from_server
        data = self.proxy.rule(self, from_server, data)
        if data:
            self.pass_on(from_server, data)
        return True


class Proxy:
    """Listens for agents of the target, a server, wherever that is when an agent comes."""

    def __init__(self, target, rule=forward):
        self.target = target
        self.rule = rule
        self.talks: list[Talk] = []
        self.listener = socket.create_server((own_address(), 0), backlog=64)
        self.place = "%s:%d" % self.listener.getsockname()
        threading.Thread(target=self.accept_all, daemon=True).start()

    def accept_all(self) -> None:
        while True:
            try:
                agent, _ = self.listener.accept()
            except OSError:
                return
            try:
                talk = Talk(self, agent)
            except OSError:
                agent.close()  # no server is there
                continue
            self.talks.append(talk)
            threading.Thread(target=talk.serve, daemon=True).start()

    def close(self) -> None:
        self.listener.close()
