"""A broker, and hosts of simulated panels with a gateway each: what stands behind ./run-demo --fleet, and tests.

All that they write is in the folder that they are given. Their processes end with them, and with the process
that has made them."""
import os
import pathlib
import random
import shutil
import signal
import socket
import subprocess
import sys
import time

sys.dont_write_bytecode = True
sys.path.insert(0, str(pathlib.Path(__file__).resolve().parents[2] / 'examples/web'))
from SimulatedPanels import SimulatedPanels

# A service manager, as far as a gateway needs one: it starts it again, unless it is told to wait.
SERVE = '''
trap 'kill "$gateway" 2> /dev/null; wait "$gateway"; exit 0' TERM
printf '%s\\n' "$PANELSIM_WEB" > web.new && mv web.new web
while :; do
  panel2mqtt run --host "$1" --broker "127.0.0.1:$2" 2>> log &
  gateway=$!
  echo "$gateway" > gateway.new && mv gateway.new gateway
  wait "$gateway"
  while [ -e hold ]; do sleep 0.05; done
  sleep 0.1
done'''


class Failure(Exception):
    """What did not come about."""


def find(program):
    """Also where Debian has daemons, which is on no user's path."""
    path = shutil.which(program, path=f'{os.environ.get("PATH", os.defpath)}:/usr/sbin')
    if not path:
        raise Failure(f'there is no {program}; scripts/install-dependencies installs all that this needs')
    return path


def wait_until(condition, what, patience=30.0):
    """What the condition returns as soon as that is true."""
    end = time.monotonic() + patience
    while not (result := condition()):
        if time.monotonic() > end:
            raise Failure(f'not within {patience:.0f} s: {what}')
        time.sleep(0.03)
    return result


def start(command, **options):
    """In a group of its own, so that a terminal's Ctrl-C does not reach it, and with its parent's life."""
    return subprocess.Popen(['setpriv', '--pdeathsig', 'TERM', *command], stdin=subprocess.DEVNULL,
                            start_new_session=True, **options)


def kill_group(process):
    """It, and what it has started."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except ProcessLookupError:
        pass
    process.wait()


def end(process, patience):
    """Orderly, if that is done in time."""
    process.terminate()
    try:
        process.wait(patience)
    except subprocess.TimeoutExpired:
        pass
    kill_group(process)


class Broker:
    """A mosquitto on a port of loopback of its own, which keeps what is retained. Use as a context."""

    def __init__(self, folder):
        self._folder = pathlib.Path(folder)
        self._program = find('mosquitto')
        self._process = None
        self.port = 0

    def __enter__(self):
        try:
            for _ in range(20):  # somebody else may have the port, or take it before it does
                self.port = random.randint(20000, 32000)
                self._configure()
                if self._try_start():
                    return self
            raise Failure(f'mosquitto does not start: {self._read_log()}')
        except BaseException:
            self.__exit__()
            raise

    def __exit__(self, *_):
        if self._process:
            end(self._process, 5)

    def _configure(self):
        # Started as root it would become another user, who may not read the folder.
        user = 'user root\n' if os.geteuid() == 0 else ''
        (self._folder / 'mosquitto.conf').write_text(
            f'listener {self.port} 127.0.0.1\nallow_anonymous true\nset_tcp_nodelay true\n{user}'
            'log_type error\nlog_type warning\nlog_type notice\nlog_type information\nlog_type subscribe\n'
            f'persistence true\nautosave_on_changes true\nautosave_interval 1\npersistence_location {self._folder}/\n')

    def _read_log(self):
        return (self._folder / 'mosquitto.log').read_text(errors='replace')

    def _is_listening(self):
        with socket.socket() as probe:
            return probe.connect_ex(('127.0.0.1', self.port)) == 0

    def _try_start(self):
        if self._is_listening():
            return False
        with open(self._folder / 'mosquitto.log', 'ab') as log:
            self._process = start([self._program, '-c', str(self._folder / 'mosquitto.conf')], stdout=log, stderr=log)
        (self._folder / 'broker').write_text(f'{self._process.pid}\n')
        wait_until(lambda: self._is_listening() or self._process.poll() is not None, 'mosquitto listens')
        return self._process.poll() is None

    def start(self):
        """Again, with what it has kept."""
        self._process.wait()
        if not self._try_start():
            raise Failure(f'mosquitto does not come back: {self._read_log()}')


class Host:
    """Simulated panels, and a gateway that is started again whenever it ends. Use as a context."""

    def __init__(self, name, folder, port, programs, count, options=()):
        self.name, self.count, self.address = name, count, None
        self.folder = pathlib.Path(folder) / name
        self._programs = programs
        self._command = [str(pathlib.Path(programs) / 'panelsim'), 'run', '--web', '--panels', str(count),
                         '--control', 'control', *options, '--', 'bash', '-c', SERVE, 'serve', name, str(port)]
        self._process = None
        self._panels = None

    def __enter__(self):
        self.folder.mkdir()
        with open(self.folder / 'errors', 'wb') as errors:
            self._process = start(self._command, cwd=self.folder, stdout=subprocess.DEVNULL, stderr=errors, env={
                **os.environ, 'PATH': f'{self._programs}:{os.environ.get("PATH", os.defpath)}'})
        return self

    def __exit__(self, *_):
        end(self._process, 5)

    def _find_address(self):
        if self._process.poll() is not None:
            raise Failure(f'{self.name} has ended: {(self._folder / "errors").read_text(errors="replace").strip()}')
        address = self.folder / 'web'
        return address.exists() and address.read_text().strip()

    @property
    def panels(self):
        """Its SimulatedPanels."""
        if self._panels is None:
            self.address = wait_until(self._find_address, f'the panels of {self.name} are plugged in')
            self._panels = SimulatedPanels(self.address)
        return self._panels

    @property
    def gateway(self):
        """The gateway's process."""
        return int(wait_until(lambda: (file := self.folder / 'gateway').exists() and file.read_text(),
                              f'{self.name} has a gateway'))

    @staticmethod
    def place(panel):
        return f'1-{panel + 1}'

    def picture(self, panel, lcd=0):
        """As SimulatedPanels has it; empty while nothing has been drawn since it was plugged in."""
        try:
            return self.panels.picture(panel, lcd)
        except LookupError:
            return []
        except OSError as error:
            raise Failure(f'the panels of {self.name} do not answer: {error}') from error

    def received(self, panel, record_type):
        """The beginnings of records that the panel has had under a type."""
        return [bytes.fromhex(record['bytes'])
                for record in self.panels.records(panel=panel, type=record_type, way='out')]
