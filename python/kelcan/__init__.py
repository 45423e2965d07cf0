"""python-can interface for the KEL board and kelsim: can.Bus(interface="kel", channel=...)."""

from kelcan.bus import KelBus, parse_channel

__all__ = ["KelBus", "parse_channel"]
__version__ = "0.19"
