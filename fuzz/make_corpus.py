#!/usr/bin/env python3
"""Seeds the fuzz corpora from the wire lines of the test suites.

Every raw string literal in tests/core and tests/commands that is a JSON
object (or a run of "key":value pairs, completed with the command name that
precedes it on its line) is a line the controller writes or the library
sends. Each target gets those lines in its own input layout, and ka.dict gets
every key they use. Run again after the tests change; the output is the same
for the same tests.
"""
import hashlib
import json
import pathlib
import re
import shutil
import struct

ROOT = pathlib.Path(__file__).resolve().parent.parent
FUZZ = ROOT / "fuzz"
SOURCES = sorted((ROOT / "tests" / "core").glob("*.cpp")) + sorted((ROOT / "tests" / "commands").glob("*.cpp"))
SEEDS_PER_TARGET = 48

# Adjacent raw literals are one string, as the compiler joins them.
RAW_RUN = re.compile(r'R"\((.*?)\)"(?:\s*R"\((.*?)\)")*', re.S)
RAW = re.compile(r'R"\((.*?)\)"', re.S)
NAME = re.compile(r'"([a-z][a-z0-9_]*)"')


def json_object(text):
    try:
        value = json.loads(text)
    except ValueError:
        return None
    return value if isinstance(value, dict) else None


def wire_lines():
    lines = {}
    for path in SOURCES:
        source = path.read_text()
        for run in RAW_RUN.finditer(source):
            text = "".join(RAW.findall(run.group(0)))
            if "\n" in text or "\r" in text:
                continue
            if json_object(text) is not None:
                lines.setdefault(text, None)
                continue
            if json_object("{" + text + "}") is None:
                continue
            # A reply's fields: the command is the last plain name before it.
            line_start = source.rfind("\n", 0, run.start()) + 1
            names = NAME.findall(source[line_start:run.start()])
            prefix = '{"command":"%s",' % names[-1] if names else "{"
            lines.setdefault(prefix + text + "}", None)
    return sorted(lines, key=lambda line: (len(line), line))


def spread(items, count):
    """count items spread evenly over the list (short to long lines)."""
    if len(items) <= count:
        return list(items)
    return [items[i * len(items) // count] for i in range(count)]


def scope(doc):
    for wrapper in ("arm_state", "all_state"):
        if wrapper in doc:
            return doc[wrapper] if isinstance(doc[wrapper], dict) else {}
    return doc


def field_type(value):
    if isinstance(value, bool):
        return 3
    if isinstance(value, str):
        return 0
    if isinstance(value, (int, float)):
        return 1
    if isinstance(value, list) and all(isinstance(v, int) and not isinstance(v, bool) for v in value):
        return 2
    return 4


def reply_seed(line):
    """Fields that match the reply's own keys and types (see reply_fuzz.cpp)."""
    fields = list(scope(json.loads(line)).items())[:8]
    out = bytearray([len(fields)])
    for key, value in fields:
        key_bytes = key.encode()[:31]
        kind = field_type(value)
        if kind == 2 and len(value) > 24:
            kind = 5  # longer than a reply field holds: read as a block
        out += bytes([kind, len(key_bytes)]) + key_bytes
        if kind == 2:
            out.append(len(value) % 26)
        elif kind == 5:
            out.append(len(value) % 49)
    return bytes(out) + line.encode()


def json_seed(line):
    """Index 1 and the key "command" (see json_fuzz.cpp)."""
    return struct.pack("<h", 1) + bytes([7]) + b"command" + line.encode()


def receive_seed(group, cut, event):
    """One arm receiving the group's lines in reads of `cut` bytes, the lines
    taken back between reads (see receive_fuzz.cpp)."""
    name = str(json.loads(group[0]).get("command", "")).encode()[:53]
    out = bytearray([10, event, len(name)]) + name  # DOF 6
    stream = "".join(line + "\r\n" for line in group).encode()
    for start in range(0, len(stream), cut):
        piece = stream[start:start + cut]
        out += bytes([len(piece)]) + piece
    out += bytes([0xE0, 0xFF, 0xE1, 0xFF, 0xE2, 0, 0x40])
    return bytes(out)


def long_line_seed(line):
    """An over-long line first: the line after it still arrives whole."""
    name = str(json.loads(line).get("command", "")).encode()[:53]
    out = bytearray([10, 0, len(name)]) + name
    out += bytes([0xF0]) + struct.pack("<H", 25000) + b"x"
    tail = ("\r\n" + line + "\r\n").encode()
    out += bytes([len(tail)]) + tail + bytes([0xE0, 0xFF])
    return bytes(out)


def realtime_seeds(lines):
    datagrams = [line for line in lines if "joint_status" in line or "arm_err" in line]
    full = max(datagrams, key=len) if datagrams else "{}"
    doc = json.loads(full)
    variants = []
    for key in doc:
        for value in (None, "x", [], {}):
            changed = dict(doc)
            if value is None:
                del changed[key]
            else:
                changed[key] = value
            variants.append(json.dumps(changed, separators=(",", ":")))
    return [d.encode() for d in datagrams] + [v.encode() for v in spread(variants, SEEDS_PER_TARGET)]


def write(target, seeds):
    folder = FUZZ / "corpus" / target
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for seed in seeds:
        (folder / hashlib.sha1(seed).hexdigest()).write_bytes(seed)
    return len(set(seeds))


def keys_of(value, out):
    if isinstance(value, dict):
        for key, inner in value.items():
            out.add(key)
            keys_of(inner, out)
    elif isinstance(value, list):
        for inner in value:
            keys_of(inner, out)


def write_dictionary(lines):
    keys = set()
    for line in lines:
        keys_of(json.loads(line), keys)
    entries = ['"\\x0d\\x0a"', '"true"', '"false"', '"null"', '"\\x22:"', '"\\x22,\\x22"']
    entries += ['"\\x22%s\\x22"' % key for key in sorted(keys) if key.isascii() and key.isprintable() and '"' not in key and "\\" not in key]
    (FUZZ / "ka.dict").write_text("# Keys of the wire protocol, from fuzz/make_corpus.py.\n" + "\n".join(entries) + "\n")
    return len(entries)


def main():
    lines = [line for line in wire_lines() if len(line) <= 1024]
    named = [line for line in lines if isinstance(json.loads(line).get("command"), str)]
    picked = spread(lines, SEEDS_PER_TARGET)
    groups = [spread(named, len(named))[i:i + 4] for i in range(0, min(len(named), 4 * 12), 4)]
    receive = [receive_seed(group, cut, event)
               for i, group in enumerate(groups)
               for cut, event in ((1 + 13 * i % 97, 0), (200, i % 6))]
    receive += [long_line_seed(line) for line in spread(named, 4)]
    counts = {
        "realtime_fuzz": write("realtime_fuzz", realtime_seeds(lines)),
        "reply_fuzz": write("reply_fuzz", [reply_seed(line) for line in picked]),
        "json_fuzz": write("json_fuzz", [json_seed(line) for line in picked]),
        "receive_fuzz": write("receive_fuzz", receive),
    }
    counts["ka.dict entries"] = write_dictionary(lines)
    print("%d wire lines; " % len(lines) + ", ".join("%s %d" % item for item in counts.items()))


if __name__ == "__main__":
    main()
