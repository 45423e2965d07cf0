"""The board's 16-byte frames (docs/protocol.md) and the mapping of python-can's
messages and filters onto them."""

import struct
from typing import NamedTuple, Optional, Sequence, Tuple

import can

FRAME_SIZE = 16
_WORDS = struct.Struct("<4I")

# Command codes used here.
SET_BAUD = 0x80010001
GET_BAUD = 0x81010005
BAUDRATE = 0x80010005  # GET_BAUD's answer
CAN_FILTER_WRITE = 0x80010004
CAN_FILTER_READ = 0x81010006

# The info word of a CAN data frame.
INFO_DLC = 0x000000FF
INFO_CHANNEL_SHIFT = 8
INFO_EXTENDED = 1 << 15
INFO_REMOTE = 1 << 16
INFO_ECHO_REQUEST = 1 << 24
INFO_ECHO = 1 << 25

# The acceptance filter's words.
FILTER_MIDE = 1 << 29
FILTER_IDE = 1 << 29
FILTER_PRI = 2 << 30
FILTER_SHIFT_11 = 18
MASK_11 = 0x7FF
MASK_29 = 0x1FFFFFFF

BIT_RATES = {100000: 1, 125000: 2, 250000: 3, 500000: 4, 1000000: 5}


def command_frame(command: int, value1: int = 0, value2: int = 0, value3: int = 0) -> bytes:
    return _WORDS.pack(command | 0x80000000, value1, value2, value3)


def words(frame: bytes) -> Tuple[int, int, int, int]:
    return _WORDS.unpack(frame)


def is_command(frame: bytes) -> bool:
    return frame[3] & 0x80 != 0


def encode_message(msg: can.Message, channel: int, echo: bool = False) -> bytes:
    """The CAN data frame that sends `msg` on `channel`; ValueError for what the board
    cannot carry."""
    if msg.is_error_frame:
        raise ValueError("the board cannot send error frames")
    if msg.is_fd:
        raise ValueError("the board cannot send CAN FD frames")
    limit = MASK_29 if msg.is_extended_id else MASK_11
    if not 0 <= msg.arbitration_id <= limit:
        kind = "an extended" if msg.is_extended_id else "a standard"
        raise ValueError(f"identifier 0x{msg.arbitration_id:X} does not fit {kind} frame")
    if not 0 <= msg.dlc <= 8:
        raise ValueError(f"DLC {msg.dlc} is not 0-8")
    info = msg.dlc | (channel << INFO_CHANNEL_SHIFT)
    if msg.is_extended_id:
        info |= INFO_EXTENDED
    if msg.is_remote_frame:
        info |= INFO_REMOTE
    if echo:
        info |= INFO_ECHO_REQUEST
    data = b"" if msg.is_remote_frame else bytes(msg.data[: msg.dlc])
    return struct.pack("<II", msg.arbitration_id, info) + data.ljust(8, b"\0")


def decode_message(frame: bytes, timestamp: float) -> can.Message:
    """The message a received CAN data frame carries; an echo of one's own frame comes
    back with is_rx False."""
    ident, info = struct.unpack_from("<II", frame)
    dlc = min(info & INFO_DLC, 8)
    remote = info & INFO_REMOTE != 0
    return can.Message(
        timestamp=timestamp,
        arbitration_id=ident,
        is_extended_id=info & INFO_EXTENDED != 0,
        is_remote_frame=remote,
        dlc=dlc,
        data=b"" if remote else frame[8 : 8 + dlc],
        channel=(info >> INFO_CHANNEL_SHIFT) & 3,
        is_rx=info & INFO_ECHO == 0,
        check=False,
    )


class BoardFilter(NamedTuple):
    """A channel's acceptance filter: its mask word and arbitration word."""

    mask: int
    arbitration: int

    @property
    def unset(self) -> bool:
        if self.arbitration & FILTER_IDE:
            return self.mask & MASK_29 == 0 and self.arbitration & MASK_29 == 0
        shifted = MASK_11 << FILTER_SHIFT_11
        return self.mask & shifted == 0 and self.arbitration & shifted == 0


PASS_ALL = BoardFilter(0, FILTER_PRI)


def board_filter(filters: Optional[Sequence[dict]]) -> Optional[BoardFilter]:
    """The board filter that passes exactly what python-can's `filters` match, or None
    when they do not fit the board's one mask and arbitration pair."""
    if not filters or len(filters) != 1:
        return None
    (entry,) = filters
    mask = entry["can_mask"]
    ident = entry["can_id"] & mask
    extended = entry.get("extended")
    if extended is False:
        if mask & ~MASK_11 or mask == 0:
            return None
        return BoardFilter(
            FILTER_MIDE | (mask << FILTER_SHIFT_11), FILTER_PRI | (ident << FILTER_SHIFT_11)
        )
    # Without MIDE the 29-bit form compares standard and extended identifiers alike, as
    # python-can does when a filter names no kind.
    if mask & ~MASK_29 or mask == 0:
        return None
    return BoardFilter(
        (FILTER_MIDE if extended else 0) | mask, FILTER_PRI | FILTER_IDE | ident
    )
