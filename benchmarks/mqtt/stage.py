"""A broker, hosts of simulated panels with a gateway each, and what their processes cost."""

import contextlib
import json
import os
import re
import signal
import socket
import struct
import subprocess
import tempfile
import time
import zlib

TICKS = os.sysconf('SC_CLK_TCK')


def cpu_of(pid):
    """Seconds, those of threads that have ended too."""
    with open(f'/proc/{pid}/stat', encoding='utf-8') as file:
        fields = file.read().rsplit(')', 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / TICKS


def memory_of(pid):
    """KiB in memory."""
    with open(f'/proc/{pid}/status', encoding='utf-8') as file:
        return int(re.search(r'^VmRSS:\s+(\d+)', file.read(), re.M).group(1))


def descriptors_of(pid):
    return len(os.listdir(f'/proc/{pid}/fd'))


def free_port():
    with socket.socket() as probe:
        probe.bind(('127.0.0.1', 0))
        return probe.getsockname()[1]


def await_that(condition, what, seconds=30):
    end = time.monotonic() + seconds
    while not (found := condition()):
        if time.monotonic() > end:
            raise RuntimeError(f'waited in vain for {what}')
        time.sleep(0.01)
    return found


def picture(width=144, height=168):
    """A grey PNG: a ramp with a frame, which takes some work to dither and does not shrink to nothing."""
    rows = b''.join(b'\0' + bytes((x * 255 // width + y * 3) % 256 if x % 16 and y % 16 else 0 for x in range(width))
                    for y in range(height))

    def chunk(kind, data):
        return struct.pack('>I', len(data)) + kind + data + struct.pack('>I', zlib.crc32(kind + data))

    return (b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', struct.pack('>IIBBBBB', width, height, 8, 0, 0, 0, 0)) +
            chunk(b'IDAT', zlib.compress(rows, 9)) + chunk(b'IEND', b''))


class Broker:
    """A mosquitto as Debian has it, on a port of loopback of its own; `further` are lines of its configuration."""

    MINUTELY = ('persistence true', 'autosave_interval 60')
    EACH_CHANGE = ('persistence true', 'autosave_on_changes true', 'autosave_interval 1')
    MANY_CHANGES = ('persistence true', 'autosave_on_changes true')  # 1,800 of them

    def __init__(self, folder, further=()):
        self.folder, self.port, self.spent = folder, free_port(), 0
        lines = [f'listener {self.port} 127.0.0.1', 'allow_anonymous true', 'set_tcp_nodelay true',
                 f'log_dest file {folder}/mosquitto.log']
        if os.geteuid() == 0:
            lines.append('user root')  # who may read the folder
        if further:
            lines += [*further, f'persistence_location {folder}/']
        with open(f'{folder}/mosquitto.conf', 'w', encoding='utf-8') as file:
            file.write('\n'.join(lines) + '\n')
        self.start()

    def start(self):
        self.process = subprocess.Popen(['/usr/sbin/mosquitto', '-c', f'{self.folder}/mosquitto.conf'],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.pid = self.process.pid
        await_that(self.listens, 'the broker')

    def listens(self):
        with contextlib.suppress(OSError), socket.create_connection(('127.0.0.1', self.port), timeout=1):
            return True
        return False

    def cpu(self):
        """Of all its runs."""
        return self.spent + cpu_of(self.pid)

    def stop(self, kind=signal.SIGTERM):
        self.spent += cpu_of(self.pid)
        self.process.send_signal(kind)
        self.process.wait()

    def retained(self, filter_text, seconds=1):
        """Topic and payload of each message."""
        told = subprocess.run(['mosquitto_sub', '-V', '5', '-p', str(self.port), '-t', filter_text, '--retained-only',
                               '-W', str(seconds), '-F', '%j'], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL,
                              check=False).stdout
        return [json.loads(line) for line in told.splitlines()]


class Host:
    """Simulated panels and a gateway, whose log and panels' log lie in the folder."""

    def __init__(self, bin_folder, folder, broker, panels, options=(), name='shop', settings=''):
        self.bin, self.folder, self.name, self.panels = bin_folder, folder, name, panels
        config = f'{folder}/{name}.toml'
        with open(config, 'w', encoding='utf-8') as file:
            file.write(f'host = "{name}"\n[broker]\nport = {broker.port}\n{settings}')
        self.log, self.control = f'{folder}/{name}.log', f'{folder}/{name}.control'
        self.errors, pid_file = f'{folder}/{name}.errors', f'{folder}/{name}.pid'
        with contextlib.suppress(FileNotFoundError):
            os.remove(pid_file)
        program = f'echo $$ > {pid_file}; exec {bin_folder}/panel2mqtt run --config {config} 2>> {self.errors}'
        self.process = subprocess.Popen([f'{bin_folder}/panelsim', 'run', '--panels', str(panels), '--log', self.log,
                                         '--control', self.control, *options, '--', 'sh', '-c', program],
                                        stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        await_that(lambda: os.path.exists(pid_file) and os.path.getsize(pid_file), 'the gateway')
        with open(pid_file, encoding='utf-8') as file:
            self.gateway = int(file.read())
        self.simulator = self.process.pid
        self.teller = None
        await_that(lambda: len(self.infos(broker)) == panels if panels else True, 'the panels')

    def infos(self, broker):
        return broker.retained(f'panel/1/{self.name}/+/info')

    def tell(self, order):
        """Returns when the simulation has obeyed."""
        if self.teller is None:
            self.teller = socket.socket(socket.AF_UNIX)
            self.teller.connect(self.control)
        self.teller.sendall(order.encode() + b'\n')
        answer = b''
        while not answer.endswith(b'\n'):
            answer += self.teller.recv(4096)
        if answer != b'ok\n':
            raise RuntimeError(f'{order}: {answer.decode()}')

    def clock_offset(self, tries=50):
        """What to add to the log's seconds to have those of time.monotonic, and how wrong that may be."""
        spans = []
        for _ in range(tries):
            begin = time.monotonic()
            self.tell('fault 0 clear')
            spans.append((begin, time.monotonic()))
        with open(self.log, encoding='utf-8', errors='replace') as file:
            orders = [float(line.split()[0]) for line in file if 'order: fault 0 clear' in line][-tries:]
        width, offset = min((end - begin, (begin + end) / 2 - order) for (begin, end), order in zip(spans, orders))
        return offset, width / 2

    def end(self):
        """The exit code, and what the simulation said."""
        with contextlib.suppress(ProcessLookupError):
            os.kill(self.gateway, signal.SIGTERM)
        _, errors = self.process.communicate(timeout=60)
        if self.teller is not None:
            self.teller.close()
        return self.process.returncode, errors


def quantile(values, share):
    ordered = sorted(values)
    return ordered[min(len(ordered) - 1, int(share * len(ordered)))]


@contextlib.contextmanager
def stage(bin_folder, panels, options=(), settings='', further=()):
    """A broker and a host; both are gone afterwards."""
    with tempfile.TemporaryDirectory() as folder:
        broker = Broker(folder, further)
        host = None
        try:
            host = Host(bin_folder, folder, broker, panels, options, settings=settings)
            yield broker, host
        finally:
            if host is not None and host.process.poll() is None:
                host.end()
            broker.stop(signal.SIGKILL)
