#!/usr/bin/env python3
"""Checks the x64 Quillon.dll's real-time code section: every call or jump in
it stays inside the section, except calls of SetEvent through the import table
and calls through an object's interface table (the device effect's own
real-time routine). Usage: check-realtime.py <Quillon.dll>"""
import re
import subprocess
import sys

ALLOWED_IMPORTS = {"SetEvent"}


def run(*args):
    return subprocess.run(args, check=True, capture_output=True, text=True).stdout


def main(dll):
    headers = run("llvm-objdump", "-h", dll)
    match = re.search(r"^\s*\d+\s+RT_CODE\s+([0-9a-f]+)\s+([0-9a-f]+)", headers, re.M)
    if not match:
        sys.exit(f"check-realtime: {dll} has no RT_CODE section")
    size, start = int(match.group(1), 16), int(match.group(2), 16)
    image_base = int(re.search(r"ImageBase\s+([0-9a-f]+)", run("llvm-objdump", "-p", dll)).group(1), 16)

    # Import address table slot -> imported function name.
    slots = {}
    for block in run("llvm-readobj", "--coff-imports", dll).split("Import {")[1:]:
        table = int(re.search(r"ImportAddressTableRVA: 0x([0-9A-F]+)", block).group(1), 16)
        for i, name in enumerate(re.findall(r"Symbol: (\S+)", block)):
            slots[image_base + table + 8 * i] = name

    bad = []
    calls = 0
    for line in run("llvm-objdump", "-d", "--no-show-raw-insn", "--section=RT_CODE", dll).splitlines():
        insn = re.match(r"\s*([0-9a-f]+):\s+(call|jmp)\w*\s+(.*)", line)
        if not insn:
            continue
        operand = insn.group(3)
        direct = re.match(r"0x([0-9a-f]+)", operand)
        if direct:
            target = int(direct.group(1), 16)
            if not start <= target < start + size:
                bad.append(line.strip())
            calls += insn.group(2) == "call"
            continue
        through_table = re.search(r"\(%rip\)\s+# 0x([0-9a-f]+)", operand)
        if through_table:
            name = slots.get(int(through_table.group(1), 16), "?")
            if name not in ALLOWED_IMPORTS:
                bad.append(f"{line.strip()}  ({name})")
        # Anything else goes through a register or an object's table: the device effect.
    if bad:
        print("check-realtime: the real-time section calls outside itself:", *bad, sep="\n  ", file=sys.stderr)
        sys.exit(1)
    print(f"check-realtime: {dll}: RT_CODE ({size} bytes) calls only itself, SetEvent and the device effect")


if __name__ == "__main__":
    main(sys.argv[1])
