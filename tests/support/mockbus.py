#!/usr/bin/python3
'''A private D-Bus system bus with a mocked systemd on it, for the tests of what Debian's own
systemd cannot show here; and an sshd on 127.0.0.1 that bridges to a bus (the mock's, or a real
manager's), as a remote computer.

  mockbus.py start [--units JSON] [--watch PID]
      Starts dbus-daemon and the systemd mock (python-dbusmock with systemd_mock.py) under a
      supervisor process that runs on in the background, and prints
        DBUS_SYSTEM_BUS_ADDRESS=...   MOCK_BUS_PID=<supervisor>   MOCK_DAEMON_PID=...
        MOCK_SYSTEMD_PID=...          MOCK_DIR=...
      one per line. Ending the supervisor (SIGTERM) ends everything and removes the temporary folder; so does
      the end of the process --watch names, or of the daemon or the mock.

  mockbus.py sshd --address ADDR [--watch PID]
      Starts sshd on a free port of 127.0.0.1 with a throw-away host key and client key; the
      key's forced command runs systemd-stdio-bridge against ADDR. Also opens an ssh control
      connection to it. Prints SSHD_PORT, SSH_KEY, SSH_USER, SSH_CONTROL (the control socket),
      SSH_MASTER_PID, SSHD_PID, MOCK_BUS_PID, MOCK_DIR.
'''

import argparse
import getpass
import json
import os
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
TEMPLATE = os.path.join(HERE, 'systemd_mock.py')
PYTHON = '/usr/bin/python3'
BRIDGE_CANDIDATES = ['/usr/bin/systemd-stdio-bridge', '/usr/lib/systemd/systemd-stdio-bridge',
                     '/lib/systemd/systemd-stdio-bridge']

BUS_CONFIG = '''<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path={socket}</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow receive_sender="*"/>
  </policy>
</busconfig>
'''


def wait_for(condition, timeout, what):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        if condition():
            return
        time.sleep(0.02)
    raise RuntimeError('timed out waiting for ' + what)


def free_port():
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as s:
        s.bind(('127.0.0.1', 0))
        return s.getsockname()[1]


def port_open(port):
    try:
        with socket.create_connection(('127.0.0.1', port), timeout=0.2):
            return True
    except OSError:
        return False


def start_bus(args, folder, children, info):
    sock = os.path.join(folder, 'system_bus_socket')
    config = os.path.join(folder, 'bus.conf')
    with open(config, 'w', encoding='utf-8') as f:
        f.write(BUS_CONFIG.format(socket=sock))
    daemon = subprocess.Popen(['dbus-daemon', '--config-file=' + config, '--nofork', '--nopidfile', '--print-address=1'],
                              stdout=subprocess.PIPE, stderr=open(os.path.join(folder, 'dbus.log'), 'wb'))
    children.append(daemon)
    address = daemon.stdout.readline().decode().strip()
    if not address:
        raise RuntimeError('dbus-daemon did not start')

    params = {}
    if args.units:
        params['units'] = args.units
    env = dict(os.environ, DBUS_SYSTEM_BUS_ADDRESS=address)
    env.pop('PYTHONPATH', None)
    mock = subprocess.Popen([PYTHON, '-m', 'dbusmock', '--system', '--template', TEMPLATE, '-p', json.dumps(params),
                             '-l', os.path.join(folder, 'calls.log')],
                            env=env, stdout=subprocess.DEVNULL, stderr=open(os.path.join(folder, 'mock.log'), 'wb'))
    children.append(mock)

    import dbus  # pylint: disable=import-outside-toplevel
    bus = dbus.bus.BusConnection(address)

    def ready():
        if mock.poll() is not None:
            raise RuntimeError('the systemd mock ended: ' + open(os.path.join(folder, 'mock.log'), encoding='utf-8',
                                                                  errors='replace').read()[-2000:])
        return bus.name_has_owner('org.freedesktop.systemd1')

    wait_for(ready, 30, 'the systemd mock')
    bus.close()
    info['DBUS_SYSTEM_BUS_ADDRESS'] = address
    info['MOCK_DAEMON_PID'] = daemon.pid
    info['MOCK_SYSTEMD_PID'] = mock.pid


def start_sshd(args, folder, children, info):
    bridge = next((b for b in BRIDGE_CANDIDATES if os.access(b, os.X_OK)), None)
    if not bridge:
        raise RuntimeError('systemd-stdio-bridge is not installed')
    for tool in ('/usr/sbin/sshd', 'ssh', 'ssh-keygen'):
        if not shutil.which(tool):
            raise RuntimeError(tool + ' is not installed')
    host_key = os.path.join(folder, 'host_key')
    client_key = os.path.join(folder, 'client_key')
    for key in (host_key, client_key):
        subprocess.run(['ssh-keygen', '-q', '-t', 'ed25519', '-N', '', '-f', key], check=True)
    with open(client_key + '.pub', encoding='utf-8') as f:
        public = f.read().strip()
    authorized = os.path.join(folder, 'authorized_keys')
    with open(authorized, 'w', encoding='utf-8') as f:
        f.write(f'command="{bridge} --bus-path={args.address}",no-pty,no-port-forwarding,'
                f'no-agent-forwarding,no-X11-forwarding {public}\n')
    os.chmod(authorized, 0o600)
    port = free_port()
    config = os.path.join(folder, 'sshd_config')
    with open(config, 'w', encoding='utf-8') as f:
        f.write(f'''Port {port}
ListenAddress 127.0.0.1
HostKey {host_key}
AuthorizedKeysFile {authorized}
PidFile none
StrictModes no
UsePAM no
PasswordAuthentication no
KbdInteractiveAuthentication no
PubkeyAuthentication yes
PermitRootLogin prohibit-password
LogLevel ERROR
''')
    if os.geteuid() == 0:
        os.makedirs('/run/sshd', mode=0o755, exist_ok=True)
    sshd = subprocess.Popen(['/usr/sbin/sshd', '-D', '-e', '-f', config],
                            stdout=subprocess.DEVNULL, stderr=open(os.path.join(folder, 'sshd.log'), 'wb'))
    children.append(sshd)

    def listening():
        if sshd.poll() is not None:
            raise RuntimeError('sshd ended: ' + open(os.path.join(folder, 'sshd.log'), encoding='utf-8',
                                                     errors='replace').read()[-2000:])
        return port_open(port)

    wait_for(listening, 15, 'sshd')
    user = getpass.getuser()
    control = os.path.join(folder, 'control')
    master = subprocess.Popen(['ssh', '-M', '-S', control, '-N', '-F', '/dev/null', '-p', str(port), '-i', client_key,
                               '-o', 'IdentitiesOnly=yes', '-o', 'StrictHostKeyChecking=no',
                               '-o', 'UserKnownHostsFile=/dev/null', '-o', 'BatchMode=yes', '-o', 'LogLevel=ERROR',
                               f'{user}@127.0.0.1'],
                              stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                              stderr=open(os.path.join(folder, 'master.log'), 'wb'))
    children.append(master)

    def master_up():
        if master.poll() is not None:
            raise RuntimeError('ssh master ended: ' + open(os.path.join(folder, 'master.log'), encoding='utf-8',
                                                           errors='replace').read()[-2000:])
        return os.path.exists(control)

    wait_for(master_up, 15, 'the ssh control connection')
    info.update({'SSHD_PORT': port, 'SSH_KEY': client_key, 'SSH_USER': user, 'SSH_CONTROL': control,
                 'SSH_MASTER_PID': master.pid, 'SSHD_PID': sshd.pid})


def terminate(children):
    for child in children:
        if child.poll() is None:
            try:
                child.send_signal(signal.SIGCONT)  # a test may have stopped it
                child.terminate()
            except OSError:
                pass
    deadline = time.monotonic() + 3
    for child in children:
        try:
            child.wait(max(0.1, deadline - time.monotonic()))
        except subprocess.TimeoutExpired:
            child.kill()
            child.wait()


def alive(pid):
    try:
        os.kill(pid, 0)
        return True
    except ProcessLookupError:
        return False
    except PermissionError:
        return True


def run_supervised(args, setup):
    '''Forks a supervisor that sets everything up, reports to the caller through a pipe and then
    watches its children; the caller prints the report and returns at once.'''
    read_end, write_end = os.pipe()
    pid = os.fork()
    if pid > 0:
        os.close(write_end)
        chunks = []
        while True:
            data = os.read(read_end, 65536)
            if not data:
                break
            chunks.append(data)
        text = b''.join(chunks).decode()
        if not text.startswith('OK\n'):
            sys.stderr.write(text or 'mockbus: the supervisor failed\n')
            return 1
        sys.stdout.write(text[3:])
        sys.stdout.flush()
        return 0

    os.close(read_end)
    os.setsid()
    folder = tempfile.mkdtemp(prefix='velmora-mockbus-')
    log = os.open(os.path.join(folder, 'supervisor.log'), os.O_WRONLY | os.O_CREAT, 0o644)
    null = os.open(os.devnull, os.O_RDWR)
    os.dup2(null, 0)
    os.dup2(null, 1)
    os.dup2(log, 2)
    children = []
    stopping = []

    def stop(*_):
        stopping.append(True)

    signal.signal(signal.SIGTERM, stop)
    signal.signal(signal.SIGINT, stop)
    signal.signal(signal.SIGHUP, stop)
    info = {}
    try:
        setup(args, folder, children, info)
    except Exception as e:  # pylint: disable=broad-except
        os.write(write_end, f'mockbus: {e}\n'.encode())
        terminate(children)
        shutil.rmtree(folder, ignore_errors=True)
        os._exit(1)
    info['MOCK_BUS_PID'] = os.getpid()
    info['MOCK_DIR'] = folder
    text = ''.join(f'{k}={v}\n' for k, v in info.items())
    os.write(write_end, ('OK\n' + text).encode())
    os.close(write_end)

    while not stopping:
        if any(child.poll() is not None for child in children):
            break
        if args.watch and not alive(args.watch):
            break
        time.sleep(0.2)
    terminate(children)
    shutil.rmtree(folder, ignore_errors=True)
    os._exit(0)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    sub = parser.add_subparsers(dest='command', required=True)
    start = sub.add_parser('start')
    start.add_argument('--units')
    start.add_argument('--watch', type=int, default=0)
    start.add_argument('--shell')
    sshd = sub.add_parser('sshd')
    sshd.add_argument('--address', required=True)
    sshd.add_argument('--watch', type=int, default=0)
    args = parser.parse_args()
    if args.command == 'start':
        return run_supervised(args, start_bus)
    return run_supervised(args, start_sshd)


if __name__ == '__main__':
    sys.exit(main())
