"""python-can's own programs on the kel interface: can.logger records what kelcmd sends,
can.player plays it back and kelcmd counts it on the far channel."""

import signal
import subprocess
import sys

import can

COUNT = 100


def complete_rows(path, ident):
    """The ASC rows for `ident` that are on disk with their line end."""
    text = path.read_text() if path.exists() else ""
    return [line for line in text.split("\n")[:-1] if f" {ident:X} " in line]


def test_logger_records_a_kelcmd_stream_and_player_plays_it_back(board, tmp_path):
    log = tmp_path / "run.asc"
    logger = subprocess.Popen(
        [sys.executable, "-m", "can.logger", "-i", "kel", "-c", board.channel(2), "-f", str(log)],
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )
    try:
        assert logger.stdout.readline().startswith("Connected to KelBus")
        board.kelcmd(0, f"send 0x123:count@1ms*{COUNT}")
        # The logger writes through a buffer. Frames of another id follow until the stream's
        # last row is on disk, so Ctrl+C cannot fall between reading a frame and writing it.
        with board.bus(0) as filler:
            for _ in range(5000):
                if len(complete_rows(log, 0x123)) >= COUNT:
                    break
                filler.send(can.Message(arbitration_id=0x7FF, is_extended_id=False, data=bytes(8)))
        logger.send_signal(signal.SIGINT)
        assert logger.wait(60) == 0, logger.stdout.read()
    finally:
        if logger.poll() is None:
            logger.kill()
            logger.wait()
        logger.stdout.close()

    with can.ASCReader(str(log)) as reader:
        recorded = [msg for msg in reader if msg.arbitration_id == 0x123]
    assert [int.from_bytes(m.data, "little") for m in recorded] == list(range(COUNT))
    assert all(m.channel == 2 and m.dlc == 4 and not m.is_extended_id for m in recorded)

    counter = subprocess.Popen(
        board.kelcmd_args(2, f"recv 0x123:count*{COUNT}"),
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        text=True,
    )
    try:
        board.wait_for_clients(1)
        player = subprocess.run(
            [sys.executable, "-m", "can.player", "-i", "kel", "-c", board.channel(0), str(log)],
            capture_output=True,
            text=True,
            timeout=120,
        )
        assert player.returncode == 0, player.stdout + player.stderr
        output, _ = counter.communicate(timeout=120)
    finally:
        if counter.poll() is None:
            counter.kill()
            counter.communicate()
    assert counter.returncode == 0 and f"{COUNT} messages received" in output, output
