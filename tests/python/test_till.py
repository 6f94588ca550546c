"""The Python module against the built object and the simulated terminal."""

from __future__ import annotations

import json
import os
import random
import re
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time
import unittest
from collections.abc import Callable
from pathlib import Path

from installation import BUILD, SOURCE, Installation

import zat_ms
from zat_ms import Amount, Exchange, Why, Verdict, OtherBlock, Outcome, ReceiptLine, Status, StatusChange, Till

NO_CARD = Amount(12, 73)  # the terminal waits for a card that never comes
DIES = Amount(12, 77)  # approved and stored, then the module is killed


class Payments(unittest.TestCase):
    """What a till hears of a request."""

    def test_sale_and_partial_reversal(self) -> None:
        with Installation() as site, Till(site.library, tid="7") as till:
            self.assertEqual(till.login().finish().verdict, Verdict.DONE)
            events = list(till.sale(Amount(1250, 5), b";4000001234567899=2512101123?"))
            outcome = events[-1]
            assert isinstance(outcome, Outcome) and outcome.response
            self.assertIs(till.outcome, outcome)
            self.assertEqual((outcome.verdict, outcome.why), (Verdict.DECLINED, Why.RESPONSE))  # .05 is declined
            events = list(till.sale(Amount(1250, 0)))
            outcome = events[-1]
            assert isinstance(outcome, Outcome) and outcome.response
            self.assertEqual((outcome.verdict, outcome.text), (Verdict.APPROVED, "ОДОБРЕНО"))
            self.assertEqual((outcome.response.amount, outcome.response.card), (Amount(1250), "*" * 12 + "1111"))
            statuses = [event.status for event in events if isinstance(event, StatusChange)]
            self.assertEqual(statuses, [Status.CONNECTING, Status.PIN, Status.ONLINE])
            lines = [event for event in events if isinstance(event, ReceiptLine)]
            self.assertIn("СУММА РУБ                1250.00", [line.text for line in lines])
            self.assertEqual([line.last for line in lines].count(True), 1 if lines[-1].last else 0)
            reversal = till.reverse_part(outcome.response.rrn, Amount(1250), Amount(50)).finish()
            assert reversal.response
            self.assertEqual((reversal.verdict, reversal.response.amount), (Verdict.APPROVED, Amount(50)))
            self.assertEqual(till.void_payment("404").finish().verdict, Verdict.DECLINED)
            sums = [event.data for event in till.end_of_day() if isinstance(event, OtherBlock)]
            self.assertEqual(sums[0][:16], "0001" + "000000120000")

    def test_long_block(self) -> None:
        with Installation(faults="[FAULTS]\nSize=2:300") as site, Till(site.library) as till:
            lines = [event.text for event in till.sale(Amount(1)) if isinstance(event, ReceiptLine)]
            self.assertEqual([len(line) for line in lines[:1]], [299])

    def test_example(self) -> None:
        with Installation() as site:
            cases = [("12.00", 0, "СПАСИБО"), ("12.05", 1, "DECLINED 05"), ("12.77", 0, "APPROVED 00")]
            for amount, code, shown in cases:
                ran = subprocess.run([sys.executable, SOURCE / "examples/python/till.py", amount, site.library],
                                     capture_output=True, text=True, check=False)
                self.assertEqual((ran.returncode, shown in ran.stdout), (code, True), ran.stdout + ran.stderr)

    def test_pause(self) -> None:
        for style in ("OLDRET=0", "OLDRET=1"):
            with self.subTest(style), Installation(style, "TimeoutAfter-30-Ok=1\nTimeoutAfter-10-Ok=60") as site:
                with Till(site.library) as till:
                    till.login().finish()
                    events = list(till.sale(Amount(1)))
                    self.assertEqual(events[1], StatusChange(Status.PAUSE))
                    self.assertEqual(till.outcome and till.outcome.verdict, Verdict.APPROVED)
                    till.pause = 0
                    self.assertEqual(till.sale(Amount(1)).finish(), Outcome(Verdict.REFUSED, Why.PAUSE, "I3"))

    def test_wrong_arguments_send_nothing(self) -> None:
        with Installation() as site:
            with Till(site.library) as till:
                wrong: list[tuple[type[Exception], Callable[..., object], list[object]]] = [
                    (TypeError, Amount, [12.5]), (TypeError, Amount, [True]), (TypeError, Amount.parse, [12]),
                    (ValueError, Amount, [1, 100]), (ValueError, Amount, [-1]), (ValueError, Amount.parse, ["1.005"]),
                    (ValueError, Amount.parse, ["-1"]), (TypeError, till.sale, [12]), (TypeError, till.sale, ["12"]),
                    (ValueError, till.sale, [Amount(0)]), (ValueError, till.sale, [Amount(1), "1234"]),
                    (ValueError, till.sale, [Amount(1), b"4" * 19 + b"=" + b"1" * 18]),
                    (TypeError, till.void_payment, [123]), (ValueError, till.void_payment, ["1" * 13]),
                    (ValueError, till.raw, ["100"]), (ValueError, till.raw, ["70", "x" * 255]),
                    (ValueError, till.raw, ["70", "x" * 2035]), (ValueError, till.raw, ["70", "中"]),
                    (TypeError, Till, [5]), (ValueError, Till, [site.library, "", "1/2"]),
                    (FileNotFoundError, Till, [site.root / "none.so"]), (OSError, Till, [site.root / "eftpos.cfg"])]
                for fault, call, arguments in wrong:
                    with self.subTest(call=call.__qualname__, arguments=arguments), self.assertRaises(fault):
                        call(*arguments)
            with self.assertRaises(ValueError):
                till.login()
            self.assertNotIn("[eftp_do]", site.log())


class Breaks(unittest.TestCase):
    """A payment that waits for a card is broken off; no exchange is abandoned."""

    def test_from_another_thread_and_by_the_idle_callback(self) -> None:
        with Installation(faults="[FAULTS]\nCard=300") as site:
            waiting = threading.Event()
            with Till(site.library, idle=waiting.set) as till:
                helper = threading.Thread(target=break_when, args=(waiting, till))
                helper.start()
                events = list(till.sale(NO_CARD))
                helper.join()
                self.assertEqual(events[1], StatusChange(Status.BREAK))
                self.assertEqual(events[-1], Outcome(Verdict.ABORTED, Why.BREAK))
                self.assertEqual(till.sale(Amount(1)).finish().verdict, Verdict.APPROVED)  # the wish was for that one
            with Till(site.library, idle=lambda: 1 / 0) as till:
                with self.assertRaises(ZeroDivisionError):
                    till.sale(Amount(2)).finish()
                self.assertEqual(till.outcome and till.outcome.verdict, Verdict.APPROVED)
            with Till(site.library, idle=lambda: True) as till:
                self.assertEqual(till.sale(NO_CARD).finish().verdict, Verdict.ABORTED)

    def test_too_late(self) -> None:
        with Installation() as site, Till(site.library) as till:
            events = []
            for event in till.sale(Amount(12, 72)):  # the bank takes five seconds to decline
                events.append(event)
                if event == StatusChange(Status.ONLINE):
                    till.break_off()
            self.assertEqual(events[2], StatusChange(Status.NO_BREAK))
            self.assertEqual(till.outcome and till.outcome.verdict, Verdict.DECLINED)

    def test_a_loop_that_is_left(self) -> None:
        with Installation() as site:
            with Till(site.library) as till:
                for event in till.sale(Amount(1)):
                    if isinstance(event, ReceiptLine):
                        break
                self.assertEqual(till.sale(Amount(2)).finish(), Outcome(Verdict.REFUSED, Why.UNFINISHED))
            self.assertEqual(till.outcome and till.outcome.verdict, Verdict.APPROVED)
            with self.assertRaises(KeyError), Till(site.library) as till:
                for event in till.sale(Amount(12, 71)):  # the bank takes five seconds; too late for the break
                    if event == StatusChange(Status.ONLINE):
                        raise KeyError
            self.assertEqual(till.outcome and till.outcome.verdict, Verdict.APPROVED)

    def test_interrupt(self) -> None:
        with Installation() as site:
            till = site.python("""
hello = iter([lambda: print("waits", flush=True)])
with Till(lib, idle=lambda: next(hello, lambda: None)()) as till:
    try:
        for event in till.sale(Amount(12, 73)):
            if isinstance(event, Outcome): print(event.verdict, flush=True)
    except KeyboardInterrupt:
        print("interrupt", till.sale(Amount(1)).finish().verdict)
""")
            assert till.stdout
            self.assertEqual(till.stdout.readline(), "waits\n")
            till.send_signal(signal.SIGINT)
            self.assertEqual(till.communicate(timeout=50)[0], "aborted\ninterrupt approved\n")


class Losses(unittest.TestCase):
    """Where money may have moved unseen the outcome is unknown, and the till can find out."""

    def test_killed_module(self) -> None:
        with Installation() as site, Till(site.library) as till:
            lost = till.sale(DIES).finish()
            self.assertEqual((lost.verdict, lost.why, lost.code), (Verdict.UNKNOWN, Why.LOST, "XL"))
            self.assertEqual(till.resume().finish().why, Why.LOST)
            found = till.last_transaction().finish()
            assert found.response
            self.assertEqual((found.verdict, found.response.amount), (Verdict.APPROVED, DIES))
            self.assertEqual(till.resume().finish(), Outcome(Verdict.REFUSED, Why.NO_EXCHANGE))
            (site.root / "BIN/zat_mm").unlink()
            self.assertEqual(till.sale(Amount(1)).finish().why, Why.MODULE_MISSING)

    def test_silent_module(self) -> None:
        """Takes half a minute: that is how long the library waits. Two tills wait beside each other."""
        with Installation(faults="[FAULTS]\nPause=2:37000") as site:
            module = site.root / "BIN/zat_mm"
            module.rename(site.root / "BIN/real")
            module.write_text(f"#!/bin/sh\nexec {site.root}/BIN/real \"$@\"\n")  # a module that a script starts
            module.chmod(0o755)
            collects = site.python("""
with Till(lib, tid="2") as till:
    lost = till.sale(Amount(1)).finish()
    print(lost.verdict, till.sale(Amount(1)).finish().why, till.resume().finish().verdict)
""")
            with Till(site.library) as till:
                self.assertEqual(till.sale(Amount(3)).finish().verdict, Verdict.UNKNOWN)
                self.assertFalse(till.close())  # it has not waited for the module, which is at work for 7 s more
            with Till(site.library) as till:
                found = till.last_transaction().finish()
                self.assertEqual(found, Outcome(Verdict.REFUSED, Why.NO_MODULE, "X8", found.text))
            (site.root / "simulator.cfg").write_text("")
            while found.verdict is Verdict.REFUSED:
                time.sleep(0.1)
                with Till(site.library) as till:
                    found = till.last_transaction().finish()
            self.assertEqual(found.response and found.response.amount, Amount(3))
            self.assertEqual(collects.communicate(timeout=20)[0], "unknown unfinished approved\n")


class Together(unittest.TestCase):
    """Tills beside one another."""

    def test_two_processes(self) -> None:
        with Installation() as site:
            waiting = threading.Event()
            with Till(site.library, tid="1", idle=waiting.set) as till:
                first = threading.Thread(target=lambda: till.sale(NO_CARD).finish())
                first.start()
                waiting.wait()
                program = "with Till(lib, tid=sys.argv[1]) as t: print(t.sale(Amount(1)).finish().why)"
                others = [site.python(program, tid) for tid in ("2", "0001")]
                said = [other.communicate(timeout=50)[0] for other in others]
                self.assertEqual(said, ["response\n", "noModule\n"])
                till.break_off()
                first.join()
            self.assertEqual(till.outcome and till.outcome.verdict, Verdict.ABORTED)


class Tables(unittest.TestCase):
    """What is known here and elsewhere must not part: the C header, and the cash desk on the command line."""

    def test_every_answer_comes_to_what_it_comes_to_there(self) -> None:
        """Both are shown the same answers of a library, mixed at random from everything one may ever say."""
        dice = random.Random(20)
        with tempfile.TemporaryDirectory() as scratch:
            for number in range(150):
                script = "".join(dice.choices(BLOCKS, k=dice.randrange(5))) + dice.choice(ENDS) + "bad\n" * 9
                command, request = dice.choice(REQUESTS)
                library = Path(scratch) / f"libfake{number}.so"  # a copy each: the script is opened once
                shutil.copy(BUILD / "tests/fake/libfake_ms.so", library)
                library.with_suffix(".txt").write_text(script, "cp1251")
                os.environ["FAKE_SCRIPT"] = str(library.with_suffix(".txt"))
                with Till(library) as till, self.subTest(script=script, command=command):
                    self.assertEqual(told(request(till)), zat_till(*command, "--lib", str(library)))

    def test_answers_to_a_break(self) -> None:
        for answer, why in (("bad\n", Why.BREAK), ("block 34 0\nbad\n", Why.BREAK),
                               ("block 34 1\nbad\n", Why.ENDED), ("block 5X I8no\nbad\n", Why.BREAK)):
            with self.subTest(answer), tempfile.TemporaryDirectory() as scratch:
                library = shutil.copy(BUILD / "tests/fake/libfake_ms.so", scratch)
                os.environ["FAKE_SCRIPT"] = str(Path(scratch) / "script")
                Path(scratch, "script").write_text(f"idle 9000\ngood\nbroken\n{answer}", "ascii")
                with Till(library, idle=lambda: True) as till:
                    self.assertEqual(till.sale(Amount(1)).finish().why, why)

    def test_reasons(self) -> None:
        header = (SOURCE / "include/zat_ms.h").read_text()
        marks = dict(re.findall(r'#define ZAT_MS_(\w+) "(X.)"', header))
        old = dict(re.findall(r"#define ZAT_MS_OLD_(\w+) (\d+)", header))
        wanted = {code: int(old[name]) if name in old else None for name, code in marks.items()}
        self.assertEqual({reason.code: reason.old for reason in zat_ms._REASONS}, wanted)
        self.assertIn(f"#define ZAT_MS_BUFFER {zat_ms._BUFFER}\n", header)


def break_when(event: threading.Event, till: Till) -> None:
    event.wait()
    till.break_off()


def bank(code: str, amount: str = "000000125000") -> str:
    """A response of the bank."""
    return (f"block 60 0{amount}643{'20261121115900'}{'000000000012345'}{'612345678901'}{code}A1B2C3\\e"
            "4000001234567899=2512\\eVISA\\eслова банка \\e\n")


BLOCKS = [bank("00"), bank("00"), bank("51"), bank("00", "0000001250A0"), "block 60 000000\n", "block 51 \n",
          "block 52 \n", "block 54 \n", "block 34 0\n", "block 34 1\n", "block 5X M1нет связи\n", "block 5X I\n",
          "block 5M Подпись?\n", "block 36 11text\n", "block 38 1MV014000001234567899=2512\n", "empty\n", "pause\n",
          "block 31 0zat_mm\n", "block 32 0Чек\t№ 1\r\n", "block 32 1\x1b[2J\n", "block 32 \n",
          f"block 32 0{'x' * 254}\n"]
ENDS = ["good\n", "good\n", "bad\n", "bad\n", "pause\nstop X2 no\n", "old 9\n", "old 10\n", "old 77\n",
        "old 10 pause\ngood\n", "empty\n" * 100, *(f"stop {mark} why\n" for mark in ("XL", "X5", "X6", "X8", "XX")),
        *(f"old {number}\n" for number in (65535, 2, 4, 8))]
REQUESTS: list[tuple[list[str], Callable[[Till], Exchange]]] = [
    (["sale", "1250"], lambda till: till.sale(Amount(1250))), (["login"], Till.login),
    (["raw", "20", "0" * 12], Till.last_transaction)]


def told(exchange: Exchange) -> dict[str, object]:
    """An exchange in the words of the cash desk on the command line."""
    said: dict[str, list[object]] = {"statuses": [], "receipt": [], "otherBlocks": []}
    slip: list[str] = []
    for event in exchange:
        match event:
            case ReceiptLine(text, last):
                if not slip:
                    said["receipt"].append(slip)
                slip.append(text)
                slip = [] if last else slip
            case StatusChange(status) if said["statuses"][-1:] != [status]:
                said["statuses"].append(status)
            case OtherBlock(work_id, data):
                said["otherBlocks"].append({"workId": work_id, "data": data})
    outcome, response = exchange.finish(), exchange.finish().response
    names = {"date_time": "dateTime", "card_type": "cardType"}
    fields = {names.get(name, name): str(value) for name, value in vars(response).items()} if response else {}
    return {"outcome": outcome.verdict, "why": outcome.why, "code": outcome.code, "text": outcome.text, **said,
            "response": {name: value for name, value in fields.items() if value}}


def zat_till(*arguments: str) -> dict[str, object]:
    """What the cash desk on the command line says."""
    shown = subprocess.run([BUILD / "BIN/zat_till", *arguments, "--json"], stdin=subprocess.DEVNULL, check=False,
                           capture_output=True, text=True, env={**os.environ, "LC_ALL": "C.UTF-8"})
    said: dict[str, object] = json.loads(shown.stdout)
    names = ("outcome", "why", "code", "text", "statuses", "receipt", "otherBlocks")
    return {**{name: said[name] for name in names}, "response": said.get("response", {})}


if __name__ == "__main__":
    unittest.main()
