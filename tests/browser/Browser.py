"""Chromium without a window, with a folder of its own and nothing left behind."""
import json
import os
import shutil
import signal
import tempfile
import urllib.request

from selenium import webdriver
from selenium.common.exceptions import ElementClickInterceptedException, StaleElementReferenceException
from selenium.webdriver.chrome.service import Service
from selenium.webdriver.common.by import By

from Simulation import wait_until

OPTIONS = (
    '--headless=new', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync', '--disable-quic',
    '--disable-extensions', '--force-device-scale-factor=1')


class Browser:
    """Use as a context."""

    def __init__(self, folder, width=1280, height=900):
        self._data = tempfile.mkdtemp(prefix='chromium-', dir=folder)
        options = webdriver.ChromeOptions()
        options.binary_location = '/usr/bin/chromium'
        for option in (*OPTIONS, f'--user-data-dir={self._data}', f'--window-size={width},{height}'):
            options.add_argument(option)
        options.set_capability('goog:loggingPrefs', {'browser': 'ALL'})
        # What the driver starts is of its group, and ends with it.
        self._service = Service('/usr/bin/chromedriver', popen_kw={'start_new_session': True})
        try:
            self.driver = webdriver.Chrome(service=self._service, options=options)
            self.driver.set_page_load_timeout(60)
            self.driver.set_script_timeout(60)
            self.resize(width, height)
        except BaseException:
            self._clean()
            raise
        self._console = []

    def __enter__(self):
        return self

    def __exit__(self, *_):
        try:
            self.driver.quit()
        finally:
            self._clean()

    def _clean(self):
        process = getattr(self._service, 'process', None)
        if process:
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
            process.wait()
        shutil.rmtree(self._data, ignore_errors=True)

    def resize(self, width, height, scale=1):
        self.cdp('Emulation.setDeviceMetricsOverride', width=width, height=height, deviceScaleFactor=scale,
                 mobile=False)

    def prefer(self, **features):
        """Media features, with _ for -: prefers_color_scheme='dark'."""
        self.cdp('Emulation.setEmulatedMedia',
                 features=[{'name': name.replace('_', '-'), 'value': value} for name, value in features.items()])

    def cdp(self, command, **parameters):
        return self.driver.execute_cdp_cmd(command, parameters)

    def run(self, script, *arguments):
        return self.driver.execute_script(script, *arguments)

    def find(self, selector):
        """As soon as it is there."""
        return wait_until(lambda: self.find_all(selector), selector)[0]

    def find_all(self, selector):
        return self.driver.find_elements(By.CSS_SELECTOR, selector)

    def click(self, selector):
        """As soon as that is there, and nothing lies over it while it moves."""
        def try_it():
            try:
                self.find(selector).click()
                return True
            except (ElementClickInterceptedException, StaleElementReferenceException):
                return False
        wait_until(try_it, f'a click on {selector}')

    def text(self, selector):
        return self.run('return document.querySelector(arguments[0])?.textContent ?? ""', selector)

    def wait_for_text(self, selector, part):
        try:
            wait_until(lambda: part in self.text(selector), f'{part!r} in {selector}')
        except AssertionError as error:
            raise AssertionError(f'{error}: it is {self.text(selector)!r}') from None

    def open(self, address):
        """The page of a simulation, and waits until it is live and has a canvas for each LCD."""
        self.driver.get(address)
        self.wait_for_text('#connection', 'live')
        with urllib.request.urlopen(address.split('#')[0] + 'api/state') as answer:
            panels = json.load(answer)['panels']
        for panel in panels:
            self.find(f'section[data-panel="{panel["panel"]}"]')
            for lcd in panel['lcds']:
                self.find(self.canvas(panel['panel'], lcd['lcd']))

    def canvas(self, panel, lcd):
        return f'canvas[data-panel="{panel}"][data-lcd="{lcd}"]'

    def pixels(self, panel, lcd):
        """What the canvas of an LCD has, a list of rows of '#rrggbb'; nothing when there is none."""
        return self.run('''
            const canvas = document.querySelector(arguments[0]);
            if (!canvas)
                return [];
            const {data} = canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height);
            const hex = (at) => '#' + [0, 1, 2].map((i) => data[at + i].toString(16).padStart(2, '0')).join('');
            return Array.from({length: canvas.height}, (_, y) =>
                Array.from({length: canvas.width}, (_, x) => hex(4 * (y * canvas.width + x))));
            ''', self.canvas(panel, lcd))

    def rows(self, panel, lcd):
        """The same as the interface's text."""
        signs = {'#000000': '#', '#ffffff': '.'}
        return [''.join(signs.get(colour, '+') for colour in row) for row in self.pixels(panel, lcd)]

    def console(self):
        """All that the browser has complained of so far."""
        self._console += [entry['message'] for entry in self.driver.get_log('browser')]
        return self._console
