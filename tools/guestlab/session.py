"""One run of a guest: starts it, listens to it, and says how it ended."""

import contextlib
import ctypes
import json
import pathlib
import selectors
import shlex
import signal
import socket
import subprocess
import sys
import tempfile
import time

from guestlab import Unavailable
from guestlab.monitor import Monitor, MonitorError, forbid_restart, perform

# As timeout(1) and the shell have them; the file "outcome" tells a script's own from these.
EXIT_TIMEOUT = 124
EXIT_DIED = 125
EXIT_NO_LAB = 126

CONSOLE_LINES = 25
POWER_OFF_SECONDS = 30
GUEST_PROGRAMS = pathlib.Path(__file__).resolve().parent / "guest"


class Run:
    """The files of a run. Its folder holds what is kept, its sockets lie where paths are short."""

    def __init__(self, folder, sockets):
        self.folder = pathlib.Path(folder).resolve()
        self.files = self.folder / "files"  # shared with the guest
        self.console = self.folder / "console.log"
        self.line = pathlib.Path(sockets) / "line"
        self.monitor = pathlib.Path(sockets) / "monitor"
        self.files.mkdir(parents=True, exist_ok=True)

    def log(self, text):
        with open(self.folder / "lab.log", "a", encoding="utf-8") as file:
            file.write(text + "\n")


def write_start(run, script, arguments, environment, modules):
    """What init runs in the guest: the script, as if called from the root of the tree."""
    exports = "\n".join(f"export {name}={shlex.quote(value)}"
                        for name, value in environment.items())
    words = " ".join(shlex.quote(word) for word in [str(script), *arguments])
    (run.files / "start").write_text(f"""\
mkdir -p /lib/modules
mount --bind {shlex.quote(str(modules))} /lib/modules || exit
export HOME=/root LC_ALL=C.UTF-8
export PATH={shlex.quote(str(GUEST_PROGRAMS))}:/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
export GUEST_LAB_RESULTS=/run/guest-lab/files
export GUEST_LAB_BOOT=$(cat /run/guest-lab/files/boot)
{exports}
cd "$GUEST_LAB_TREE" || exit
exec /bin/bash {words}
""", encoding="utf-8")


def listen(path):
    server = socket.socket(socket.AF_UNIX)
    server.bind(str(path))
    server.listen(1)
    return server


def die_with_parent():
    """A lab that is killed takes its guest with it."""
    PR_SET_PDEATHSIG = 1
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)


class Session:
    """A guest and its end. Limits are in seconds: for a boot, and for the script behind it."""

    def __init__(self, run, command, limits, scale):
        self.run = run
        self.command = command
        self.boot_limit, self.script_limit = (limit * scale for limit in limits)
        self.scale = scale
        self.begin = time.monotonic()
        self.boot_seconds = []
        self.await_boot()
        self.status = None
        self.failure = None  # init's own words
        self.unread = b""
        self.shown = 0

    # --- The guest and the lines to it

    def await_boot(self):
        self.boot_begin = time.monotonic()
        self.deadline = self.boot_begin + self.boot_limit
        self.booting = True

    def await_script(self):
        if not self.booting:
            self.qemu.kill()  # it has restarted unasked, which is an end
            return
        if self.boot_seconds:
            with contextlib.suppress(MonitorError):  # QEMU has ended
                forbid_restart(self.monitor)
        now = time.monotonic()
        self.boot_seconds.append(round(now - self.boot_begin, 1))
        self.deadline = now + self.script_limit
        self.booting = False
        self.run.log(f"up after {self.boot_seconds[-1]} s")

    def start(self):
        servers = [listen(self.run.line), listen(self.run.monitor)]
        (self.run.files / "boot").write_text("1\n", encoding="ascii")
        self.qemu = subprocess.Popen(
            self.command, stdin=subprocess.DEVNULL, preexec_fn=die_with_parent,
            stdout=open(self.run.folder / "qemu.log", "wb"), stderr=subprocess.STDOUT)
        self.line, monitor = (self.accept(server) for server in servers)
        self.monitor = Monitor(monitor, self.scale)

    def accept(self, server):
        with server:
            server.settimeout(0.2)
            while True:
                try:
                    return server.accept()[0]
                except socket.timeout:
                    if self.qemu.poll() is not None or time.monotonic() > self.deadline:
                        words = (self.run.folder / "qemu.log").read_text(errors="replace").strip()
                        raise Unavailable(f"QEMU does not start: {words}") from None

    def stop(self):
        if hasattr(self, "qemu") and self.qemu.poll() is None:
            self.qemu.kill()
            self.qemu.wait()

    # --- What the guest says

    def hear(self):
        try:
            data = self.line.recv(4096)
        except OSError:
            data = b""  # QEMU has ended
        *lines, self.unread = (self.unread + data).split(b"\n")
        for line in lines:
            self.understand(line.decode(errors="replace").strip().split())
        return bool(data)

    def understand(self, words):
        if words[:1] == ["up"]:
            self.await_script()
        elif words[:1] == ["exit"] and len(words) == 2 and words[1].isdigit():
            self.status = int(words[1])
            self.deadline = time.monotonic() + POWER_OFF_SECONDS * self.scale
        elif words[:1] == ["failed"]:
            self.failure = " ".join(words[1:])
        elif words[:1] == ["request"] and len(words) > 2:
            self.serve(words[1], words[2:])

    def serve(self, number, words):
        if words == ["system_reset"]:
            (self.run.files / "boot").write_text(f"{len(self.boot_seconds) + 1}\n",
                                                 encoding="ascii")
            self.await_boot()
        try:
            perform(self.monitor, words)
            answer = "ok"
        except MonitorError as error:
            answer = f"error {error}"
        self.run.log(f"asked for {' '.join(words)}: {answer}")
        with contextlib.suppress(OSError):  # QEMU has ended
            self.line.sendall(f"{number} {answer}\n".encode())

    def show_output(self):
        """What the script has printed since the last call."""
        path = self.run.files / "output.log"
        if path.exists():
            with open(path, "rb") as file:
                file.seek(self.shown)
                new = file.read()
            self.shown += len(new)
            sys.stdout.buffer.write(new)
            sys.stdout.flush()

    def watch(self):
        """Until the machine has ended or its time is up."""
        selector = selectors.DefaultSelector()
        selector.register(self.line, selectors.EVENT_READ, self.hear)
        selector.register(self.monitor, selectors.EVENT_READ, self.hear_monitor)
        while time.monotonic() < self.deadline and self.qemu.poll() is None:
            for key, _ in selector.select(0.2):
                if not key.data():
                    selector.unregister(key.fileobj)
            self.show_output()
        while self.qemu.poll() is not None and self.hear():
            pass  # what was still on its way
        self.show_output()

    def hear_monitor(self):
        try:
            self.monitor.read_event()
        except MonitorError:
            return False
        return True

    # --- How it ended

    def last_of_console(self):
        lines = self.run.console.read_text(errors="replace").splitlines()
        return "\n".join(lines[-CONSOLE_LINES:])

    def panic(self):
        for line in self.run.console.read_text(errors="replace").splitlines():
            if "Kernel panic" in line:
                return line[line.index("Kernel panic"):].strip()
        return None

    def judge(self):
        """Kind of end, exit status, and a sentence. Only a script's own status can be a pass."""
        if self.status is not None:
            return "exit", self.status, f"the script exited with {self.status}"
        panic = self.panic()
        ended = self.qemu.poll() is not None
        if self.booting:
            reason = panic or self.failure or (
                "it ended" if ended else f"it was not up within {self.boot_limit:.0f} s")
            return "no boot", EXIT_NO_LAB, f"the guest did not come up: {reason}"
        if panic:
            return "panic", EXIT_DIED, f"the guest's kernel panicked: {panic}"
        if ended:
            return "died", EXIT_DIED, "the guest ended before the script did"
        return "hang", EXIT_TIMEOUT, f"the script did not end within {self.script_limit:.0f} s"

    def conclude(self):
        kind, status, sentence = self.judge()
        self.run.log(sentence)
        outcome = {"end": kind, "status": status, "boots": self.boot_seconds,
                   "seconds": round(time.monotonic() - self.begin, 1), "text": sentence}
        (self.run.folder / "outcome").write_text(json.dumps(outcome) + "\n", encoding="utf-8")
        if kind != "exit":
            print(f"guest-lab: {sentence}; the console's end:\n{self.last_of_console()}",
                  file=sys.stderr)
        return status


def run_guest(run, command, limits, scale):
    """The script's status, or one of the lab's own when it did not end."""
    session = Session(run, command, limits, scale)
    try:
        session.start()
        session.watch()
        return session.conclude()
    finally:
        session.stop()
        for image in run.folder.glob("*.img"):
            image.unlink()


def make_sockets():
    """Below /tmp: the path of a socket may have no more than 107 bytes."""
    return tempfile.TemporaryDirectory(prefix="guest-lab-", dir="/tmp")
