#!/usr/bin/python3
"""Counts what one ad-attempt call costs the game's thread and holds it against the limits.

usage: check_call_costs.py PREFIX WORK

PREFIX is the installed shared package, WORK a folder for what is built and written. Nothing here
looks at the clock: instructions are counted by callgrind, system calls and written bytes by strace,
allocations by the program itself.
"""

import os
import re
import shlex
import shutil
import socket
import subprocess
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
CALLS = 10

# Of one call, by how many reports wait. The figures of the day are a little below.
LIMITS = {
    0: {"instructions": 52_000, "allocations": 60, "system calls": 8, "bytes written": 1_300},
    100: {"instructions": 58_000, "allocations": 60, "system calls": 8, "bytes written": 1_300},
    980: {"instructions": 130_000, "allocations": 60, "system calls": 8, "bytes written": 1_300},
}


def build(prefix, work):
    found = subprocess.run(["find", prefix, "-name", "zlnsessionreporting.pc"], check=True,
                           capture_output=True, text=True).stdout.split()
    environment = dict(os.environ, PKG_CONFIG_PATH=os.path.dirname(found[0]))
    flags = subprocess.run(["pkg-config", "--cflags", "--libs", "zlnsessionreporting"],
                           check=True, capture_output=True, text=True, env=environment).stdout
    program = os.path.join(work, "call_costs")
    compiler = os.environ.get("CC", "cc")
    subprocess.run([compiler, "-std=gnu99", "-O2", os.path.join(HERE, "call_costs.c"),
                    *shlex.split(flags), "-Wl,-rpath," + os.path.dirname(environment["PKG_CONFIG_PATH"]),
                    "-o", program], check=True)
    return program


def run(tool, program, depth, work):
    """Runs the program on a fresh installation, under a tool; returns what it prints."""
    home = os.path.join(work, "home")
    shutil.rmtree(home, ignore_errors=True)
    # It listens and never answers, so whatever is sent stays under way.
    with socket.create_server(("127.0.0.1", 0), backlog=16) as server:
        environment = {
            "PATH": os.environ["PATH"],
            "HOME": home,
            "XDG_DATA_HOME": os.path.join(home, "data"),
            "XDG_CONFIG_HOME": os.path.join(home, "config"),
            "https_proxy": "http://127.0.0.1:%d" % server.getsockname()[1],
        }
        return subprocess.run([*tool, program, str(depth), str(CALLS)], check=True,
                              capture_output=True, text=True, env=environment).stdout


def count_instructions(program, depth, work):
    output = os.path.join(work, "callgrind.out")
    run(["valgrind", "--quiet", "--tool=callgrind", "--callgrind-out-file=" + output,
         "--toggle-collect=ZLNSendRewardedAdZoneAttemptReport"], program, depth, work)
    with open(output) as lines:
        totals = [line for line in lines if line.startswith(("summary:", "totals:"))]
    return int(totals[0].split()[1]) // CALLS


def count_system_calls(program, depth, work):
    """The median call's number of system calls and of bytes that they write."""
    trace = os.path.join(work, "trace")
    run(["strace", "-o", trace], program, depth, work)
    with open(trace) as lines:
        pieces = re.split(r"^getppid\(\).*\n", lines.read(), flags=re.MULTILINE)
    calls = [piece.splitlines() for piece in pieces[1::2]]
    if len(calls) != CALLS:
        sys.exit("%d calls are in the trace" % len(calls))
    written = [sum(int(line.rsplit("=", 1)[1]) for line in call
                   if re.match(r"p?write", line)) for call in calls]
    return sorted(len(call) for call in calls)[CALLS // 2], sorted(written)[CALLS // 2]


def count_allocations(program, depth, work):
    return int(run([], program, depth, work).split()[1])


def main():
    prefix, work = sys.argv[1:]
    os.makedirs(work, exist_ok=True)
    program = build(prefix, work)
    failed = False
    print("%-6s %-14s %9s %9s" % ("depth", "of one call", "counted", "limit"))
    for depth, limits in LIMITS.items():
        system_calls, written = count_system_calls(program, depth, work)
        counted = {
            "instructions": count_instructions(program, depth, work),
            "allocations": count_allocations(program, depth, work),
            "system calls": system_calls,
            "bytes written": written,
        }
        for what, limit in limits.items():
            wrong = counted[what] > limit or counted[what] <= 0
            failed = failed or wrong
            print("%-6d %-14s %9d %9d%s" % (depth, what, counted[what], limit,
                                            "  TOO MUCH" if wrong else ""))
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
