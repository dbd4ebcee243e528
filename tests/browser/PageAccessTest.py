"""By keyboard, by ear, in a narrow window, in both themes."""
from selenium.webdriver.common.action_chains import ActionChains
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

import Accessibility
from PageTest import REFUSED, ZOOM, PageTest
from Simulation import wait_until

FOCUSED = '''const {activeElement: it} = document;
    const style = getComputedStyle(it);
    return {name: it.ariaLabel ?? it.id ?? '', text: it.textContent.trim(), tag: it.localName,
            ring: style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) >= 2,
            isSeen: it.checkVisibility({checkOpacity: true, checkVisibilityCSS: true})};'''


class PageAccess(PageTest):

    def bothThemes_haveNoFaults(self):
        self.allowed = REFUSED
        browser = self._eventful_page()
        grounds = set()
        for theme in ('light', 'dark'):
            browser.prefer(prefers_color_scheme=theme)
            for chip in browser.find_all('#command-orders label'):
                chip.click()
                self.assertEqual(Accessibility.faults(browser), [])
            browser.click('.lcd button')
            wait_until(lambda: browser.run("return document.getElementById('save').open"), 'the dialog')
            browser.click('#save form button')
            grounds.add(browser.run('return getComputedStyle(document.body).backgroundColor'))
        self.assertEqual(len(grounds), 2)

    def theme_followsTheSystemUntilItIsChosen(self):
        browser = self.browse(self.simulate().address)
        browser.prefer(prefers_color_scheme='dark')
        dark = self._ground(browser)
        browser.prefer(prefers_color_scheme='light')
        light = self._ground(browser)
        self.assertNotEqual(dark, light)
        Select(browser.find('#theme')).select_by_value('dark')
        self.assertEqual(self._ground(browser), dark)
        browser.driver.refresh()  # kept
        browser.wait_for_text('#connection', 'live')
        self.assertEqual(self._ground(browser), dark)

    def lessMotion_isRespected(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        simulation.tell('draw 0 1 1', 'drawn')
        wait_until(lambda: browser.find_all('.lcd'), 'the LCD')
        moving = '''return [...document.querySelectorAll('*')].filter((element) => {
            const {transitionDuration, animationName} = getComputedStyle(element);
            return transitionDuration !== '0s' || animationName !== 'none';
        }).length;'''
        self.assertGreater(browser.run(moving), 0)
        browser.prefer(prefers_reduced_motion='reduce')
        self.assertEqual(browser.run(moving), 0)

    def narrowWindow_isNotScrolledSideways(self):
        self.allowed = REFUSED
        browser = self._eventful_page(width=360, height=740)
        for zoom in (1, 8):
            browser.run(ZOOM, zoom)
            for chip in browser.find_all('#command-orders label'):
                chip.click()
                wide = browser.run('''return [...document.querySelectorAll('body *')].filter((element) =>
                    element.checkVisibility() && !element.closest('#records-table, .screen, .wide, .unseen, nav') &&
                    element.getBoundingClientRect().right > document.documentElement.clientWidth + 0.5)
                    .map((element) => element.outerHTML.slice(0, 80));''')
                self.assertEqual(wide, [])
                self.assertLessEqual(*browser.run(
                    'return [document.documentElement.scrollWidth, document.documentElement.clientWidth]'))
        # Each side of a large LCD can be seen in its own box.
        self.assertGreater(*browser.run('''const box = document.querySelector('.screen');
            return [box.scrollWidth, box.clientWidth];'''))
        self.assertEqual(Accessibility.faults(browser), [])

    def tab_reachesEverythingAndShowsWhereItIs(self):
        self.allowed = REFUSED
        browser = self._eventful_page()
        wanted = browser.run('''return [...document.querySelectorAll(
            'button, a[href], select, input:not([type=radio]), summary, canvas[tabindex], [role=table]')]
            .filter((element) => element.checkVisibility()).length;''')
        reached = []
        for _ in range(3 * wanted):
            self._press(browser, Keys.TAB)
            focused = browser.run(FOCUSED)
            if focused['tag'] == 'body':
                continue  # from the last to the first
            self.assertTrue(focused['ring'] and focused['isSeen'], focused)
            reached.append((focused['tag'], focused['name'], focused['text']))
        self.assertGreaterEqual(len(set(reached)), wanted)

    def keyboardAlone_doesEverything(self):
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address)
        simulation.tell('draw 0 24 1', 'drawn')
        wait_until(lambda: browser.rows(0, 0) == simulation.rows(0, 0), 'the picture')
        self._go_to(browser, 'LCD 0 of panel 0; the arrow keys tell its pixels')
        self._press(browser, Keys.ARROW_DOWN, Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
        browser.wait_for_text('#pixel', 'pixel 2,1: #ffffff')
        self._press(browser, Keys.END)
        browser.wait_for_text('#pixel', 'pixel 143,1: #ffffff')
        self._press(browser, Keys.HOME, *[Keys.SHIFT + Keys.ARROW_DOWN] * 3, *[Keys.SHIFT + Keys.ARROW_RIGHT] * 2)
        browser.wait_for_text('#pixel', f'pixel 16,25: {browser.pixels(0, 0)[25][16]}, drawn at')
        self._go_to(browser, 'Unplug panel 1')
        self._press(browser, Keys.ENTER)
        simulation.hear('removed 102')
        browser.driver.refresh()
        browser.wait_for_text('section[data-panel="1"]', 'unplugged')
        self._press(browser, Keys.TAB, Keys.ENTER)  # skips to the commands
        self._press(browser, Keys.TAB)
        self._press(browser, *'plug 1', Keys.ENTER)
        simulation.hear('added 102')
        self._go_to(browser, 'zoom')
        self._press(browser, Keys.ARROW_RIGHT, Keys.ARROW_RIGHT)
        self.assertEqual(browser.text('#zoom-value'), '3:1')
        self._go_to(browser, 'Save LCD 0 of panel 0…')
        self._press(browser, Keys.ENTER)
        wait_until(lambda: browser.run("return document.getElementById('save').open"), 'the dialog')
        self._press(browser, Keys.ESCAPE)
        wait_until(lambda: not browser.run("return document.getElementById('save').open"), 'its end')
        self.assertEqual(browser.run(FOCUSED)['name'], 'Save LCD 0 of panel 0…')

    # With all that a page can show: pictures, records, a firmware upgrade, a violation, an
    # unplugged panel, an answer and an error.
    def _eventful_page(self, **window):
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address, **window)
        for line in ('draw 0 1 1', 'runs 1 1', 'draw 2 24 1'):
            simulation.tell(line, 'drawn')
        simulation.tell('send 41 34', 'sent')  # a request of an upgrade, but a wrong one
        simulation.command('emit 0 type=20 hex=0304 count=40')
        simulation.command('unplug 1')
        browser.find('#command').send_keys('plug 0' + Keys.ENTER)
        browser.wait_for_text('#command-error', 'plugged already')
        browser.click('#orders summary')
        browser.wait_for_text('#records-table', '03 04')
        wait_until(lambda: len(browser.find_all('.lcd')) == 6, 'the LCDs')
        browser.wait_for_text('.firmware', '1 refused')
        return browser

    def _ground(self, browser):
        return browser.run('return getComputedStyle(document.body).backgroundColor')

    def _press(self, browser, *keys):
        for key in keys:
            actions = ActionChains(browser.driver)
            if len(key) > 1:
                actions.key_down(key[0]).send_keys(key[1:]).key_up(key[0]).perform()
            else:
                actions.send_keys(key).perform()

    def _go_to(self, browser, name):
        for _ in range(200):
            self._press(browser, Keys.TAB)
            if browser.run(FOCUSED)['name'] == name:
                return
        self.fail(f'Tab does not reach {name}')
