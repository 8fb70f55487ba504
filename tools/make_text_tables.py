#!/usr/bin/env python3
"""Makes src/base/utf8_tables.cpp, the character maps of the text library, from the Unicode data.

    tools/make_text_tables.py [UnicodeData.txt] > src/base/utf8_tables.cpp

Without an argument it reads the file of the distribution's package unicode-data. Code points from 0x10000 up
are not mapped, and no target lies there.
"""

import re
import sys

UNICODE_DATA = "/usr/share/unicode/UnicodeData.txt"
MAP_END = 0x10000
BLOCK = 64

# What people type for a character that has no decomposition of its own, or one that begins with a blank.
PLAIN_FORMS = {
    0xA1: "!", 0xA2: "c", 0xA5: "y", 0xA6: "|", 0xA9: "c", 0xAB: "<", 0xAD: "-", 0xAE: "r", 0xB7: ".", 0xBB: ">",
    0xD7: "x", 0x131: "i", 0x237: "j", 0x3C2: "\u03c3",
    0x2010: "-", 0x2011: "-", 0x2012: "-", 0x2013: "-", 0x2014: "-", 0x2015: "-", 0x2212: "-",
    0x2018: "'", 0x2019: "'", 0x201A: "'", 0x201B: "'", 0x201C: '"', 0x201D: '"', 0x201E: '"', 0x201F: '"',
    0x2032: "'", 0x2033: '"', 0x2039: "<", 0x203A: ">",
}

# A form of one of these stays itself: folding must not make a wildcard or a path separator out of a name.
SYNTAX = {ord(c) for c in "*?/\\"}

# A Latin letter with an addition that Unicode does not decompose: a stroke, a hook, a tail.
LATIN_WITH = re.compile(r"LATIN (SMALL|CAPITAL) LETTER ([A-Z]) WITH ")
# And the letters of that kind that are named otherwise.
LATIN_BARRED = {"LATIN SMALL LETTER BARRED O": "o", "LATIN CAPITAL LETTER BARRED O": "O"}


class Unicode:
    def __init__(self, path):
        self.category, self.decomposition, self.name = {}, {}, {}
        self.lower, self.has_upper = {}, set()
        with open(path, encoding="ascii") as rows:
            for row in rows:
                field = row.rstrip("\n").split(";")
                value = int(field[0], 16)
                self.name[value], self.category[value] = field[1], field[2]
                if field[5]:
                    parts = field[5].split()
                    self.decomposition[value] = [int(p, 16) for p in parts if not p.startswith("<")]
                if field[12]:
                    self.has_upper.add(value)
                if field[13]:
                    self.lower[value] = int(field[13], 16)

    def is_mark(self, value):
        return self.category.get(value, "").startswith("M")

    def decompose(self, value):
        if value not in self.decomposition:
            return [value]
        return [last for part in self.decomposition[value] for last in self.decompose(part)]

    def to_base(self, value):
        """The first character of the full decomposition that is no mark, less its strokes and hooks."""
        if value in PLAIN_FORMS:
            return ord(PLAIN_FORMS[value])
        parts = self.decompose(value)
        base = next((part for part in parts if not self.is_mark(part)), parts[0])
        if base in SYNTAX:
            return value
        if base != value:
            return self.to_base(base)
        match = LATIN_WITH.match(self.name.get(value, ""))
        if match:
            return ord(match[2] if match[1] == "CAPITAL" else match[2].lower())
        if self.name.get(value) in LATIN_BARRED:
            return ord(LATIN_BARRED[self.name[value]])
        return value


def make_map(function):
    """The pairs of a map, followed to the end so that mapping twice changes nothing."""
    result = {}
    for value in range(0x80, MAP_END):
        target = value
        while function(target) != target:
            target = function(target)
        if target != value and target < MAP_END:
            result[value] = target
    return result


def make_lower(unicode):
    lower = {v: t for v, t in unicode.lower.items() if v < MAP_END and t < MAP_END}
    # The first of several letters with the same partner is the plain one: K before the Kelvin sign. Sharp s is
    # lower case of its rare capital, but is not turned into it.
    upper = {}
    for value in sorted(lower):
        if lower[value] in unicode.has_upper:
            upper.setdefault(lower[value], value)
    return lower, upper


def write_map(name, pairs):
    blocks, rows, known = [], [], {}
    for start in range(0, MAP_END, BLOCK):
        row = tuple((pairs.get(v, v) - v) % MAP_END for v in range(start, start + BLOCK))
        if row not in known:
            known[row] = len(rows)
            rows.append(row)
        blocks.append(known[row])
    assert len(rows) <= 256
    print(f"\n// {len(pairs):,} characters in {len(rows)} distinct blocks.")
    print(f"const u8 utf8_{name}_blocks[UTF8_MAP_END / UTF8_MAP_BLOCK] = {{")
    write_numbers(blocks)
    print("};")
    print(f"const u16 utf8_{name}_distances[][UTF8_MAP_BLOCK] = {{")
    for row in rows:
        print("    {")
        write_numbers(row)
        print("    },")
    print("};")


def write_numbers(values):
    line = "       "
    for value in values:
        text = f" {value},"
        if len(line) + len(text) > 110:
            print(line)
            line = "       "
        line += text
    print(line)


def main():
    unicode = Unicode(sys.argv[1] if len(sys.argv) > 1 else UNICODE_DATA)
    lower, upper = make_lower(unicode)
    fold = make_map(lambda v: lower.get(unicode.to_base(v), unicode.to_base(v)))
    for value, partner in lower.items():
        assert partner < 0x80 or fold.get(value, value) == fold.get(partner, partner), hex(value)
    fold.update({v: ord("a") + v - ord("A") for v in range(ord("A"), ord("Z") + 1)})
    print("// Generated by tools/make_text_tables.py from the Unicode data. Do not edit.")
    print("// clang-format off")
    print('#include "base/utf8.h"\n\nnamespace findwright {')
    write_map("lower", lower)
    write_map("upper", upper)
    write_map("fold", fold)
    write_map("fold_keep_case", make_map(unicode.to_base))
    print("\n} // namespace findwright")


if __name__ == "__main__":
    main()
