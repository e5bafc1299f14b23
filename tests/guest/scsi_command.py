#!/usr/bin/env python3
"""Sends a SCSI command to a disk, with data for it.

usage: scsi_command.py DEVICE COMMAND DATA
COMMAND, DATA  bytes in hexadecimal

Exit status: 0 when the disk says that the command went well."""

import ctypes
import fcntl
import sys

SG_IO = 0x2285
TO_DEVICE = -2


class Call(ctypes.Structure):
    _fields_ = [
        ("interface", ctypes.c_int), ("direction", ctypes.c_int),
        ("command_bytes", ctypes.c_ubyte), ("most_sense", ctypes.c_ubyte),
        ("vectors", ctypes.c_ushort), ("data_bytes", ctypes.c_uint),
        ("data", ctypes.c_void_p), ("command", ctypes.c_void_p), ("sense", ctypes.c_void_p),
        ("milliseconds", ctypes.c_uint), ("flags", ctypes.c_uint), ("pack", ctypes.c_int),
        ("user", ctypes.c_void_p), ("status", ctypes.c_ubyte), ("masked", ctypes.c_ubyte),
        ("message", ctypes.c_ubyte), ("sense_bytes", ctypes.c_ubyte),
        ("host", ctypes.c_ushort), ("driver", ctypes.c_ushort), ("left", ctypes.c_int),
        ("duration", ctypes.c_uint), ("info", ctypes.c_uint)]


def send(device, command, data):
    """The status of the command: 0 is good."""
    block = ctypes.create_string_buffer(command, len(command))
    content = ctypes.create_string_buffer(data, len(data))
    sense = ctypes.create_string_buffer(64)
    call = Call(interface=ord("S"), direction=TO_DEVICE, command_bytes=len(command),
                most_sense=len(sense), data_bytes=len(data), data=ctypes.addressof(content),
                command=ctypes.addressof(block), sense=ctypes.addressof(sense),
                milliseconds=60000)
    with open(device, "rb+", buffering=0) as disk:
        fcntl.ioctl(disk, SG_IO, call)
    return call.status or call.host


def main(device, command, data):
    # The first command after a change may be answered with the change.
    results = [send(device, bytes.fromhex(command), bytes.fromhex(data)) for _ in range(2)]
    return 0 if 0 in results else 1


if len(sys.argv) != 4:
    raise SystemExit(__doc__)
sys.exit(main(*sys.argv[1:]))
