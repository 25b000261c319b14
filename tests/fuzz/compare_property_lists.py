#!/usr/bin/env python3
"""Compares the library's reading of property lists with Python's, on a corpus and on mutations.

usage: compare_property_lists.py DUMP_PROGRAM CORPUS_FOLDER [--mutations N] [--seed S]
  What both accept must read the same. A document that one of them refuses must belong to a class of
  documents that the two are known to differ on; the classes are counted and shown.
  exit status 1 when something differs that is not explained
"""

import argparse
import collections
import datetime
import json
import math
import pathlib
import plistlib
import random
import re
import struct
import subprocess
import sys
import xml.parsers.expat

DEEPEST_LEVEL = 128
EXPANSION_PER_BYTE = 256
SMALLEST_EXPANSION = 1 << 20
VALUE_SIZE = 40
EPOCH = datetime.datetime(1970, 1, 1)


# The two readers. Each returns ("read", value) or ("refused", why); a value is a list of its kind
# and its content.

def read_with_library(program, documents):
    packed = b"".join(struct.pack(">I", len(each)) + each for each in documents)
    run = subprocess.run([program], input=packed, capture_output=True, check=False, timeout=250)
    if run.returncode != 0:
        sys.exit(f"{program} ended with {run.returncode}:\n{run.stderr.decode(errors='replace')}")
    return [tuple(json.loads(line)) for line in run.stdout.splitlines()]


def read_with_python(document):
    form = plistlib.FMT_BINARY if document.startswith(b"bplist00") else plistlib.FMT_XML
    try:
        return ("read", plistlib.loads(document, fmt=form))
    except RecursionError:
        return ("refused", "recursion")
    except Exception as error:  # The reader lets through what its parts raise.
        return ("refused", type(error).__name__)


def is_same(ours, theirs):
    kind, content = ours
    if kind == "bool":
        return theirs is content
    if kind == "integer":
        return type(theirs) is int and theirs == int(content)
    if kind == "real":
        return is_same_real(struct.unpack(">d", struct.pack(">Q", int(content)))[0], theirs)
    if kind == "string":
        return type(theirs) is str and theirs == content
    if kind == "data":
        return type(theirs) is bytes and theirs.hex() == content
    if kind == "date":
        return (type(theirs) is datetime.datetime
                and abs((theirs - EPOCH).total_seconds() - content) < 1e-3)
    if kind == "array":
        return (type(theirs) is list and len(theirs) == len(content)
                and all(map(is_same, content, theirs)))
    return (type(theirs) is dict and len(theirs) == len(content)
            and all(key in theirs and is_same(value, theirs[key]) for key, value in content))


def is_same_real(ours, theirs):
    # An integer beyond 63 bits is a real to the library.
    if type(theirs) is int:
        return theirs > 2**63 - 1 and float(theirs) == ours
    return type(theirs) is float and (theirs == ours or (math.isnan(theirs) and math.isnan(ours)))


# Why the library refuses XML that Python takes: the library's rules, stated once more. An element
# that keeps to its rule is replaced by a mark, from the inside out; one that is left breaks it.

# No XML has these characters.
VALUE, KEY = "\1", "\2"
BLANKS = r"[ \t\r\n]*"
LEAF_RULES = {
    "string": rf"[^<{VALUE}{KEY}]*",
    "key": rf"[^<{VALUE}{KEY}]*",
    "integer": r"[ \t\r\n]*[+-]?[ \t\r\n]*([0-9]+|0[xX][0-9a-fA-F]+)",
    "real": r"[ \t\r\n]*[+-]?((?i:nan|inf|infinity)|([0-9]+\.?[0-9]*|\.[0-9]+)([eE][+-]?[0-9]+)?)",
    "date": r"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z",
    "data": r"(([ \t\r\n]*[A-Za-z0-9+/]){4})*"
            r"([ \t\r\n]*[A-Za-z0-9+/]([ \t\r\n]*[A-Za-z0-9+/]([ \t\r\n]*[A-Za-z0-9+/]|[ \t\r\n]*=)"
            r"|([ \t\r\n]*=){2})[ \t\r\n]*=)?[ \t\r\n]*",
    "true": r"",
    "false": r"",
}
CONTAINER = re.compile(f"<array>{BLANKS}({VALUE}{BLANKS})*</array>|"
                       f"<dict>{BLANKS}({KEY}{BLANKS}{VALUE}{BLANKS})*</dict>")
ENCODINGS = {"UTF-8", "UTF-16", "UTF-16BE", "UTF-16LE", "ISO-8859-1", "US-ASCII"}


def is_in_range(tag, text):
    if tag == "integer":
        digits = re.sub(r"[ \t\r\n+]", "", text).lower()
        number = int(digits, 16 if "0x" in digits else 10)
        return -2**63 <= number < 2**64
    if tag == "real":
        number = float(text)
        is_zero = not re.search(r"[1-9]", re.split("[eE]", text)[0])
        is_named = re.search(r"[nN]", text)
        return is_named or is_zero or (0 < abs(number) < math.inf)
    if tag == "date":
        try:
            datetime.datetime.strptime(text, "%Y-%m-%dT%H:%M:%SZ")
        except ValueError:
            return False
        return text[17:19] < "60"
    return True


class Broken(Exception):
    """The rule that a document breaks."""


def demand(holds, rule):
    if not holds:
        raise Broken(rule)


def tags_and_texts(document):
    pieces = []
    notes = []

    def declare(_name, _system, _public, has_own):
        if has_own:
            notes.append("declarations of its own")

    def use_encoding(_version, encoding, _standalone):
        if (encoding or "UTF-8").upper() not in ENCODINGS:
            notes.append("an encoding that Python has added")

    parser = xml.parsers.expat.ParserCreate()
    parser.StartElementHandler = lambda tag, _: pieces.append(f"<{tag}>")
    parser.EndElementHandler = lambda tag: pieces.append(f"</{tag}>")
    parser.CharacterDataHandler = lambda text: pieces.append(text.replace("<", "&lt;"))
    parser.StartDoctypeDeclHandler = declare
    parser.SkippedEntityHandler = lambda *_: notes.append("an unknown entity")
    parser.XmlDeclHandler = use_encoding
    try:
        parser.Parse(document, True)
    except (xml.parsers.expat.ExpatError, LookupError, ValueError):
        notes.append("no XML")
    demand(not notes, notes and notes[0])
    return "".join(pieces)


def check_xml(document):
    text = tags_and_texts(document)
    for tag, rule in LEAF_RULES.items():
        mark = KEY if tag == "key" else VALUE
        text = re.sub(f"<{tag}>({rule})</{tag}>",
                      lambda leaf: mark if is_in_range(tag, leaf[1]) else leaf[0],
                      text, flags=re.DOTALL | re.ASCII)
    levels = 0
    while (outer := CONTAINER.sub(VALUE, text)) != text:
        text, levels = outer, levels + 1
    demand(levels <= DEEPEST_LEVEL, "too many levels")
    broken = re.search(r"<([^<>]+)>[^<]*</\1>", text)
    demand(re.fullmatch(f"{VALUE}|<plist>{BLANKS}{VALUE}{BLANKS}</plist>", text),
           f"a wrong {broken[1]}" if broken else "a key for the root")


# The same for the binary form.

class BinaryRules:
    def __init__(self, document):
        self.document = document
        self.unspent = max(len(document) * EXPANSION_PER_BYTE, SMALLEST_EXPANSION)

    def check(self):
        demand(len(self.document) >= 40, "no room for the trailer")
        end = len(self.document) - 32
        self.offset_size, self.reference_size, self.count, top, self.table = struct.unpack(
            ">6xBBQQQ", self.document[end:])
        demand(1 <= self.offset_size <= 8 and 1 <= self.reference_size <= 8,
               "a size of the trailer out of range")
        demand(8 <= self.table <= end and self.count * self.offset_size <= end - self.table,
               "an offset table out of place")
        self.check_object(top, 0)

    def slice(self, offset, length):
        demand(offset + length <= self.table, "an object that reaches into the offset table")
        return self.document[offset:offset + length]

    def check_object(self, number, level):
        """Returns the kind of the object."""
        demand(number < self.count, "a reference to no object")
        at = self.table + number * self.offset_size
        offset = int.from_bytes(self.document[at:at + self.offset_size], "big")
        demand(8 <= offset < self.table, "an object outside of its place")
        self.spend(VALUE_SIZE)
        marker, detail = divmod(self.document[offset], 16)
        if marker == 0:
            demand(detail in (8, 9), "a null or a filler")
        elif marker == 1:
            content = self.slice(offset + 1, 1 << detail)
            demand(detail < 4 or (detail == 4 and not any(content[:8])),
                   "an integer beyond 64 bits")
        elif marker == 2:
            self.slice(offset + 1, 1 << detail)
            demand(detail in (2, 3), "a real of another size")
        elif marker == 3:
            content = self.slice(offset + 1, 8)
            demand(detail == 3 and math.isfinite(struct.unpack(">d", content)[0]),
                   "a date that is none")
        elif marker in (4, 5, 6):
            count, start = self.run(offset, detail)
            content = self.slice(start, count * (2 if marker == 6 else 1))
            self.spend(len(content))
            demand(marker != 5 or content.isascii(), "a text that is not ASCII")
        else:
            demand(marker in (0xA, 0xD), "a kind that is no property list's")
            demand(level < DEEPEST_LEVEL, "too many levels, or a container in itself")
            count, start = self.run(offset, detail)
            width = self.reference_size
            references = self.slice(start, count * width * (2 if marker == 0xD else 1))
            for index in range(len(references) // width):
                child = int.from_bytes(references[index * width:(index + 1) * width], "big")
                kind = self.check_object(child, level + 1)
                demand(marker == 0xA or index >= count or kind in (5, 6), "a key that is no text")
        return marker

    def run(self, offset, detail):
        if detail != 15:
            return detail, offset + 1
        marker, size = divmod(self.slice(offset + 1, 1)[0], 16)
        demand(marker == 1 and size <= 3, "a count that is no integer")
        count = int.from_bytes(self.slice(offset + 2, 1 << size), "big")
        return count, offset + 2 + (1 << size)

    def spend(self, size):
        self.unspent -= size
        demand(self.unspent >= 0, "too much out of little")


def rule_that_is_broken(document):
    try:
        if document.startswith(b"bplist00"):
            BinaryRules(document).check()
        else:
            check_xml(document)
    except Broken as broken:
        return str(broken)
    return None


# Why Python refuses what the library takes.

def liberty_of(document, value):
    kinds = set(kinds_in(value))
    if not document.startswith(b"bplist00"):
        texts = re.findall(rb"<integer[^>]*>([^<]*)<", document)
        if any(re.search(rb"[+-]\s+[0-9]|-0[xX]|\+0[xX]|0X", each) for each in texts):
            return "an integer with a blank after its sign, or in hexadecimal of another spelling"
        if "integer" in kinds:
            return "an integer in another spelling"
        if "real" in kinds:
            return "a real in another spelling"
        return None
    if "date out of range" in kinds:
        return "a date that Python's calendar has not"
    if "replacement" in kinds:
        return "half a surrogate pair, which the library reads as U+FFFD"
    return None


def kinds_in(value):
    kind, content = value
    yield kind
    if kind == "string" and "\ufffd" in content:
        yield "replacement"
    if kind == "date" and not -62135596800 <= content < 253402300800:
        yield "date out of range"
    if kind == "dict":
        content = [each for key, element in content for each in (["string", key], element)]
    if kind in ("array", "dict"):
        for element in content:
            yield from kinds_in(element)


# Mutations.

PIECES = [
    b"<array>", b"</array>", b"<dict>", b"</dict>", b"<key>", b"</key>", b"<string>", b"</string>",
    b"<integer>", b"</integer>", b"<real>", b"</real>", b"<true/>", b"<false/>", b"<date>",
    b"<data>",
    b"<date>2024-02-29T23:59:59Z</date>", b"<data>YWI=</data>", b"<integer>0x1F</integer>",
    b"<integer>-9223372036854775809</integer>", b"<real>1e999</real>", b"<real>-INF</real>",
    b"&amp;", b"&#65;", b"<!--x-->", b"<![CDATA[<]]>", b"<plist>", b"\xef\xbb\xbf",
    b"\x08", b"\x09",
    b"\xa1\x00", b"\xd1\x00\x01", b"\x51a", b"\x61\xd8\x00", b"\x10\x01", b"\x23", b"\x33",
    b"\x5f\x10", b"\x14",
]


def mutated(document, others, chance):
    bytes_ = bytearray(document)
    for _ in range(chance.choice((1, 1, 1, 2, 3, 6))):
        at = chance.randrange(len(bytes_) + 1)
        end = min(len(bytes_), at + chance.choice((1, 1, 2, 4, 16, 64)))
        way = chance.randrange(10)
        if way == 0 and at < len(bytes_):
            bytes_[at] = chance.randrange(256)
        elif way == 1 and at < len(bytes_):
            bytes_[at] ^= 1 << chance.randrange(8)
        elif way == 2:
            del bytes_[at:end]
        elif way == 3:
            bytes_[at:at] = bytes_[at:end]
        elif way == 4:
            bytes_[at:at] = chance.choice(PIECES)
        elif way == 5:
            bytes_[at:end] = chance.choice(PIECES)
        elif 6 <= way < 9 and at < len(bytes_):
            # A character of the same kind breaks less.
            for kind in (b"0123456789", b"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"):
                if bytes_[at] in kind:
                    bytes_[at] = chance.choice(kind)
        else:
            other = chance.choice(others)
            start = chance.randrange(len(other) + 1)
            bytes_[at:end] = other[start:start + chance.choice((4, 16, 64))]
    return bytes(bytes_)


def documents_of(folder, mutations, seed):
    corpus = [path.read_bytes() for path in sorted(pathlib.Path(folder).iterdir())]
    if not corpus:
        sys.exit(f"no files in {folder}")
    chance = random.Random(seed)
    return corpus + [mutated(chance.choice(corpus), corpus, chance) for _ in range(mutations)]


# The comparison.

def judge(document, ours, theirs):
    """The class of the document, and what is wrong if something is."""
    rule = rule_that_is_broken(document)
    if (rule is None) != (ours[0] == "read") and rule != "too much out of little":
        return "the rules are not those of the library", f"rule: {rule}, the library: {ours}"
    if ours[0] == "read" and theirs[0] == "read":
        difference = f"the library: {ours[1]}, Python: {theirs[1]}"
        return "both read it", None if is_same(ours[1], theirs[1]) else difference
    if ours[0] == theirs[0]:
        return "both refuse it", None
    if ours[0] == "refused":
        return f"the library alone refuses {rule}", None
    liberty = liberty_of(document, ours[1])
    wrong = None if liberty else f"Python alone refuses it: {theirs[1]}"
    return f"Python alone refuses {liberty}", wrong


def main():
    arguments = argparse.ArgumentParser()
    arguments.add_argument("program")
    arguments.add_argument("corpus")
    arguments.add_argument("--mutations", type=int, default=4000)
    arguments.add_argument("--seed", type=int, default=20240229)
    chosen = arguments.parse_args()
    print(f"{chosen.mutations} mutations with seed {chosen.seed}")

    documents = documents_of(chosen.corpus, chosen.mutations, chosen.seed)
    found = read_with_library(chosen.program, documents)
    if len(found) != len(documents):
        sys.exit(f"the library has an answer to {len(found)} of {len(documents)} documents")
    classes = collections.Counter()
    wrong_count = 0
    for document, ours in zip(documents, found):
        name, wrong = judge(document, ours, read_with_python(document))
        classes[name] += 1
        if wrong:
            wrong_count += 1
            if wrong_count <= 5:
                print(f"{document!r}\n  {wrong}")

    for name, count in sorted(classes.items(), key=lambda entry: -entry[1]):
        print(f"{count:6}  {name}")
    print(f"{len(documents)} documents, {wrong_count} differ without a reason")
    # Of mutations most are broken, but too few good ones would compare nothing.
    too_few = classes["both read it"] < len(documents) // 20
    if too_few:
        print("too few of them are read by both")
    return 1 if wrong_count or too_few else 0


if __name__ == "__main__":
    sys.exit(main())
