"""The frame layouts and the filter mapping, without a board."""

import itertools

import can
from can.interfaces.virtual import VirtualBus
import pytest

from kelcan import frames, parse_channel


@pytest.mark.parametrize(
    "channel, expected",
    [
        (2, ("127.0.0.1", 27015, 2)),
        ("3", ("127.0.0.1", 27015, 3)),
        (None, ("127.0.0.1", 27015, 0)),
        ("10.0.0.7:27020/1", ("10.0.0.7", 27020, 1)),
        ("10.0.0.7:27020", ("10.0.0.7", 27020, 0)),
        ("10.0.0.7/2", ("10.0.0.7", 27015, 2)),
        ("board.local", ("board.local", 27015, 0)),
        ("/3", ("127.0.0.1", 27015, 3)),
    ],
)
def test_channel_takes_kelcmds_address_form(channel, expected):
    assert parse_channel(channel) == expected


@pytest.mark.parametrize("channel", ["4", "/9", "a:b", "1.2.3.4:65535/1", "", "1.2.3.4:80/x"])
def test_bad_channels_are_refused(channel):
    with pytest.raises(ValueError):
        parse_channel(channel)


def test_a_frame_is_laid_out_as_the_protocol_says():
    msg = can.Message(arbitration_id=0x1ABCDEF, is_extended_id=True, data=b"\x11\x22\x33")
    assert frames.encode_message(msg, channel=2, echo=True) == bytes.fromhex(
        "EFCDAB01" "03820001" "11223300" "00000000"
    )
    remote = can.Message(arbitration_id=0x7FF, is_extended_id=False, is_remote_frame=True, dlc=5)
    assert frames.encode_message(remote, channel=1) == bytes.fromhex(
        "FF070000" "05010100" "00000000" "00000000"
    )


@pytest.mark.parametrize(
    "msg",
    [
        can.Message(arbitration_id=0, is_extended_id=False, data=b""),
        can.Message(arbitration_id=0x7FF, is_extended_id=False, data=bytes(range(8))),
        can.Message(arbitration_id=0x1FFFFFFF, is_extended_id=True, data=b"\xff"),
        can.Message(arbitration_id=0x123, is_extended_id=False, is_remote_frame=True, dlc=8),
    ],
)
def test_decoding_gives_back_what_was_encoded(msg):
    got = frames.decode_message(frames.encode_message(msg, channel=3), timestamp=1.5)
    assert (got.arbitration_id, got.is_extended_id, got.is_remote_frame, got.dlc) == (
        msg.arbitration_id,
        msg.is_extended_id,
        msg.is_remote_frame,
        msg.dlc,
    )
    assert bytes(got.data) == bytes(msg.data)
    assert (got.channel, got.timestamp, got.is_rx) == (3, 1.5, True)


def test_an_echo_is_not_a_received_frame_and_a_long_dlc_is_cut_to_8():
    frame = bytearray(frames.encode_message(can.Message(arbitration_id=1, data=b"\1"), 0))
    frame[4] = 15
    frame[7] = 0x03  # echo request and echo mark
    got = frames.decode_message(bytes(frame), timestamp=0)
    assert (got.dlc, len(got.data), got.is_rx) == (8, 8, False)


@pytest.mark.parametrize(
    "msg",
    [
        can.Message(arbitration_id=0x800, is_extended_id=False),
        can.Message(arbitration_id=0x20000000, is_extended_id=True, check=False),
        can.Message(arbitration_id=1, is_fd=True, data=bytes(12)),
        can.Message(arbitration_id=1, is_error_frame=True),
    ],
)
def test_what_the_board_cannot_carry_is_refused(msg):
    with pytest.raises(ValueError):
        frames.encode_message(msg, channel=0)


def board_passes(board_filter, ident, extended):
    """The board's acceptance rule as docs/protocol.md states it."""
    ide = board_filter.arbitration & (1 << 29) != 0
    shift = 0 if ide else 18
    width = 0x1FFFFFFF if ide else 0x7FF
    am = (board_filter.mask >> shift) & width
    ar = (board_filter.arbitration >> shift) & width
    if am == 0 and ar == 0:
        return True
    if board_filter.mask & (1 << 29) and extended != ide:
        return False
    return ident & am == ar & am


FITTING = [
    {"can_id": 0x120, "can_mask": 0x7F0, "extended": False},
    {"can_id": 0x7FF, "can_mask": 0x7FF, "extended": False},
    {"can_id": 0x18FF0000, "can_mask": 0x1FFF0000, "extended": True},
    {"can_id": 0x123, "can_mask": 0x1FFFFFFF},
    {"can_id": 0x1F5, "can_mask": 0x00F},
]
IDS = [0, 1, 0x120, 0x123, 0x12F, 0x130, 0x1F5, 0x7FF, 0x18FF0000, 0x18FF1234, 0x1FFFFFFF]


@pytest.mark.parametrize("python_filter", FITTING)
def test_a_fitting_filter_passes_on_the_board_exactly_what_python_can_matches(python_filter):
    board_filter = frames.board_filter([python_filter])
    assert board_filter is not None and not board_filter.unset
    bus = VirtualBus(channel="kelcan-filter-test")
    try:
        bus.set_filters([python_filter])
        for ident, extended in itertools.product(IDS, [False, True]):
            if not extended and ident > 0x7FF:
                continue
            msg = can.Message(arbitration_id=ident, is_extended_id=extended)
            assert board_passes(board_filter, ident, extended) == bus._matches_filters(msg), (
                hex(ident),
                extended,
            )
    finally:
        bus.shutdown()


@pytest.mark.parametrize(
    "filters",
    [
        [{"can_id": 0x100, "can_mask": 0x700}, {"can_id": 0x200, "can_mask": 0x700}],
        [{"can_id": 0x100, "can_mask": 0}],
        [{"can_id": 0x100, "can_mask": 0xFFF, "extended": False}],
        [{"can_id": 0x100, "can_mask": 0xFFFFFFFF}],
    ],
)
def test_filters_that_do_not_fit_stay_in_software(filters):
    assert frames.board_filter(filters) is None


def test_the_open_filter_is_unset():
    assert frames.PASS_ALL.unset
