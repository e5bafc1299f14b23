"""What the kernel starts with: busybox, the modules that reach the host's files, and init."""

import gzip
import hashlib
import os
import pathlib
import shutil
import subprocess
import tempfile

from guestlab import Unavailable
from guestlab.kernel import locked, run

# What it takes to mount the host's files. All else is loaded from there.
MODULES = ["virtio_pci", "9pnet_virtio", "9p", "overlay"]
INIT = pathlib.Path(__file__).parent / "guest" / "init"


def modules_in_order(kernel):
    """The files of the modules, each behind those that it needs; built-in ones have none."""
    files = []
    for module in MODULES:
        lines = run(["modprobe", "--dirname", str(kernel.folder), "--set-version", kernel.version,
                     "--show-depends", module])
        for line in lines.splitlines():
            words = line.split()
            if words[0] == "insmod" and words[1] not in files:
                files.append(words[1])
    return files


def busybox():
    path = shutil.which("busybox")
    if path is None:
        raise Unavailable("busybox is not installed (package busybox-static)")
    with open(path, "rb") as stream:
        if b"/lib64/ld-linux" in stream.read(4096):
            raise Unavailable(f"{path} needs shared libraries (package busybox-static does not)")
    return path


def pack(root):
    """The folder as a compressed cpio archive."""
    names = sorted(str(path.relative_to(root)) for path in root.rglob("*"))
    try:
        done = subprocess.run(["cpio", "--quiet", "-o", "-H", "newc", "-R", "0:0"], cwd=root,
                              input="\n".join(names).encode(), capture_output=True, check=False)
    except FileNotFoundError as error:
        raise Unavailable("cpio is not installed") from error
    if done.returncode != 0:
        raise Unavailable(f"cpio failed: {done.stderr.decode().strip()}")
    return gzip.compress(done.stdout, compresslevel=1)


def build(kernel, program):
    with tempfile.TemporaryDirectory() as name:
        root = pathlib.Path(name)
        for folder in ("bin", "modules", "proc", "sys", "dev", "host", "root"):
            (root / folder).mkdir()
        shutil.copy(program, root / "bin" / "busybox")
        shutil.copy(INIT, root / "init")
        (root / "init").chmod(0o755)
        order = []
        for file in modules_in_order(kernel):
            shutil.copy(file, root / "modules")
            order.append(os.path.basename(file))
        (root / "modules" / "order").write_text("\n".join(order) + "\n", encoding="ascii")
        return pack(root)


def provide(kernel, cache):
    """The archive's file, built anew when one of its parts has changed."""
    program = busybox()
    key = hashlib.sha256()
    for part in (INIT.read_bytes(), pathlib.Path(__file__).read_bytes(),
                 pathlib.Path(program).read_bytes(), kernel.folder.name.encode()):
        key.update(hashlib.sha256(part).digest())
    file = cache / f"initramfs-{key.hexdigest()[:16]}"
    with locked(cache):
        if not file.exists():
            for other in cache.glob("initramfs-*"):
                other.unlink()
            work = cache / f"new-initramfs-{os.getpid()}"
            work.write_bytes(build(kernel, program))
            work.rename(file)
    return file
