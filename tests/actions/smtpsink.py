#!/usr/bin/python3
"""A loopback SMTP server for the tests: Debian's aiosmtpd. Usage:

    smtpsink.py HOST PORT OUTFILE [--stock] [--cert CERT --key KEY [--implicit]] [--auth USER:PASS [--login-only]]

PORT 0: a free port. By default it takes HELO without a domain as older clients send it;
--stock leaves aiosmtpd as it comes (it refuses that HELO). --cert/--key offer STARTTLS with that
certificate, or with --implicit speak TLS from the first byte. --auth requires a login (PLAIN or
LOGIN, only over TLS) with that user and password; --login-only offers LOGIN alone. Prints "READY <port>" once it listens; appends
one JSON line per received message to OUTFILE: helo, mail_from, rcpt_tos, data (the message as
received, dot-stuffing removed, bytes as Latin-1), tls, auth_user, and subject and text as a mail
reader decodes them."""
import json
import signal
import socket
import ssl
import sys
from email import message_from_bytes, policy

from aiosmtpd.controller import Controller
from aiosmtpd.smtp import SMTP, AuthResult, LoginPassword


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
        parsed = message_from_bytes(envelope.original_content or envelope.content, policy=policy.default)
        try:
            text = parsed.get_content() if not parsed.is_multipart() else ''
        except (LookupError, KeyError):
            text = ''
        login = session.auth_data.login if isinstance(session.auth_data, LoginPassword) else b''
        tls = session.ssl is not None or server.transport.get_extra_info('ssl_object') is not None
        record = {
            'helo': '' if getattr(session, 'empty_helo', False) else session.host_name,
            'mail_from': envelope.mail_from,
            'rcpt_tos': envelope.rcpt_tos,
            'data': envelope.content.decode('latin-1'),
            'tls': tls,
            'auth_user': login.decode('utf-8'),
            'subject': str(parsed.get('Subject', '')),
            'text': text.replace('\r\n', '\n'),
        }
        with open(self.path, 'a', encoding='utf-8') as f:
            f.write(json.dumps(record) + '\n')
        return '250 OK: queued'


class Checker:
    def __init__(self, user, password):
        self.user, self.password = user.encode(), password.encode()

    def __call__(self, server, session, envelope, mechanism, auth_data):
        ok = isinstance(auth_data, LoginPassword) and auth_data.login == self.user \
            and auth_data.password == self.password
        return AuthResult(success=ok, handled=False, auth_data=auth_data)


class SinkController(Controller):
    def __init__(self, *args, stock=False, **kwargs):
        self.stock = stock
        super().__init__(*args, **kwargs)

    def factory(self):
        cls = SMTP if self.stock else LenientSMTP
        return cls(self.handler, **self.SMTP_kwargs)


def main():
    host, port, out = sys.argv[1], int(sys.argv[2]), sys.argv[3]
    args = sys.argv[4:]
    option = lambda name: args[args.index(name) + 1] if name in args else None
    if port == 0:
        with socket.socket() as s:
            s.bind((host, 0))
            port = s.getsockname()[1]
    kwargs = {}
    context = None
    if option('--cert'):
        context = ssl.create_default_context(ssl.Purpose.CLIENT_AUTH)
        context.load_cert_chain(option('--cert'), option('--key'))
    if context and '--implicit' in args:
        kwargs['ssl_context'] = context
        # The whole connection is encrypted, which aiosmtpd does not count as STARTTLS.
        kwargs['auth_require_tls'] = False
    elif context:
        kwargs['tls_context'] = context
    if option('--auth'):
        user, password = option('--auth').split(':', 1)
        kwargs['authenticator'] = Checker(user, password)
        kwargs['auth_required'] = True
    if '--login-only' in args:
        kwargs['auth_exclude_mechanism'] = ['PLAIN']
    controller = SinkController(Sink(out), hostname=host, port=port, stock='--stock' in args, **kwargs)
    controller.start()
    print('READY', port, flush=True)
    signal.pause()  # until the test terminates it


if __name__ == '__main__':
    main()
