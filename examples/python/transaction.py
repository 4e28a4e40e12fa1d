#!/usr/bin/env python3
"""A host program at a bank counter: one online transaction with the card in the reader.

usage: transaction.py ISSUER     ISSUER authorise ARQC  prints response code and response in hex
                                 ISSUER settle TC       ends with status 0 if the TC is accepted
Exit status: 0 paid, 3 declined, 2 used wrongly, 1 anything else.
"""
import json
import subprocess
import sys
import time

import qaven

PAID, FAILED, MISUSED, DECLINED = 0, 1, 2, 3
APPLICATION = "A000000333010101"
# 12.13 yuan, 22 April 2019, 16:13:55, at a merchant's counter: letter, three-digit length, value.
TRANSACTION = "P012000000001213R0040156S006190422T00203U006161355V013MRCH CNT 0001"


def tell(what, value):
    print(f"{what:24}{value}", flush=True)


def read_card(letters, transaction=""):
    answer = qaven.call("QAVEN_getICCardInfo", TagList=letters, AIDList=APPLICATION,
                        aryInput=transaction, isReadArqc="true" if transaction else "false")
    for letter, value in qaven.fields(answer["IcInfo"]):
        tell(qaven.CARD_FIELDS[letter], value)
    return json.loads(answer["IcARQC"] or "{}")


def ask_issuer(message, data):
    """What the issuer says; None if it does not accept the message, or cannot be asked."""
    try:
        reply = subprocess.run([sys.argv[1], message, data], stdout=subprocess.PIPE, text=True)
    except OSError as error:
        print(f"no way to the issuer: {error}", file=sys.stderr)
        return None
    return reply.stdout if reply.returncode == 0 else None


def is_logged(counter):
    """Whether the card has logged the transaction; None if there is no log to look into."""
    for _ in range(10):
        log = qaven.log_entries(qaven.call("QAVEN_GetTxDetail", AIDList=APPLICATION)["TxDtailRet"])
        if log is not None:
            for entry in log:
                tell("log entry", "{X}: {P} on {S}, {W}".format(**entry))
            return counter in (entry["X"] for entry in log)
        time.sleep(1)  # a reader that was pulled out may take its time to come back


def transact(may_repeat=True):
    request = read_card("|A|B|E|G|I|J|K", TRANSACTION)
    counter = qaven.data_object(request["ARQC"], "9F36")
    tell("transaction", counter)
    online = ask_issuer("authorise", request["ARQC"])
    if online is None:
        return FAILED
    code, response = online.split()
    approved = code == "00"
    tell("response code", code)
    card = qaven.call("QAVEN_ARPC_ExeICScript", Txdata=TRANSACTION, ARPC=response,
                      LpAppData=request["LpAppData"], Status=0 if approved else 1)
    tell("TC", card["TC"])
    tell("script result", card["Scriptresult"])
    accepted = not card["TC"] or ask_issuer("settle", card["TC"]) is not None
    logged = is_logged(counter)
    if approved and not card["TC"]:  # broken off; only the log tells what the card made of it
        tell("broken off", "nothing paid" if logged is False else "to be settled")
        return transact(may_repeat=False) if logged is False and may_repeat else FAILED
    read_card("|K")  # which the issuer's script may have changed
    outcome = PAID if approved else DECLINED
    return outcome if accepted and logged is approved else FAILED


if __name__ == "__main__":
    if len(sys.argv) != 2:
        print("usage: transaction.py ISSUER", file=sys.stderr)
        sys.exit(MISUSED)
    try:
        sys.exit(transact())
    except qaven.Failure as failure:
        sys.exit(f"no card was read: {failure}")
