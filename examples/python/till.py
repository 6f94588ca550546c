#!/usr/bin/env python3
"""A small till: takes one payment and says what became of it.

    till.py LIBRARY AMOUNT [TERMINAL_ID]
    till.py /opt/zat_ms/BIN/libzat_ms.so 1250.00

Ctrl-C asks the terminal to break the payment off. Exit code: 0 paid, 1 not paid, 5 unknown.
"""

import sys
import time

from zat_ms import Amount, Kind, OtherBlock, Outcome, ReceiptLine, Status, StatusChange, Till

WORDS = {Status.CONNECTING: "one moment", Status.PIN: "please enter the PIN", Status.ONLINE: "asking the bank"}


def pay(till: Till, amount: Amount) -> Outcome:
    """Takes a payment and prints its receipt."""
    exchange = till.sale(amount)
    for event in exchange:
        match event:
            case StatusChange(status, text):
                print(f"... {text or WORDS.get(status, status)}", file=sys.stderr)
            case ReceiptLine(text):
                print(text)
            case OtherBlock() | Outcome():
                pass
    return exchange.finish()


def ask(till: Till, amount: Amount, began: str) -> Outcome:
    """After an unknown outcome: the terminal's last transaction, which is the lost one if it is new and fits."""
    last = till.transaction().finish()
    while last.kind is Kind.REFUSED:  # the terminal module of the lost exchange is still at work
        time.sleep(2)
        last = till.transaction().finish()
    response = last.response
    fits = response and response.amount == amount and response.date_time >= began
    return last if fits else Outcome(Kind.UNKNOWN, last.ground, last.code, last.text)


def main(library: str, amount: str, tid: str = "1") -> int:
    """Returns the exit code."""
    with Till(library, tid=tid) as till:
        began = time.strftime("%Y%m%d%H%M%S")
        outcome = pay(till, Amount.parse(amount))
        if outcome.kind is Kind.UNKNOWN:
            outcome = ask(till, Amount.parse(amount), began)
    print(outcome.kind.upper(), outcome.code, outcome.text)
    return {Kind.APPROVED: 0, Kind.UNKNOWN: 5}.get(outcome.kind, 1)


if __name__ == "__main__":
    if not 3 <= len(sys.argv) <= 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
