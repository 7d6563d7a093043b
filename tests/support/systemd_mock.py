'''python-dbusmock template: a systemd manager holding a few service units, for the tests of what
Debian's own systemd cannot show here: a refusal (access denied, a unit that needs
authorization), a job whose end is not announced, a paused (frozen) unit.

The units come from the parameter "units" (a JSON list); each unit is a dictionary:

  name            "ssh.service"
  description     text (empty: none)
  state           ActiveState: "active", "inactive", "failed", ... (default "inactive")
  needs_auth      a start answers InteractiveAuthorizationRequired

Besides the systemd calls the backend makes (ListUnitsByPatterns, ListUnitsByNames,
ListUnitFilesByPatterns, StartUnit, Subscribe, the unit and job properties) the mock interface
has SetAccessDenied(b), SetSilentJobs(b) (jobs end without a JobRemoved signal) and
SetFreezerState(s name, s state).
'''

import fnmatch
import json

import dbus
from gi.repository import GLib

from dbusmock import MOCK_IFACE, mockobject

BUS_NAME = 'org.freedesktop.systemd1'
MAIN_OBJ = '/org/freedesktop/systemd1'
MAIN_IFACE = 'org.freedesktop.systemd1.Manager'
SYSTEM_BUS = True

UNIT_IFACE = 'org.freedesktop.systemd1.Unit'
SERVICE_IFACE = 'org.freedesktop.systemd1.Service'
JOB_IFACE = 'org.freedesktop.systemd1.Job'
UNIT_PREFIX = MAIN_OBJ + '/unit/'
JOB_PREFIX = MAIN_OBJ + '/job/'

SUB_STATES = {'active': 'running', 'inactive': 'dead', 'failed': 'failed', 'activating': 'start'}


def escape(name):
    '''Object path label as systemd writes it (bus_label_escape).'''
    out = []
    for i, ch in enumerate(name):
        if ('a' <= ch <= 'z') or ('A' <= ch <= 'Z') or (i > 0 and '0' <= ch <= '9'):
            out.append(ch)
        else:
            out.extend('_%02x' % b for b in ch.encode())
    return ''.join(out) or '_'


def unit_path(name):
    return UNIT_PREFIX + escape(name)


def fail(name, text):
    raise dbus.exceptions.DBusException(text, name=name)


def load(mock, parameters):
    mock.units = {}
    mock.next_job = 1
    mock.jobs = {}
    mock.denied = False
    mock.silent_jobs = False
    mock.AddProperties(MAIN_IFACE, {'Version': dbus.String('252', variant_level=1)})
    for unit in json.loads(str(parameters.get('units', '[]'))):
        u = {'name': unit['name'], 'description': unit.get('description', ''),
             'state': unit.get('state', 'inactive'), 'needs_auth': bool(unit.get('needs_auth', False))}
        mock.units[u['name']] = u
        mock.AddObject(unit_path(u['name']), UNIT_IFACE, {
            'Id': dbus.String(u['name']),
            'Description': dbus.String(u['description']),
            'LoadState': dbus.String('loaded'),
            'ActiveState': dbus.String(u['state']),
            'SubState': dbus.String(SUB_STATES.get(u['state'], 'dead')),
            'FreezerState': dbus.String('running'),
            'CanFreeze': dbus.Boolean(True),
            'UnitFileState': dbus.String('disabled'),
        }, [])
        mockobject.objects[unit_path(u['name'])].AddProperties(SERVICE_IFACE, {'User': dbus.String('')})


def set_state(mock, name, state):
    mock.units[name]['state'] = state
    mockobject.objects[unit_path(name)].UpdateProperties(UNIT_IFACE, {
        'ActiveState': dbus.String(state), 'SubState': dbus.String(SUB_STATES.get(state, 'dead'))})


def check_access(mock):
    if mock.denied:
        fail('org.freedesktop.DBus.Error.AccessDenied', 'Access denied')


def unit_rows(mock, units):
    rows = []
    for u in units:
        job = mock.jobs.get(u['name'])
        job_id, job_type, job_path = (job['id'], 'start', job['path']) if job else (0, '', '/')
        rows.append(dbus.Struct((u['name'], u['description'], 'loaded', u['state'], SUB_STATES.get(u['state'], 'dead'),
                                 '', dbus.ObjectPath(unit_path(u['name'])), dbus.UInt32(job_id), job_type,
                                 dbus.ObjectPath(job_path)), signature='ssssssouso'))
    return dbus.Array(rows, signature='(ssssssouso)')


@dbus.service.method(MAIN_IFACE, in_signature='asas', out_signature='a(ssssssouso)')
def ListUnitsByPatterns(self, _states, patterns):
    check_access(self)
    return unit_rows(self, [u for u in self.units.values()
                            if not patterns or any(fnmatch.fnmatchcase(u['name'], p) for p in patterns)])


@dbus.service.method(MAIN_IFACE, in_signature='as', out_signature='a(ssssssouso)')
def ListUnitsByNames(self, names):
    check_access(self)
    return unit_rows(self, [self.units[str(n)] for n in names if str(n) in self.units])


@dbus.service.method(MAIN_IFACE, in_signature='asas', out_signature='a(ss)')
def ListUnitFilesByPatterns(self, _states, _patterns):
    check_access(self)
    return dbus.Array([dbus.Struct(('/lib/systemd/system/' + n, 'disabled'), signature='ss') for n in self.units],
                      signature='(ss)')


@dbus.service.method(MAIN_IFACE, in_signature='', out_signature='')
def Subscribe(self):
    pass


def end_job(mock, name, job):
    set_state(mock, name, 'active')
    del mock.jobs[name]
    mock.RemoveObject(job['path'])
    if not mock.silent_jobs:
        mock.EmitSignal(MAIN_IFACE, 'JobRemoved', 'uoss', [dbus.UInt32(job['id']), dbus.ObjectPath(job['path']), name, 'done'])
    return False


@dbus.service.method(MAIN_IFACE, in_signature='ss', out_signature='o')
def StartUnit(self, name, _mode):
    check_access(self)
    u = self.units.get(str(name))
    if u is None:
        fail('org.freedesktop.systemd1.NoSuchUnit', f'Unit {name} not found.')
    if u['needs_auth']:
        fail('org.freedesktop.DBus.Error.InteractiveAuthorizationRequired', 'Interactive authentication required.')
    job = {'id': self.next_job, 'path': JOB_PREFIX + str(self.next_job)}
    self.next_job += 1
    self.AddObject(job['path'], JOB_IFACE, {'Id': dbus.UInt32(job['id']), 'State': dbus.String('running')}, [])
    self.jobs[u['name']] = job
    set_state(self, u['name'], 'activating')
    # The job ends after the method has answered, as systemd's does.
    GLib.timeout_add(0, end_job, self, u['name'], job)
    return dbus.ObjectPath(job['path'])


@dbus.service.method(MOCK_IFACE, in_signature='b', out_signature='')
def SetAccessDenied(self, denied):
    self.denied = bool(denied)


@dbus.service.method(MOCK_IFACE, in_signature='b', out_signature='')
def SetSilentJobs(self, silent):
    self.silent_jobs = bool(silent)


@dbus.service.method(MOCK_IFACE, in_signature='ss', out_signature='')
def SetFreezerState(self, name, state):
    mockobject.objects[unit_path(str(name))].UpdateProperties(UNIT_IFACE, {'FreezerState': dbus.String(str(state))})
