#!/usr/bin/env python3
"""The steps of a run's log (jsonl), a line each: result, name, and what was found, between tabs.

usage: steps.py LOG
       steps.py LOG SYMPTOM    the diagnoses with it instead, a line each: type, step's name, message"""

import json
import sys


class Step:
    def __init__(self, name):
        self.name = name
        self.diagnoses = set()
        self.told = []
        self.findings = []
        self.status = "CUT OFF"

    def result(self):
        if "FAIL" in self.diagnoses:
            return "FAILED"
        if self.status in ("ERROR", "CUT OFF"):
            return self.status
        if self.status == "SKIP":
            return "SKIPPED"
        return "UNUSUAL" if "UNKNOWN" in self.diagnoses else "PASSED"


def flat(text):
    return " ".join(text.split())


def note(step, content):
    if "diagnosis" in content:
        diagnosis = content["diagnosis"]
        step.diagnoses.add(diagnosis["type"])
        step.told.append(diagnosis)
        message = flat(diagnosis.get("message", ""))
        # A package's own stands in the log already.
        if message and message not in step.findings:
            step.findings.append(message)
    elif "error" in content:
        error = content["error"]
        step.findings.append(flat(f"error: {error['symptom']}: {error.get('message', '')}"))
    elif "testStepEnd" in content:
        step.status = content["testStepEnd"]["status"]
    elif content.get("log", {}).get("severity") in ("WARNING", "ERROR", "FATAL"):
        step.findings.append(flat(content["log"]["message"]))


def read(lines):
    steps = {}
    for line in lines:
        content = json.loads(line).get("testStepArtifact", {})
        if "testStepStart" in content and content["testStepId"] != "coverage":
            steps[content["testStepId"]] = Step(content["testStepStart"]["name"])
        elif content and content["testStepId"] in steps:
            note(steps[content["testStepId"]], content)
    return steps.values()


def main(file, symptom=None):
    with open(file, encoding="utf-8") as log:
        for step in read(log):
            if symptom is None:
                print("\t".join([step.result(), step.name, *step.findings]))
            for told in step.told:
                if told["verdict"] == symptom:
                    print("\t".join([told["type"], step.name, flat(told.get("message", ""))]))


if len(sys.argv) not in (2, 3):
    raise SystemExit(__doc__)
main(*sys.argv[1:])
