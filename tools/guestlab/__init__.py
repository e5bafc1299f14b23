"""The parts of tools/guest-lab: a stock kernel in an emulator, with hardware that can be broken."""


class Unavailable(Exception):
    """The lab cannot be had on this machine; the text says why."""
