"""The page and its stream: reloads, several pages, servers that go and come, pages that sleep."""
import socket

from PageTest import LOST, PageTest, REFUSED
from Simulation import wait_until


def listeners(port):
    """Connections that a server at this port has."""
    number = 0
    with open('/proc/net/tcp', encoding='ascii') as table:
        for line in list(table)[1:]:
            words = line.split()
            number += words[1].endswith(f':{port:04X}') and words[3] == '01'
    return number


class PageStream(PageTest):

    def reloadInMidStream_showsEverythingAgain(self):
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address)
        simulation.tell('animate 4 20', 'animated')
        for _ in range(4):
            wait_until(lambda: browser.find_all('.lcd.drawn'), 'pictures')
            browser.driver.refresh()
            browser.wait_for_text('#connection', 'live')
        simulation.tell('rest', 'rested')
        for panel in (0, 1):
            for lcd in range(4):
                self._expect_picture(simulation, browser, panel, lcd)

    def twoPages_showTheSameAndObeyBoth(self):
        simulation = self.simulate('--panels', '2')
        one = self.browse(simulation.address)
        other = self.browse(simulation.address)
        simulation.tell('animate 2 20', 'animated')
        one.click('button[aria-label="Unplug panel 0"]')
        other.wait_for_text('section[data-panel="0"]', 'unplugged')
        other.click('button[aria-label="Plug panel 0"]')
        one.wait_for_text('section[data-panel="0"] .plug', '● plugged')
        one.wait_for_text('#orders-count', '2')
        simulation.tell('rest', 'rested')
        for lcd in range(2):
            self._expect_picture(simulation, one, 1, lcd)
            self._expect_picture(simulation, other, 1, lcd)

    def lostServer_isFoundAgain(self):
        self.allowed = (*LOST, *REFUSED)
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address)
        simulation.tell('draw 0 1 1', 'drawn')
        picture = simulation.rows(0, 0)
        self._expect_picture(simulation, browser, 0, 0)
        simulation.command('unplug 1')
        browser.wait_for_text('#orders-count', '1')
        simulation.kill()
        browser.wait_for_text('#banner', 'panelsim does not answer')
        browser.wait_for_text('#connection', '⚠ lost')
        self.assertEqual(browser.rows(0, 0), picture)
        again = self.simulate(port=simulation.port)
        browser.wait_for_text('#connection', 'live')
        browser.wait_for_text('#banner', 'another simulation')
        wait_until(lambda: len(browser.find_all('#panels > .panel')) == 1, 'the panels of the other')
        wait_until(lambda: browser.text('#orders-count') == '0', 'no orders')
        again.tell('draw 1 1 2', 'drawn')
        self._expect_picture(again, browser, 0, 1)
        browser.click('button[aria-label="Unplug panel 0"]')
        browser.wait_for_text('#command-error', 'Open the address that panelsim has printed')
        browser.driver.get(again.address)
        browser.click('button[aria-label="Unplug panel 0"]')
        again.hear('removed 101')
        self.assertFalse(browser.find('#banner').is_displayed())

    def endOfTheSimulation_isTold(self):
        self.allowed = LOST
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        simulation.tell('draw 0 1 1', 'drawn')
        self._expect_picture(simulation, browser, 0, 0)
        picture = simulation.rows(0, 0)
        simulation.end()
        browser.wait_for_text('#banner', 'The simulation has ended')
        browser.wait_for_text('#connection', '■ ended')
        self.assertEqual(browser.rows(0, 0), picture)

    def hiddenPage_hasNoStream(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        wait_until(lambda: listeners(simulation.port) == 1, 'one stream')
        page = browser.driver.current_window_handle
        browser.driver.switch_to.new_window('tab')
        wait_until(lambda: listeners(simulation.port) == 0, 'no stream')
        simulation.tell('draw 0 1 1', 'drawn')
        self.assertEqual(listeners(simulation.port), 0)
        browser.driver.switch_to.window(page)
        browser.wait_for_text('#connection', 'live')
        self._expect_picture(simulation, browser, 0, 0)
        wait_until(lambda: listeners(simulation.port) == 1, 'one stream again')

    def listenerThatNeverReads_blocksNobody(self):
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address)
        sleepers = [socket.create_connection(('127.0.0.1', simulation.port)) for _ in range(3)]
        for sleeper in sleepers:
            self.addCleanup(sleeper.close)
            sleeper.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 4096)
            sleeper.sendall(f'GET /api/events HTTP/1.1\r\nHost: 127.0.0.1:{simulation.port}\r\n\r\n'.encode())
        simulation.tell('animate 8 5', 'animated')
        wait_until(lambda: simulation.slices(0, 0) > 1000, 'pictures')
        browser.click('button[aria-label="Unplug panel 1"]')
        simulation.hear('removed 102')
        simulation.tell('rest', 'rested')
        for lcd in range(8):
            self._expect_picture(simulation, browser, 0, lcd)

    def _expect_picture(self, simulation, browser, panel, lcd):
        wait_until(lambda: browser.rows(panel, lcd) == simulation.rows(panel, lcd), f'panel {panel}, LCD {lcd}')
