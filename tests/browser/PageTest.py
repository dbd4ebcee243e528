"""What the tests of the page have in common."""
import os
import signal
import tempfile
import unittest

from Browser import Browser
from Simulation import Simulation, wait_until

LIMIT = 400  # seconds for one test; below that of ctest, so that it can tidy up

# What the browser writes of requests that are refused: that they are is shown on the page, too.
REFUSED = ('status of 409', 'status of 403')
READ_BACK = 'Multiple readback operations'  # the tests' own
LOST = ('ERR_CONNECTION_REFUSED', 'ERR_INCOMPLETE_CHUNKED_ENCODING', 'ERR_CONNECTION_RESET', 'ERR_EMPTY_RESPONSE')


# At 1:1 all that the tests draw is in view; what is not is not painted.
ZOOM = '''const zoom = document.getElementById('zoom');
    zoom.value = arguments[0];
    zoom.dispatchEvent(new Event('input'));'''


def _give_up(*_):
    raise TimeoutError(f'the test took {LIMIT} s')


class PageTest(unittest.TestCase):
    maxDiff = 2000

    def setUp(self):
        signal.signal(signal.SIGALRM, _give_up)
        signal.signal(signal.SIGTERM, _give_up)
        signal.alarm(LIMIT)
        self.addCleanup(signal.alarm, 0)
        folder = tempfile.TemporaryDirectory(prefix='page-', dir=os.environ['MORVANE_FOLDER'],
                                             ignore_cleanup_errors=True)
        self.addCleanup(folder.cleanup)
        self.folder = folder.name
        self.allowed = ()  # what the browser may complain of
        self.browsers = []

    def simulate(self, *options, port=None, client=None):
        """With the tests' own program, all panels are open and have said who they are."""
        simulation = self.enter(Simulation(os.environ['MORVANE_PANELSIM'],
                                           client or [os.environ['MORVANE_PAGE_CLIENT']], self.folder, *options,
                                           port=port))
        if not client:
            wait_until(lambda: all(panel['traffic']['in']['packets'] > 0 for panel in simulation.state()['panels']),
                       'the panels to say who they are')
        return simulation

    def browse(self, address=None, **window):
        browser = self.enter(Browser(self.folder, **window))
        self.browsers.append(browser)
        self.addCleanup(self._expect_no_complaints, browser)
        if address:
            browser.open(address)
            browser.run(ZOOM, 1)
        return browser

    def enter(self, context):
        context.__enter__()
        self.addCleanup(context.__exit__, None, None, None)
        return context

    def _expect_no_complaints(self, browser):
        allowed = (READ_BACK, *self.allowed)
        complaints = [line for line in browser.console() if not any(part in line for part in allowed)]
        self.assertEqual(complaints, [], 'the browser complains')
