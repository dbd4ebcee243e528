"""A test of an application that draws on panels: of the example Shelf, as it is. Its keys are
records of type 13, and it shows a bar of 8 rows for each of its 8 lamps, dark when it is on:

    panelsim run --web --panels 2 -- python3 examples/web/ShelfTest.py build/release/bin/Shelf"""
import subprocess
import sys
import unittest

from SimulatedPanels import SimulatedPanels

BARS = {'x': 0, 'y': 0, 'width': 100, 'height': 64}


def bars(*lamps):
    return [('#' if row // 8 in lamps else '.') * 100 for row in range(64)]


class ShelfTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.panels = SimulatedPanels()
        shelf = subprocess.Popen(application)
        cls.addClassCleanup(shelf.wait)
        cls.addClassCleanup(shelf.terminate)

    def test_key_switchesItsLamp(self):
        self.panels.expect(bars(), panel=0, **BARS)
        self.panels.command('emit 0 type=13 hex=03')
        self.panels.expect(bars(3), panel=0, **BARS)
        self.panels.command('emit 0 type=13 hex=03')
        self.panels.expect(bars(), panel=0, **BARS)

    def test_plugIsPulled_theBarsAreThereAgain(self):
        self.panels.expect(bars(), panel=1, **BARS)
        self.panels.command('emit 1 type=13 hex=01')
        self.panels.command('emit 1 type=13 hex=06')
        self.panels.expect(bars(1, 6), panel=1, **BARS)
        self.panels.command('unplug 1')
        self.panels.command('plug 1')  # its LCDs are white now
        self.panels.expect(bars(1, 6), panel=1, **BARS)


if __name__ == '__main__':
    application = sys.argv[1:] or ['Shelf']
    unittest.main(argv=sys.argv[:1])
