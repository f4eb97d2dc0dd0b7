#!/usr/bin/env python3
"""Generates the case-mapping tables of PAL::StringUtilities::toLower / toUpper.

The tables hold the Unicode 4.0 case mappings of the Basic Multilingual Plane. They are
computed from a current Unicode Character Database by keeping only the code points, and
the mapped code points, that DerivedAge.txt dates to 4.0 or earlier:

1. Letters only (general category Lu, Ll or Lt) that have a mapping in the wanted
   direction; case mappings of non-letters (Roman numerals, circled letters, U+0345)
   are left out.
2. A letter with an unconditional multi-code-point mapping in SpecialCasing.txt goes to
   the special table with its whole sequence; conditional and language-specific rules
   (final sigma, Turkish, Lithuanian) are not used.
3. Of the remaining one-to-one mappings, each maximal run of two or more consecutive
   code points whose mappings are consecutive too becomes one range entry; every other
   mapping becomes a simple entry.

The script checks the result against the sizes and rows the library is known to ship
and refuses to write anything that differs. With --check it writes into a temporary
folder and compares the result with the committed sources instead.

Exit codes: 0 success, 1 a check failed, 2 bad usage, 77 the input data is missing.
Standard library only.
"""

import argparse
import difflib
import os
import re
import sys
import tempfile

TABLE_VERSION = (4, 0)
TABLE_VERSION_TEXT = "4.0"
DEFAULT_UCD_DIR = "/usr/share/unicode"
INPUT_FILES = ("UnicodeData.txt", "SpecialCasing.txt", "DerivedAge.txt")
LETTER_CATEGORIES = ("Lu", "Ll", "Lt")
BMP_LAST = 0xFFFF
EXIT_CHECK_FAILED = 1
EXIT_DATA_MISSING = 77

REPO_ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DEFAULT_OUT_DIR = os.path.join(REPO_ROOT, "core", "private")


class CheckError(Exception):
    pass


# --------------------------------------------------------------------------- input

def read_data_lines(path):
    """Yields the semicolon-separated fields of every data line, comments removed."""
    with open(path, encoding="utf-8") as handle:
        for line in handle:
            line = line.split("#", 1)[0].strip()
            if line:
                yield [field.strip() for field in line.split(";")]


def read_version(path):
    """The database version from the first line, e.g. '# DerivedAge-15.0.0.txt'."""
    with open(path, encoding="utf-8") as handle:
        first = handle.readline()
    match = re.search(r"-(\d+\.\d+\.\d+)\.txt", first)
    if not match:
        raise CheckError("%s: no version in its first line" % path)
    return match.group(1)


def parse_code_points(text):
    return [int(part, 16) for part in text.split()]


def read_ages(path):
    """Code point -> (major, minor) of the version that assigned it."""
    ages = {}
    for fields in read_data_lines(path):
        bounds = fields[0].split("..")
        first = int(bounds[0], 16)
        last = int(bounds[-1], 16)
        major, minor = (int(part) for part in fields[1].split(".")[:2])
        for cp in range(first, last + 1):
            ages[cp] = (major, minor)
    return ages


def read_unicode_data(path):
    """Code point -> (general category, simple upper mapping, simple lower mapping)."""
    records = {}
    for fields in read_data_lines(path):
        cp = int(fields[0], 16)
        upper = int(fields[12], 16) if fields[12] else None
        lower = int(fields[13], 16) if fields[13] else None
        records[cp] = (fields[2], upper, lower)
    return records


def read_special_casing(path):
    """Code point -> (lower sequence, upper sequence) of the unconditional rules."""
    special = {}
    for fields in read_data_lines(path):
        # code; lower; title; upper; [condition list;] -> a condition makes six fields
        condition = fields[4] if len(fields) > 5 else ""
        if condition:
            continue
        special[int(fields[0], 16)] = (parse_code_points(fields[1]), parse_code_points(fields[3]))
    return special


# --------------------------------------------------------------------------- tables

class Tables:
    def __init__(self, simple, ranges, special):
        self.simple = simple    # [(cp, mapped)]
        self.ranges = ranges    # [(first, count, first mapped)]
        self.special = special  # [(cp, [mapped...])]


def build_tables(direction, records, special_casing, ages):
    """direction is 'lower' or 'upper'."""
    def dated(cp):
        age = ages.get(cp)
        return age is not None and age <= TABLE_VERSION

    one_to_one = []
    special = []
    for cp in sorted(records):
        if cp > BMP_LAST or not dated(cp):
            continue
        category, upper, lower = records[cp]
        if category not in LETTER_CATEGORIES:
            continue
        rule = special_casing.get(cp)
        if rule is not None:
            sequence = rule[0] if direction == "lower" else rule[1]
            if len(sequence) > 1:
                if all(dated(m) for m in sequence):
                    special.append((cp, sequence))
                continue
        mapped = lower if direction == "lower" else upper
        if mapped is None or not dated(mapped):
            continue
        one_to_one.append((cp, mapped))

    simple = []
    ranges = []
    i = 0
    while i < len(one_to_one):
        j = i + 1
        while (j < len(one_to_one)
               and one_to_one[j][0] == one_to_one[j - 1][0] + 1
               and one_to_one[j][1] == one_to_one[j - 1][1] + 1):
            j += 1
        if j - i >= 2:
            ranges.append((one_to_one[i][0], j - i, one_to_one[i][1]))
        else:
            simple.append(one_to_one[i])
        i = j
    return Tables(simple, ranges, special)


# --------------------------------------------------------------------------- checks

EXPECTED_LOWER_RANGES = [
    (0x0041, 26, 0x0061), (0x00C0, 23, 0x00E0), (0x00D8, 7, 0x00F8), (0x0189, 2, 0x0256),
    (0x01B1, 2, 0x028A), (0x0388, 3, 0x03AD), (0x038E, 2, 0x03CD), (0x0391, 17, 0x03B1),
    (0x03A3, 9, 0x03C3), (0x0400, 16, 0x0450), (0x0410, 32, 0x0430), (0x0531, 38, 0x0561),
    (0x1F08, 8, 0x1F00), (0x1F18, 6, 0x1F10), (0x1F28, 8, 0x1F20), (0x1F38, 8, 0x1F30),
    (0x1F48, 6, 0x1F40), (0x1F68, 8, 0x1F60), (0x1F88, 8, 0x1F80), (0x1F98, 8, 0x1F90),
    (0x1FA8, 8, 0x1FA0), (0x1FB8, 2, 0x1FB0), (0x1FBA, 2, 0x1F70), (0x1FC8, 4, 0x1F72),
    (0x1FD8, 2, 0x1FD0), (0x1FDA, 2, 0x1F76), (0x1FE8, 2, 0x1FE0), (0x1FEA, 2, 0x1F7A),
    (0x1FF8, 2, 0x1F78), (0x1FFA, 2, 0x1F7C), (0xFF21, 26, 0xFF41),
]

EXPECTED_UPPER_RANGES = [
    (0x0061, 26, 0x0041), (0x00E0, 23, 0x00C0), (0x00F8, 7, 0x00D8), (0x0256, 2, 0x0189),
    (0x028A, 2, 0x01B1), (0x03AD, 3, 0x0388), (0x03B1, 17, 0x0391), (0x03C3, 9, 0x03A3),
    (0x03CD, 2, 0x038E), (0x0430, 32, 0x0410), (0x0450, 16, 0x0400), (0x0561, 38, 0x0531),
    (0x1F00, 8, 0x1F08), (0x1F10, 6, 0x1F18), (0x1F20, 8, 0x1F28), (0x1F30, 8, 0x1F38),
    (0x1F40, 6, 0x1F48), (0x1F60, 8, 0x1F68), (0x1F70, 2, 0x1FBA), (0x1F72, 4, 0x1FC8),
    (0x1F76, 2, 0x1FDA), (0x1F78, 2, 0x1FF8), (0x1F7A, 2, 0x1FEA), (0x1F7C, 2, 0x1FFA),
    (0x1FB0, 2, 0x1FB8), (0x1FD0, 2, 0x1FD8), (0x1FE0, 2, 0x1FE8), (0xFF41, 26, 0xFF21),
]

EXPECTED = {
    "lower": {
        "sizes": (380, 31, 1),
        "special_lengths": {2: 1},
        "ranges": EXPECTED_LOWER_RANGES,
        "first_simple": (0x0100, 0x0101),
        "last_simple": (0x212B, 0x00E5),
        "simple_rows": [(0x0178, 0x00FF), (0x01C4, 0x01C6), (0x01C5, 0x01C6), (0x03F4, 0x03B8),
                        (0x1FBC, 0x1FB3), (0x2126, 0x03C9), (0x212A, 0x006B), (0x212B, 0x00E5)],
        "special_rows": [(0x0130, [0x0069, 0x0307])],
        "last_special": 0x0130,
    },
    "upper": {
        "sizes": (386, 28, 102),
        "special_lengths": {2: 86, 3: 16},
        "ranges": EXPECTED_UPPER_RANGES,
        "first_simple": (0x00B5, 0x039C),
        "last_simple": (0x1FE5, 0x1FEC),
        "simple_rows": [(0x00FF, 0x0178), (0x0131, 0x0049), (0x017F, 0x0053), (0x01C5, 0x01C4),
                        (0x01C6, 0x01C4), (0x03C2, 0x03A3), (0x03D0, 0x0392), (0x1E9B, 0x1E60),
                        (0x1FBE, 0x0399), (0x1FE5, 0x1FEC)],
        "special_rows": [(0x00DF, [0x0053, 0x0053]), (0x0149, [0x02BC, 0x004E]),
                         (0x01F0, [0x004A, 0x030C]), (0x0390, [0x0399, 0x0308, 0x0301]),
                         (0x0587, [0x0535, 0x0552]), (0x1F80, [0x1F08, 0x0399]),
                         (0x1FB3, [0x0391, 0x0399]), (0xFB00, [0x0046, 0x0046]),
                         (0xFB17, [0x0544, 0x053D])],
        "last_special": 0xFB17,
    },
}

# Code points that must stay unmapped: non-letters, and letters whose mapping is newer
# than the tables.
EXPECTED_ABSENT = {
    "lower": [0x2160, 0x217F, 0x24B6, 0x24CF, 0x10A0, 0x10C5, 0x04C0, 0x1E9E, 0x2C00],
    "upper": [0x0345, 0x2170, 0x24D0, 0x24E9, 0x0180, 0x2C30],
}


def require(condition, message):
    if not condition:
        raise CheckError(message)


def check_tables(direction, tables):
    expected = EXPECTED[direction]
    where = "%s-case tables" % direction
    sizes = (len(tables.simple), len(tables.ranges), len(tables.special))
    require(sizes == expected["sizes"],
            "%s: %d simple, %d range, %d special entries; expected %d, %d, %d"
            % ((where,) + sizes + expected["sizes"]))

    lengths = {}
    for _, sequence in tables.special:
        lengths[len(sequence)] = lengths.get(len(sequence), 0) + 1
    require(lengths == expected["special_lengths"],
            "%s: special sequence lengths %r, expected %r" % (where, lengths, expected["special_lengths"]))

    require(tables.ranges == expected["ranges"],
            "%s: range table differs from the known one" % where)

    simple = dict(tables.simple)
    require(tables.simple[0] == expected["first_simple"], "%s: unexpected first simple entry" % where)
    require(tables.simple[-1] == expected["last_simple"], "%s: unexpected last simple entry" % where)
    for cp, mapped in expected["simple_rows"]:
        require(simple.get(cp) == mapped, "%s: simple entry U+%04X is not U+%04X" % (where, cp, mapped))

    special = dict(tables.special)
    for cp, sequence in expected["special_rows"]:
        require(special.get(cp) == sequence, "%s: special entry U+%04X differs" % (where, cp))
    require(tables.special[-1][0] == expected["last_special"], "%s: unexpected last special entry" % where)

    # Shape the lookup relies on: sorted, disjoint, and no two simple entries that
    # should have been a range.
    covered = []
    covered.extend((cp, cp) for cp, _ in tables.simple)
    covered.extend((first, first + count - 1) for first, count, _ in tables.ranges)
    covered.extend((cp, cp) for cp, _ in tables.special)
    covered.sort()
    for (_, last), (first, _) in zip(covered, covered[1:]):
        require(last < first, "%s: entries overlap at U+%04X" % (where, first))
    for table in (tables.simple, tables.special):
        keys = [entry[0] for entry in table]
        require(keys == sorted(keys), "%s: a table is not sorted" % where)
    for (a, ma), (b, mb) in zip(tables.simple, tables.simple[1:]):
        require(not (b == a + 1 and mb == ma + 1), "%s: simple entries U+%04X, U+%04X form a run" % (where, a, b))
    for cp in EXPECTED_ABSENT[direction]:
        inside = any(low <= cp <= high for low, high in covered)
        require(not inside, "%s: U+%04X must not be mapped" % (where, cp))


# --------------------------------------------------------------------------- output

def command_line():
    return "python3 tools/gen_case_maps.py --ucd-dir %s" % DEFAULT_UCD_DIR


def render(direction, tables, ucd_version):
    name = "Lower" if direction == "lower" else "Upper"
    macro = direction.upper()
    out = []
    emit = out.append
    emit("// generated, do not edit.")
    emit("//")
    emit("// %s-case mapping tables of PAL::StringUtilities::to%s: the Unicode %s case"
         % (name, name, TABLE_VERSION_TEXT))
    emit("// mappings of the Basic Multilingual Plane (letters only, unconditional rules only).")
    emit("// Input: UnicodeData.txt, SpecialCasing.txt and DerivedAge.txt of the Unicode")
    emit("// Character Database %s, keeping the code points and mapped code points that" % ucd_version)
    emit("// DerivedAge.txt dates to %s or earlier." % TABLE_VERSION_TEXT)
    emit("// Remade, from the repository root, by:")
    emit("//     %s" % command_line())
    emit("")
    emit('#include "core/StringUtilities.h"')
    emit("")
    emit("namespace PAL {")
    emit("namespace StringUtilities {")
    emit("")
    emit('const char TO_%s_CASE_MAP_UNICODE_VERSION[] = "%s";' % (macro, TABLE_VERSION_TEXT))
    emit('const char TO_%s_CASE_MAP_SOURCE_DATA_VERSION[] = "%s";' % (macro, ucd_version))
    emit("")
    emit("namespace {")
    emit("")
    emit("const TSimpleCaseMappingTableEntry<unsigned short> sSimpleTab16[] = {")
    for cp, mapped in tables.simple:
        emit("    {0x%04X, 0x%04X}," % (cp, mapped))
    emit("};")
    emit("")
    emit("// first, count, first mapped")
    emit("const TRangeCaseMappingTableEntry<unsigned short> sRangeTab16[] = {")
    for first, count, mapped in tables.ranges:
        emit("    {0x%04X, %d, 0x%04X}," % (first, count, mapped))
    emit("};")
    emit("")
    emit("const unsigned short sSpecialReplacements16[] = {")
    offsets = []
    offset = 0
    for cp, sequence in tables.special:
        offsets.append(offset)
        emit("    %s, // U+%04X" % (", ".join("0x%04X" % m for m in sequence), cp))
        offset += len(sequence)
    emit("};")
    emit("")
    emit("const TSpecialCaseMappingTableEntry<unsigned short> sSpecialTab16[] = {")
    for (cp, sequence), start in zip(tables.special, offsets):
        emit("    {0x%04X, %d, sSpecialReplacements16 + %d}," % (cp, len(sequence), start))
    emit("};")
    emit("")
    emit("} // namespace")
    emit("")
    emit("const SCaseMappingTable sTo%sCaseMappingTable = {" % name)
    emit("    sizeof(sSimpleTab16) / sizeof(sSimpleTab16[0]), sSimpleTab16,")
    emit("    sizeof(sRangeTab16) / sizeof(sRangeTab16[0]), sRangeTab16,")
    emit("    sizeof(sSpecialTab16) / sizeof(sSpecialTab16[0]), sSpecialTab16,")
    emit("    0, nullptr,")
    emit("    0, nullptr,")
    emit("    0, nullptr,")
    emit("};")
    emit("")
    emit("} // namespace StringUtilities")
    emit("} // namespace PAL")
    return "\n".join(out) + "\n"


def output_name(direction):
    return "To%sCaseMap.gen.cpp" % ("Lower" if direction == "lower" else "Upper")


def generate(ucd_dir):
    """Returns {file name: text}, or raises CheckError."""
    paths = [os.path.join(ucd_dir, name) for name in INPUT_FILES]
    versions = {read_version(path) for path in paths[1:]}
    require(len(versions) == 1, "%s: SpecialCasing.txt and DerivedAge.txt disagree on the version" % ucd_dir)
    ucd_version = versions.pop()
    records = read_unicode_data(paths[0])
    special_casing = read_special_casing(paths[1])
    ages = read_ages(paths[2])
    files = {}
    for direction in ("lower", "upper"):
        tables = build_tables(direction, records, special_casing, ages)
        check_tables(direction, tables)
        files[output_name(direction)] = (render(direction, tables, ucd_version), ucd_version)
    return files


def without_source_version(text, version):
    # A newer database yields the same tables; only the lines naming it differ.
    return text.replace(version, "<source data version>")


def compare(files, committed_dir):
    same = True
    for name, (text, version) in sorted(files.items()):
        path = os.path.join(committed_dir, name)
        try:
            with open(path, encoding="utf-8") as handle:
                committed = handle.read()
        except OSError as error:
            print("%s: cannot read (%s)" % (path, error.strerror), file=sys.stderr)
            same = False
            continue
        committed_version = re.search(r'SOURCE_DATA_VERSION\[\] = "([^"]*)"', committed)
        committed_version = committed_version.group(1) if committed_version else version
        if without_source_version(committed, committed_version) == without_source_version(text, version):
            if committed_version != version:
                print("%s: same tables, made from database %s (installed: %s)"
                      % (name, committed_version, version))
            continue
        same = False
        sys.stderr.writelines(difflib.unified_diff(
            committed.splitlines(True), text.splitlines(True), path, "regenerated " + name))
    return same


def main(argv):
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--ucd-dir", default=DEFAULT_UCD_DIR,
                        help="folder with UnicodeData.txt, SpecialCasing.txt, DerivedAge.txt")
    parser.add_argument("--out-dir", default=DEFAULT_OUT_DIR, help="where the sources are written")
    parser.add_argument("--check", action="store_true",
                        help="write into a temporary folder and compare with the sources in --out-dir")
    args = parser.parse_args(argv)

    missing = [name for name in INPUT_FILES if not os.path.isfile(os.path.join(args.ucd_dir, name))]
    if missing:
        print("%s: missing %s; nothing to do" % (args.ucd_dir, ", ".join(missing)), file=sys.stderr)
        return EXIT_DATA_MISSING

    try:
        files = generate(args.ucd_dir)
    except CheckError as error:
        print("gen_case_maps: %s" % error, file=sys.stderr)
        return EXIT_CHECK_FAILED

    if args.check:
        with tempfile.TemporaryDirectory(prefix="case_maps_") as scratch:
            write(files, scratch)
            reread = {}
            for name, (_, version) in files.items():
                with open(os.path.join(scratch, name), encoding="utf-8") as handle:
                    reread[name] = (handle.read(), version)
        return 0 if compare(reread, args.out_dir) else EXIT_CHECK_FAILED

    write(files, args.out_dir)
    return 0


def write(files, folder):
    for name, (text, _) in files.items():
        with open(os.path.join(folder, name), "w", encoding="utf-8", newline="\n") as handle:
            handle.write(text)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
