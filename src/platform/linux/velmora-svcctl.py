#!/usr/bin/python3
# Velmora's link to the service control manager of one Windows server, over the SMB named pipe
# svcctl, through Samba's Python bindings. The program starts one per server and talks to it in
# JSON lines on standard input and output: one request, one answer.
#
# The first request logs on (the password comes this way, never on the command line):
#   {"op": "logon", "host": H, "user": U, "domain": D, "password": P, "timeout": seconds}
# then any number of
#   {"op": "services", "filter": F}        -> {"error": 0, "services": [[name, display, state]...]}
#   {"op": "status", "service": S}         -> {"error": 0, "state": N}
#   {"op": "config", "service": S}         -> {"error": 0, "startType": N, "account": A,
#                                              "path": P, "displayName": D}
#   {"op": "dependents", "service": S, "filter": F} -> like "services"
#   {"op": "start", "service": S} / {"op": "stop", "service": S} -> {"error": 0}
# Every answer carries "error": the Windows error code the manager gave (0 when it did what was
# asked), 1326 for a refused logon, 1722 when the server or its manager cannot be reached. After
# 1722, and after a logon that failed, the helper ends; the program starts a new one when needed.
import json
import struct
import sys

try:
    from samba import NTSTATUSError, WERRORError, credentials
    from samba.dcerpc import svcctl
    from samba.param import LoadParm
except ImportError:
    svcctl = None

UNREACHABLE = 1722
ACCESS_DENIED = 5
LOGON_FAILURE = 1326

# NT status codes that mean the server refused the user rather than could not be reached.
REFUSED_USER = {
    0xC0000022,  # access denied
    0xC000006E,  # account restriction
    0xC000006F,  # logon outside the allowed hours
    0xC0000070,  # workstation not allowed
    0xC0000071,  # password expired
    0xC0000072,  # account disabled
    0xC000015B,  # logon type not granted
    0xC0000193,  # account expired
    0xC0000224,  # password must change
    0xC0000234,  # account locked out
}
BAD_PASSWORD = {0xC000006D, 0xC000006A, 0xC0000064}  # logon failure, wrong password, no such user


class LinkLost(Exception):
    pass


def status_code(err):
    return err.args[0] & 0xFFFFFFFF


def utf16_at(buf, offset):
    end = offset
    while end + 1 < len(buf) and (buf[end] or buf[end + 1]):
        end += 2
    return buf[offset:end].decode("utf-16-le", "replace")


def parse_status_records(raw, count):
    """ENUM_SERVICE_STATUSW records: two string offsets and a SERVICE_STATUS, strings after."""
    buf = bytes(raw)
    out = []
    for i in range(count):
        base = i * 36
        name_off, display_off, _type, state = struct.unpack_from("<IIII", buf, base)
        name = utf16_at(buf, name_off)
        display = utf16_at(buf, display_off) if display_off else ""
        out.append([name, display or name, state])
    return out


class Link:
    def __init__(self):
        self.pipe = None
        self.scm = None
        self.handles = {}

    def logon(self, req):
        if svcctl is None:
            return {"error": UNREACHABLE, "text": "python3-samba is not installed"}
        lp = LoadParm()
        lp.load_default()
        creds = credentials.Credentials()
        creds.guess(lp)
        creds.set_username(req.get("user", ""))
        creds.set_password(req.get("password", ""))
        if req.get("domain"):
            creds.set_domain(req["domain"])
        binding = "ncacn_np:%s[\\pipe\\svcctl]" % req["host"]
        try:
            self.pipe = svcctl.svcctl(binding, lp, creds)
            self.pipe.request_timeout = max(1, int(req.get("timeout", 10)))
            self.scm = self.pipe.OpenSCManagerW(None, None, svcctl.SC_RIGHT_MGR_ENUMERATE_SERVICE
                                                | svcctl.SC_RIGHT_MGR_CONNECT)
        except NTSTATUSError as err:
            code = status_code(err)
            if code in BAD_PASSWORD:
                return {"error": LOGON_FAILURE, "text": err.args[1]}
            if code in REFUSED_USER:
                return {"error": ACCESS_DENIED, "text": err.args[1]}
            return {"error": UNREACHABLE, "text": err.args[1]}
        except WERRORError as err:
            return {"error": err.args[0], "text": err.args[1]}
        return {"error": 0}

    def call(self, fn):
        """Runs fn; Windows errors are answered, a failing link ends the helper."""
        try:
            return fn()
        except WERRORError as err:
            return {"error": err.args[0], "text": err.args[1]}
        except NTSTATUSError as err:
            raise LinkLost(err.args[1])

    def service(self, name):
        handle = self.handles.get(name.lower())
        if handle is None:
            access = (svcctl.SC_RIGHT_SVC_QUERY_STATUS | svcctl.SC_RIGHT_SVC_QUERY_CONFIG
                      | svcctl.SC_RIGHT_SVC_ENUMERATE_DEPENDENTS | svcctl.SC_RIGHT_SVC_START
                      | svcctl.SC_RIGHT_SVC_STOP)
            try:
                handle = self.pipe.OpenServiceW(self.scm, name, access)
            except WERRORError as err:
                if err.args[0] != ACCESS_DENIED:
                    raise
                # Someone who may only look still sees the service.
                handle = self.pipe.OpenServiceW(self.scm, name, svcctl.SC_RIGHT_SVC_QUERY_STATUS
                                                | svcctl.SC_RIGHT_SVC_QUERY_CONFIG
                                                | svcctl.SC_RIGHT_SVC_ENUMERATE_DEPENDENTS)
            self.handles[name.lower()] = handle
        return handle

    def enumerate(self, fetch):
        size = 65536
        while True:
            try:
                raw, _needed, count, *_ = fetch(size)
                return parse_status_records(raw, count)
            except WERRORError as err:
                if err.args[0] != 234 or size >= 1 << 22:
                    raise
                size *= 4

    def handle(self, req):
        op = req.get("op")
        if op == "services":
            return self.call(lambda: {"error": 0, "services": self.enumerate(
                lambda size: self.pipe.EnumServicesStatusW(self.scm, svcctl.SERVICE_TYPE_WIN32,
                                                           int(req.get("filter", 3)), size, 0))})
        name = req.get("service", "")
        if op == "status":
            return self.call(lambda: {"error": 0,
                                      "state": self.pipe.QueryServiceStatus(self.service(name)).state})
        if op == "config":
            def config():
                cfg = self.pipe.QueryServiceConfigW(self.service(name), 8192)[0]
                return {"error": 0, "startType": cfg.start_type, "account": cfg.startname or "",
                        "path": cfg.executablepath or "", "displayName": cfg.displayname or name}
            return self.call(config)
        if op == "dependents":
            return self.call(lambda: {"error": 0, "services": self.enumerate(
                lambda size: self.pipe.EnumDependentServicesW(self.service(name),
                                                              int(req.get("filter", 3)), size))})
        if op == "start":
            return self.call(lambda: (self.pipe.StartServiceW(self.service(name), []), {"error": 0})[1])
        if op == "stop":
            return self.call(lambda: (self.pipe.ControlService(self.service(name),
                                                               svcctl.SVCCTL_CONTROL_STOP), {"error": 0})[1])
        return {"error": 1726, "text": "unknown request"}


def main():
    link = Link()
    logged_on = False
    for line in sys.stdin:
        try:
            req = json.loads(line)
        except ValueError:
            answer, req = {"error": 1726, "text": "not a request"}, {}
        else:
            if req.get("op") == "logon":
                answer = link.logon(req)
                logged_on = answer["error"] == 0
            elif not logged_on:
                answer = {"error": ACCESS_DENIED, "text": "not logged on"}
            else:
                try:
                    answer = link.handle(req)
                except LinkLost as err:
                    answer = {"error": UNREACHABLE, "text": str(err)}
        sys.stdout.write(json.dumps(answer) + "\n")
        sys.stdout.flush()
        if answer["error"] == UNREACHABLE or (req.get("op") == "logon" and not logged_on):
            return


if __name__ == "__main__":
    main()
