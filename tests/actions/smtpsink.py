#!/usr/bin/python3
"""A loopback SMTP server for the tests: Debian's aiosmtpd, taking HELO without a domain as
older clients send it. Usage: smtpsink.py HOST PORT OUTFILE (PORT 0: a free port). Prints
"READY <port>" once it listens; appends one JSON line per received message to OUTFILE:
helo, mail_from, rcpt_tos, data (the message as received, dot-stuffing removed)."""
import json
import signal
import socket
import sys

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import SMTP


class LenientSMTP(SMTP):
    async def smtp_HELO(self, hostname):
        if hostname:
            return await super().smtp_HELO(hostname)
        self._set_rset_state()
        self.session.extended_smtp = False
        # aiosmtpd takes an empty host name for "no HELO yet".
        self.session.host_name = '(none)'
        self.session.empty_helo = True
        await self.push('250 ' + self.hostname)


class Sink:
    def __init__(self, path):
        self.path = path

    async def handle_DATA(self, server, session, envelope):
        record = {
            'helo': '' if getattr(session, 'empty_helo', False) else session.host_name,
            'mail_from': envelope.mail_from,
            'rcpt_tos': envelope.rcpt_tos,
            'data': envelope.content.decode('latin-1'),
        }
        with open(self.path, 'a', encoding='utf-8') as f:
            f.write(json.dumps(record) + '\n')
        return '250 OK: queued'


class LenientController(Controller):
    def factory(self):
        return LenientSMTP(self.handler, **self.SMTP_kwargs)


def main():
    host, port, out = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    if port == 0:
        with socket.socket() as s:
            s.bind((host, 0))
            port = s.getsockname()[1]
    controller = LenientController(Sink(out), hostname=host, port=port)
    controller.start()
    print('READY', port, flush=True)
    signal.pause()  # until the test terminates it


if __name__ == '__main__':
    main()
