"""./run-demo --fleet, in a tree of its own that has nothing to install or to build."""
import os
import pathlib
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]


class FleetDemo(unittest.TestCase):
    def setUp(self):
        self._folder = tempfile.TemporaryDirectory()
        self.addCleanup(self._folder.cleanup)
        self.tree = pathlib.Path(self._folder.name)
        self.scratch = self.tree / 'scratch'
        for folder in ('scratch', 'scripts', 'build/release', 'stubs'):
            (self.tree / folder).mkdir(parents=True)
        shutil.copy(ROOT / 'run-demo', self.tree)
        (self.tree / 'demo').symlink_to(ROOT / 'demo')
        (self.tree / 'build/release/bin').symlink_to(os.environ['MORVANE_PROGRAMS'])
        for script in ('install-dependencies', 'build'):
            self._write_program(self.tree / 'scripts' / script, 'exit 0')
        self.environment = {**os.environ, 'TMPDIR': str(self.scratch),
                            'PATH': f'{self.tree / "stubs"}:{os.environ["PATH"]}'}

    @staticmethod
    def _write_program(path, line):
        path.write_text(f'#!/bin/sh\n{line}\n')
        path.chmod(0o755)

    def _begin(self, *options):
        return subprocess.Popen([self.tree / 'run-demo', *options], env=self.environment, stdin=subprocess.DEVNULL,
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    def _run(self, *options):
        process = self._begin(*options)
        output, errors = process.communicate(timeout=200)
        return process.returncode, output, errors

    def _expect_nothing_left(self):
        self.assertEqual(list(self.scratch.iterdir()), [])
        # Whatever it has started has inherited this.
        mark = f'TMPDIR={self.scratch}'.encode()
        end = time.monotonic() + 5
        while left := [each for each in pathlib.Path('/proc').glob('[0-9]*') if self._has(each, mark)]:
            self.assertLess(time.monotonic(), end, left)
            time.sleep(0.05)

    @staticmethod
    def _has(process, mark):
        try:
            return mark in (process / 'environ').read_bytes().split(b'\0') and (process / 'cmdline').read_bytes()
        except OSError:
            return False

    def withoutATerminal_allPanelsShowTheLastPicture(self):
        code, output, errors = self._run('--fleet')
        self.assertEqual((code, errors), (0, ''), output)
        self.assertRegex(output, '\n      8 shop-1\n      8 shop-2\n      8 shop-3\n')
        self.assertEqual(output.count('   24 of 24 panels show it, '), 2, output)
        self.assertIn('{"answer":"taken","host":"shop-2","place":"1-4"}\n', output)
        self.assertIn('\n   24 of 24 panels have verified the image in their flash memory.\n', output)
        self.assertIn('\n   0 of 8 panels show the picture.\n', output)
        self.assertRegex(output, r'\nAfter [0-9]+ s 24 of 24 panels show the picture that was wished last\.\n'
                                 r'What they show is in build/fleet; fleet\.png has all of them\.\n$')
        pictures = sorted(each.name for each in (self.tree / 'build/fleet').iterdir())
        panels = [f'shop-{host}-1-{port}.png' for host in (1, 2, 3) for port in range(1, 9)]
        self.assertEqual(pictures, ['fleet.png', *panels])
        contents = {(self.tree / 'build/fleet' / panel).read_bytes() for panel in panels}
        self.assertEqual(len(contents), 1)
        self._expect_nothing_left()

    def wishThatNobodyGets_isToldByTheExitCode(self):
        self._write_program(self.tree / 'stubs/mosquitto_pub', 'exit 0')
        code, output, errors = self._run('--fleet')
        self.assertEqual(code, 1)
        self.assertRegex(output, r'\n   0 of 24 panels show it, [0-9.]+ s later\.\n$')
        self.assertTrue(errors.startswith('run-demo: the others do not\nshop-1: '), errors)
        self._expect_nothing_left()

    def onePanelThatShowsSomethingElse_isToldByTheExitCode(self):
        # Before the last wish somebody has one for one panel alone, which goes before that.
        self._write_program(self.tree / 'stubs/mosquitto_pub', 'case "$*" in *invert*) '
                            '/usr/bin/mosquitto_pub $PANEL_BROKER -r -q 1 -t panel/1/shop-3/1-8/want/lcd/0 '
                            '-f "$FLEET/open.png";; esac; exec /usr/bin/mosquitto_pub "$@"')
        code, output, errors = self._run('--fleet')
        self.assertEqual(code, 1)
        self.assertRegex(output, r'\n   23 of 24 panels show it, [0-9.]+ s later\.\n$')
        self.assertIn('run-demo: the others do not\n', errors)
        self._expect_nothing_left()

    def interrupted_leavesNothing(self):
        for number in (signal.SIGINT, signal.SIGTERM):
            process = self._begin('--fleet')
            for line in process.stdout:
                if line.startswith('2. '):
                    break
            process.send_signal(number)
            process.communicate(timeout=60)
            self.assertEqual(process.returncode, 128 + number)
            self._expect_nothing_left()

    def missingProgram_isNamed(self):
        empty = self.tree / 'scratch'
        result = subprocess.run([sys.executable, ROOT / 'demo/fleet/ShowFleet', '/nowhere', self.tree / 'pictures'],
                                env={**self.environment, 'PATH': str(empty)}, capture_output=True, text=True,
                                check=False)
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr, 'run-demo: there is no mosquitto_pub; scripts/install-dependencies installs '
                                        'all that this needs\n')
        self._expect_nothing_left()

    def unknownOption_isRefused(self):
        for options in (('--flee',), ('--shell',)):
            code, output, errors = self._run(*options)
            self.assertEqual((code, output), (2, ''))
            self.assertIn('--fleet', errors)
