#!/usr/bin/env python3
"""Runs what the documents show: every command, and every fragment of code.

    run.py SOURCE BUILD DOCUMENT

A document is followed from its beginning to its end in a directory that looks like a checkout which has been built:
`build/` is a scratch installation, which also stands for /opt/zat_ms. Each fenced block has a language. Blocks of text,
ini and json are left alone; every other one needs a mark in front of it, an HTML comment:

    <!-- run -->            run it (c, cpp: compiled with its context, must end with 0); the output must be what the block shows, "..." stands for anything
    <!-- run: similar -->   the same, whatever numbers there are
    <!-- run: exit N -->    the same, and a command may end with N
    <!-- compile -->        compile it (c, cpp), or run it without looking at what it prints (python, sh)
    <!-- no-run: REASON --> leave it alone

and beside those, in any order:

    <!-- ready: COMMAND -->   behind a command that goes on in the background ("&"), try this until it succeeds
    <!-- setup: COMMANDS -->  run these first, without showing them
    <!-- file: NAME -->       write the block to this file, which a command further down works with
    <!-- context: CODE -->    what stands around a fragment of code, with @@ in its place
"""

from __future__ import annotations

import os
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
from dataclasses import dataclass, field
from pathlib import Path

LEFT_ALONE = ("text", "ini", "json")
COMMAND_SECONDS = 50
C_FLAGS = ["-Wall", "-Wextra", "-Werror", "-Wno-unused", "-Iinclude"]
COMPILERS = {"c": ["gcc", "-x", "c", "-std=c99", "-pedantic", "-D_DEFAULT_SOURCE", *C_FLAGS],
             "cpp": ["g++", "-x", "c++", "-std=c++17", *C_FLAGS]}
MARK = "@@-end-of-command-@@"


@dataclass
class Block:
    """A fenced block with the marks before it."""

    line: int
    language: str
    text: str = ""
    marks: dict[str, str] = field(default_factory=dict)


class Fault(Exception):
    """What is wrong with a block."""


def blocks(document: str) -> list[Block]:
    """The fenced blocks of a document. Fault for a block that has no fence or no language."""
    found: list[Block] = []
    marks: dict[str, str] = {}
    comments = re.sub(r"<!--(.*?)-->", lambda mark: mark[0].replace("\n", "\r"), document, flags=re.DOTALL)
    open_block: Block | None = None
    blank, listed = True, False
    for number, line in enumerate(comments.split("\n"), 1):
        if open_block:
            if line.strip() == "```":
                found.append(open_block)
                open_block = None
            else:
                open_block.text += line + "\n"
            continue
        if line.startswith("```"):
            if not line[3:]:
                raise Fault(f"line {number}: a block without a language; drawings are text")
            open_block, marks = Block(number, line[3:], marks=marks), {}
        elif mark := re.match(r"<!-- ?([a-z-]+):?(.*?) ?-->", line):
            marks[mark[1]] = mark[2].replace("\r", "\n").strip()
        elif line.strip():
            if blank and not listed and line.startswith("    "):
                raise Fault(f"line {number}: an indented block; fence it and give it a language")
            listed = re.match(r" *([-*]|[0-9]+\.) ", line) is not None or (listed and line.startswith(" "))
            marks = {}
        blank = not line.strip()
    return found


class Site:
    """Where a document is followed."""

    def __init__(self, source: Path, build: Path, scratch: Path) -> None:
        self.root = scratch
        self.installation = scratch / "build"
        for name in ("include", "bindings", "examples", "programs", "configuration", "run"):
            if (source / name).exists():
                (scratch / name).symlink_to(source / name)
        (self.installation / "BIN").mkdir(parents=True)
        for path in [*(build / "BIN").iterdir(), *build.glob("*.cfg"), *build.glob("next"), *build.glob("*.a")]:
            place = self.installation / path.relative_to(build)
            if path.is_dir():
                shutil.copytree(path, place)
            elif not path.name.endswith((".log", ".lck")):
                shutil.copy(path, place)
        client = Path("programs/client/libzat_client.a")
        (self.installation / client).parent.mkdir(parents=True)
        shutil.copy(build / client, self.installation / client)
        with socket.create_server(("127.0.0.1", 0)) as free:
            self.address = f"127.0.0.1:{free.getsockname()[1]}"
        self.environment = {"PATH": f"{self.installation}/BIN:{os.environ['PATH']}", "HOME": str(scratch),
                            "LC_ALL": "C.UTF-8", "PYTHONPATH": f"{source}/bindings/python", "PYTHONUTF8": "1",
                            "PYTHONDONTWRITEBYTECODE": "1", "TERM": "dumb"}

    def stage(self, build: Path) -> None:
        """Installs what tills are built with, for documents that build one with CMake."""
        for component in ("runtime", "simulator", "development"):
            self.run(["env", f"DESTDIR={self.root}/stage", "cmake", "--install", str(build), "--prefix", "/usr",
                      "--component", component], "")
        self.environment["CMAKE_PREFIX_PATH"] = f"{self.root}/stage/usr"

    def here(self, text: str) -> str:
        """A text of the document with the installation's path in this place."""
        return text.replace("/opt/zat_ms", str(self.installation)).replace("127.0.0.1:9001", self.address)

    def run(self, command: list[str], given: str) -> str:
        """Runs a program on a text; what it prints, with the path that the document has."""
        with subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              text=True, errors="replace", cwd=self.root, env=self.environment,
                              start_new_session=True) as child:
            try:
                printed, _ = child.communicate(self.here(given), COMMAND_SECONDS)
            except subprocess.TimeoutExpired as late:
                os.killpg(child.pid, signal.SIGKILL)  # what it has started would hold the pipe
                raise Fault(f"does not end within {COMMAND_SECONDS} s:\n{late.output!r}") from late
        printed = printed.replace(str(self.installation), "/opt/zat_ms")
        if child.returncode:
            raise Fault(f"ended with {child.returncode}:\n{printed}")
        return printed

    def shell(self, commands: str) -> str:
        """Runs commands in one shell."""
        return self.run(["bash", "-c", self.here(commands)], "")


def follow_console(site: Site, block: Block) -> None:
    """Runs the commands behind "$ " in one shell and compares what they print."""
    steps: list[tuple[str, str]] = []
    for line in block.text.splitlines():
        if line.startswith("$ "):
            steps.append((line[2:], ""))
        elif steps and steps[-1][0].endswith("\\"):
            steps[-1] = (f"{steps[-1][0]}\n{line.lstrip('> ')}", "")
        elif steps:
            steps[-1] = (steps[-1][0], steps[-1][1] + line + "\n")
        else:
            raise Fault("a console block begins with a command: \"$ ...\"")
    ready = f"until {block.marks.get('ready', 'true')}; do sleep 0.05; done >/dev/null 2>&1; true"
    script = ""
    for command, _ in steps:
        script += f"{command}\n{ready if command.endswith('&') else ''}\ncode=$?; echo '{MARK}'$code; (exit $code)\n"
    script += "kill $(jobs -p); true\n"
    printed = re.split(rf"{MARK}(\d+)\n", site.shell(script))
    allowed = re.findall(r"exit (\d+)", block.marks["run"])
    for number, (command, shown) in enumerate(steps):
        got, code = printed[2 * number], printed[2 * number + 1]
        asked = number + 1 < len(steps) and "echo $?" in steps[number + 1][0]
        if code != "0" and code not in allowed and not asked:
            raise Fault(f"{command}\nended with {code}:\n{got}")
        if shown and not same(shown, got, "similar" in block.marks["run"]):
            raise Fault(f"{command}\nprints:\n{got}\ninstead of:\n{shown}")


def same(shown: str, got: str, similar: bool) -> bool:
    """Compares what a document shows with what came. Blanks at the ends of lines do not count."""
    texts = []
    for text in (shown, got):
        text = re.sub(r"[ \t\r]+$", "", text.strip("\n"), flags=re.MULTILINE)
        texts.append(re.sub(r"[0-9]+", "#", text) if similar else text)
    pattern = re.escape(texts[0]).replace(r"\.\.\.", ".*")
    return re.fullmatch(pattern, texts[1], re.DOTALL) is not None


def follow(site: Site, block: Block) -> None:
    """Does what the marks of a block ask for."""
    if block.language in LEFT_ALONE or block.marks.get("no-run"):
        return
    if "setup" in block.marks:
        site.shell("set -e\n" + block.marks["setup"])
    if "file" in block.marks:
        (site.root / block.marks["file"]).write_text(site.here(block.text), encoding="utf-8")
    code = block.marks.get("context", "@@").replace("@@", block.text)
    if block.language in COMPILERS and "run" in block.marks:
        site.run([*COMPILERS[block.language], "-", "-o", "fragment"], code)
        site.run(["./fragment"], "")
    elif block.language in COMPILERS and block.marks.keys() & {"compile", "file"}:
        site.run([*COMPILERS[block.language], "-fsyntax-only", "-"], code)
    elif block.language == "python" and "compile" in block.marks:
        site.run([sys.executable, "-"], code)
    elif block.language == "sh" and "compile" in block.marks:
        site.shell("set -e\n" + code)
    elif block.language == "console" and "run" in block.marks:
        follow_console(site, block)
    elif "file" not in block.marks:
        raise Fault("has no mark that says what to do with it; CONTRIBUTING.md tells them")


def links(document: Path) -> list[str]:
    """Links to files that are not there."""
    targets = re.findall(r"\]\((?!https?:)([^)#\s]+)", document.read_text(encoding="utf-8"))
    return [f"{document.name}: links to {target}, which is not there" for target in targets
            if not (document.parent / target).exists()]


def main(source: str, build: str, name: str) -> int:
    """Returns the exit code."""
    document = Path(source) / name
    complaints = links(document)
    with tempfile.TemporaryDirectory(prefix="zat_docs_", ignore_cleanup_errors=True) as scratch:
        site = Site(Path(source).resolve(), Path(build).resolve(), Path(scratch))
        try:
            found = blocks(document.read_text(encoding="utf-8"))
            if any(block.language == "cmake" for block in found):
                site.stage(Path(build).resolve())
        except Fault as fault:
            found, complaints = [], [*complaints, f"{name}: {fault}"]
        for block in found:
            try:
                follow(site, block)
            except Fault as fault:
                complaints.append(f"{name}:{block.line}: {fault}")
    print("\n".join(complaints) or f"{name}: {len(found)} blocks")
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
