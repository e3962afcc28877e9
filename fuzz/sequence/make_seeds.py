#!/usr/bin/env python3
# Copyright (C) 2026 The libvircam Authors
"""Writes the call-sequence fuzzer's seed corpus: one small input per kind of
sequence. Usage: make_seeds.py OUTDIR"""
import hashlib
import os
import sys

ANSWERS = ["at_once", "before_return", "late_1ms", "late_1s", "late_2900ms", "just_before",
           "at_deadline", "just_after", "never", "fail", "call_error", "die_on_call"]
GAPS = ["1ms", "100ms", "1s", "2s", "2900ms", "3500ms", "10ms", "settle"]
ACTIONS = ["on", "off", "script", "kill", "replace", "register_switch_cb", "reconfigure", "close",
           "flush", "capture"]
STEPS = ["control", "config", "data"]


def seed(scripts, events):
    out = bytearray()
    for slot in range(2):
        for step in range(3):
            out.append(ANSWERS.index(scripts[slot][step]))
    for gap, action, *arg in events:
        slot = arg[0] if len(arg) > 0 else 0
        step = STEPS.index(arg[1]) if len(arg) > 1 else 0
        answer = ANSWERS.index(arg[2]) if len(arg) > 2 else 0
        out.append(GAPS.index(gap) | ACTIONS.index(action) << 3)
        out.append(slot | step << 1 | answer << 3)
    return bytes(out)


OK = ("at_once",) * 3
SEEDS = [
    ((OK, OK), [("1ms", "on", 0), ("settle", "off", 0)]),
    ((OK, OK), [("1ms", "on", 0), ("settle", "reconfigure"), ("settle", "off", 0)]),
    ((OK, OK), [("1ms", "on", 0), ("settle", "reconfigure", 0, "config", "late_1s"),
                ("settle", "off", 0)]),
    ((OK, OK), [("1ms", "on", 0), ("settle", "close"), ("10ms", "reconfigure"), ("settle", "on", 1)]),
    ((("late_1s", "at_once", "at_once"), OK), [("1ms", "on", 0), ("100ms", "on", 1), ("1ms", "off", 0),
                                               ("settle", "on", 1)]),
    ((OK, OK), [("1ms", "on", 0), ("settle", "kill", 0), ("10ms", "register_switch_cb"),
                ("1ms", "on", 1)]),
    ((OK, OK), [("1ms", "on", 0), ("settle", "off", 0), ("1ms", "on", 1), ("settle", "off", 1)]),
    ((OK, OK), [("1ms", "replace", 1), ("1ms", "on", 1), ("settle", "flush"), ("1ms", "capture")]),
    ((("late_1s", "at_once", "at_once"), OK), [("1ms", "on", 0), ("100ms", "close"),
                                               ("settle", "reconfigure")]),
]
for step in STEPS:
    for answer in ANSWERS:
        script = [a for a in OK]
        script[STEPS.index(step)] = answer
        SEEDS.append(((tuple(script), OK), [("1ms", "on", 0), ("settle", "off", 0)]))
SEEDS.append(((OK, OK), [("1ms", "on", 0), ("settle", "reconfigure", 0, "config", "never"),
                         ("1s", "off", 0)]))
SEEDS.append(((OK, OK), [("1ms", "close"), ("1ms", "on", 0), ("2s", "reconfigure")]))
# A handover to the other device after the pipeline reconfigured.
SEEDS.append(((OK, OK), [("1ms", "on", 0), ("settle", "reconfigure"), ("1ms", "off", 0),
                         ("1ms", "on", 1)]))

out_dir = sys.argv[1]
os.makedirs(out_dir, exist_ok=True)
for scripts, events in SEEDS:
    data = seed(scripts, events)
    with open(os.path.join(out_dir, hashlib.sha1(data).hexdigest()), "wb") as f:
        f.write(data)
print(len(SEEDS), "seeds")
