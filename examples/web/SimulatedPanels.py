"""What simulated panels show, for a test of an application that draws on them:

    panelsim run --web -- python3 YOUR_TEST.py

The test starts the application, which needs no change. Python's own library is all that
this takes: copy it. docs/web.md says what else can be asked."""
import http.client
import json
import os
import time
import urllib.parse


class SimulatedPanels:
    """Those of an address as panelsim prints it, or of the panelsim that runs this program."""

    def __init__(self, address=None):
        address = address or os.environ.get('PANELSIM_WEB')
        if not address:
            raise RuntimeError('no simulated panels: start this behind "panelsim run --web --"')
        parts = urllib.parse.urlsplit(address)
        self.host, self.token = parts.netloc, parts.fragment

    def ask(self, path, command=None):
        """The answer's bytes. LookupError: there is no such panel, LCD or pixel; ValueError: another
        refusal. Both say why."""
        connection = http.client.HTTPConnection(self.host, timeout=10)
        try:
            connection.request('GET' if command is None else 'POST', path, command,
                               {'X-Panelsim-Token': self.token})
            answer = connection.getresponse()
            content = answer.read()
        finally:
            connection.close()
        if answer.status != 200:
            raise (LookupError if answer.status == 404 else ValueError)(json.loads(content)['error'])
        return content

    def state(self):
        return json.loads(self.ask('/api/state'))

    def command(self, line):
        """Such as 'unplug 1'. Returns when it is done."""
        self.ask('/api/command', line)

    def picture(self, panel, lcd, **part):
        """A string for each row: '#' is black, '.' white, '+' another colour. A part has x, y, width and height."""
        return self.ask(f'/api/panels/{panel}/lcds/{lcd}.txt?{urllib.parse.urlencode(part)}').decode().splitlines()

    def png(self, panel, lcd, zoom=4):
        """The bytes of a file, to be kept with a failure."""
        return self.ask(f'/api/panels/{panel}/lcds/{lcd}.png?zoom={zoom}')

    def records(self, **which):
        """The last ones as dictionaries, of a panel, type and way ('out' or 'in') if these are given."""
        return [json.loads(line) for line in self.ask(f'/api/records?{urllib.parse.urlencode(which)}').splitlines()]

    def expect(self, rows, panel=0, lcd=0, seconds=10, **part):
        """Waits until the LCD shows these rows; AssertionError with what it shows when it never does."""
        deadline = time.monotonic() + seconds
        while True:
            try:
                shown = self.picture(panel, lcd, **part)
            except LookupError as error:  # nothing has been drawn on it yet
                shown = [str(error)]
            if shown == rows:
                return
            if time.monotonic() > deadline:
                raise AssertionError('\n'.join([f'panel {panel}, LCD {lcd} shows', *shown, 'and not', *rows]))
            time.sleep(0.02)
