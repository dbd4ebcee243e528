"""`panelsim run --web` with the tests' own program, which draws as it is told."""
import json
import os
import queue
import re
import signal
import subprocess
import threading
import time
import urllib.error
import urllib.request

PATIENCE = 60.0  # seconds


def wait_until(condition, what, patience=PATIENCE):
    """What the condition returns as soon as that is true."""
    end = time.monotonic() + patience
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > end:
            raise AssertionError(f'waited for {what} in vain')
        time.sleep(0.02)


class Simulation:
    """Use as a context. `client` is the program and its arguments."""

    def __init__(self, panelsim, client, folder, *options, port=None):
        web = '--web' if port is None else f'--web={port}'
        self._log = os.path.join(folder, f'simulation-{time.monotonic_ns()}.log')
        self._lines = queue.Queue()
        self._errors = []
        self._process = subprocess.Popen(
            [panelsim, 'run', web, '--log', self._log, *options, '--', *client],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, start_new_session=True,
            env=dict(os.environ, XDG_RUNTIME_DIR=folder))
        for source, take in ((self._process.stdout, self._lines.put), (self._process.stderr, self._errors.append)):
            threading.Thread(target=self._read, args=(source, take), daemon=True).start()
        self.address = wait_until(self._find_address, 'the address of the page')
        self.root, self.token = self.address.split('#')
        self.port = int(re.search(r':(\d+)/', self.root)[1])

    @staticmethod
    def _read(source, take):
        for line in source:
            take(line.rstrip('\n'))

    def _find_address(self):
        assert self._process.poll() is None, f'panelsim has ended: {self._errors}'
        for line in self._errors:
            found = re.search(r'http://\S+', line)
            if found:
                return found[0]
        return None

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.kill()
        for stream in (self._process.stdin, self._process.stdout, self._process.stderr):
            try:
                stream.close()
            except OSError:
                pass  # what was not written has no reader any more

    def kill(self):
        """At once, as a crash would end it, and its program with it."""
        try:
            os.killpg(self._process.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self._process.wait()

    def end(self):
        """As a user's program ends."""
        self._process.stdin.close()
        wait_until(lambda: self._process.poll() is not None, 'the end of panelsim')

    def tell(self, line, answer=None):
        """Has the program do this, and waits until it says so."""
        self._process.stdin.write(line + '\n')
        self._process.stdin.flush()
        if answer:
            self.hear(answer)

    def hear(self, line, patience=PATIENCE):
        """Waits until the program has said this; what it said before is dropped."""
        end = time.monotonic() + patience
        heard = []
        while line not in heard:
            try:
                heard.append(self._lines.get(timeout=max(0.0, end - time.monotonic())))
            except queue.Empty:
                raise AssertionError(f'the program did not say {line!r} but {heard}; {self._errors}') from None

    def log(self):
        with open(self._log, encoding='utf-8') as log:
            return log.read()

    def get(self, path):
        with urllib.request.urlopen(self.root + path, timeout=PATIENCE) as answer:
            return answer.read()

    def state(self):
        return json.loads(self.get('api/state'))

    def slices(self, panel, lcd):
        """How many have drawn on an LCD so far."""
        lcds = self.state()['panels'][panel]['lcds']
        return next((each['slices'] for each in lcds if each['lcd'] == lcd), 0)

    def command(self, line):
        request = urllib.request.Request(self.root + 'api/command', line.encode(), {'X-Panelsim-Token': self.token})
        with urllib.request.urlopen(request, timeout=PATIENCE) as answer:
            return json.load(answer)

    def rows(self, panel, lcd):
        """What the panel model shows, '#' for black, '.' for white, '+' for another colour."""
        return self.get(f'api/panels/{panel}/lcds/{lcd}.txt').decode().split()
