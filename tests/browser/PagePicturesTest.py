"""What the page shows of LCDs."""
import base64
import os

from selenium.webdriver.common.action_chains import ActionChains

import Png
from PageTest import ZOOM, PageTest
from Simulation import wait_until


class PagePictures(PageTest):

    def canvas_isThePanelModelPixelByPixel(self):
        simulation = self.simulate('--panels', '2', '--lcd', '2=71x35')
        browser = self.browse(simulation.address)
        for line in ('draw 0 1 1', 'runs 1 2', 'draw 2 1 3', 'draw 3 24 4'):
            simulation.tell(line, 'drawn')
        for panel in (0, 1):
            for lcd in (0, 1, 2, 3):
                self._expect_canvas(simulation, browser, panel, lcd)
        self.assertEqual(len(simulation.rows(0, 2)[0]), 71)

    def canvasAtAnyZoom_isTheSamePixels(self):
        simulation = self.simulate('--lcd', '0=48x40', '--lcd', '1=30x20')
        browser = self.browse(simulation.address)
        simulation.tell('draw 0 1 1', 'drawn')
        simulation.tell('draw 1 24 1', 'drawn')
        for zoom, scale in ((1, 1), (4, 1), (8, 1), (1, 2), (2, 1.5)):
            browser.resize(1280, 900, scale)
            browser.run(ZOOM, zoom)
            for lcd in (0, 1):
                self._expect_canvas(simulation, browser, 0, lcd)
                self._expect_on_screen(browser, lcd, round(zoom * scale))

    def grid_isDrawnOnDemand(self):
        simulation = self.simulate('--lcd', '0=30x20')
        browser = self.browse(simulation.address)
        browser.run(ZOOM, 4)
        self._expect_on_screen(browser, 0, 4)
        browser.click('#grid')
        screen, left, top = self._shoot(browser, 0)
        lines = [[x % 4 == 0 or y % 4 == 0 for x in range(120)] for y in range(80)]
        found = ([[pixel != '#ffffff' for pixel in row[x:x + 120]] for row in screen[y:y + 80]]
                 for x in range(left, left + 3) for y in range(top, top + 3))
        self.assertTrue(any(each == lines for each in found))

    def lcdDrawnOn_isMarkedAndSaysByWhat(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        simulation.tell('draw 0 1 1', 'drawn')
        browser.wait_for_text('.layer', 'raw, 1 bit')
        state = simulation.state()['panels'][0]['lcds'][0]
        browser.wait_for_text('.layer', f'48×40 at 8,16, {state["layer"]["bytes"]} B')
        wait_until(lambda: not browser.find_all('.lcd.drawn'), 'the mark to go')
        simulation.tell('animate 1 50', 'animated')
        wait_until(lambda: browser.find_all('.lcd.drawn'), 'the mark')
        simulation.tell('rest', 'rested')
        simulation.tell('runs 0 2', 'drawn')
        browser.wait_for_text('.layer', 'run-length')
        wait_until(lambda: not browser.find_all('.lcd.drawn'), 'the mark to go again')

    def pixelUnderThePointer_isTold(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        simulation.tell('draw 0 24 1', 'drawn')
        self._expect_canvas(simulation, browser, 0, 0)
        browser.run(ZOOM, 4)
        canvas = browser.find(browser.canvas(0, 0))
        ActionChains(browser.driver).move_to_element_with_offset(
            canvas, 4 * 20 + 2 - canvas.size['width'] // 2, 4 * 30 + 2 - canvas.size['height'] // 2).perform()
        colour = browser.pixels(0, 0)[30][20]
        browser.wait_for_text('#pixel', f'Panel 0, LCD 0, pixel 20,30: {colour}, drawn at')
        self.assertIn('raw slice of 24 bits, 48×', browser.text('#pixel'))
        ActionChains(browser.driver).move_to_element_with_offset(
            canvas, 2 - canvas.size['width'] // 2, 2 - canvas.size['height'] // 2).perform()
        browser.wait_for_text('#pixel', 'pixel 0,0: #ffffff, drawn by no slice')

    def pixelThatIsTold_followsWhatIsDrawn(self):
        simulation = self.simulate('--lcd', '0=64x72')
        browser = self.browse(simulation.address)
        canvas = browser.find(browser.canvas(0, 0))
        ActionChains(browser.driver).move_to_element(canvas).perform()
        browser.wait_for_text('#pixel', '#ffffff, not drawn on since the plug')
        simulation.tell('draw 0 1 1', 'drawn')
        browser.wait_for_text('#pixel', 'drawn at')
        simulation.tell('runs 0 2', 'drawn')
        browser.wait_for_text('#pixel', 'run-length slice')

    def buttonsOfAPanel_stayWhereTheyAre(self):
        simulation = self.simulate('--lcd', '0=72x36')
        browser = self.browse(simulation.address)
        browser.run(ZOOM, 1)
        place = 'return document.querySelector(".panel button").getBoundingClientRect().left'
        before = browser.run(place)
        browser.run('document.querySelector(".facts .number").textContent = "out 394 packets/s, 1.02M B/s; in 4 packets/s"')
        self.assertEqual(browser.run(place), before)

    def lcdOutOfView_saysWhatItIsWhenItIsScrolledTo(self):
        simulation = self.simulate('--panels', '12', '--lcd', '0=72x36')
        browser = self.browse(simulation.address)
        browser.find(browser.canvas(11, 0))
        wait_until(lambda: browser.text('.panel[data-panel="0"] .lcd .title span') == 'LCD 0 72×36', 'the first title')
        browser.run('document.querySelector(arguments[0]).scrollIntoView()', browser.canvas(11, 0))
        browser.wait_for_text('.panel[data-panel="11"] .lcd .title span', 'LCD 0 72×36')
        browser.wait_for_text('.panel[data-panel="11"] .layer', 'not drawn on')

    def lcdOutOfView_isRightWhenItIsScrolledTo(self):
        simulation = self.simulate('--panels', '12')
        browser = self.browse(simulation.address)
        simulation.tell('animate 2 30', 'animated')
        wait_until(lambda: simulation.slices(11, 1) > 200, 'pictures')
        simulation.tell('rest', 'rested')
        browser.run('document.querySelector(arguments[0]).scrollIntoView()', browser.canvas(11, 1))
        self._expect_canvas(simulation, browser, 11, 1)

    def picture_isSavedAsItIsShown(self):
        simulation = self.simulate('--lcd', '0=48x40')
        browser = self.browse(simulation.address)
        browser.cdp('Browser.setDownloadBehavior', behavior='allow', downloadPath=self.folder)
        simulation.tell('draw 0 24 1', 'drawn')
        self._expect_canvas(simulation, browser, 0, 0)
        pixels = browser.pixels(0, 0)
        browser.run(ZOOM, 4)
        for index, name, zoom in ((1, 'panel0-lcd0.png', 1), (2, 'panel0-lcd0-4x.png', 4)):
            browser.click('.lcd button')
            browser.click(f'#save li:nth-of-type({index}) button')
            self.assertEqual(Png.decode(self._saved(name)), Png.enlarge(pixels, zoom))
            self.assertEqual(Png.decode(simulation.get(f'api/panels/0/lcds/0.png?zoom={zoom}')),
                             Png.enlarge(pixels, zoom))
        browser.click('.lcd button')
        browser.click('#save li a')
        self.assertEqual(self._saved('panel0-lcd0.gif')[:6], b'GIF89a')

    def _saved(self, name):
        path = os.path.join(self.folder, name)
        wait_until(lambda: os.path.exists(path) and os.path.getsize(path) > 0, name)
        with open(path, 'rb') as file:
            return file.read()

    def _expect_canvas(self, simulation, browser, panel, lcd):
        rows = simulation.rows(panel, lcd)
        wait_until(lambda: browser.rows(panel, lcd) == rows, f'LCD {lcd} of panel {panel} to be the model\'s')
        picture = Png.decode(simulation.get(f'api/panels/{panel}/lcds/{lcd}.png'))
        self.assertEqual(browser.pixels(panel, lcd), picture)

    # What is on the screen, behind all that the style sheet does: each pixel a square, wherever
    # between two pixels of the screen the LCD may lie; its outermost line may be mixed with
    # what is beside it.
    def _expect_on_screen(self, browser, lcd, cell):
        expected = [row[1:-1] for row in Png.enlarge(browser.pixels(0, lcd), cell)[1:-1]]
        height, width = len(expected), len(expected[0])
        screen, left, top = self._shoot(browser, lcd)
        found = ([row[x:x + width] for row in screen[y:y + height]]
                 for x in range(left + 1, left + 4) for y in range(top + 1, top + 4))
        self.assertTrue(any(each == expected for each in found), f'LCD {lcd}, {cell} pixels for one')

    # The screen around an LCD, and from which pixel on it may be the LCD.
    def _shoot(self, browser, lcd):
        scale, left, top, width, height = browser.run('''
            const canvas = document.querySelector(arguments[0]);
            canvas.scrollIntoView({block: 'nearest'});
            const {left, top, width, height} = canvas.getBoundingClientRect();
            return [devicePixelRatio, left, top, width, height];''', browser.canvas(0, lcd))
        clip = {'x': left // 2 * 2 - 2, 'y': top // 2 * 2 - 2, 'width': width + 8, 'height': height + 8, 'scale': 1}
        data = browser.cdp('Page.captureScreenshot', format='png', clip=clip)['data']
        return (Png.decode(base64.b64decode(data)),
                round((left - clip['x']) * scale) - 1, round((top - clip['y']) * scale) - 1)
