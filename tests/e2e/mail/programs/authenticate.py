#!/usr/bin/env python3
"""Logs in with the initial response of a SASL mechanism, as it lies in a file in base64.

    authenticate.py imap|smtp PORT CA_FILE MECHANISM FILE

Prints "accepted", and with IMAP the letters of the inbox, and ends with 0; or prints "refused:"
with what the server said, and ends with 1.
"""

import base64
import imaplib
import smtplib
import ssl
import sys

HOST = "localhost"
SECONDS = 15


class Refused(Exception):
    pass


def answer_to_error(mechanism):
    """What ends a refused exchange, in which the server tells why (RFC 7628 section 3.2.3)."""
    return b"\x01" if mechanism == "OAUTHBEARER" else b""


def log_in_to_read(port, context, mechanism, text):
    response = base64.b64decode(text, validate=True)
    if base64.b64encode(response).decode() != text:  # imaplib encodes what it is given
        raise ValueError("this is not how the response is encoded")
    answers = iter([response, answer_to_error(mechanism)])
    imap = imaplib.IMAP4_SSL(HOST, port, ssl_context=context, timeout=SECONDS)
    try:
        imap.authenticate(mechanism, lambda challenge: next(answers))
    except imaplib.IMAP4.error as error:
        raise Refused(error) from error
    imap.select(readonly=True)
    for number in imap.search(None, "ALL")[1][0].split():
        yield imap.fetch(number, "(RFC822)")[1][0][1].decode()
    imap.logout()


def log_in_to_send(port, context, mechanism, text):
    with smtplib.SMTP(HOST, port, timeout=SECONDS) as smtp:
        smtp.starttls(context=context)
        smtp.ehlo()
        code, said = smtp.docmd("AUTH", f"{mechanism} {text}")
        if code == 334:
            code, said = smtp.docmd(base64.b64encode(answer_to_error(mechanism)).decode())
        if code != 235:
            raise Refused(f"{code} {said.decode()}")
    yield from ()


def main(protocol, port, authority, mechanism, path):
    context = ssl.create_default_context(cafile=authority)
    with open(path, encoding="ascii") as file:
        text = file.read()
    log_in = {"imap": log_in_to_read, "smtp": log_in_to_send}[protocol]
    try:
        letters = list(log_in(int(port), context, mechanism, text))
    except Refused as refusal:
        print("refused:", refusal)
        return 1
    print("accepted", *letters, sep="\n")
    return 0


sys.exit(main(*sys.argv[1:]))
