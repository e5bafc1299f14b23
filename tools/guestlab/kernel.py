"""Debian's kernel for the guest: fetched and checked by apt, unpacked once, kept in a cache."""

import contextlib
import fcntl
import hashlib
import os
import pathlib
import re
import shutil
import subprocess
import tempfile

from guestlab import Unavailable

METAPACKAGE = "linux-image-amd64"


class Kernel:
    """An unpacked kernel package, with its modules' dependencies worked out."""

    def __init__(self, folder, version, origin):
        self.folder = folder
        self.version = version  # of the kernel, such as "6.1.0-18-amd64"
        self.origin = origin  # package and its version, and whether it was fetched or cached

    @property
    def image(self):
        return self.folder / "boot" / f"vmlinuz-{self.version}"

    @property
    def modules(self):
        return self.folder / "lib" / "modules"


def run(command, **options):
    """What a command prints; Unavailable with its own words when it fails."""
    try:
        done = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    except FileNotFoundError as error:
        raise Unavailable(f"{command[0]} is not installed") from error
    if done.returncode != 0:
        words = (done.stderr or done.stdout).strip().splitlines()[-3:]
        raise Unavailable(f"{' '.join(command[:3])} failed: {' '.join(words)}")
    return done.stdout


def find_package():
    """Name and version of the kernel package that the mirror's lists name today."""
    depends = run(["apt-cache", "depends", METAPACKAGE])
    found = re.search(r"Depends: (linux-image-\S+)", depends)
    if not found:
        raise Unavailable(f"apt knows no {METAPACKAGE}: apt-get update may be needed")
    policy = run(["apt-cache", "policy", found[1]])
    candidate = re.search(r"Candidate: (\S+)", policy)
    if not candidate or candidate[1] == "(none)":
        raise Unavailable(f"apt knows no version of {found[1]}: apt-get update may be needed")
    return found[1], candidate[1]


def expected_digest(package, version):
    """What apt's signed lists say of the package file; None when they no longer name it."""
    record = run(["apt-cache", "show", f"{package}={version}"])
    found = re.search(r"^SHA256: ([0-9a-f]{64})$", record, re.MULTILINE)
    return found[1] if found else None


def digest_of(file):
    digest = hashlib.sha256()
    with open(file, "rb") as stream:
        while block := stream.read(1 << 20):
            digest.update(block)
    return digest.hexdigest()


def fetch(package, version, cache):
    """The package file, which apt has checked against its signed lists."""
    with tempfile.TemporaryDirectory(dir=cache) as folder:
        # As root apt would fetch as a user of its own, who may not write here.
        as_ourselves = ["-o", "APT::Sandbox::User=root"] if os.geteuid() == 0 else []
        run(["apt-get", *as_ourselves, "download", f"{package}={version}"], cwd=folder)
        files = list(pathlib.Path(folder).glob("*.deb"))
        if len(files) != 1:
            raise Unavailable(f"apt-get download {package} left {len(files)} files")
        if digest_of(files[0]) != expected_digest(package, version):
            raise Unavailable(f"{files[0].name} is not what apt's lists describe")
        kept = cache / files[0].name
        files[0].rename(kept)
        return kept


def unpack(archive, folder):
    """Lays the package's files down as a whole or not at all."""
    with tempfile.TemporaryDirectory(dir=folder.parent) as name:
        work = pathlib.Path(name) / "kernel"
        run(["dpkg-deb", "-x", str(archive), str(work)])
        versions = [entry.name for entry in (work / "lib" / "modules").iterdir()]
        if len(versions) != 1:
            raise Unavailable(f"{archive.name} holds {len(versions)} kernels")
        run(["depmod", "-b", str(work), versions[0]])
        work.chmod(0o755)
        work.rename(folder)


def opened(folder, origin):
    version = next((folder / "lib" / "modules").iterdir()).name
    return Kernel(folder, version, origin)


def newest_cached(cache):
    folders = sorted(cache.glob("kernel-*"), key=lambda folder: folder.stat().st_mtime)
    return folders[-1] if folders else None


@contextlib.contextmanager
def locked(cache):
    """Two labs at once would fetch and unpack the same."""
    cache.mkdir(parents=True, exist_ok=True)
    with open(cache / "lock", "w", encoding="ascii") as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        yield


def provide(cache):
    """The kernel that the mirror serves; when it cannot be had, the newest one of the cache."""
    with locked(cache):
        try:
            package, version = find_package()
            folder = cache / f"kernel-{package}_{version.replace(':', '%3a')}"
            if folder.is_dir():
                return opened(folder, f"{package} {version}, from the cache")
            archive = fetch(package, version, cache)
            unpack(archive, folder)
            archive.unlink()
            for other in cache.glob("kernel-*"):
                if other != folder:
                    shutil.rmtree(other)
            return opened(folder, f"{package} {version}, fetched by apt-get download")
        except Unavailable as reason:
            folder = newest_cached(cache)
            if folder is None:
                raise Unavailable(f"no kernel: {reason}") from reason
            return opened(folder, f"{folder.name[7:]}, from the cache ({reason})")
