#!/usr/bin/env python3
"""A small till: takes one payment and says what became of it.

    till.py AMOUNT [LIBRARY]
    till.py 1250.00

Ctrl-C asks the terminal to break the payment off. Exit code: 0 paid, 1 not paid, 5 unknown.
"""

import sys
import time

from zat_ms import INSTALLED_LIBRARY, Amount, Verdict, OtherBlock, Outcome, ReceiptLine, Status, StatusChange, Till

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
    last = till.last_transaction().finish()
    while last.verdict is Verdict.REFUSED:  # the terminal module of the lost exchange is still at work
        time.sleep(2)
        last = till.last_transaction().finish()
    response = last.response
    fits = response and response.amount == amount and response.date_time >= began
    return last if fits else Outcome(Verdict.UNKNOWN, last.why, last.code, last.text)


def main(written: str, library: str = INSTALLED_LIBRARY) -> int:
    """Returns the exit code."""
    amount = Amount.parse(written)
    with Till(library) as till:
        began = time.strftime("%Y%m%d%H%M%S")
        outcome = pay(till, amount)
        if outcome.verdict is Verdict.UNKNOWN:
            outcome = ask(till, amount, began)
    print(outcome.verdict.upper(), outcome.code, outcome.text)
    return {Verdict.APPROVED: 0, Verdict.UNKNOWN: 5}.get(outcome.verdict, 1)


if __name__ == "__main__":
    if not 2 <= len(sys.argv) <= 3:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
