"""QEMU's monitor (QMP), and what scripts in the guest may ask of it."""

import json
import socket
import time


class MonitorError(Exception):
    """QEMU refused, or did not answer."""


class Monitor:
    """The monitor's end of a connection; commands wait for their answer."""

    PATIENCE_SECONDS = 60

    def __init__(self, connection, scale):
        self.connection = connection
        self.scale = scale
        self.unread = b""
        self.receive_message()  # the greeting
        self.execute("qmp_capabilities")

    def fileno(self):
        return self.connection.fileno()

    def receive_message(self):
        """The next message; what arrives behind it waits for the next call."""
        deadline = time.monotonic() + self.PATIENCE_SECONDS * self.scale
        while b"\n" not in self.unread:
            self.connection.settimeout(max(deadline - time.monotonic(), 0.01))
            try:
                data = self.connection.recv(65536)
            except socket.timeout as error:
                raise MonitorError("QEMU's monitor does not answer") from error
            except OSError:
                data = b""
            if not data:
                raise MonitorError("QEMU has closed its monitor")
            self.unread += data
        line, self.unread = self.unread.split(b"\n", 1)
        return json.loads(line)

    def read_event(self):
        """To be called when the connection is readable; nothing depends on what it tells."""
        self.receive_message()

    def execute(self, command, **arguments):
        request = {"execute": command, "arguments": arguments}
        try:
            self.connection.sendall(json.dumps(request).encode() + b"\n")
        except OSError as error:
            raise MonitorError("QEMU has closed its monitor") from error
        while True:
            message = self.receive_message()
            if "error" in message:
                raise MonitorError(message["error"]["desc"])
            if "return" in message:
                return message["return"]


def device_del(monitor, device):
    monitor.execute("device_del", id=device)


def set_link(monitor, device, state):
    if state not in ("on", "off"):
        raise MonitorError("a link is switched on or off")
    monitor.execute("set_link", name=device, up=state == "on")


def qom_set(monitor, path, name, value):
    try:
        value = json.loads(value)
    except ValueError:
        pass  # a text
    monitor.execute("qom-set", path=path, property=name, value=value)


def system_reset(monitor):
    """Restarts the guest as a loss of power would. The firmware then restarts once more by itself, so
    restarts of the guest's own stay allowed until forbid_restart."""
    monitor.execute("set-action", reboot="reset")
    monitor.execute("system_reset")


def forbid_restart(monitor):
    """As it is from the start: a guest that restarts by itself ends."""
    monitor.execute("set-action", reboot="shutdown")


# Nothing else: the monitor as a whole can write to the host's files.
HELPERS = {
    "device_del": device_del,
    "set_link": set_link,
    "qom-set": qom_set,
    "system_reset": system_reset,
}


def perform(monitor, words):
    """What a script asked for; raises MonitorError when it cannot be had."""
    helper = HELPERS.get(words[0]) if words else None
    if helper is None:
        raise MonitorError(f"the host knows {', '.join(HELPERS)}")
    try:
        helper(monitor, *words[1:])
    except TypeError as error:
        raise MonitorError(f"{words[0]}: wrong number of words") from error
