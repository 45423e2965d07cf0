"""KelBus: one CAN channel of a KEL board (or kelsim) as a python-can bus."""

import collections
import re
import select
import socket
import threading
import time
from typing import Deque, Optional, Tuple, Union

import can

from kelcan import frames

DEFAULT_HOST = "127.0.0.1"
DEFAULT_PORT = 27015

# How long a closing bus waits for the board to hand over what it still owes.
_CLOSE_DRAIN_SECONDS = 0.2
# Blocking reads wake up this often so that a transaction in another thread gets its turn.
_READ_SLICE_SECONDS = 0.1

_ADDRESS = re.compile(r"^(?P<host>[^:/]*)(?::(?P<port>\d+))?(?:/(?P<channel>\d+))?$")


def parse_channel(channel: Union[int, str, None]) -> Tuple[str, int, int]:
    """kelcmd's address form: 'host:port/channel', 'host:port', 'host/channel', 'host',
    '/channel', or just the channel number (for 127.0.0.1:27015). Returns the host, the
    base port and the channel."""
    if channel is None:
        channel = 0
    if isinstance(channel, int):
        text = str(channel)
    else:
        text = str(channel).strip()
    if text.isdigit():
        host, port, number = DEFAULT_HOST, DEFAULT_PORT, int(text)
    else:
        match = _ADDRESS.match(text)
        if not match or not text:
            raise ValueError(f"channel '{channel}' is not host:port/channel")
        host = match["host"] or DEFAULT_HOST
        port = int(match["port"]) if match["port"] else DEFAULT_PORT
        number = int(match["channel"]) if match["channel"] else 0
    if not 0 <= number <= 3:
        raise ValueError(f"channel {number} is not 0-3")
    if not 0 < port + number <= 65535:
        raise ValueError(f"port {port} + channel {number} is not a TCP port")
    return host, port, number


class KelBus(can.BusABC):
    """A CAN channel of a KEL board, reached over TCP at base port + channel.

    :param channel: 'host:port/channel' as kelcmd writes it, or a channel number 0-3 on
        127.0.0.1:27015.
    :param bitrate: 100000, 125000, 250000, 500000 or 1000000; set through SET_BAUD and
        read back. Without it the channel keeps its rate.
    :param receive_own_messages: ask the board to echo every frame sent; the echo comes
        back from recv() with is_rx False once the frame is on the bus.
    :param answer_timeout: seconds to wait for the board's answer to a query.
    :param connect_timeout: seconds to wait for the connection.
    """

    def __init__(
        self,
        channel: Union[int, str, None] = 0,
        can_filters: Optional[can.typechecking.CanFilters] = None,
        bitrate: Optional[int] = None,
        receive_own_messages: bool = False,
        answer_timeout: float = 5.0,
        connect_timeout: float = 5.0,
        **kwargs: object,
    ) -> None:
        self._host, self._base_port, self._channel = parse_channel(channel)
        if bitrate is not None and bitrate not in frames.BIT_RATES:
            rates = ", ".join(str(rate) for rate in frames.BIT_RATES)
            raise ValueError(f"bitrate {bitrate} is not one of {rates}")
        self._echo = bool(receive_own_messages)
        self._answer_timeout = float(answer_timeout)
        self._received: Deque[bytes] = collections.deque()  # CAN data frames
        self._answers: Deque[bytes] = collections.deque()  # command frames, while a query waits
        self._pending = b""
        self._read_lock = threading.Lock()
        self._send_lock = threading.Lock()
        self._closed = False
        self._original_filter: Optional[frames.BoardFilter] = None
        self._board_filter: Optional[frames.BoardFilter] = None
        port = self._base_port + self._channel
        self.channel_info = f"KEL board {self._host}:{port} channel {self._channel}"
        try:
            self._socket = socket.create_connection((self._host, port), connect_timeout)
        except OSError as error:
            raise can.CanInitializationError(
                f"cannot connect to the board at {self._host}:{port}: {error}"
            ) from error
        try:
            self._socket.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
            self._socket.setblocking(False)
            # The open ends with the board's answer to a bit-rate query, so that it has
            # taken the connection before the first frame goes out or is awaited.
            self._set_bitrate(bitrate)
            super().__init__(channel=channel, can_filters=can_filters, **kwargs)
        except BaseException as error:
            self._socket.close()
            self._closed = True
            if isinstance(error, can.CanError) and not isinstance(
                error, can.CanInitializationError
            ):
                raise can.CanInitializationError(str(error)) from error
            raise

    # python-can's interface.

    def send(self, msg: can.Message, timeout: Optional[float] = None) -> None:
        self._write(frames.encode_message(msg, self._channel, self._echo), timeout)

    def _recv_internal(self, timeout: Optional[float]) -> Tuple[Optional[can.Message], bool]:
        deadline = None if timeout is None else time.monotonic() + timeout
        while True:
            with self._read_lock:
                if not self._received:
                    left = _READ_SLICE_SECONDS
                    if deadline is not None:
                        left = min(left, max(deadline - time.monotonic(), 0.0))
                    self._read_some(left)
                if self._received:
                    return frames.decode_message(self._received.popleft(), time.time()), False
            if deadline is not None and time.monotonic() >= deadline:
                return None, False

    def _apply_filters(self, filters: Optional[can.typechecking.CanFilters]) -> None:
        # The board filters what fits its one mask and arbitration pair; everything else
        # is filtered by BusABC.recv, so the board must then let every frame through.
        wanted = frames.board_filter(filters)
        if wanted is None and filters:
            wanted = frames.PASS_ALL
        if wanted is None:
            wanted = self._original_filter  # no filters: the board's own, if it was changed
        if wanted is None or wanted == self._board_filter:
            return
        if self._original_filter is None:
            self._original_filter = self._read_filter()
            self._board_filter = self._original_filter
        if wanted != self._board_filter:
            self._write_filter(wanted)

    def shutdown(self) -> None:
        """Puts the board's filter back, then closes gracefully: the sending side first,
        then reading until the board closes or a short time passes, so that no frame
        sent is lost to a reset."""
        if self._closed:
            return
        try:
            super().shutdown()
            if self._original_filter is not None and self._board_filter != self._original_filter:
                self._write_filter(self._original_filter)
            self._socket.shutdown(socket.SHUT_WR)
            deadline = time.monotonic() + _CLOSE_DRAIN_SECONDS
            while (left := deadline - time.monotonic()) > 0:
                readable, _, _ = select.select([self._socket], [], [], left)
                if readable and not self._socket.recv(65536):
                    break
        except (OSError, can.CanError):
            pass  # the board is gone already: nothing left to put back or hand over
        finally:
            self._closed = True
            self._socket.close()

    # The board's side.

    def _set_bitrate(self, bitrate: Optional[int]) -> None:
        if bitrate is not None:
            index = frames.BIT_RATES[bitrate]
            self._write(frames.command_frame(frames.SET_BAUD, 0, index), self._answer_timeout)
        answer = self._transact(frames.command_frame(frames.GET_BAUD), frames.BAUDRATE)
        if bitrate is not None and answer[2] != frames.BIT_RATES[bitrate]:
            raise can.CanInitializationError(
                f"the board did not take bitrate {bitrate} (its index is {answer[2]})"
            )

    def _read_filter(self) -> frames.BoardFilter:
        answer = self._transact(
            frames.command_frame(frames.CAN_FILTER_READ), frames.CAN_FILTER_READ
        )
        return frames.BoardFilter(answer[2], answer[3])

    def _write_filter(self, board_filter: frames.BoardFilter) -> None:
        frame = frames.command_frame(
            frames.CAN_FILTER_WRITE,
            self._channel << 8,
            board_filter.mask,
            board_filter.arbitration,
        )
        self._write(frame, self._answer_timeout)
        self._board_filter = board_filter

    def _transact(self, request: bytes, answer_code: int) -> Tuple[int, int, int, int]:
        """Sends a query and waits for the command frame whose first word is
        `answer_code`; CAN frames that arrive meanwhile wait for recv()."""
        self._write(request, self._answer_timeout)
        deadline = time.monotonic() + self._answer_timeout
        with self._read_lock:
            try:
                while True:
                    while self._answers:
                        answer = frames.words(self._answers.popleft())
                        if answer[0] == answer_code:
                            return answer
                    left = deadline - time.monotonic()
                    if left <= 0:
                        raise can.CanTimeoutError(
                            f"no answer 0x{answer_code:08X} from the board within "
                            f"{self._answer_timeout:g} s"
                        )
                    self._read_some(left, keep_commands=True)
            finally:
                self._answers.clear()

    def _read_some(self, timeout: float, keep_commands: bool = False) -> None:
        """Waits up to `timeout` for bytes from the board and queues the whole frames.
        Command frames (answers, events) are kept only while a query waits for one;
        the caller holds the read lock."""
        self._check_open()
        try:
            readable, _, _ = select.select([self._socket], [], [], max(timeout, 0))
            if not readable:
                return
            data = self._socket.recv(65536)
        except BlockingIOError:
            return
        except OSError as error:
            raise can.CanOperationError(f"reading from the board failed: {error}") from error
        if not data:
            raise can.CanOperationError(f"the board closed the connection ({self.channel_info})")
        data = self._pending + data
        whole = len(data) - len(data) % frames.FRAME_SIZE
        self._pending = data[whole:]
        for start in range(0, whole, frames.FRAME_SIZE):
            frame = data[start : start + frames.FRAME_SIZE]
            if not frames.is_command(frame):
                self._received.append(frame)
            elif keep_commands:
                self._answers.append(frame)

    def _write(self, frame: bytes, timeout: Optional[float]) -> None:
        deadline = None if timeout is None else time.monotonic() + timeout
        view = memoryview(frame)
        with self._send_lock:
            self._check_open()
            while view:
                left = None if deadline is None else deadline - time.monotonic()
                if left is not None and left <= 0:
                    raise can.CanTimeoutError("the board takes no more frames (send timed out)")
                try:
                    _, writable, _ = select.select([], [self._socket], [], left)
                    if writable:
                        view = view[self._socket.send(view) :]
                except BlockingIOError:
                    continue
                except OSError as error:
                    raise can.CanOperationError(
                        f"sending to the board failed: {error}"
                    ) from error

    def _check_open(self) -> None:
        if self._closed:
            raise can.CanOperationError("the bus is shut down")
