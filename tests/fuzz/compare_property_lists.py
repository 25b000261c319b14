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


# Why the library refuses XML that Python takes: the library's rules, stated once more.

LEAF_RULES = {
    "string": r".*",
    "key": r".*",
    "integer": r"[ \t\r\n]*[+-]?[ \t\r\n]*([0-9]+|0[xX][0-9a-fA-F]+)",
    "real": r"[ \t\r\n]*[+-]?((?i:nan|inf|infinity)|([0-9]+\.?[0-9]*|\.[0-9]+)([eE][+-]?[0-9]+)?)",
    "date": r"[0-9]{4}-[0-9]{2}-[0-9]{2}T[0-9]{2}:[0-9]{2}:[0-9]{2}Z",
    "data": r"(([ \t\r\n]*[A-Za-z0-9+/]){4})*"
            r"([ \t\r\n]*[A-Za-z0-9+/]([ \t\r\n]*[A-Za-z0-9+/]([ \t\r\n]*[A-Za-z0-9+/]|[ \t\r\n]*=)"
            r"|([ \t\r\n]*=){2})[ \t\r\n]*=)?[ \t\r\n]*",
    "true": r"",
    "false": r"",
}
BLANKS = " \t\r\n"
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


class XmlRules:
    """Collects the first rule that a document breaks."""

    def __init__(self):
        self.broken = None
        self.open = []  # Tags; a "dict" is followed by whether a key waits for its value.
        self.text = ""
        self.has_root = False
        self.has_plist = False

    def break_rule(self, rule):
        self.broken = self.broken or rule

    def start(self, tag, _):
        parent = self.open[-1] if self.open else None
        if tag not in LEAF_RULES and tag not in ("plist", "array", "dict"):
            self.break_rule("an unknown element")
        elif parent and parent[0] in LEAF_RULES:
            self.break_rule("an element in a wrong place")
        elif not self.may_stand(tag, parent):
            self.break_rule("an element in a wrong place")
        if tag in ("array", "dict"):
            if sum(1 for each in self.open if each[0] in ("array", "dict")) == DEEPEST_LEVEL:
                self.break_rule("too many levels")
        self.has_plist = True
        if tag != "plist" and (parent is None or parent[0] == "plist"):
            self.has_root = True
        if parent and parent[0] == "dict":
            parent[1] = tag == "key"
        self.open.append([tag, False])
        self.text = ""

    def may_stand(self, tag, parent):
        if parent is None or parent[0] == "plist":
            if tag == "plist":
                return not self.has_plist
            return tag != "key" and not self.has_root
        if tag == "plist":
            return False
        if parent[0] == "dict":
            return parent[1] != (tag == "key")
        return tag != "key"

    def take(self, text):
        if self.open and self.open[-1][0] in LEAF_RULES:
            self.text += text
        elif text.strip(BLANKS):
            self.break_rule("text in a wrong place")

    def end(self, tag):
        _, has_key = self.open.pop()
        if tag in LEAF_RULES:
            if not re.fullmatch(LEAF_RULES[tag], self.text, re.DOTALL | re.ASCII):
                self.break_rule(f"a malformed {tag}")
            elif not is_in_range(tag, self.text):
                self.break_rule(f"a {tag} out of range")
            self.text = ""
        elif tag == "dict" and has_key:
            self.break_rule("a key without a value")
        elif tag == "plist" and not self.has_root:
            self.break_rule("a document without content")


def rule_that_xml_breaks(document):
    rules = XmlRules()
    parser = xml.parsers.expat.ParserCreate()
    parser.buffer_text = True
    parser.StartElementHandler = rules.start
    parser.EndElementHandler = rules.end
    parser.CharacterDataHandler = rules.take
    parser.StartDoctypeDeclHandler = lambda name, system, public, has_own: (
        rules.break_rule("declarations of its own") if has_own else None)
    parser.SkippedEntityHandler = lambda name, is_parameter: rules.break_rule("an unknown entity")
    parser.XmlDeclHandler = lambda version, encoding, standalone: (
        rules.break_rule("an encoding that Python has added")
        if (encoding or "UTF-8").upper() not in ENCODINGS else None)
    try:
        parser.Parse(document, True)
    except (xml.parsers.expat.ExpatError, LookupError, ValueError):
        rules.break_rule("no XML")
    return rules.broken


# The same for the binary form.

class BinaryRules:
    def __init__(self, document):
        self.document = document
        self.unspent = max(len(document) * EXPANSION_PER_BYTE, SMALLEST_EXPANSION)

    def check(self):
        """Raises ValueError with the rule that is broken."""
        if len(self.document) < 40:
            raise ValueError("no room for the trailer")
        end = len(self.document) - 32
        self.offset_size, self.reference_size, self.count, top, self.table = struct.unpack(
            ">6xBBQQQ", self.document[end:])
        if not (1 <= self.offset_size <= 8 and 1 <= self.reference_size <= 8):
            raise ValueError("a size of the trailer out of range")
        if not 8 <= self.table <= end or self.count * self.offset_size > end - self.table:
            raise ValueError("an offset table out of place")
        self.check_object(top, 0)

    def slice(self, offset, length):
        if offset + length > self.table:
            raise ValueError("an object that reaches into the offset table")
        return self.document[offset:offset + length]

    def check_object(self, number, level):
        if number >= self.count:
            raise ValueError("a reference to no object")
        at = self.table + number * self.offset_size
        offset = int.from_bytes(self.document[at:at + self.offset_size], "big")
        if not 8 <= offset < self.table:
            raise ValueError("an object outside of its place")
        self.spend(VALUE_SIZE)
        marker, detail = divmod(self.document[offset], 16)
        if marker == 0:
            if detail not in (8, 9):
                raise ValueError("a null or a filler")
            return "bool"
        if marker == 1:
            content = self.slice(offset + 1, 1 << detail)
            if detail > 4 or (detail == 4 and any(content[:8])):
                raise ValueError("an integer beyond 64 bits")
            return "integer"
        if marker == 2:
            self.slice(offset + 1, 1 << detail)
            if detail not in (2, 3):
                raise ValueError("a real of another size")
            return "real"
        if marker == 3:
            content = self.slice(offset + 1, 8)
            if detail != 3 or not math.isfinite(struct.unpack(">d", content)[0]):
                raise ValueError("a date that is none")
            return "date"
        if marker in (4, 5, 6):
            count, start = self.run(offset, detail)
            content = self.slice(start, count * (2 if marker == 6 else 1))
            self.spend(len(content))
            if marker == 5 and any(byte >= 0x80 for byte in content):
                raise ValueError("a text that is not ASCII")
            return "data" if marker == 4 else "string"
        if marker in (0xA, 0xD):
            if level == DEEPEST_LEVEL:
                raise ValueError("too many levels, or a container in itself")
            count, start = self.run(offset, detail)
            width = self.reference_size
            references = self.slice(start, count * width * (2 if marker == 0xD else 1))
            for index in range(len(references) // width):
                child = int.from_bytes(references[index * width:(index + 1) * width], "big")
                kind = self.check_object(child, level + 1)
                if marker == 0xD and index < count and kind != "string":
                    raise ValueError("a key that is no text")
            return "container"
        raise ValueError("a kind that is no property list's")

    def run(self, offset, detail):
        if detail != 15:
            return detail, offset + 1
        marker, size = divmod(self.slice(offset + 1, 1)[0], 16)
        if marker != 1 or size > 3:
            raise ValueError("a count that is no integer")
        count = int.from_bytes(self.slice(offset + 2, 1 << size), "big")
        return count, offset + 2 + (1 << size)

    def spend(self, size):
        self.unspent -= size
        if self.unspent < 0:
            raise ValueError("too much out of little")


def rule_that_is_broken(document):
    if not document.startswith(b"bplist00"):
        return rule_that_xml_breaks(document)
    try:
        BinaryRules(document).check()
    except ValueError as error:
        return str(error)
    return None


# Why Python refuses what the library takes.

def liberty_of(document, value):
    kinds = collections.Counter()
    collect(value, kinds)
    if not document.startswith(b"bplist00"):
        texts = re.findall(rb"<integer[^>]*>([^<]*)<", document)
        if any(re.search(rb"[+-]\s+[0-9]|-0[xX]|\+0[xX]|0X", each) for each in texts):
            return "an integer with a blank after its sign, or in hexadecimal of another spelling"
        if kinds["integer"]:
            return "an integer in another spelling"
        if kinds["real"]:
            return "a real in another spelling"
        return None
    if kinds["date out of range"]:
        return "a date that Python's calendar has not"
    if kinds["replacement"]:
        return "half a surrogate pair, which the library reads as U+FFFD"
    return None


def collect(value, kinds):
    kind, content = value
    kinds[kind] += 1
    if kind == "string" and "\ufffd" in content:
        kinds["replacement"] += 1
    if kind == "date" and not -62135596800 <= content < 253402300800:
        kinds["date out of range"] += 1
    if kind == "array":
        for element in content:
            collect(element, kinds)
    if kind == "dict":
        for key, element in content:
            collect(["string", key], kinds)
            collect(element, kinds)


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
    if ours[0] == "read" and theirs[0] == "read":
        difference = f"the library: {ours[1]}, Python: {theirs[1]}"
        return "both read it", None if is_same(ours[1], theirs[1]) else difference
    if ours[0] == theirs[0]:
        return "both refuse it", None
    if ours[0] == "refused":
        rule = rule_that_is_broken(document)
        wrong = None if rule else f"the library refuses it, no rule does: {ours[1]}"
        return f"the library alone refuses {rule}", wrong
    liberty = liberty_of(document, ours[1])
    wrong = None if liberty else f"Python alone refuses it: {theirs[1]}"
    return f"Python alone refuses {liberty}", wrong


def rules_agree(document, ours):
    """Whether the rules as they stand here are those that the library keeps."""
    rule = rule_that_is_broken(document)
    return (rule is None) == (ours[0] == "read") or rule == "too much out of little"


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
        if not wrong and not rules_agree(document, ours):
            rule = rule_that_is_broken(document)
            wrong = f"the rules are not those of the library: {rule}, {ours[0]}"
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
