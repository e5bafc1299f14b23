"""Logs of runs, from which pages are made that are looked at."""

import datetime
import json
import random

HOSTILE = "</title><script>alert(1)</script>\"'&amp;\x1b[31m\u202e<img src=x onerror=1> {} ]]> \u5185\u5b58 " + "W" * 90


class Log:
    """A log that is written line by line, at times of its own."""

    def __init__(self, path):
        self.file = open(path, "w", encoding="utf-8")
        self.number = 0
        self.time = datetime.datetime(2026, 3, 1, 1)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.file.close()

    @staticmethod
    def stamp(time):
        return time.strftime("%Y-%m-%dT%H:%M:%S.000Z")

    def write(self, kind, content):
        line = {kind: content, "sequenceNumber": self.number, "timestamp": self.stamp(self.time)}
        self.file.write(json.dumps(line) + "\n")
        self.number += 1

    def wait(self, seconds):
        self.time += datetime.timedelta(seconds=seconds)

    def start(self, machine, devices):
        self.number = 0
        self.write("schemaVersion", {"major": 2, "minor": 0})
        hardware = [{"hardwareInfoId": str(place), "name": name, "location": f"host/{place}"}
                    for place, name in enumerate(devices)]
        self.write("testRunArtifact", {"testRunStart": {
            "name": "diagctl", "version": "1.0.0", "commandLine": "diagctl run --passes 2",
            "parameters": {"profile": "standard", "user": "root"},
            "dutInfo": {"dutInfoId": machine, "name": machine,
                        "platformInfos": [{"info": "Linux 6.1.0 x86_64"}],
                        "softwareInfos": [{"softwareInfoId": "memory", "name": "Memory package",
                                           "version": "1.2"}],
                        "hardwareInfos": hardware}}})

    def end(self, result="PASS"):
        self.write("testRunArtifact", {"testRunEnd": {"status": "COMPLETE", "result": result}})

    def step(self, step, **content):
        self.write("testStepArtifact", {"testStepId": step, **content})

    def begin(self, step, package, test, device):
        self.step(step, testStepStart={"name": f"{package}: {test} on {device}"})

    def figure(self, step, name, value, unit=""):
        self.step(step, measurement={"name": name, "value": value, **({"unit": unit} if unit else {})})

    def judge(self, step, kind, verdict, message="", number=1):
        self.step(step, extension={"name": "pass", "content": {"number": number}})
        self.step(step, diagnosis={"verdict": verdict, "type": kind,
                                   **({"message": message} if message else {})})

    def finish(self, step, status="COMPLETE"):
        self.step(step, testStepEnd={"status": status})

    def skip(self, step, reason, kind):
        self.step(step, log={"severity": "INFO", "message": reason})
        self.step(step, extension={"name": "skipped", "content": {"kind": kind}})
        self.finish(step, "SKIP")

    def passed(self, step):
        self.judge(step, "PASS", "PASSED")
        self.finish(step)


def watch(log, seconds, cores):
    """Sensors over the time to come, one of which has a peak of a single value."""
    sensors = [(f"Core {core}", "\u00b0C", 95, 45) for core in range(cores)]
    sensors += [("fan1", "RPM", None, 3000), ("input", "W", 750, 300), ("clock", "MHz", None, 2400)]
    log.begin("machine-watch", "diagctl", "Machine watch", "this machine")
    for place, (name, unit, limit, _) in enumerate(sensors):
        series = {"measurementSeriesId": str(place), "name": name, "unit": unit}
        if limit:
            series["validators"] = [{"name": "limit", "type": "LESS_THAN_OR_EQUAL", "value": limit}]
        log.step("machine-watch", measurementSeriesStart=series)
        for index in range(0, seconds, 2):
            value = 97 if (place, index) == (0, 40) else base_of(sensors[place], index)
            log.step("machine-watch", measurementSeriesElement={
                "index": index // 2, "measurementSeriesId": str(place), "value": value,
                "timestamp": log.stamp(log.time + datetime.timedelta(seconds=index))})


def base_of(sensor, index):
    base = sensor[3]
    return round(base * (1 + 0.4 * min(1, index / 60)) + random.uniform(-2, 2), 1)


def clean(path, machine="node17"):
    nodes, disks = ["Node 0", "Node 1"], [f"Disk {letter}" for letter in "abcd"]
    with Log(path) as log:
        log.start(machine, nodes + disks)
        watch(log, 150, 8)
        for number, device in enumerate(nodes + disks):
            step = str(number)
            isnode = device in nodes
            log.begin(step, "Memory" if isnode else "Storage", "March C" if isnode else "Read", device)
            log.figure(step, "coveredBytes", 30 << 30, "B")
            log.figure(step, "totalBytes", 64 << 30, "B")
            log.figure(step, "readRate", 12000 if isnode else 510 + number, "MB/s")
            log.wait(20)
            log.passed(step)
        log.finish("machine-watch")
        log.end()


def every(path, dress="{}".format, isended=True, machine="node18"):
    """A run with every verdict that there is."""
    devices = [dress(name) for name in ("Node 0", "Disk a", "Disk b", "eth0", "Core 7", "Disk n")]
    with Log(path) as log:
        log.start(dress(machine), devices)
        watch(log, 60, 4)
        for number, (package, test) in enumerate([
                ("Memory", "March C"), ("Storage", "Read"), ("Storage", "Write"),
                ("Network", "Loopback"), ("Processor", "Arithmetic"), ("Storage", "Health")]):
            log.begin(str(number), package, dress(test), devices[number])
            log.figure(str(number), "seed", "0x1234")
            log.wait(8)
        log.judge("0", "FAIL", "miscompare",
                  dress("0xdeadbeef instead of 0xdeadbeff.") + "\n-> Replace the module in slot A3.")
        log.finish("0")
        log.passed("1")
        log.step("2", log={"severity": "WARNING",
                           "message": dress("12 sectors reallocated.") + "\n-> Replace the disk soon."})
        log.judge("2", "FAIL", "disk-error", "The kernel told of an error of the disk.", 0)
        log.finish("2")
        log.step("3", error={"symptom": "worker-crashed", "message": "It crashed.\n-> Run it again."})
        log.finish("3", "ERROR")
        log.step("4", extension={"name": "aborted", "content": {}})
        log.finish("4", "SKIP")
        log.skip("5", "needs root", "needs-privilege")
        log.judge("machine-watch", "UNKNOWN", "memory-corrected", "3 errors were corrected.", 0)
        if isended:
            log.finish("machine-watch")
            log.end("FAIL")
        else:
            log.begin("9", "Memory", "Walking ones", devices[0])


def large(path):
    """Ten thousand steps."""
    with Log(path) as log:
        log.start("large", [f"Disk {place}" for place in range(64)])
        watch(log, 600, 40)
        for number in range(10_000):
            step = str(number)
            log.begin(step, "Storage", f"Test {number % 10}", f"Disk {number // 10}")
            log.figure(step, "readRate", 500 + random.gauss(0, 10), "MB/s")
            log.step(step, log={"severity": "INFO", "message": f"Looked at {number} blocks of it."})
            log.wait(1)
            log.passed(step)
        log.finish("machine-watch")
        log.end()


def make(folder):
    """@return the logs of each page, by its name."""
    random.seed(17)
    pages = {}

    def page(name, write, *arguments, **named):
        path = folder / f"{name}.jsonl"
        write(path, *arguments, **named)
        pages[name] = [path]

    page("clean", clean)
    page("every", every)
    page("cut-off", every, isended=False)
    page("hostile", every, HOSTILE.format)
    page("large", large)
    for number in range(10):
        name = f"machine{number}"
        page(name, *((every,) if number == 4 else (clean,)), machine=name)
    pages["machines"] = [pages.pop(f"machine{number}")[0] for number in range(10)]
    return pages
