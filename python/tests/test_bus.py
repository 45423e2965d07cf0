"""KelBus against kelsim: channels 0 and 2 share one bus, 1 and 3 another."""

import contextlib
import threading
import time

import can
import pytest

CAN_FILTER_READ = 0x81010006
GET_BAUD = 0x81010005
STATUS_1 = 0x80004801

MESSAGES = [
    can.Message(arbitration_id=0x000, is_extended_id=False, data=b""),
    can.Message(arbitration_id=0x123, is_extended_id=False, data=b"\x12\x34"),
    can.Message(arbitration_id=0x7FF, is_extended_id=False, data=bytes(range(1, 9))),
    can.Message(arbitration_id=0x1ABCDEF, is_extended_id=True, data=b"\xaa\x55\x00"),
    can.Message(arbitration_id=0x1FFFFFFF, is_extended_id=True, data=bytes(8)),
    can.Message(arbitration_id=0x456, is_extended_id=False, is_remote_frame=True, dlc=4),
    can.Message(arbitration_id=0x10000, is_extended_id=True, is_remote_frame=True, dlc=0),
]


def receive(bus, count, timeout=10.0):
    """Up to `count` messages, waiting at most `timeout` seconds for each."""
    got = []
    while len(got) < count:
        msg = bus.recv(timeout)
        if msg is None:
            break
        got.append(msg)
    return got


def fields(msg):
    return (msg.arbitration_id, msg.is_extended_id, msg.is_remote_frame, msg.dlc, bytes(msg.data))


@pytest.mark.parametrize("sender, receiver", [(0, 2), (3, 1)])
def test_frames_arrive_on_the_wired_channel_as_sent(board, sender, receiver):
    with board.bus(receiver) as rx, board.bus(sender) as tx:
        before = time.time()
        for msg in MESSAGES:
            tx.send(msg)
        got = receive(rx, len(MESSAGES))
    assert [fields(m) for m in got] == [fields(m) for m in MESSAGES]
    assert all(m.channel == receiver and m.is_rx and m.timestamp >= before for m in got)


def test_kelcmd_frames_arrive_through_the_plugin(board):
    with board.bus(2) as rx:
        board.kelcmd(0, "send 0x123:1234; send 0x1234567:EXT:A1B2C3")
        got = receive(rx, 2)
    assert [fields(m) for m in got] == [
        (0x123, False, False, 2, b"\x12\x34"),
        (0x1234567, True, False, 3, b"\xa1\xb2\xc3"),
    ]


def test_own_messages_come_back_as_echoes(board):
    with board.bus(2), board.bus(0, receive_own_messages=True) as bus:
        bus.send(MESSAGES[1])
        echo = bus.recv(10)
    assert fields(echo) == fields(MESSAGES[1]) and not echo.is_rx


@pytest.mark.parametrize("bitrate, index", [(100000, 1), (125000, 2), (500000, 4), (1000000, 5)])
def test_bitrate_is_set_on_the_buses_channel(board, bitrate, index):
    with board.bus(1, bitrate=bitrate):
        assert board.query(1, GET_BAUD)[2] == index
    assert board.query(3, GET_BAUD)[2] == 3


def test_a_bitrate_the_board_does_not_take_fails_the_open(make_board):
    board = make_board("--ignore-set-baud")
    with pytest.raises(can.CanInitializationError):
        board.bus(0, bitrate=500000)
    with pytest.raises(ValueError):
        board.bus(0, bitrate=33333)


def test_a_fitting_filter_runs_on_the_board_and_is_put_back(board):
    original = board.query(2, CAN_FILTER_READ)
    wanted = [{"can_id": 0x120, "can_mask": 0x7F0, "extended": False}]
    ids = [(0x100, False), (0x123, False), (0x12F, False), (0x123, True), (0x130, False)]
    with board.bus(2, can_filters=wanted) as rx, board.bus(0) as tx:
        assert board.query(2, CAN_FILTER_READ)[2:] == (0x1FC00000 | 1 << 29, 0x84800000)
        refused_before = board.query(0, STATUS_1)[3]
        for ident, extended in ids:
            tx.send(can.Message(arbitration_id=ident, is_extended_id=extended, data=b"\1"))
        tx.send(can.Message(arbitration_id=0x121, is_extended_id=False))  # the last one
        got = receive(rx, 3)
        refused = board.query(0, STATUS_1)[3] - refused_before
    assert [(m.arbitration_id, m.is_extended_id) for m in got] == [
        (0x123, False),
        (0x12F, False),
        (0x121, False),
    ]
    assert refused == 3
    assert board.query(2, CAN_FILTER_READ) == original


def test_filters_that_do_not_fit_the_board_are_applied_here(board):
    board.kelcmd(2, "filt add 0x300")  # a board filter that would hide 0x100
    narrowed = board.query(2, CAN_FILTER_READ)
    wanted = [
        {"can_id": 0x100, "can_mask": 0x7FF, "extended": False},
        {"can_id": 0x1000, "can_mask": 0x1FFFF000, "extended": True},
    ]
    with board.bus(2, can_filters=wanted) as rx, board.bus(0) as tx:
        assert board.query(2, CAN_FILTER_READ)[2:] == (0, 0x80000000)
        for ident, extended in [(0x100, False), (0x300, False), (0x1234, True), (0x100, True)]:
            tx.send(can.Message(arbitration_id=ident, is_extended_id=extended))
        tx.send(can.Message(arbitration_id=0x1FFF, is_extended_id=True))  # the last one
        got = receive(rx, 3)
        rx.set_filters(None)  # the board's own filter again
        assert board.query(2, CAN_FILTER_READ) == narrowed
    assert [(m.arbitration_id, m.is_extended_id) for m in got] == [
        (0x100, False),
        (0x1234, True),
        (0x1FFF, True),
    ]


def test_shutdown_loses_no_frame_sent_just_before(board):
    count = 2000
    with board.bus(2) as rx:
        tx = board.bus(0)
        for n in range(count):
            tx.send(can.Message(arbitration_id=0x200, data=n.to_bytes(4, "little")))
        tx.shutdown()
        got = receive(rx, count)
    assert [int.from_bytes(m.data, "little") for m in got] == list(range(count))


@pytest.mark.parametrize(
    "options",
    [("--close-after", "1"), ("--close-after", "1", "--close-mid-frame")],
    ids=["closed", "closed-mid-frame"],
)
def test_a_board_that_goes_away_raises_a_can_error(make_board, options):
    board = make_board(*options)
    # Each open takes one answer; the board closes after it, or in the middle of the frame
    # that follows, which the other channel sends.
    with board.bus(0) as bus:
        with board.bus(2) as other, contextlib.suppress(can.CanError):
            other.send(MESSAGES[1])  # its own connection may be closed already
        with pytest.raises(can.CanOperationError):
            bus.recv(30)
        with pytest.raises(can.CanOperationError):
            for _ in range(10000):  # the closed connection shows on one of the sends
                bus.send(MESSAGES[1])


def test_a_bus_whose_board_went_away_still_shuts_down(make_board):
    board = make_board("--close-after", "2")  # the bit-rate and the filter answers
    bus = board.bus(0, can_filters=[{"can_id": 0x100, "can_mask": 0x700}])
    with pytest.raises(can.CanOperationError):
        bus.recv(30)
    bus.shutdown()  # the filter cannot be put back; the bus closes all the same
    with pytest.raises(can.CanOperationError):
        bus.send(MESSAGES[1])


def test_a_board_that_ends_while_a_read_waits_raises(make_board):
    board = make_board()
    outcome = []

    def read():
        try:
            bus.recv(None)
        except can.CanError as error:
            outcome.append(error)

    with board.bus(0) as bus:
        reader = threading.Thread(target=read)
        reader.start()
        board.stop()
        reader.join(30)
        assert not reader.is_alive()
    assert isinstance(outcome[0], can.CanOperationError)


def test_no_board_or_no_answer_fails_the_open(make_board):
    board = make_board("--drop-answer", "0x81010005")
    with pytest.raises(can.CanInitializationError):
        board.bus(0, answer_timeout=0.5)
    board.stop()
    with pytest.raises(can.CanInitializationError):
        board.bus(0)
