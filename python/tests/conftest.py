"""kelsim for the tests: each test that asks for `board` gets its own kelsim on free ports,
stopped by its pid at the end."""

import os
import pathlib
import re
import socket
import struct
import subprocess
import sys
import time

import can
import pytest

PYTHON_DIR = pathlib.Path(__file__).resolve().parents[1]
REPO = PYTHON_DIR.parent
BIN = pathlib.Path(os.environ.get("KEL_BIN_DIR", REPO / "build" / "bin"))

# The tests use the package from this folder, also in the programs they start.
sys.path.insert(0, str(PYTHON_DIR))
os.environ["PYTHONPATH"] = os.pathsep.join(
    [str(PYTHON_DIR)] + [p for p in os.environ.get("PYTHONPATH", "").split(os.pathsep) if p]
)

GET_STATUS = 0x80004800
STATUS_1 = 0x80004801


def program(name: str) -> pathlib.Path:
    path = BIN / name
    if not path.exists():
        pytest.fail(f"{path} is missing: build first (scripts/check)")
    return path


class Board:
    """A running kelsim and how to reach it."""

    def __init__(self, *options: str) -> None:
        self.process = subprocess.Popen(
            [str(program("kelsim")), "--port", "0", *options],
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            text=True,
        )
        line = self.process.stdout.readline()
        match = re.search(r" ports (\d+)-", line)
        if not match:
            self.stop()
            raise RuntimeError(f"kelsim did not start: {line!r}")
        self.port = int(match.group(1))

    def channel(self, number: int) -> str:
        return f"127.0.0.1:{self.port}/{number}"

    def bus(self, number: int, **kwargs) -> can.BusABC:
        return can.Bus(interface="kel", channel=self.channel(number), **kwargs)

    def query(self, channel: int, code: int) -> tuple:
        """Sends one command frame on its own connection and returns the answer's four
        words (the first command frame that comes back)."""
        with socket.create_connection(("127.0.0.1", self.port + channel), 5) as s:
            s.sendall(struct.pack("<4I", code, 0, 0, 0))
            data = b""
            while True:
                while len(data) < 16:
                    chunk = s.recv(16 - len(data))
                    if not chunk:
                        raise ConnectionError("kelsim closed before answering")
                    data += chunk
                words = struct.unpack("<4I", data)
                if words[0] & 0x80000000:
                    return words
                data = b""

    def wait_for_clients(self, count: int) -> None:
        """Waits until kelsim has taken `count` connections besides the asking one."""
        deadline = time.monotonic() + 30
        while self.query(0, GET_STATUS)[2] < count + 1:
            assert time.monotonic() < deadline, f"kelsim never saw {count} clients"
            time.sleep(0.02)

    def kelcmd_args(self, channel: int, command: str) -> list:
        return [str(program("kelcmd")), f"-p{self.port}", f"-c{channel}", command]

    def kelcmd(self, channel: int, command: str) -> str:
        """Runs kelcmd to its end; returns its output, failing the test on an error."""
        done = subprocess.run(
            self.kelcmd_args(channel, command),
            stdin=subprocess.DEVNULL,
            capture_output=True,
            text=True,
            timeout=120,
        )
        assert done.returncode == 0, done.stdout + done.stderr
        return done.stdout

    def stop(self) -> None:
        if self.process.poll() is None:
            self.process.terminate()
            try:
                self.process.wait(10)
            except subprocess.TimeoutExpired:
                self.process.kill()
                self.process.wait()
        self.process.stdout.close()


@pytest.fixture
def make_board():
    boards = []

    def make(*options: str) -> Board:
        boards.append(Board(*options))
        return boards[-1]

    yield make
    for board in boards:
        board.stop()


@pytest.fixture
def board(make_board) -> Board:
    return make_board()


@pytest.fixture(autouse=True, scope="session")
def kel_interface():
    """The interface as python-can finds it: through the installed entry point, or, for a
    run before `scripts/bootstrap --python`, registered by hand."""
    if "kel" not in can.interfaces.BACKENDS:
        can.interfaces.BACKENDS["kel"] = ("kelcan.bus", "KelBus")
        can.interfaces.VALID_INTERFACES = frozenset(can.interfaces.BACKENDS)
