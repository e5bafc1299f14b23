"""QEMU's command line: the machine that the options of the lab describe."""

import shutil
import subprocess

from guestlab import Unavailable

QEMU = "qemu-system-x86_64"
DISK_MEBIBYTES = 64

COMMAND_LINE = " ".join([
    "console=ttyS0", "quiet", "loglevel=5", "rdinit=/init", "mitigations=off",
    "panic=1",  # restarts, which ends the machine
])


def base(options, kernel, initramfs):
    return [
        QEMU, "-name", "guest-lab", "-nodefaults", "-display", "none", "-vga", "none",
        # Hardware virtualisation is neither asked for nor needed: nested, it may hang.
        "-accel", "tcg,thread=multi", "-cpu", "max", "-machine", "q35",
        "-m", str(options.memory), "-no-reboot",
        "-kernel", str(kernel.image), "-initrd", str(initramfs), "-append", f"{COMMAND_LINE} {options.append}",
    ]


def channels(run):
    """The console's log, the line to the guest's init, and the monitor."""
    return [
        "-chardev", f"file,id=console,path={run.console}", "-serial", "chardev:console",
        "-chardev", f"socket,id=line,path={run.line}", "-serial", "chardev:line",
        "-chardev", f"socket,id=monitor,path={run.monitor}",
        "-mon", "chardev=monitor,mode=control",
    ]


def folders(run):
    """The host's files, read-only, and the one folder that the guest shares with the host."""
    return [
        "-virtfs", "local,path=/,mount_tag=root,security_model=none,readonly=on,multidevs=remap",
        # Mapped: what the guest makes there are plain files, never links or devices.
        "-virtfs", f"local,path={run.files},mount_tag=files,security_model=mapped-xattr",
    ]


def nodes(options):
    """Memory in as many nodes as asked for, the processors dealt out among them."""
    arguments = ["-smp", f"{options.cpus},sockets={options.cpus}"]
    if options.numa < 2:
        return arguments
    share = options.memory // options.numa
    for node in range(options.numa):
        cpus = [f"cpus={cpu}" for cpu in range(options.cpus) if cpu % options.numa == node]
        arguments += ["-object", f"memory-backend-ram,id=memory{node},size={share}M",
                      "-numa", ",".join(["node", f"nodeid={node}", f"memdev=memory{node}", *cpus])]
    for near in range(options.numa):
        for far in range(near + 1, options.numa):
            arguments += ["-numa", f"dist,src={near},dst={far},val=21"]
    return arguments


def drive(run, name):
    image = run.folder / f"{name}.img"
    with open(image, "wb") as file:
        file.truncate(DISK_MEBIBYTES << 20)
    return ["-drive", f"file={image},if=none,id={name}-image,format=raw,cache=unsafe"]


def slot(number):
    """A port of its own, so that the device behind it can be pulled."""
    return ["-device", f"pcie-root-port,id=port{number},slot={number},chassis={number}"]


def devices(options, run):
    arguments = []
    port = 1
    if options.nvme:
        arguments += slot(port) + drive(run, "nvme0")
        arguments += ["-device", f"nvme,id=nvme0,serial={options.nvme_serial},drive=nvme0-image,"
                      f"bus=port{port}"]
        port += 1
    if options.sata:
        arguments += drive(run, "sata0")
        arguments += ["-device", "ide-hd,id=sata0,serial=LAB-SATA,drive=sata0-image,bus=ide.0"]
    if options.scsi:
        arguments += slot(port) + ["-device", f"virtio-scsi-pci,id=scsi,bus=port{port}"]
        arguments += drive(run, "scsi0")
        arguments += ["-device", "scsi-hd,id=scsi0,serial=LAB-SCSI,drive=scsi0-image,bus=scsi.0"]
        port += 1
    for number, model in enumerate(options.nic):
        # All of them on one wire, which leads nowhere else.
        arguments += slot(port) + [
            "-netdev", f"hubport,id=wire{number},hubid=1",
            "-device", f"{model},id=net{number},netdev=wire{number},bus=port{port}"]
        port += 1
    return arguments


def command(options, kernel, initramfs, run):
    return (base(options, kernel, initramfs) + nodes(options) + channels(run) + folders(run)
            + devices(options, run))


def version():
    if shutil.which(QEMU) is None:
        raise Unavailable(f"{QEMU} is not installed (package qemu-system-x86)")
    try:
        return subprocess.run([QEMU, "--version"], capture_output=True, text=True,
                              check=True).stdout.splitlines()[0]
    except (OSError, subprocess.CalledProcessError) as error:
        raise Unavailable(f"{QEMU} cannot be run: {error}") from error
