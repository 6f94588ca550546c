"""An installation of its own for one test: the built object and the simulated terminal in a scratch directory."""

from __future__ import annotations

import os
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

BUILD = Path(os.environ["ZAT_BUILD"])
SOURCE = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(SOURCE / "bindings/python"))


class Installation:
    """Removed with everything in it at the end."""

    def __init__(self, till: str = "BREAK=1", pauses: str = "DefaultOkTimeout=0\nDefaultNOkTimeout=0\n"
                 "TimeoutAfter-30-Ok=0\n", faults: str = "") -> None:
        self._scratch = tempfile.TemporaryDirectory(prefix="zat_test_", ignore_cleanup_errors=True)
        self.root = Path(self._scratch.name)
        (self.root / "BIN").mkdir()
        for name in ("libzat_ms.so", "zat_mm"):
            shutil.copy(BUILD / "BIN" / name, self.root / "BIN")
        (self.root / "micromgl.cfg").write_text(f"[ENV]\nLOGLEVEL=H\n[TILL]\n{till}\n")
        (self.root / "eftpos.cfg").write_text(f"[COMMON]\n{pauses}\n")
        (self.root / "simulator.cfg").write_text(faults)
        self.library = self.root / "BIN/libzat_ms.so"

    def __enter__(self) -> Installation:
        return self

    def __exit__(self, *unused: object) -> None:
        self._scratch.cleanup()

    def log(self) -> str:
        """The log so far."""
        path = self.root / "BIN/zat_comm.log"
        return path.read_text("cp1251") if path.exists() else ""

    def python(self, program: str, *arguments: object) -> subprocess.Popen[str]:
        """A till in a process of its own: runs a program in which `lib` is the library and the module is imported."""
        lines = f"import sys, time; sys.path.insert(0, {str(SOURCE / 'bindings/python')!r})\nfrom zat_ms import *\n"
        lines += f"lib = {str(self.library)!r}\n" + program
        return subprocess.Popen([sys.executable, "-c", lines, *map(str, arguments)], stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, env={**os.environ, "PYTHONUTF8": "1"})
