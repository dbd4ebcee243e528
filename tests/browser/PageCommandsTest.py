"""What is done by clicking and typing."""
from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from PageTest import PageTest, REFUSED
from Simulation import wait_until


class PageCommands(PageTest):

    def unplugAndPlug_areOneClickEach(self):
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address)
        simulation.tell('draw 0 1 1', 'drawn')
        picture = simulation.rows(1, 0)
        wait_until(lambda: browser.rows(1, 0) == picture, 'the picture')
        browser.click('button[aria-label="Unplug panel 1"]')
        simulation.hear('removed 102')
        browser.wait_for_text('section[data-panel="1"]', 'unplugged')
        self.assertNotIn('unplugged', browser.text('section[data-panel="0"]'))
        self.assertEqual(browser.rows(1, 0), picture)
        self.assertIn('order: unplug 1\n', simulation.log())
        browser.click('button[aria-label="Plug panel 1"]')
        simulation.hear('added 102')
        browser.wait_for_text('section[data-panel="1"] .plug', '● plugged')
        wait_until(lambda: set(''.join(browser.rows(1, 0))) == {'.'}, 'a white LCD')

    def everyCommandOfTheLanguage_isInTheForm(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        wait_until(lambda: len(browser.find_all('#command-orders input')) == 7, 'the commands')
        lines = {}
        for chip in browser.find_all('#command-orders label'):
            chip.click()
            lines[chip.text.strip()] = browser.text('#command-made')
        self.assertEqual(lines, {
            'plug': 'plug 0', 'unplug': 'unplug 0', 'fault': 'fault 0 out stall', 'fault boot': 'fault 0 boot reply=',
            'fault clear': 'fault 0 clear', 'emit': 'emit 0 type= hex=', 'emit raw': 'emit 0 raw hex='})

    def faultOfTheForm_meetsThePanel(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        self._choose(browser, '#command-orders', 'fault')
        self._choose(browser, '#command-places', 'in')
        self._choose(browser, '#command-places', 'status=ERRNO')
        self.assertIn('EPROTO, EILSEQ', browser.text('#command-places'))
        browser.find('#command-places .place:nth-of-type(2) input.code').send_keys('EPROTO')
        self._choose(browser, '#command-places', 'sticky')
        self.assertEqual(browser.text('#command-made'), 'fault 0 in status=EPROTO sticky')
        browser.click('#command-form button[type=submit]')
        browser.wait_for_text('#command-answer', 'fault 0 in status=EPROTO sticky')
        self.assertIn('order: fault 0 in status=EPROTO sticky\n', simulation.log())

    def emitOfTheForm_reachesTheProgram(self):
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address)
        self._choose(browser, '#command-orders', 'emit')
        Select(browser.find('#command-panel')).select_by_value('1')
        values = browser.find_all('#command-places input.code')
        values[0].send_keys('20')
        values[1].send_keys('0304')
        values[2].send_keys('3')
        self.assertEqual(browser.text('#command-made'), 'emit 1 type=20 hex=0304 count=3')
        browser.click('#command-form button[type=submit]')

        def emitted():
            rows = browser.run("""return [...document.querySelectorAll('#records-table .rows .in')]
                .filter((row) => !row.hidden).map((row) => [...row.children].map((cell) => cell.textContent));""")
            return [row[1:5] for row in rows if row[3] == '20']
        wait_until(lambda: len(emitted()) >= 3, 'the three records')
        self.assertEqual(emitted(), [['1', 'in', '20', '2']] * 3)

    def commandLine_hasAHistory(self):
        self.allowed = REFUSED
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address)
        line = browser.find('#command')
        for command in ('unplug 1', 'plug 1'):
            line.send_keys(command + Keys.ENTER)
            browser.wait_for_text('#command-answer', f'✓ {command}')
            wait_until(lambda: line.get_property('value') == '', 'an empty line')
        line.send_keys('plug 1' + Keys.ENTER)
        browser.wait_for_text('#command-error', 'panel 1: is plugged already')
        self.assertEqual(line.get_property('value'), 'plug 1')  # to be mended
        self.assertEqual(browser.text('#command-answer'), '')
        line.clear()
        line.send_keys('em')
        seen = []
        for key in (Keys.UP, Keys.UP, Keys.UP, Keys.DOWN, Keys.DOWN):
            line.send_keys(key)
            seen.append(line.get_property('value'))
        self.assertEqual(seen, ['plug 1', 'unplug 1', 'unplug 1', 'plug 1', 'em'])

    def historyOfAPage_outlivesAReload(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        browser.find('#command').send_keys('unplug 0' + Keys.ENTER)
        browser.wait_for_text('#command-answer', 'unplug 0')
        browser.driver.refresh()
        browser.wait_for_text('#connection', 'live')
        browser.find('#command').send_keys(Keys.UP)
        self.assertEqual(browser.find('#command').get_property('value'), 'unplug 0')

    def script_isThatOfTheSimulation(self):
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address)
        browser.cdp('Browser.grantPermissions', origin=simulation.root.rstrip('/'),
                    permissions=['clipboardReadWrite', 'clipboardSanitizedWrite'])
        simulation.command('unplug 1')  # another's are part of it
        browser.find('#command').send_keys('plug 1' + Keys.ENTER)
        browser.wait_for_text('#orders-count', '2')
        browser.click('#orders summary')
        browser.click('#script-copy')
        browser.wait_for_text('#command-answer', 'script copied')
        script = browser.driver.execute_async_script('navigator.clipboard.readText().then(arguments[0])')
        self.assertEqual(script, simulation.get('api/script').decode())
        self.assertEqual([line.split(maxsplit=1)[1] for line in script.splitlines()], ['unplug 1', 'plug 1'])
        self.assertIn('unplug 1', browser.text('#orders-list'))

    def pageWithoutItsToken_commandsNothing(self):
        self.allowed = REFUSED
        simulation = self.simulate()
        browser = self.browse(simulation.root + '#0123456789abcdef0123456789abcdef')
        browser.click('button[aria-label="Unplug panel 0"]')
        browser.wait_for_text('#command-error', 'Open the address that panelsim has printed')
        self.assertNotIn('order', simulation.log())
        browser.run('location.hash = arguments[0]', simulation.token)  # pasted over the other
        browser.click('button[aria-label="Unplug panel 0"]')
        browser.wait_for_text('#command-answer', 'unplug 0')

    def _choose(self, browser, within, name):
        def click():
            for label in browser.find_all(f'{within} label'):
                if label.text.strip() == name:
                    label.click()
                    return True
            return False
        wait_until(click, f'the choice {name}')
