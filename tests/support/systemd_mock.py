'''python-dbusmock template: a systemd manager holding a fleet of service units.

The fleet comes from the parameter "fleet" (a JSON file) or "units" (a JSON list); each unit is
a dictionary:

  name            "ssh.service"
  description     text (empty: none)
  state           ActiveState: "active", "inactive", "failed", ... (default "inactive")
  file_state      UnitFileState: "enabled", "disabled", "static", "masked", ... (default
                  "disabled"); "" for a unit without a file
  loaded          false: only an installed unit file, not in ListUnits until it is used
  load            LoadState (default "loaded", "masked" for a masked file; "not-found": a unit
                  that is only referenced)
  user            User= (default "")
  exec            ExecStart= argv, the program first (default ["/usr/sbin/<name>"])
  requires        names this unit Requires=
  binds_to        names this unit BindsTo=
  part_of         names this unit PartOf= (stopped along with them)
  start_ms        time spent "activating" (default 0)
  stop_ms         time spent "deactivating" (default 0)
  start_result    job result of a start: "done" (default), "failed", "timeout", "dependency"
  needs_auth      start and stop answer InteractiveAuthorizationRequired
  flap_ms         while active, the unit fails by itself every flap_ms

Besides the systemd calls (ListUnits, ListUnitsFiltered, ListUnitsByPatterns, ListUnitsByNames,
ListUnitFiles, ListUnitFilesByPatterns, GetUnitFileState, GetUnit, LoadUnit, StartUnit,
StopUnit, RestartUnit, Subscribe, Unsubscribe, GetJob) the mock interface has
SetAccessDenied(b), SetUnitState(s name, s state), AddUnits(s json) and SetSilentJobs(b)
(jobs end without a JobRemoved signal).
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

SUB_STATES = {'active': 'running', 'reloading': 'reload', 'inactive': 'dead', 'failed': 'failed',
              'activating': 'start', 'deactivating': 'stop'}


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
    mock.AddProperties(MAIN_IFACE, {
        'Version': dbus.String('252', variant_level=1),
        'Architecture': dbus.String('x86-64', variant_level=1),
        'SystemState': dbus.String('running', variant_level=1),
    })
    units = []
    if parameters.get('fleet'):
        with open(str(parameters['fleet']), encoding='utf-8') as f:
            data = json.load(f)
            units = data['units'] if isinstance(data, dict) else data
    if parameters.get('units'):
        units += json.loads(str(parameters['units']))
    add_units(mock, units)


def add_units(mock, units):
    for unit in units:
        name = unit['name']
        u = {
            'name': name,
            'description': unit.get('description', ''),
            'state': unit.get('state', 'inactive'),
            'file_state': unit.get('file_state', 'disabled'),
            'loaded': unit.get('loaded', True),
            'user': unit.get('user', ''),
            'exec': unit.get('exec', ['/usr/sbin/' + name.rsplit('.', 1)[0]]),
            'requires': list(unit.get('requires', [])),
            'binds_to': list(unit.get('binds_to', [])),
            'part_of': list(unit.get('part_of', [])),
            'start_ms': int(unit.get('start_ms', 0)),
            'stop_ms': int(unit.get('stop_ms', 0)),
            'start_result': unit.get('start_result', 'done'),
            'needs_auth': bool(unit.get('needs_auth', False)),
            'flap_ms': int(unit.get('flap_ms', 0)),
        }
        u['load'] = unit.get('load', 'masked' if u['file_state'] == 'masked' else 'loaded')
        path = unit_path(name)
        if path in mockobject.objects:
            mock.RemoveObject(path)
        mock.units[name] = u
        exec_start = dbus.Array([dbus.Struct((u['exec'][0], dbus.Array(u['exec'], signature='s'), False,
                                              dbus.UInt64(0), dbus.UInt64(0), dbus.UInt64(0), dbus.UInt64(0),
                                              dbus.UInt32(0), dbus.Int32(0), dbus.Int32(0)),
                                             signature='sasbttttuii')] if u['exec'] else [],
                                signature='(sasbttttuii)')
        mock.AddObject(path, UNIT_IFACE, {
            'Id': dbus.String(name),
            'Names': dbus.Array([name], signature='s'),
            'Description': dbus.String(u['description']),
            'LoadState': dbus.String(u['load']),
            'ActiveState': dbus.String(u['state']),
            'SubState': dbus.String(SUB_STATES.get(u['state'], 'dead')),
            'FreezerState': dbus.String('running'),
            'UnitFileState': dbus.String(u['file_state']),
            'FragmentPath': dbus.String('/lib/systemd/system/' + name if u['file_state'] else ''),
            'Requires': dbus.Array(u['requires'], signature='s'),
            'BindsTo': dbus.Array(u['binds_to'], signature='s'),
            'RequiredBy': dbus.Array([], signature='s'),
            'BoundBy': dbus.Array([], signature='s'),
            'PartOf': dbus.Array(u['part_of'], signature='s'),
            'ConsistsOf': dbus.Array([], signature='s'),
            'Wants': dbus.Array([], signature='s'),
            'WantedBy': dbus.Array([], signature='s'),
        }, [])
        obj = mockobject.objects[path]
        obj.AddProperties(SERVICE_IFACE, {
            'User': dbus.String(u['user']),
            'DynamicUser': dbus.Boolean(False),
            'Type': dbus.String('simple'),
            'MainPID': dbus.UInt32(0),
            'ExecStart': exec_start,
        })
        if u['flap_ms'] > 0:
            GLib.timeout_add(u['flap_ms'], flap, mock, name)
    update_reverse_dependencies(mock)


def update_reverse_dependencies(mock):
    required_by = {n: [] for n in mock.units}
    bound_by = {n: [] for n in mock.units}
    consists_of = {n: [] for n in mock.units}
    for n, u in mock.units.items():
        for r in u['requires']:
            required_by.setdefault(r, []).append(n)
        for b in u['binds_to']:
            bound_by.setdefault(b, []).append(n)
        for p in u['part_of']:
            consists_of.setdefault(p, []).append(n)
    for n in mock.units:
        obj = mockobject.objects[unit_path(n)]
        obj.props[UNIT_IFACE]['RequiredBy'] = dbus.Array(sorted(required_by[n]), signature='s')
        obj.props[UNIT_IFACE]['BoundBy'] = dbus.Array(sorted(bound_by[n]), signature='s')
        obj.props[UNIT_IFACE]['ConsistsOf'] = dbus.Array(sorted(consists_of[n]), signature='s')


def flap(mock, name):
    u = mock.units.get(name)
    if u is None:
        return False
    if u['state'] == 'active':
        set_state(mock, name, 'failed')
    return True


def set_state(mock, name, state):
    u = mock.units[name]
    u['state'] = state
    if state != 'inactive':
        u['loaded'] = True
    obj = mockobject.objects[unit_path(name)]
    obj.UpdateProperties(UNIT_IFACE, {'ActiveState': dbus.String(state),
                                      'SubState': dbus.String(SUB_STATES.get(state, 'dead'))})


def check_access(mock):
    if mock.denied:
        fail('org.freedesktop.DBus.Error.AccessDenied', 'Access denied')


def unit_or_fail(mock, name):
    u = mock.units.get(str(name))
    if u is None:
        fail('org.freedesktop.systemd1.NoSuchUnit', f'Unit {name} not found.')
    return u


def unit_row(mock, u):
    job = mock.jobs.get(u['name'])
    job_id, job_type, job_path = (job['id'], job['type'], job['path']) if job else (0, '', '/')
    return dbus.Struct((u['name'], u['description'], u['load'], u['state'],
                        SUB_STATES.get(u['state'], 'dead'), '', dbus.ObjectPath(unit_path(u['name'])),
                        dbus.UInt32(job_id), job_type, dbus.ObjectPath(job_path)), signature='ssssssouso')


def listed(mock):
    return [u for u in mock.units.values() if u['loaded'] or u['state'] != 'inactive']


def unit_rows(mock, units):
    return dbus.Array([unit_row(mock, u) for u in units], signature='(ssssssouso)')


def state_match(u, states):
    return not states or u['load'] in states or u['state'] in states or SUB_STATES.get(u['state']) in states


def pattern_match(name, patterns):
    return not patterns or any(fnmatch.fnmatchcase(name, p) for p in patterns)


@dbus.service.method(MAIN_IFACE, in_signature='', out_signature='a(ssssssouso)')
def ListUnits(self):
    check_access(self)
    return unit_rows(self, listed(self))


@dbus.service.method(MAIN_IFACE, in_signature='as', out_signature='a(ssssssouso)')
def ListUnitsFiltered(self, states):
    check_access(self)
    return unit_rows(self, [u for u in listed(self) if state_match(u, states)])


@dbus.service.method(MAIN_IFACE, in_signature='asas', out_signature='a(ssssssouso)')
def ListUnitsByPatterns(self, states, patterns):
    check_access(self)
    return unit_rows(self, [u for u in listed(self) if state_match(u, states) and pattern_match(u['name'], patterns)])


@dbus.service.method(MAIN_IFACE, in_signature='as', out_signature='a(ssssssouso)')
def ListUnitsByNames(self, names):
    check_access(self)
    return unit_rows(self, [self.units[str(n)] for n in names if str(n) in self.units])


def unit_files(mock, states, patterns):
    return dbus.Array([dbus.Struct(('/lib/systemd/system/' + u['name'], u['file_state']), signature='ss')
                       for u in mock.units.values()
                       if u['file_state'] and (not states or u['file_state'] in states)
                       and pattern_match(u['name'], patterns)], signature='(ss)')


@dbus.service.method(MAIN_IFACE, in_signature='', out_signature='a(ss)')
def ListUnitFiles(self):
    check_access(self)
    return unit_files(self, [], [])


@dbus.service.method(MAIN_IFACE, in_signature='asas', out_signature='a(ss)')
def ListUnitFilesByPatterns(self, states, patterns):
    check_access(self)
    return unit_files(self, states, patterns)


@dbus.service.method(MAIN_IFACE, in_signature='s', out_signature='s')
def GetUnitFileState(self, name):
    check_access(self)
    u = self.units.get(str(name))
    if u is None or not u['file_state']:
        fail('org.freedesktop.DBus.Error.FileNotFound', 'No such file or directory')
    return u['file_state']


@dbus.service.method(MAIN_IFACE, in_signature='s', out_signature='o')
def GetUnit(self, name):
    u = unit_or_fail(self, name)
    if not u['loaded']:
        fail('org.freedesktop.systemd1.NoSuchUnit', f'Unit {name} not loaded.')
    return dbus.ObjectPath(unit_path(u['name']))


@dbus.service.method(MAIN_IFACE, in_signature='s', out_signature='o')
def LoadUnit(self, name):
    u = unit_or_fail(self, name)
    u['loaded'] = True
    return dbus.ObjectPath(unit_path(u['name']))


@dbus.service.method(MAIN_IFACE, in_signature='', out_signature='')
def Subscribe(self):
    pass


@dbus.service.method(MAIN_IFACE, in_signature='', out_signature='')
def Unsubscribe(self):
    pass


@dbus.service.method(MAIN_IFACE, in_signature='u', out_signature='o')
def GetJob(self, job_id):
    for job in self.jobs.values():
        if job['id'] == job_id:
            return dbus.ObjectPath(job['path'])
    fail('org.freedesktop.systemd1.NoSuchJob', f'Job {job_id} does not exist.')


def new_job(mock, u, job_type):
    job_id = mock.next_job
    mock.next_job += 1
    path = JOB_PREFIX + str(job_id)
    mock.AddObject(path, JOB_IFACE, {
        'Id': dbus.UInt32(job_id),
        'Unit': dbus.Struct((u['name'], dbus.ObjectPath(unit_path(u['name']))), signature='so'),
        'JobType': dbus.String(job_type),
        'State': dbus.String('running'),
    }, [])
    job = {'id': job_id, 'path': path, 'type': job_type}
    mock.jobs[u['name']] = job
    return job


def end_job(mock, u, job, state, result):
    if mock.jobs.get(u['name']) is not job:
        return False
    set_state(mock, u['name'], state)
    del mock.jobs[u['name']]
    mock.RemoveObject(job['path'])
    if not mock.silent_jobs:
        mock.EmitSignal(MAIN_IFACE, 'JobRemoved', 'uoss',
                        [dbus.UInt32(job['id']), dbus.ObjectPath(job['path']), u['name'], result])
    return False


def run_job(mock, u, job_type, pending, final, result, ms):
    job = new_job(mock, u, job_type)
    set_state(mock, u['name'], pending)
    # The job ends after the method has answered, as systemd's does.
    GLib.timeout_add(max(ms, 0), end_job, mock, u, job, final, result)
    return dbus.ObjectPath(job['path'])


def control_checks(mock, name):
    check_access(mock)
    u = unit_or_fail(mock, name)
    if u['needs_auth']:
        fail('org.freedesktop.DBus.Error.InteractiveAuthorizationRequired', 'Interactive authentication required.')
    return u


def start_unit(mock, u, job_type='start'):
    if u['load'] == 'masked':
        fail('org.freedesktop.systemd1.UnitMasked', f'Unit {u["name"]} is masked.')
    for dep in u['requires'] + u['binds_to']:
        d = mock.units.get(dep)
        if d is not None and d['state'] not in ('active', 'activating'):
            set_state(mock, dep, 'active')
    result = u['start_result']
    final = 'active' if result == 'done' else 'failed'
    return run_job(mock, u, job_type, 'activating', final, result, u['start_ms'])


def stop_unit(mock, u):
    # As systemd does, units that require or are bound to this one stop with it.
    for n, other in mock.units.items():
        if u['name'] in other['requires'] + other['binds_to'] + other['part_of'] \
                and other['state'] not in ('inactive', 'failed'):
            stop_unit(mock, other)
    return run_job(mock, u, 'stop', 'deactivating', 'inactive', 'done', u['stop_ms'])


@dbus.service.method(MAIN_IFACE, in_signature='ss', out_signature='o')
def StartUnit(self, name, _mode):
    u = control_checks(self, name)
    if u['state'] in ('active', 'reloading'):
        return run_job(self, u, 'start', u['state'], u['state'], 'done', 0)
    return start_unit(self, u)


@dbus.service.method(MAIN_IFACE, in_signature='ss', out_signature='o')
def StopUnit(self, name, _mode):
    u = control_checks(self, name)
    return stop_unit(self, u)


@dbus.service.method(MAIN_IFACE, in_signature='ss', out_signature='o')
def RestartUnit(self, name, _mode):
    u = control_checks(self, name)
    return start_unit(self, u, 'restart')


@dbus.service.method(MOCK_IFACE, in_signature='b', out_signature='')
def SetAccessDenied(self, denied):
    self.denied = bool(denied)


@dbus.service.method(MOCK_IFACE, in_signature='b', out_signature='')
def SetSilentJobs(self, silent):
    self.silent_jobs = bool(silent)


@dbus.service.method(MOCK_IFACE, in_signature='ss', out_signature='')
def SetUnitState(self, name, state):
    unit_or_fail(self, name)
    set_state(self, str(name), str(state))


@dbus.service.method(MOCK_IFACE, in_signature='s', out_signature='')
def AddUnits(self, units_json):
    add_units(self, json.loads(str(units_json)))
