#!/usr/bin/python3
"""A scripted SMTP server for tests and demos: python3-aiosmtpd on 127.0.0.1, on a port that the kernel assigns.

    /usr/bin/python3 smtp_server.py --mails FILE [options]

The first line on standard output is the port. The server runs until it is killed.

  --mails FILE              appends each accepted mail as one JSON line: "from", "to" (list), "data" (base64 of the bytes
                            received, dot-stuffing undone), "tls" (bool), "user", "password" (null without log-in)
  --commands FILE           appends "CONNECT" and each command line as received; of AUTH only the name
  --tls starttls|smtps      offers STARTTLS, or speaks TLS from the first byte
  --certificate FILE        PEM with key and certificate; a file that does not exist is made: self-signed, for localhost
                            and 127.0.0.1, valid one day
  --auth USER:PASSWORD      insists on this log-in (PLAIN or LOGIN), with or without TLS; else any log-in is welcome
  --reply STEP=REPLY        answers REPLY ("550 no") instead of carrying the step out; may be repeated
  --hang STEP, --drip STEP, --endless STEP, --reset STEP
                            at the step falls silent, sends a byte a second, sends a line without end, or resets the
                            connection; may be repeated

STEP is CONNECT (the greeting), EHLO, HELO, STARTTLS, AUTH, MAIL, RCPT, RCPT:address (this recipient only), DATA, DOT (after
the final dot) or QUIT. A REPLY of several lines has "\\n" between them. With 421 the server hangs up as well.
"""

import argparse
import asyncio
import base64
import json
import logging
import os
import socket
import ssl
import struct
import subprocess
import sys
import warnings

from aiosmtpd.smtp import SMTP, AuthResult

FAULTS = ("hang", "drip", "endless", "reset")


def parse_options():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--mails", required=True)
    parser.add_argument("--commands", default=os.devnull)
    parser.add_argument("--tls", choices=("starttls", "smtps"))
    parser.add_argument("--certificate")
    parser.add_argument("--auth")
    parser.add_argument("--reply", action="append", default=[])
    for fault in FAULTS:
        parser.add_argument("--" + fault, action="append", default=[])
    options = parser.parse_args()
    options.script = dict(reply.split("=", 1) for reply in options.reply)
    options.faults = {step: fault for fault in FAULTS for step in getattr(options, fault)}
    return options


def append(path, line):
    with open(path, "a", encoding="utf-8") as file:
        file.write(line + "\n")


def tls_context(path):
    if not os.path.exists(path):
        subprocess.run(
            ["openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:P-256", "-nodes", "-days", "1",
             "-subj", "/CN=localhost", "-addext", "subjectAltName=DNS:localhost,IP:127.0.0.1",
             "-keyout", path, "-out", path + ".crt"], check=True, stderr=subprocess.DEVNULL)
        with open(path, "a", encoding="ascii") as pem, open(path + ".crt", encoding="ascii") as certificate:
            pem.write(certificate.read())
    context = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    context.load_cert_chain(path)
    return context


class Recorder:
    """What aiosmtpd calls for an accepted mail and for a log-in."""

    user = password = None

    def __init__(self, options):
        self.options = options

    def authenticate(self, _server, _session, _envelope, _mechanism, login):
        self.user, self.password = login.login.decode(), login.password.decode()
        return AuthResult(success=self.options.auth in (None, f"{self.user}:{self.password}"), handled=False)

    async def handle_DATA(self, server, session, envelope):
        reply = await server.scripted("DOT")
        if reply:
            return reply
        append(self.options.mails, json.dumps({
            "from": envelope.mail_from, "to": envelope.rcpt_tos,
            "data": base64.b64encode(envelope.original_content).decode(),
            "tls": self.options.tls == "smtps" or session.ssl is not None,
            "user": self.user, "password": self.password}))
        return "250 OK"


class ScriptedSmtp(SMTP):
    line_length_limit = 1 << 24  # long lines are the client's affair

    def __init__(self, options, context):
        recorder = Recorder(options)
        super().__init__(recorder, hostname="localhost", ident="ready", enable_SMTPUTF8=True,
                         tls_context=context if options.tls == "starttls" else None,
                         auth_required=options.auth is not None, auth_require_tls=False,
                         authenticator=recorder.authenticate)
        self.options = options
        self.greeted = False
        for name, method in list(self._smtp_methods.items()):
            self._smtp_methods[name] = self.wrap(name, method)

    async def scripted(self, step):
        """The reply that the script has for this step; never returns where it has a fault."""
        fault = self.options.faults.get(step)
        if fault == "reset":
            linger = struct.pack("ii", 1, 0)
            self.transport.get_extra_info("socket").setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, linger)
            self.transport.abort()
        while fault == "endless":
            self._writer.write(b"2" * 65536)
            await self._writer.drain()
        while fault == "drip":
            self._writer.write(b"2")
            await asyncio.sleep(1)
        if fault:
            await asyncio.sleep(3600)
        return self.options.script.get(step)

    def wrap(self, name, method):
        async def run(argument):
            append(self.options.commands, name if name == "AUTH" or not argument else f"{name} {argument}")
            reply = await self.scripted(name)
            if name == "RCPT" and not reply:
                reply = await self.scripted("RCPT:" + argument[argument.find("<") + 1:argument.rfind(">")])
            await (self.push(reply) if reply else method(argument))
        return run

    async def push(self, status):
        if not self.greeted:
            self.greeted = True
            append(self.options.commands, "CONNECT")
            status = await self.scripted("CONNECT") or status
        status = status.decode() if isinstance(status, bytes) else status
        for line in status.split("\\n"):
            await super().push(line)
        if status.startswith("421"):
            self.transport.close()


async def serve(options):
    context = tls_context(options.certificate) if options.tls else None
    loop = asyncio.get_running_loop()
    server = await loop.create_server(lambda: ScriptedSmtp(options, context), "127.0.0.1", 0,
                                      ssl=context if options.tls == "smtps" else None)
    sys.stdout.write(f"{server.sockets[0].getsockname()[1]}\n")  # in one piece
    sys.stdout.flush()
    await server.serve_forever()


if __name__ == "__main__":
    warnings.simplefilter("ignore")  # of log-in without TLS
    logging.disable(logging.ERROR)  # a client that hangs up is part of many tests
    asyncio.run(serve(parse_options()))
