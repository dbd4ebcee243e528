"""Records, traffic, firmware upgrades and violations, as the page tells them."""
import json
import os

from selenium.webdriver.common.keys import Keys
from selenium.webdriver.support.ui import Select

from PageTest import PageTest
from Simulation import wait_until

ROWS = '''return [...document.querySelectorAll('#records-table .rows > [role=row]')].filter((row) => !row.hidden)
    .sort((one, other) => one.getAttribute('aria-rowindex') - other.getAttribute('aria-rowindex'))
    .map((row) => [...row.children].map((cell) => cell.textContent));'''


class PageRecords(PageTest):

    def record_isToldAsItArrives(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        simulation.command('emit type=20 hex=0304414243')
        browser.wait_for_text('#records-table', '03 04 41 42 43')
        simulation.tell('send 5 6', 'sent')
        browser.wait_for_text('#records-table', '70 61 67 65 70 61')
        rows = {row[5]: row[1:5] + row[6:] for row in browser.run(ROWS)}
        self.assertEqual(rows['··ABC'], ['0', 'in', '20', '5', '03 04 41 42 43'])
        self.assertEqual(rows['pagepa'], ['0', 'out', '5', '6', '70 61 67 65 70 61'])

    def filters_leaveWhatFits(self):
        simulation = self.simulate('--panels', '2')
        browser = self.browse(simulation.address)
        simulation.hear('added 102')
        simulation.command('emit 0 type=20 hex=0304')
        simulation.command('emit 1 type=21 hex=2030')
        simulation.command('emit 1 type=21 hex=050304')
        simulation.tell('send 5 4', 'sent')
        everything = 9  # these, and of each panel what the library asks of it and what it answers
        wait_until(lambda: self._shown(browser) == everything, 'the records')

        Select(browser.find('#filter-panel')).select_by_value('1')
        Select(browser.find('#filter-way')).select_by_value('in')
        self._expect_rows(browser, lambda row: row[1] == '1' and row[2] == 'in', 3)  # and what it is
        Select(browser.find('#filter-panel')).select_by_value('')
        Select(browser.find('#filter-way')).select_by_value('')
        Select(browser.find('#filter-type')).select_by_value('20')
        self._expect_rows(browser, lambda row: row[3] == '20', 1)
        self.assertIn('type=20', browser.find('#records-save').get_attribute('href'))
        Select(browser.find('#filter-type')).select_by_value('')
        text = browser.find('#filter-text')
        for wanted, number in (('03 04', 2), ('PAGE', 2), ('reqdevice', 2)):  # bytes, text, name of the type
            text.clear()
            text.send_keys(wanted)
            self._expect_rows(browser, lambda row: True, number)
        text.clear()
        text.send_keys(' ' + Keys.BACKSPACE)
        self._expect_rows(browser, lambda row: True, everything)

    def pause_holdsWhatIsShown(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        simulation.command('emit type=20 hex=01')
        wait_until(lambda: self._shown(browser, lambda row: row[3] == '20') == 1, 'the first')
        browser.click('#records-pause')
        simulation.command('emit type=20 hex=02 count=3')
        browser.wait_for_text('#records-count', 'paused, 3 more since')
        self.assertEqual(self._shown(browser, lambda row: row[3] == '20'), 1)
        self.assertEqual(browser.find('#records-pause').get_attribute('aria-pressed'), 'true')
        browser.click('#records-pause')
        wait_until(lambda: self._shown(browser, lambda row: row[3] == '20') == 4, 'all of them')

    def records_areCopiedAndSaved(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        browser.cdp('Browser.grantPermissions', origin=simulation.root.rstrip('/'),
                    permissions=['clipboardReadWrite', 'clipboardSanitizedWrite'])
        browser.cdp('Browser.setDownloadBehavior', behavior='allow', downloadPath=self.folder)
        simulation.command('emit type=20 hex=0304 count=2')
        browser.wait_for_text('#filter-type', '20')
        Select(browser.find('#filter-type')).select_by_value('20')
        wait_until(lambda: self._shown(browser) == 2, 'both')
        browser.click('#records-copy')
        browser.wait_for_text('#records-answer', '2 rows copied')
        copied = browser.driver.execute_async_script('navigator.clipboard.readText().then(arguments[0])')
        self.assertEqual([line.split('\t')[1:] for line in copied.splitlines()],
                         [['0', 'in', '20', '2', '··', '03 04']] * 2)
        browser.click('#records-save')
        path = os.path.join(self.folder, 'records.jsonl')
        wait_until(lambda: os.path.exists(path) and os.path.getsize(path) > 0, 'the file')
        with open(path, encoding='utf-8') as file:
            records = [json.loads(line) for line in file]
        self.assertEqual([(record['type'], record['bytes']) for record in records], [(20, '0304')] * 2)

    def floodOfRecords_leavesThePageQuick(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        simulation.command('emit type=20 size=8 count=100000 every=0')
        wait_until(lambda: simulation.state()['panels'][0]['traffic']['in']['packets'] >= 100000, 'all of them')
        simulation.command('emit type=21 hex=feed')
        browser.wait_for_text('#records-table', 'fe ed')
        self.assertRegex(browser.text('#records-count'), r'^[0-9,]+ shown, ⚠ [0-9]+,[0-9]{3} missed$')
        # The beginning is there, too: what is out of view is made when it is scrolled to.
        browser.run("document.querySelector('#records-table').scrollTop = 0")
        wait_until(lambda: browser.run(ROWS)[0][0] != '' and 'fe ed' not in str(browser.run(ROWS)), 'other rows')
        self.assertLess(len(browser.find_all('#records-table [role=row]')), 200)

    def traffic_isPlottedAndToldInWords(self):
        simulation = self.simulate()
        browser = self.browse(simulation.address)
        simulation.tell('animate 2 20', 'animated')
        wait_until(lambda: self._rates(browser) > 0, 'some packets a second')
        blank = browser.run('''const canvas = document.getElementById('plot-packets');
            return new Set(canvas.getContext('2d').getImageData(0, 0, canvas.width, canvas.height).data).size;''')
        self.assertGreater(blank, 4)
        self.assertRegex(browser.find('#plot-bytes').get_attribute('aria-label'),
                         r'^Bytes a second in the last minute: [0-9.]+[KM]? out and [0-9.]+[KM]? in just now')
        simulation.tell('rest', 'rested')
        wait_until(lambda: self._rates(browser) == 0, 'no packet any more')

    def upgrade_isShownWithBothImages(self):
        image = os.path.join(self.folder, 'main.bin')
        with open(image, 'wb') as file:
            file.write(bytes(range(250)) * 40)
        servo = os.path.join(self.folder, 'servo.bin')
        with open(servo, 'wb') as file:
            file.write(b'servo' * 200)
        tool = os.environ['MORVANE_PANELCTL']
        script = f'read -r line; exec "{tool}" flash --main "{image}" --servo "{servo}" --yes > /dev/null'
        simulation = self.simulate('--chunk-time', '500ms', '--at', '0', 'fault boot reply=f0 skip=2',
                                   client=['sh', '-c', f'{script}; read -r line'])
        browser = self.browse(simulation.address)
        self.assertEqual(browser.find_all('.firmware:not([hidden])'), [])
        simulation.tell('go')
        # In one look: it goes on.
        told = '''const bar = document.querySelector('.firmware progress');
            return bar && document.querySelector('.firmware').textContent.includes('4,096 of 10,000')
                && [bar.value, bar.max];'''
        self.assertEqual(wait_until(lambda: browser.run(told), 'a part of it'), [4096, 10000])
        browser.wait_for_text('.firmware', '1 refused')
        for part in ('10,000 of 10,000', '1,000 of 1,000', '✓ verified'):
            browser.wait_for_text('.firmware', part)
        wait_until(lambda: browser.text('.firmware').count('✓ verified') == 2, 'both images')

    def violation_isToldInWordsAndRed(self):
        tool = os.environ['MORVANE_RAW_CLIENT']
        # A packet that says it is longer than what comes.
        script = f'read -r line; "{tool}" 2000010000000000; read -r line'
        simulation = self.simulate(client=['sh', '-c', script])
        browser = self.browse(simulation.address)
        self.assertEqual(browser.text('#violations-count'), 'none')
        simulation.tell('go')
        browser.wait_for_text('#violations-count', '⚠ 1 violation')
        text = simulation.state()['violations'][0]['text']
        self.assertIn(f'⚠ violation, panel 0: {text}', browser.text('#violations-list'))
        red, green, blue = browser.run('''return getComputedStyle(document.getElementById('violations-list'))
            .color.match(/\\d+/g).map(Number);''')
        self.assertGreater(red, 1.5 * max(green, blue))

    def _shown(self, browser, wanted=lambda row: True):
        return len([row for row in browser.run(ROWS) if wanted(row)])

    def _expect_rows(self, browser, wanted, number):
        wait_until(lambda: self._shown(browser) == number and self._shown(browser, wanted) == number,
                   f'{number} rows, not {self._shown(browser)}')

    def _rates(self, browser):
        return float(browser.text('#plot-packets + figcaption [data-of=out]').rstrip('KM') or 0)
