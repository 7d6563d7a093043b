#!/usr/bin/python3
# A scripted Windows service manager for the tests: impacket's SMB server on 127.0.0.1:445 with
# one user, serving \pipe\svcctl with a small, fixed set of services. It has what Samba's own
# svcctl server lacks: services that depend on others (so a stop is refused with 1051 while a
# dependent runs), services that stay "start pending" and "stop pending" for a few status
# queries, and a service its user may look at but not start or stop.
#
#   svcctlpeer.py USER PASSWORD      prints "ready" once it listens, then serves until killed
import logging
import struct
import sys

from impacket import ntlm, smbserver
from impacket.dcerpc.v5 import scmr
from impacket.dcerpc.v5.rpcrt import DCERPCServer

STOPPED, START_PENDING, STOP_PENDING, RUNNING = 1, 2, 3, 4
ACTIVE, INACTIVE = 1, 2
ACCESS_DENIED, MORE_DATA, INVALID_HANDLE = 5, 234, 6
DEPENDENTS_RUNNING, ALREADY_RUNNING, NO_SUCH_SERVICE, NOT_ACTIVE = 1051, 1056, 1060, 1062
SERVICE_START, SERVICE_STOP = 0x10, 0x20
# How many status queries a slow service stays pending.
PENDING_QUERIES = 2


class Service:
    def __init__(self, name, display, state, depends=(), slow=False, locked=False):
        self.name, self.display, self.state = name, display, state
        self.depends = list(depends)
        self.slow, self.locked = slow, locked
        self.pending = 0

    def tick(self):
        """A status query: a pending service comes a step nearer its end."""
        if self.state in (START_PENDING, STOP_PENDING):
            self.pending -= 1
            if self.pending <= 0:
                self.state = RUNNING if self.state == START_PENDING else STOPPED


SERVICES = [
    Service("Spooler", "Print Spooler", RUNNING),
    Service("Fax", "Fax", RUNNING, depends=["Spooler"]),
    Service("PrintNotify", "Printer Extensions and Notifications", STOPPED, depends=["Spooler"]),
    Service("SlowSvc", "Slow Service", STOPPED, slow=True),
    Service("Locked", "Locked Service", RUNNING, locked=True),
]


def find(name):
    for s in SERVICES:
        if s.name.lower() == name.rstrip("\0").lower():
            return s
    return None


def matches(service, filt):
    active = service.state != STOPPED
    return (filt & ACTIVE and active) or (filt & INACTIVE and not active)


def status_records(services):
    """ENUM_SERVICE_STATUSW records as the manager sends them: two string offsets and a
    SERVICE_STATUS each, then the strings, offsets counted from the buffer's start."""
    head = 36 * len(services)
    records, strings = b"", b""
    for s in services:
        name = (s.name + "\0").encode("utf-16-le")
        display = (s.display + "\0").encode("utf-16-le")
        name_off = head + len(strings)
        display_off = name_off + len(name)
        strings += name + display
        records += struct.pack("<IIIIIIIII", name_off, display_off, 0x10, s.state, 0x5, 0, 0, 0, 0)
    return records + strings


class Manager(DCERPCServer):
    def __init__(self):
        DCERPCServer.__init__(self)
        self.handles = {}
        self.next = 1
        self.addCallbacks(("367ABB81-9844-35F1-AD32-98F038001003", "2.0"), "\\PIPE\\svcctl", {
            0: self.close, 1: self.control, 6: self.query_status, 13: self.dependents,
            14: self.enumerate, 15: self.open_manager, 16: self.open_service, 17: self.query_config,
            19: self.start_service})

    def new_handle(self, what):
        handle = struct.pack("<I", self.next) + b"\x5a" * 16
        self.next += 1
        self.handles[handle] = what
        return handle

    def service_of(self, handle):
        what = self.handles.get(bytes(handle))
        return what if isinstance(what, tuple) else (None, 0)

    def open_manager(self, data):
        ans = scmr.ROpenSCManagerWResponse()
        ans["lpScHandle"] = self.new_handle("manager")
        ans["ErrorCode"] = 0
        return ans.getData()

    def close(self, data):
        req = scmr.RCloseServiceHandle(data)
        self.handles.pop(bytes(req["hSCObject"]), None)
        ans = scmr.RCloseServiceHandleResponse()
        ans["hSCObject"] = b"\0" * 20
        ans["ErrorCode"] = 0
        return ans.getData()

    def open_service(self, data):
        req = scmr.ROpenServiceW(data)
        ans = scmr.ROpenServiceWResponse()
        ans["lpServiceHandle"] = b"\0" * 20
        service = find(req["lpServiceName"])
        access = req["dwDesiredAccess"]
        if service is None:
            ans["ErrorCode"] = NO_SUCH_SERVICE
        elif service.locked and access & (SERVICE_START | SERVICE_STOP):
            ans["ErrorCode"] = ACCESS_DENIED
        else:
            ans["lpServiceHandle"] = self.new_handle((service, access))
            ans["ErrorCode"] = 0
        return ans.getData()

    @staticmethod
    def fill_status(status, service):
        status["dwServiceType"] = 0x10
        status["dwCurrentState"] = service.state if service else 0
        status["dwControlsAccepted"] = 0x5
        for field in ("dwWin32ExitCode", "dwServiceSpecificExitCode", "dwCheckPoint", "dwWaitHint"):
            status[field] = 0

    def query_status(self, data):
        req = scmr.RQueryServiceStatus(data)
        service, _ = self.service_of(req["hService"])
        ans = scmr.RQueryServiceStatusResponse()
        if service:
            service.tick()
        self.fill_status(ans["lpServiceStatus"], service)
        ans["ErrorCode"] = 0 if service else INVALID_HANDLE
        return ans.getData()

    def query_config(self, data):
        req = scmr.RQueryServiceConfigW(data)
        service, _ = self.service_of(req["hService"])
        ans = scmr.RQueryServiceConfigWResponse()
        cfg = ans["lpServiceConfig"]
        cfg["dwServiceType"] = 0x10
        cfg["dwStartType"] = 2 if service and service.state == RUNNING else 3
        cfg["dwErrorControl"] = 1
        cfg["lpBinaryPathName"] = "C:\\Windows\\System32\\%s.exe\0" % (service.name if service else "none")
        cfg["lpLoadOrderGroup"] = "\0"
        cfg["dwTagId"] = 0
        cfg["lpDependencies"] = "\0"
        cfg["lpServiceStartName"] = "LocalSystem\0"
        cfg["lpDisplayName"] = (service.display if service else "") + "\0"
        ans["pcbBytesNeeded"] = 0
        ans["ErrorCode"] = 0 if service else INVALID_HANDLE
        return ans.getData()

    @staticmethod
    def buffer_answer(ans, field, services, offered):
        raw = status_records(services)
        ans["pcbBytesNeeded"] = len(raw)
        if len(raw) > offered:
            ans[field] = list(b"\0" * offered)
            ans["lpServicesReturned"] = 0
            ans["ErrorCode"] = MORE_DATA
        else:
            ans[field] = list(raw + b"\0" * (offered - len(raw)))
            ans["lpServicesReturned"] = len(services)
            ans["ErrorCode"] = 0

    def enumerate(self, data):
        req = scmr.REnumServicesStatusW(data)
        ans = scmr.REnumServicesStatusWResponse()
        services = sorted((s for s in SERVICES if matches(s, req["dwServiceState"])), key=lambda s: s.name.lower())
        self.buffer_answer(ans, "lpBuffer", services, req["cbBufSize"])
        ans["lpResumeIndex"] = 0
        return ans.getData()

    def dependents(self, data):
        req = scmr.REnumDependentServicesW(data)
        service, _ = self.service_of(req["hService"])
        ans = scmr.REnumDependentServicesWResponse()
        found = [s for s in SERVICES if service and service.name in s.depends and matches(s, req["dwServiceState"])]
        self.buffer_answer(ans, "lpServices", found, req["cbBufSize"])
        return ans.getData()

    def start_service(self, data):
        req = scmr.RStartServiceW(data)
        service, access = self.service_of(req["hService"])
        ans = scmr.RStartServiceWResponse()
        if not service:
            ans["ErrorCode"] = INVALID_HANDLE
        elif not access & SERVICE_START:
            ans["ErrorCode"] = ACCESS_DENIED
        elif service.state != STOPPED:
            ans["ErrorCode"] = ALREADY_RUNNING
        else:
            service.state = START_PENDING if service.slow else RUNNING
            service.pending = PENDING_QUERIES
            ans["ErrorCode"] = 0
        return ans.getData()

    def control(self, data):
        req = scmr.RControlService(data)
        service, access = self.service_of(req["hService"])
        ans = scmr.RControlServiceResponse()
        if not service:
            code = INVALID_HANDLE
        elif not access & SERVICE_STOP:
            code = ACCESS_DENIED
        elif service.state != RUNNING:
            code = NOT_ACTIVE
        elif any(service.name in s.depends and s.state != STOPPED for s in SERVICES):
            code = DEPENDENTS_RUNNING
        else:
            service.state = STOP_PENDING if service.slow else STOPPED
            service.pending = PENDING_QUERIES
            code = 0
        self.fill_status(ans["lpServiceStatus"], service)
        ans["ErrorCode"] = code
        return ans.getData()


def main():
    user, password = sys.argv[1], sys.argv[2]
    logging.basicConfig(level=logging.WARNING)
    server = smbserver.SimpleSMBServer(listenAddress="127.0.0.1", listenPort=445)
    server.setSMB2Support(True)
    server.addCredential(user, 0, ntlm.compute_lmhash(password).hex(), ntlm.compute_nthash(password).hex())
    manager = Manager()
    manager.daemon = True
    manager.start()
    server.registerNamedPipe("svcctl", ("127.0.0.1", manager.getListenPort()))
    print("ready", flush=True)
    server.start()


if __name__ == "__main__":
    main()
