#!/usr/bin/env python3
"""Writes the layouts of all messages into zat_ms.py, from the table that the codec itself works by.

    layouts.py ZAT_TOOL            rewrites the section between the marks
    layouts.py ZAT_TOOL --check    changes nothing; ends with 1 when the section is not what it should be
"""

from __future__ import annotations

import json
import subprocess
import sys
from pathlib import Path

MODULE = Path(__file__).with_name("zat_ms.py")
BEGIN, END = "# layouts: begin\n", "# layouts: end\n"


def section(tool: str) -> str:
    """The lines between the marks."""
    shown = subprocess.run([tool, "messages", "--json"], check=True, capture_output=True, text=True)
    lines = ["_LAYOUTS: tuple[tuple[str, tuple[_Field, ...]], ...] = (\n"]
    for group in json.loads(shown.stdout):
        ids = " ".join(entry["workId"] for entry in group["workIds"])
        lines.append(f'    ("{ids}", (  # {group["group"]}\n')
        for field in group["fields"]:
            values = (field["width"], field["mode"], field["take"], field["takeWidth"], field["makeMax"])
            words = ", ".join(json.dumps(value) for value in values)
            lines.append(f'        _Field("{field["tag"]}", {words}),\n')
        lines.append("    )),\n")
    return "".join(lines) + ")\n"


def main() -> int:
    source = MODULE.read_text(encoding="utf-8")
    before, rest = source.split(BEGIN)
    after = rest.split(END)[1]
    wanted = before + BEGIN + section(sys.argv[1]) + END + after
    if sys.argv[2:] != ["--check"]:
        MODULE.write_text(wanted, encoding="utf-8")
    elif source != wanted:
        print(f"{MODULE}: the layouts are not those of {sys.argv[1]}: run {__file__} {sys.argv[1]}")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
