"""Card payments for a till in Python, through libzat_ms.so.

    from zat_ms import Amount, Outcome, ReceiptLine, Till

    with Till("/opt/zat_ms/BIN/libzat_ms.so", tid="1") as till:
        for event in till.sale(Amount(1250, 0)):
            match event:
                case ReceiptLine(text):
                    print(text)
                case Outcome(verdict=verdict):
                    print(verdict)                   # approved, declined, unknown ...

A request is an iterable of events: status changes, receipt lines, other blocks, and at the end one Outcome. Nothing
is sent before the first event is asked for. "approved" is said only when an approving response came and the exchange
then ended well; where money may have moved unseen, the outcome is "unknown", and the till asks the terminal before
the customer pays again (Till.last_transaction).

Every argument is checked before anything is sent: TypeError for a wrong type, ValueError for a wrong value. What goes
wrong later is an outcome, not an exception.

Ctrl-C during a request in the main thread asks the terminal to break off, the exchange is followed to its end, and
KeyboardInterrupt is raised behind its outcome. A second Ctrl-C ends the program at once.
"""

from __future__ import annotations

import ctypes
import os
import re
import signal
import threading
import time
from collections.abc import Callable, Generator, Iterator, Mapping
from dataclasses import dataclass
from enum import StrEnum
from types import FrameType, TracebackType
from typing import ClassVar, NamedTuple

__all__ = ["INSTALLED_LIBRARY", "Amount", "Event", "Exchange", "OtherBlock", "Outcome", "ReceiptLine", "Response",
           "Status", "StatusChange", "Till", "Verdict", "Why"]


# --- What a till says and hears ---------------------------------------------------------------------------------

@dataclass(frozen=True, order=True)
class Amount:
    """A sum of money: Amount(1250, 5) is 1250.05. Whole numbers only; a float is a TypeError."""

    roubles: int
    kopecks: int = 0

    def __post_init__(self) -> None:
        _want_int("roubles", self.roubles, 0, 9_999_999_999)
        _want_int("kopecks", self.kopecks, 0, 99)

    @classmethod
    def parse(cls, text: str) -> Amount:
        """Reads "1250", "1250.5", "1250.50" or "1250,50"."""
        found = re.fullmatch(r"([0-9]{1,10})(?:[.,]([0-9]{1,2}))?", _want_str("amount", text))
        if not found:
            raise ValueError("an amount has digits and at most one point or comma with one or two digits behind it")
        return cls(int(found[1]), int((found[2] or "0").ljust(2, "0")))

    @classmethod
    def of_kopecks(cls, total: int) -> Amount:
        """So many kopecks: 125005 is 1250.05."""
        return cls(*divmod(_want_int("total", total, 0, 999_999_999_999), 100))

    @property
    def in_kopecks(self) -> int:
        """All of it in kopecks."""
        return self.roubles * 100 + self.kopecks

    def __str__(self) -> str:
        return f"{self.roubles}.{self.kopecks:02}"


class Status(StrEnum):
    """How the terminal is getting on."""

    CONNECTING = "connecting"  # the request is about to go out, nothing has come back yet
    PAUSE = "pause"  # the pause after the previous request is being waited out
    OK = "ok"
    NOT_LOGGED_IN = "notLoggedIn"
    PIN = "pin"  # the card holder enters the PIN
    ONLINE = "online"  # the bank is asked
    NO_REFERENCE = "noReference"
    HOLD = "hold"  # the terminal asks to wait
    CONFIRM = "confirm"  # with a text to confirm
    INFO = "info"  # with a text to show
    BREAK = "break"  # the terminal breaks off
    NO_BREAK = "noBreak"  # too late to break off, the operation goes on


class Verdict(StrEnum):
    """What a request came to."""

    APPROVED = "approved"  # an approving response, and a good end
    DONE = "done"  # a good end of an operation without a response: login, totals, end of day
    DECLINED = "declined"  # the bank or the terminal said no
    ABORTED = "aborted"  # ended without a decision: broken off, cancelled at the terminal
    REFUSED = "refused"  # nothing has reached the terminal
    UNKNOWN = "unknown"  # it may have been carried out


class Why(StrEnum):
    """Why an outcome is what it is."""

    RESPONSE = "response"  # the response code decides
    REFUSAL = "refusal"  # a refusal of the terminal ("5X")
    NOT_LOGGED_IN = "notLoggedIn"
    NO_REFERENCE = "noReference"
    ENDED = "ended"  # a bad end without a word before
    GOOD_END = "goodEnd"  # a good end of an operation that has no response
    BREAK = "break"  # a bad end after a break that was asked for
    NO_RESPONSE = "noResponse"  # a good end of a payment without a response
    BROKEN = "damagedResponse"  # a response that cannot be read
    CONTRADICTION = "contradiction"  # an approving response and a bad end
    ENDLESS = "endless"  # the library returns one empty answer after another
    UNFINISHED = "unfinished"  # an earlier exchange of this till has not ended
    MODULE_MISSING = "moduleMissing"  # there is no terminal module to start
    PAUSE = "pause"  # the pause after the previous request is not over
    LOST = "lost"  # no answer in time, or the module died
    HANDLE = "handle"
    STATE = "state"
    COMMAND = "command"
    NO_EXCHANGE = "noExchange"
    OTHER_ID = "otherTid"
    PIPES = "pipes"
    NESTED = "nested"
    NO_MODULE = "noModule"  # another till uses this terminal id, or an update is being installed
    LEFT = "left"  # an exception came between
    STRANGE = "strange"  # a result that no table has


@dataclass(frozen=True)
class Response:
    """The response of the bank. Texts are without the blanks that fill their fields."""

    amount: Amount
    operation: str
    currency: str
    date_time: str
    merchant: str
    rrn: str
    code: str
    authorisation: str
    card: str  # all but its last four digits masked
    card_type: str
    text: str
    additional: str


@dataclass(frozen=True)
class StatusChange:
    """The terminal has come a step further; with its text where it sends one."""

    status: Status
    text: str = ""


@dataclass(frozen=True)
class ReceiptLine:
    """A line of a slip; last is set on its last line. A receipt may have several slips."""

    text: str
    last: bool = False


@dataclass(frozen=True)
class OtherBlock:
    """Any other block of the answer: its two characters and its data. Card data are masked."""

    work_id: str
    data: str


@dataclass(frozen=True)
class Outcome:
    """The last event of a request. code is of the bank, the terminal or the library; text the words with it."""

    verdict: Verdict
    why: Why
    code: str = ""
    text: str = ""
    response: Response | None = None
    receipt: tuple[ReceiptLine, ...] = ()

    @property
    def good(self) -> bool:
        """Approved or done."""
        return self.verdict in (Verdict.APPROVED, Verdict.DONE)


Event = StatusChange | ReceiptLine | OtherBlock | Outcome


# --- Messages ---------------------------------------------------------------------------------------------------

class _Field(NamedTuple):
    tag: str
    width: int  # characters when written; 0: as many as the value has
    mode: int
    take: str  # how it is read: fixed, var (up to its ESC), more (when any are left), exact, rest
    limit: int  # bytes when read; 0 with rest: no limit
    longest: int  # characters when written, beside width; 0: no limit


_VAR, _OPTIONAL_ESC, _DIGITS, _OPTIONAL = 1, 4, 8, 16  # bits of a mode
_ESC = b"\x1b"

# The layouts of all messages, taken from the codec's own table by bindings/python/layouts.py, which also checks them.
# layouts: begin
_LAYOUTS: tuple[tuple[str, tuple[_Field, ...]], ...] = (
    ("10 11 12 13 14 15 18 1D 1F 1I 1J 1K 1L 1M 1N 1O 1P 1Q", (  # payment
        _Field("TR.AMT", 12, 8, "fixed", 12, 0),
        _Field("TR.S.TR2", 0, 16, "rest", 0, 37),
    )),
    ("19 20 26", (  # operation on an earlier transaction
        _Field("TR.RFN", 12, 0, "fixed", 12, 0),
    )),
    ("25", (  # day report
        _Field("TM.RTP", 1, 0, "fixed", 1, 0),
    )),
    ("1A 1B 1C 1G 1H", (  # reversal
        _Field("TR.RFN", 12, 0, "fixed", 12, 0),
        _Field("TR.AMT", 12, 8, "fixed", 12, 0),
        _Field("TR.RAM", 12, 24, "more", 12, 0),
    )),
    ("16 17 1E", (  # offline payment
        _Field("TR.AMT", 12, 8, "fixed", 12, 0),
        _Field("TR.ACD", 6, 0, "fixed", 6, 0),
        _Field("TR.S.TR2", 0, 16, "rest", 0, 0),
    )),
    ("23", (  # totals
        _Field("TR.RFN", 12, 0, "fixed", 12, 0),
        _Field("TR.AMT", 12, 8, "fixed", 12, 0),
    )),
    ("60", (  # transaction response
        _Field("EF.COD", 1, 0, "fixed", 1, 0),
        _Field("TR.AMT", 12, 8, "fixed", 12, 0),
        _Field("TR.CCD", 3, 0, "fixed", 3, 0),
        _Field("TR.DTT", 14, 0, "fixed", 14, 0),
        _Field("TM.MID", 15, 8, "fixed", 15, 0),
        _Field("TR.RFN", 12, 0, "fixed", 12, 0),
        _Field("EF.RCD", 2, 0, "fixed", 2, 0),
        _Field("TR.ACD", 0, 5, "var", 6, 0),
        _Field("TR.PEX", 0, 5, "var", 25, 0),
        _Field("EF.CTP", 0, 5, "var", 16, 0),
        _Field("EF.MSG", 0, 5, "var", 60, 0),
        _Field("EF.RAD", 0, 16, "rest", 60, 0),
    )),
    ("80 81 84 86", (  # closing by reference
        _Field("TR.AMT", 12, 8, "fixed", 12, 0),
        _Field("TR.ACD", 6, 0, "fixed", 6, 0),
        _Field("TR.RFN", 12, 0, "fixed", 12, 0),
        _Field("EF.CTP", 0, 0, "rest", 16, 0),
    )),
    ("8A", (  # closing of a reversal by reference
        _Field("TR.RFN", 12, 0, "fixed", 12, 0),
        _Field("TR.AMT", 12, 8, "fixed", 12, 0),
        _Field("TR.ACD", 6, 0, "fixed", 6, 0),
        _Field("EF.CTP", 0, 5, "var", 16, 0),
        _Field("TR.RAM", 12, 24, "exact", 12, 0),
    )),
    ("5X", (  # refusal
        _Field("EF.ECD", 2, 0, "fixed", 2, 0),
        _Field("EF.MSG", 0, 16, "rest", 0, 0),
    )),
    ("32", (  # print line
        _Field("EF.SLN", 1, 0, "fixed", 1, 0),
        _Field("EF.PLN", 0, 16, "rest", 0, 0),
    )),
    ("34", (  # break result
        _Field("EF.SBR", 1, 0, "fixed", 1, 0),
    )),
    ("30 31", (  # login
        _Field("EF.LET", 0, 16, "more", 1, 0),
        _Field("EF.LED", 0, 16, "rest", 0, 0),
    )),
    ("36", (  # information
        _Field("EF.ITP", 2, 0, "fixed", 2, 0),
        _Field("EF.IDT", 0, 16, "rest", 0, 0),
    )),
    ("22", (  # result of the day
        _Field("EF.FIN", 0, 16, "rest", 0, 0),
    )),
    ("5M", (  # message to confirm
        _Field("EF.MCN", 0, 16, "rest", 0, 0),
    )),
    ("70", (  # fork
        _Field("FK.UNI", 0, 0, "rest", 0, 0),
    )),
    ("37 38", (  # data transfer
        _Field("EF.DTF", 1, 0, "fixed", 1, 0),
        _Field("EF.DTT", 4, 0, "fixed", 4, 0),
        _Field("EF.DTD", 0, 16, "rest", 0, 0),
    )),
    ("#0 #1 21 24 33 50 51 52 53 54 55", (  # no data
    )),
)
# layouts: end

# The library where the packages put it.
INSTALLED_LIBRARY = "/opt/zat_ms/BIN/libzat_ms.so"

_HEADER = 14
_BUFFER = 2048
_MORE, _END = 0, 9
_LENGTH_ALONE = 255  # a header with this length stands for a message without data
_LAST_REFERENCE = "0" * 12


def _fields(work_id: str) -> tuple[_Field, ...]:
    for ids, fields in _LAYOUTS:
        if work_id in ids.split():
            return fields
    return ()


def _make(work_id: str, values: Mapping[str, bytes]) -> bytearray:
    """The data of a request. ValueError for a value that is missing or does not fit."""
    data = bytearray()
    for field in _fields(work_id):
        value = values.get(field.tag)
        if value is None:
            if not field.mode & (_OPTIONAL | _OPTIONAL_ESC):
                raise ValueError(f"{field.tag} is missing")
            data += b"" if field.mode & _OPTIONAL else _ESC
            continue
        longest = field.width or field.longest
        if longest and len(value) > longest:
            raise ValueError(f"{field.tag} has more than {longest} characters")
        data += value.rjust(field.width, b"0") if field.mode & _DIGITS else value.ljust(field.width)
        data += _ESC if field.mode & _VAR else b""
    return data


def _cut(work_id: str, data: bytes) -> tuple[dict[str, bytes], bool]:
    """The fields of a message's data, and whether they are all and nothing but what the layout says."""
    values: dict[str, bytes] = {}
    for field in _fields(work_id):
        end = size = field.limit
        if (field.take in ("more", "rest") and not data) or (field.take == "exact" and len(data) != size):
            continue
        if field.take == "var":
            size = data.find(_ESC, 0, field.limit + 1)
            end = size + 1
        elif field.take == "rest":
            if size and len(data) > size:
                return values, False
            end = size = len(data)
        if size < 0 or end > len(data):
            return values, False
        if field.take != "var" or size:
            values[field.tag] = data[:size]
        data = data[end:]
    return values, not data


def _text(wire: bytes) -> str:
    """A text of the terminal. Control characters are made harmless: they could repaint what a till shows."""
    text = wire.decode("cp1251", "replace").replace("\t", " ")
    return "".join("?" if c < " " or c == "\x7f" else c for c in text)


def _header(work_id: str, tid: str, data: bytearray) -> bytearray:
    size = len(data)
    length = b"%02X" % size if size < _LENGTH_ALONE else size.to_bytes(2, "big")
    return bytearray(work_id.encode("ascii") + tid.rjust(10, "0").encode("ascii") + length)


class _Block(NamedTuple):
    work_id: str
    data: bytes
    values: dict[str, bytes]
    whole: bool

    def text(self, tag: str) -> str:
        return _text(self.values.get(tag, b""))

    @staticmethod
    def read(buffer: bytes) -> _Block | None:
        """One message of an answer; None when there is none."""
        if buffer[0] == 0:
            return None
        work_id, length = buffer[:2].decode("latin-1"), buffer[12:14]
        if length[0] < 0x30:
            size = int.from_bytes(length, "big")
        else:
            digits = re.match(rb"[0-9A-Fa-f]+", length)
            size = int(digits[0], 16) if digits else 0
        data = buffer[_HEADER:_HEADER + (0 if size == _LENGTH_ALONE else size)]
        return _Block(work_id, data, *_cut(work_id, data))


# --- What one exchange comes to ---------------------------------------------------------------------------------

_NONE, _APPROVING, _DECLINING, _BROKEN, _REFUSAL = range(5)  # what the terminal has said so far

# Bad ends and good ends, by what the terminal said before.
#                    none             approving         declining         broken           refusal
_VERDICTS = {False: (Verdict.ABORTED, Verdict.UNKNOWN, Verdict.DECLINED, Verdict.UNKNOWN, Verdict.DECLINED),
             True: (Verdict.DONE, Verdict.APPROVED, Verdict.DECLINED, Verdict.UNKNOWN, Verdict.DECLINED)}

# The response's texts, and where they stand.
_RESPONSE_TAGS = {"operation": "EF.COD", "currency": "TR.CCD", "date_time": "TR.DTT", "merchant": "TM.MID",
                  "rrn": "TR.RFN", "code": "EF.RCD", "authorisation": "TR.ACD", "card": "TR.PEX",
                  "card_type": "EF.CTP", "text": "EF.MSG", "additional": "EF.RAD"}

# Blocks that are shown as a status, and the field with their text.
_STATUSES = {"50": (Status.OK, ""), "51": (Status.NOT_LOGGED_IN, ""), "52": (Status.PIN, ""),
             "53": (Status.ONLINE, ""), "54": (Status.NO_REFERENCE, ""), "55": (Status.HOLD, ""),
             "5M": (Status.CONFIRM, "EF.MCN"), "36": (Status.INFO, "EF.IDT")}


class _Story:
    """Takes the blocks of an answer as they come; at the end there is one outcome."""

    def __init__(self, work_id: str) -> None:
        # Operations that move money, or show one that did, are answered with a response.
        self._needs_response = work_id[0] in "18" or work_id == "20"
        self._said = _NONE
        self._too_late = False  # the terminal declined to break off
        self._why, self._code, self._words = Why.ENDED, "", ""
        self._response: Response | None = None
        self._receipt: list[ReceiptLine] = []

    def take(self, block: _Block) -> Event | None:
        """The event that the till hears of a block, if any."""
        if block.work_id == "32":
            line = _text(block.values.get("EF.PLN", b"").rstrip(b"\r\n"))
            self._receipt.append(ReceiptLine(line, block.values.get("EF.SLN") == b"1"))
            return self._receipt[-1]
        if block.work_id == "60":
            self._take_response(block)
            return None
        if block.work_id == "5X":
            self._take_refusal(Why.REFUSAL, block.text("EF.ECD"), block.text("EF.MSG"))
            return None
        if block.work_id == "34":
            now = block.values.get("EF.SBR") == b"0"
            self._too_late |= not now
            return StatusChange(Status.BREAK if now else Status.NO_BREAK)
        if block.work_id == "51" and self._said == _NONE:
            self._take_refusal(Why.NOT_LOGGED_IN)
        if block.work_id == "54" and self._said == _NONE:
            self._take_refusal(Why.NO_REFERENCE)
        if block.work_id in _STATUSES:
            status, tag = _STATUSES[block.work_id]
            return StatusChange(status, block.text(tag))
        data = block.data
        if block.work_id == "38":  # it may be a card that was read for the till
            data = data[:5] + re.sub(rb"[0-9]", b"*", data[5:])
        return OtherBlock(block.work_id, _text(data))

    def _take_response(self, block: _Block) -> None:
        """The last response holds: a terminal that sends several ends with the one that counts."""
        texts = {name: block.text(tag).strip(" ") for name, tag in _RESPONSE_TAGS.items()}
        texts["card"] = _masked(texts["card"])
        digits = block.values.get("TR.AMT", b"").strip(b" ")
        whole = block.whole and re.fullmatch(rb"[0-9]{1,12}", digits) is not None
        self._response = Response(Amount.of_kopecks(int(digits)), **texts) if whole else None
        self._said = _BROKEN if not whole else _APPROVING if texts["code"] == "00" else _DECLINING
        self._why = Why.RESPONSE if whole else Why.BROKEN
        self._code, self._words = texts["code"], texts["text"]

    def _take_refusal(self, why: Why, code: str = "", text: str = "") -> None:
        """A refusal speaks of the exchange itself; it does not take back what a response said."""
        if self._said in (_NONE, _REFUSAL):
            self._said, self._why, self._code, self._words = _REFUSAL, why, code, text

    def end(self, good: bool, broken_off: bool) -> Outcome:
        """The exchange is over, well or badly; broken_off: the library took a break request of the till."""
        verdict, why = _VERDICTS[good][self._said], self._why
        if self._said == _NONE:
            why = Why.GOOD_END if good else Why.ENDED
        if self._said == _APPROVING and not good:
            why = Why.CONTRADICTION
        if self._said == _NONE and good and self._needs_response:
            verdict, why = Verdict.UNKNOWN, Why.NO_RESPONSE
        if not good and broken_off and not self._too_late and self._said in (_NONE, _REFUSAL):
            verdict, why = Verdict.ABORTED, Why.BREAK
        return Outcome(verdict, why, self._code, self._words, self._response, tuple(self._receipt))

    def stop(self, verdict: Verdict, why: Why, code: str = "", text: str = "") -> Outcome:
        """The exchange stops for another reason than the terminal's end."""
        return Outcome(verdict, why, code, text, self._response, tuple(self._receipt))


def _masked(card: str) -> str:
    number = card.partition("=")[0]
    return "*" * (len(number) - 4) + number[-4:]


# --- What one call of the library brings ------------------------------------------------------------------------

class _Reason(NamedTuple):
    code: str
    old: int | None  # the old-style result for the same
    why: Why


_REASONS = (_Reason("XL", 65535, Why.LOST), _Reason("X1", None, Why.HANDLE), _Reason("X2", 2, Why.STATE),
            _Reason("X3", 3, Why.COMMAND), _Reason("X4", 4, Why.NO_EXCHANGE),
            _Reason("X5", 5, Why.OTHER_ID), _Reason("X6", 6, Why.PIPES), _Reason("X7", 7, Why.NESTED),
            _Reason("X8", 8, Why.NO_MODULE), _Reason("XA", 10, Why.ENDED), _Reason("XB", None, Why.HANDLE))
_STRANGE = _Reason("", None, Why.STRANGE)

# The refusal because the pause is not over is written into the answer first, and with new-style results the shorter
# "XA" block is laid over its beginning. What sticks out behind tells it from the end of an exchange.
_PAUSE_DATA = b"I3Timeout violation between inquiries from cash desk"

_EMPTY_ANSWERS = 100  # then the library has nothing to say and never will
_PAUSE_STEP = 0.05  # seconds


class _Answer:
    """What a result and the answer buffer say. One of: more, good, bad, pause; none of them: a reason stopped it."""

    def __init__(self, result: int, buffer: bytes, opening: bool) -> None:
        self.more = result == _MORE
        self.block = _Block.read(buffer)
        self.good = result == _END and not any(buffer)
        refusal = self.block if self.block and self.block.work_id == "5X" else None
        row = _STRANGE
        self.code = self.text = ""
        shown = 0  # bytes of the pause's refusal that are overwritten
        if result not in (_MORE, _END):
            row = next((r for r in _REASONS if r.old == result), _STRANGE)
            self.code = row.code or str(result)
        elif result == _END and not self.good:
            data = self.block.data if self.block else b""
            shown = len(data)
            self.code, self.text = _text(data[:2]), _text(data[2:]) if refusal else ""
            row = next((r for r in _REASONS if refusal and r.code == self.code), _STRANGE)
        self.why = row.why
        self.bad = not self.more and not self.good and self.why == Why.ENDED
        behind = buffer[_HEADER + shown:_HEADER + len(_PAUSE_DATA)]
        self.pause = self.bad and opening and bool(behind) and behind == _PAUSE_DATA[shown:]
        if self.pause:
            self.bad, self.code, self.why = False, "I3", Why.PAUSE

    @property
    def over(self) -> bool:
        """The library has no exchange open after it."""
        return self.good or self.bad or self.pause or self.why in (Why.NO_MODULE, Why.NO_EXCHANGE)


# --- The library ------------------------------------------------------------------------------------------------

_IDLE = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p)

# All calls of a process are made one at a time. The same thread may enter again: the library itself refuses a call
# from inside the idle callback.
_one_at_a_time = threading.RLock()


class _Session:
    """A handle of eftp_create. Ended only when that cannot wait: the library would wait for a module at work."""

    # Sessions that were left with an exchange open. Each holds the lock of its terminal id until it is ended.
    left: ClassVar[list[_Session]] = []

    def __init__(self, library: ctypes.CDLL, config: bytes | None, tid: str) -> None:
        self._library, self._tid = library, tid
        self.open = False  # the library may have an exchange open
        with _one_at_a_time:
            self._handle = ctypes.c_void_p(library.eftp_create(config))
        if not self._handle:
            raise MemoryError("the library could not make a session")

    def call(self, request: bytearray | None, idle: object) -> _Answer:
        """One call of eftp_do. The answer buffer is all zeros before, so that what it holds after is of this call."""
        answer = ctypes.create_string_buffer(_BUFFER)
        message = (ctypes.c_char * len(request)).from_buffer(request) if request is not None else None
        with _one_at_a_time:
            self.open |= request is not None
            result = self._library.eftp_do(self._handle, message, answer, idle, None)
            brought = _Answer(result, answer.raw, request is not None)
            ctypes.memset(answer, 0, _BUFFER)
            if brought.over:
                self.open = False
        return brought

    def module_lives(self) -> bool:
        """A terminal module of this process still works for this terminal id. Where that cannot be told, it does."""
        try:
            if os.readlink("/proc/self") != str(os.getpid()):
                return True  # these are the processes of another namespace
            return any(self._is_module(name) for name in os.listdir("/proc") if name.isdigit())
        except OSError:
            return True

    def _is_module(self, process: str) -> bool:
        """A child with a session of its own, which the library gives to no other, and the module's name or the
        terminal id among its words: a module may be started by a script."""
        try:
            with open(f"/proc/{process}/stat", "rb") as file:
                parent, _, session = map(int, file.read().rpartition(b")")[2].split()[1:4])
            if parent != os.getpid() or session != int(process):
                return False
            with open(f"/proc/{process}/cmdline", "rb") as file:
                words = file.read().split(b"\0")  # empty for one that has ended
        except (OSError, ValueError):
            return False  # it has gone meanwhile
        tid = self._tid.rjust(10, "0").encode("ascii")
        return any(word == tid or word.endswith(b"/zat_mm") for word in words)

    def end(self) -> bool:
        """Ends the session, unless that would wait for a module that is at work. True when it is ended."""
        if self.open and self.module_lives():
            if self not in self.left:
                self.left.append(self)
            return False
        with _one_at_a_time:
            self._library.eftp_destroy(self._handle)
            self._handle = ctypes.c_void_p(None)
        if self in self.left:
            self.left.remove(self)
        return True


class _HoldInterrupts:
    """Turns Ctrl-C into a break request while the library is at work. Only where Python's own handler is in force."""

    def __init__(self, pressed: Callable[[], None]) -> None:
        self._pressed = pressed
        self._handler: Callable[[int, FrameType | None], None] | signal.Handlers = self._press
        self._taken = False

    def __enter__(self) -> None:
        main = threading.current_thread() is threading.main_thread()
        if main and signal.getsignal(signal.SIGINT) is signal.default_int_handler:
            self._taken = True
            signal.signal(signal.SIGINT, self._handler)

    def __exit__(self, *unused: object) -> None:
        if self._taken:
            signal.signal(signal.SIGINT, signal.default_int_handler)
        self._taken = False

    def _press(self, number: int, frame: FrameType | None) -> None:
        """The next one ends the program, also from inside the library, which may wait for the terminal for long."""
        self._handler = signal.SIG_DFL
        signal.signal(signal.SIGINT, self._handler)
        self._pressed()


class Exchange(Iterator[Event]):
    """One request and the events of its answer. Iterate over it, or call finish() when only the outcome matters."""

    def __init__(self, till: Till, work_id: str, data: bytearray | None) -> None:
        self.outcome: Outcome | None = None
        self._till, self._data = till, data
        self._work_id = work_id
        self._story = _Story(work_id)
        self._break_wanted = self._break_taken = False
        self._held: BaseException | None = None  # raised behind the outcome
        self._interrupts = _HoldInterrupts(self._interrupt)
        self._idle = _IDLE(self._ask)
        self._begun = False
        self._steps = self._run()

    def __iter__(self) -> Exchange:
        return self

    def __next__(self) -> Event:
        with self._interrupts:
            return next(self._steps)

    def finish(self) -> Outcome:
        """Takes what is left of the events and returns the outcome."""
        for _ in self:
            pass
        assert self.outcome
        return self.outcome

    def break_off(self) -> None:
        """Asks the terminal to break off; from any thread. See Till.break_off."""
        self._break_wanted = True

    def _interrupt(self) -> None:
        self._held = KeyboardInterrupt()
        self._break_wanted = True

    @property
    def _running(self) -> bool:
        return self._begun and not self.outcome

    def _run(self) -> Generator[Event, None, None]:
        try:
            yield StatusChange(Status.CONNECTING)
            refused = self._till._why_not(self._data is None)
            if refused:
                outcome = self._story.stop(Verdict.REFUSED, refused)
            elif self._break_wanted:
                outcome = self._story.stop(Verdict.ABORTED, Why.BREAK)
            else:
                self._begun = True
                self._till._exchange = self
                outcome = yield from self._carry(self._till._session)
        except BaseException:
            self._tell(self._story.stop(Verdict.UNKNOWN if self._begun else Verdict.REFUSED, Why.LEFT))
            raise
        finally:
            if self._data is not None:
                self._data[:] = bytes(len(self._data))  # it may hold a track 2
        yield self._tell(outcome)
        if self._held:
            raise self._held

    def _tell(self, outcome: Outcome) -> Outcome:
        self.outcome = outcome
        if self._till._exchange is self:
            self._till.outcome = outcome
        return outcome

    def _carry(self, session: _Session) -> Generator[Event, None, Outcome]:
        module = self._till._has_module()
        request = None
        if self._data is not None:
            request = _header(self._work_id, self._till.tid, self._data) + self._data
        try:
            answer = yield from self._open(session, request)
        finally:
            if request is not None:
                request[:] = bytes(len(request))
        opening = not answer.more and self._data is not None
        empty = 0
        while answer.more:
            empty = 0 if answer.block else empty + 1
            if empty == _EMPTY_ANSWERS:
                return self._story.stop(Verdict.UNKNOWN, Why.ENDLESS)
            event = self._story.take(answer.block) if answer.block else None
            if event:
                yield event
            answer = session.call(None, self._idle)
        if opening and answer.why == Why.LOST and not module and not self._till._has_module():
            return self._story.stop(Verdict.REFUSED, Why.MODULE_MISSING, answer.code, answer.text)
        return self._close(answer, opening)

    def _open(self, session: _Session, request: bytearray | None) -> Generator[Event, None, _Answer]:
        """The library refuses a request that comes too early without having done anything, so it is offered again
        until the pause is over."""
        limit = time.monotonic() + self._till.pause
        answer = session.call(request, self._idle)
        if answer.pause and time.monotonic() < limit:
            yield StatusChange(Status.PAUSE)
        while answer.pause and time.monotonic() < limit and not self._want_break():
            time.sleep(_PAUSE_STEP)
            answer = session.call(request, self._idle)
        return answer

    def _close(self, answer: _Answer, opening: bool) -> Outcome:
        """Nothing was sent only when the very first call was refused, and for a reason that leaves no doubt."""
        if answer.good or answer.bad:
            return self._story.end(answer.good, self._break_taken)
        if answer.pause:
            verdict, why = (Verdict.ABORTED, Why.BREAK) if self._break_taken else (Verdict.REFUSED, Why.PAUSE)
            return self._story.stop(verdict, why, answer.code)
        sent = not opening or answer.why in (Why.LOST, Why.STRANGE)
        return self._story.stop(Verdict.UNKNOWN if sent else Verdict.REFUSED, answer.why, answer.code, answer.text)

    def _want_break(self) -> bool:
        """Asks the till once in a while; an exception of its idle callback is held back like Ctrl-C."""
        if self._till.idle and not self._held:
            try:
                if self._till.idle():
                    self._break_wanted = True
            except BaseException as exception:
                self._held = exception
        if self._break_wanted:
            self._break_taken = True
        return self._break_taken

    def _ask(self, unused: int | None) -> int:
        """The library's idle callback. The library sends a break request for every answer that is not 0: one will
        do."""
        return 0 if self._break_taken else int(self._want_break())


class Till:
    """A till at one terminal.

    library      path of libzat_ms.so
    config       handed on to the terminal module as it stands
    tid          terminal id, 1 to 10 Latin letters and digits
    idle         called about once a millisecond while the library waits for the terminal, if BREAK=1 stands in
                 section [TILL] of micromgl.cfg; true asks the terminal to break off. It must not use this till. An
                 exception is held back and raised behind the outcome.
    pause        seconds for which the pause between two requests is waited out; then the outcome is refused (pause)

    Tills of one process take turns, whatever the thread; different processes need no care. OSError when the library
    cannot be loaded.
    """

    def __init__(self, library: str | os.PathLike[str] = INSTALLED_LIBRARY, config: str | os.PathLike[str] = "",
                 tid: str = "1", *, idle: Callable[[], object] | None = None, pause: float = 60) -> None:
        path, self._config = os.path.abspath(_want_path("library", library)), _want_path("config", config)
        self._tid = _want_name("tid", tid, 10)
        if idle is not None and not callable(idle):
            raise TypeError("idle must be callable")
        if isinstance(pause, bool) or not isinstance(pause, (int, float)):
            raise TypeError("pause must be a number of seconds")
        self.idle, self.pause = idle, pause
        self.outcome: Outcome | None = None  # of the last request, once it is known
        self._library = _load(path)
        self._module = os.path.join(os.path.dirname(path), "zat_mm")
        self._exchange: Exchange | None = None
        self._session = self._begin()
        self._closed = False

    @property
    def tid(self) -> str:
        """The terminal id."""
        return self._tid

    def __enter__(self) -> Till:
        return self

    def __exit__(self, kind: type[BaseException] | None, value: BaseException | None,
                 trace: TracebackType | None) -> None:
        if value is None:
            self.close()
            return
        self.break_off()  # whoever wanted the payment is not there any more
        try:
            self.close()
        except KeyboardInterrupt:
            if not isinstance(value, KeyboardInterrupt):
                raise

    # Requests. Each returns an Exchange: nothing is sent before its first event is asked for.

    def sale(self, amount: Amount, track2: bytes | bytearray | str | None = None) -> Exchange:
        """Takes a payment. track2 is that of a card that the till itself has read; a bytearray can be wiped by the
        caller as soon as this returns."""
        return self._payment("10", amount, track2)

    def refund(self, amount: Amount, track2: bytes | bytearray | str | None = None) -> Exchange:
        """Gives money back to a card."""
        return self._payment("14", amount, track2)

    def preauthorise(self, amount: Amount, track2: bytes | bytearray | str | None = None) -> Exchange:
        """Reserves an amount on a card."""
        return self._payment("11", amount, track2)

    def reverse(self, rrn: str, amount: Amount) -> Exchange:
        """Reverses a sale of today: its reference number and its amount."""
        return self._make("1A", {"TR.RFN": _want_rrn(rrn), "TR.AMT": _want_amount("amount", amount)})

    def reverse_part(self, rrn: str, amount: Amount, part: Amount) -> Exchange:
        """Gives a part of a sale of today back."""
        return self._make("1A", {"TR.RFN": _want_rrn(rrn), "TR.AMT": _want_amount("amount", amount),
                                 "TR.RAM": _want_amount("part", part)})

    def void_payment(self, rrn: str) -> Exchange:
        """Voids an operation that is not closed yet."""
        return self._make("19", {"TR.RFN": _want_rrn(rrn)})

    def transaction(self, rrn: str) -> Exchange:
        """Asks what became of an operation."""
        return self._make("20", {"TR.RFN": _want_rrn(rrn)})

    def last_transaction(self) -> Exchange:
        """Asks for the last operation that the terminal has stored: the question after an unknown outcome. Compare the
        response's amount, time and reference number with what was asked for."""
        return self.transaction(_LAST_REFERENCE)

    def login(self) -> Exchange:
        """Logs the terminal in."""
        return self._make("30", {})

    def totals(self) -> Exchange:
        """Asks for the totals of the day."""
        return self._make("23", {"TR.RFN": b" ", "TR.AMT": b"0"})

    def end_of_day(self) -> Exchange:
        """Closes the day."""
        return self._make("21", {})

    def raw(self, work_id: str, data: bytes | bytearray | str = b"") -> Exchange:
        """Any request: its two characters and its data as the wire has them (a str goes as Windows-1251)."""
        if not re.fullmatch(r"[!-~]{2}", _want_str("work_id", work_id)):
            raise ValueError("work_id must be two printable ASCII characters")
        return self._new(work_id, bytearray(_want_bytes("data", data)))

    def resume(self) -> Exchange:
        """Goes on with an exchange whose answer did not come in time: it may still come. The outcome is refused
        (noExchange) when none is open."""
        self._check_open()
        before = self._exchange
        exchange = Exchange(self, before._work_id if before else "##", None)
        if before and self._session.open:
            exchange._story, exchange._break_taken = before._story, before._break_taken
        return self._take(exchange)

    def break_off(self) -> None:
        """Asks the terminal to break the running request off; from any thread. The terminal decides: the outcome may
        be aborted (break), and an operation that has come too far is completed. Only with BREAK=1 in section [TILL]
        of micromgl.cfg."""
        if self._exchange:
            self._exchange.break_off()

    def close(self) -> bool:
        """Follows a request that was begun to its end, and ends the session. False when the session is left as it
        is, because its terminal module is still at work: it is ended later, by the next till of this process."""
        if self._closed:
            return True
        try:
            if self._exchange and self._exchange._running:
                self._exchange.finish()
        finally:
            self._closed = True
            ended = self._session.end()
        return ended

    def _begin(self) -> _Session:
        for session in list(_Session.left):
            session.end()
        return _Session(self._library, os.fsencode(self._config) or None, self.tid)

    def _check_open(self) -> None:
        if self._closed:
            raise ValueError("this till is closed")

    def _payment(self, work_id: str, amount: Amount, track2: bytes | bytearray | str | None) -> Exchange:
        values = {"TR.AMT": _want_amount("amount", amount)}
        if track2 is not None:
            values["TR.S.TR2"] = _want_track2(track2)
        return self._make(work_id, values)

    def _make(self, work_id: str, values: Mapping[str, bytes]) -> Exchange:
        return self._new(work_id, _make(work_id, values))

    def _new(self, work_id: str, data: bytearray) -> Exchange:
        self._check_open()
        if len(data) > _BUFFER - _HEADER or len(data) == _LENGTH_ALONE:
            raise ValueError(f"{len(data)} bytes of data cannot be sent: at most {_BUFFER - _HEADER}, and not 255")
        return self._take(Exchange(self, work_id, data))

    def _take(self, exchange: Exchange) -> Exchange:
        if not (self._exchange and self._exchange._running):
            self._exchange, self.outcome = exchange, None
        return exchange

    def _why_not(self, resuming: bool) -> Why | None:
        """Why a request cannot be sent now. A session that was left with its exchange open is replaced as soon as its
        terminal module has ended."""
        if not self._session.open:
            return Why.NO_EXCHANGE if resuming else None
        if self._exchange and self._exchange._running:
            return Why.UNFINISHED
        if resuming:
            return None
        if not self._session.end():
            return Why.UNFINISHED
        self._session = self._begin()
        return None

    def _has_module(self) -> bool:
        return os.access(self._module, os.X_OK)


# --- Arguments --------------------------------------------------------------------------------------------------

def _want_int(name: str, value: object, least: int, most: int) -> int:
    if isinstance(value, bool) or not isinstance(value, int):
        raise TypeError(f"{name} must be an int, not {type(value).__name__}")
    if not least <= value <= most:
        raise ValueError(f"{name} must be from {least} to {most}")
    return value


def _want_str(name: str, value: object) -> str:
    if not isinstance(value, str):
        raise TypeError(f"{name} must be a str, not {type(value).__name__}")
    return value


def _want_path(name: str, value: object) -> str:
    path = os.fspath(value) if isinstance(value, os.PathLike) else value
    if "\0" in _want_str(name, path):
        raise ValueError(f"{name} must not hold a null character")
    return str(path)


def _want_name(name: str, value: object, longest: int) -> str:
    text = _want_str(name, value)
    if not re.fullmatch(r"[0-9A-Za-z]+", text) or len(text) > longest:
        raise ValueError(f"{name} must be 1 to {longest} Latin letters and digits")
    return text


def _want_rrn(value: object) -> bytes:
    return _want_name("rrn", value, 12).encode("ascii")


def _want_amount(name: str, value: object) -> bytes:
    if not isinstance(value, Amount):
        raise TypeError(f"{name} must be an Amount, not {type(value).__name__}")
    if not value.in_kopecks:
        raise ValueError(f"{name} must be above zero")
    return b"%d" % value.in_kopecks


def _want_bytes(name: str, value: object) -> bytes:
    if isinstance(value, str):
        return value.encode("cp1251")
    if not isinstance(value, (bytes, bytearray)):
        raise TypeError(f"{name} must be bytes or a str, not {type(value).__name__}")
    return bytes(value)


def _want_track2(value: object) -> bytes:
    track = _want_bytes("track2", value)
    bare = re.fullmatch(rb";([0-9=]+)\?.?|B([0-9D]+)F.?|([0-9=D]+)", track, re.DOTALL)
    digits = bare[bare.lastindex or 0].replace(b"D", b"=") if bare else b""
    if len(track) < 10 or digits.count(b"=") != 1:
        raise ValueError("this is no track 2")  # it is not shown: an exception ends in a log
    return digits


def _load(path: str) -> ctypes.CDLL:
    if not os.path.exists(path):
        raise FileNotFoundError(2, "there is no such library", path)
    library = ctypes.CDLL(path)
    pointer = ctypes.c_void_p
    try:
        library.eftp_create.restype, library.eftp_create.argtypes = pointer, [ctypes.c_char_p]
        library.eftp_do.restype = ctypes.c_int
        library.eftp_do.argtypes = [pointer, pointer, pointer, _IDLE, pointer]
        library.eftp_destroy.restype, library.eftp_destroy.argtypes = None, [pointer]
    except AttributeError as missing:
        raise OSError(f"{path} is a library, but not this one: {missing}") from None
    return library
