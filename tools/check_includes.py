#!/usr/bin/env python3
"""Checks that every folder includes only what it may know.

usage: tools/check_includes.py [project root]   exit status 1 when an include breaks a rule.
"""

import pathlib
import re
import sys

PUBLIC = "ZLNSessionReporting"  # The public headers, under the name that a game uses.
REPORTING = {"session", "reports", "transport"}

# What the files of a folder may include, besides the system's headers.
ALLOWED = {
    "include": {PUBLIC},
    "platform": {"platform"},
    "platform/posix": {"platform", "platform/posix", PUBLIC},
    "support": {"platform", "support", PUBLIC},
    "config": {"platform", "support", "config"},
    "session": {"platform", "support", "config"} | REPORTING,
    "reports": {"platform", "support", "config"} | REPORTING,
    "transport": {"platform", "support", "config"} | REPORTING,
    "testkit": {"platform", "support", "testkit"},
    "bench": {"platform", "support", "bench", "collector", PUBLIC},
    "collector": {"collector"},
    "examples": {PUBLIC},
}

# The one file that reaches every subsystem from above.
LOOKS_UPWARD = {"support/ZLNSessionReporting.cc": {"config"} | REPORTING}

INCLUDE = re.compile(r'^\s*#\s*include\s*["<]([^">]+)[">]')
OWN_FOLDERS = {folder.split("/")[0] for folder in ALLOWED} | {PUBLIC, "tests"}


def sources(root):
    for folder in sorted({folder.split("/")[0] for folder in ALLOWED}):
        for path in sorted((root / folder).rglob("*")):
            if path.suffix in {".h", ".cc", ".c", ".in"} and path.is_file():
                yield path


def folder_of(path):
    """The longest folder of the table in which a path lies."""
    parents = [parent.as_posix() for parent in pathlib.PurePosixPath(path).parents]
    return next((parent for parent in parents if parent in ALLOWED), parents[-2])


def includes(path):
    for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), start=1):
        match = INCLUDE.match(line)
        if match and match.group(1).split("/")[0] in OWN_FOLDERS:
            yield number, match.group(1)


def broken_rules(root):
    for path in sources(root):
        name = path.relative_to(root).as_posix()
        folder = folder_of(name)
        allowed = ALLOWED[folder] | LOOKS_UPWARD.get(name, set())
        for number, included in includes(path):
            if folder_of(included) not in allowed:
                yield f'{name}:{number}: {folder}/ must not include "{included}"'


def main():
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    count = sum(1 for _ in sources(root))
    broken = list(broken_rules(root))
    for line in broken:
        print(line)
    print(f"{count} files read, {len(broken)} includes break a rule")
    return 1 if broken or count == 0 else 0


if __name__ == "__main__":
    sys.exit(main())
