"""The recipes of docs/mqtt.md as they stand there, and the examples that they name, with a mosquitto and simulated
panels: what these have had, and show, is the judge."""
import json
import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path[:0] = [str(ROOT / 'demo/fleet'), str(ROOT / 'packaging/site')]
import Markdown
import Picture
from Fleet import Broker, Host, kill_group, wait_until

WIDTH, HEIGHT = 144, 168
PICTURE = ['#' * 40, '#' + '.' * 38 + '#', '#' + '#.' * 19 + '#', '#' * 40]

# What Node-RED 3.1 gives a node of each type, as far as the flow has an opinion.
NODE_PROPERTIES = {
    'tab': {'label', 'disabled', 'info'},
    'mqtt-broker': {'broker', 'port', 'clientid', 'usetls', 'protocolVersion', 'keepalive', 'cleansession'},
    'mqtt in': {'topic', 'qos', 'datatype', 'broker', 'nl', 'rap', 'rh', 'inputs', 'wires'},
    'mqtt out': {'topic', 'qos', 'retain', 'respTopic', 'userProps', 'correl', 'expiry', 'broker', 'wires'},
    'function': {'func', 'outputs', 'initialize', 'finalize', 'libs', 'wires'},
    'switch': {'property', 'propertyType', 'rules', 'checkall', 'outputs', 'wires'},
    'debug': {'active', 'tosidebar', 'console', 'complete', 'targetType', 'wires'},
}


def blocks(heading):
    """Those below a heading of the recipes."""
    text = (ROOT / 'docs/mqtt.md').read_text()
    part = text.split('\n## Recipes\n')[1].split(f'\n### {heading}\n')[1].split('\n### ')[0].split('\n## ')[0]
    return ['\n'.join(lines) for _, language, lines in Markdown.blocks(part) if language == 'sh']


def on_white(*placed):
    """A whole LCD with pictures at (x, y)."""
    rows = ['.' * WIDTH] * HEIGHT
    for x, y, picture in placed:
        for dy, row in enumerate(picture):
            rows[y + dy] = rows[y + dy][:x] + row + rows[y + dy][x + len(row):]
    return rows


class Recipes(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        programs = os.environ['MORVANE_PROGRAMS']
        self.broker = self.enterContext(Broker(self.folder))
        self.host = self._add_host('shop-17', 2)
        self.environment = {**os.environ, 'XDG_CONFIG_HOME': str(self.folder / 'config'),
                            'PATH': f'{programs}:{os.environ["PATH"]}', 'PYTHONDONTWRITEBYTECODE': '1'}
        (self.folder / 'config').mkdir()
        for program in ('mosquitto_pub', 'mosquitto_sub', 'mosquitto_rr'):
            (self.folder / 'config' / program).write_text(f'-p {self.broker.port}\n')
        (self.folder / 'picture.png').write_bytes(Picture.png(PICTURE))
        (self.folder / 'examples').symlink_to(ROOT / 'examples')

    def enterContext(self, context):
        self.addCleanup(context.__exit__, None, None, None)
        return context.__enter__()

    def _add_host(self, name, count):
        host = self.enterContext(Host(name, self.folder, self.broker.port, os.environ['MORVANE_PROGRAMS'], count))
        for panel in range(count):
            host.panels.state()
            self._await(lambda: '"online":true' in self._retained(f'panel/1/{name}/{host.place(panel)}/state'),
                        'a panel is there')
        return host

    @staticmethod
    def _await(condition, what):
        return wait_until(condition, what, 30)

    def _retained(self, topic):
        command = ['mosquitto_sub', '-V', '5', '-p', str(self.broker.port), '-W', '1', '-C', '1', '-t', topic]
        return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False).stdout

    def _suit(self, command):
        """With the port of this broker, and the Python that has what is needed."""
        return re.sub(r'^python3 (\S+) 1883 ', rf'/usr/bin/python3 \1 {self.broker.port} ', command, flags=re.MULTILINE)

    def _run(self, command):
        result = subprocess.run(['bash', '-e', '-o', 'pipefail', '-c', self._suit(command)], cwd=self.folder,
                                env=self.environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                stderr=subprocess.STDOUT, text=True, timeout=60, check=False)
        self.assertEqual(result.returncode, 0, f'{command}\n{result.stdout}')
        return result.stdout

    def _begin(self, command):
        """One that goes on until the test's end."""
        process = subprocess.Popen(['bash', '-c', self._suit(command)], cwd=self.folder, env=self.environment,
                                   stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, start_new_session=True)
        self.addCleanup(process.stdout.close)
        self.addCleanup(kill_group, process)
        return process

    def _expect(self, rows, panel=0):
        self.host.panels.expect(rows, panel, seconds=30)

    def _await_records(self, host, panel, record_type, count):
        return self._await(lambda: (had := host.received(panel, record_type)) and len(had) >= count and had,
                           f'panel {panel} has {count} records of type {record_type}')

    def _await_client(self, filter_):
        """Until somebody has subscribed: what is published before that is nobody's."""
        log = self.folder / 'mosquitto.log'
        self._await(lambda: filter_ in log.read_text(), f'somebody subscribes {filter_}')

    def draw_placesThePicture(self):
        placed, _ = blocks('Draw')
        self._run(placed)
        self._expect(on_white((8, 16, PICTURE)))

    def draw_showsWhatIsHeldWithTheNext(self):
        _, held = blocks('Draw')
        first, second = held.replace('\\\n', '').splitlines()
        self._run(first)
        # Behind it on the same way to the same panel, and answered.
        self._run('mosquitto_rr -V 5 -W 20 -t panel/1/shop-17/1-1/do/send/5 -e panel/1/shop-17/answer/t -m x')
        self.assertEqual(self.host.picture(0), [])
        self._run(second)
        self._expect(on_white((0, 0, PICTURE), (0, 40, PICTURE)))

    def text_isShownUntilTheWishIsDropped(self):
        wish, drop = blocks('A text as a picture')
        self._run(wish)
        plain = self._run("pbmtext 'Back at 12' | pnmtoplainpnm").split()
        width, height, bits = int(plain[1]), int(plain[2]), ''.join(plain[3:]).replace('1', '#').replace('0', '.')
        rows = [bits[y * width:(y + 1) * width] for y in range(height)]
        self.assertIn('#', bits)
        self._expect(on_white((0, 0, [row[:WIDTH] for row in rows])))
        self.host.panels.command('unplug 0')
        self.host.panels.command('plug 0')
        self._expect(on_white((0, 0, [row[:WIDTH] for row in rows])))
        self._run(drop)
        self.assertEqual(self._retained('panel/1/shop-17/1-1/want/lcd/0'), '')
        # Another wish is the mark that the panel has been given all there is.
        self._run('mosquitto_pub -V 5 -r -q 1 -t panel/1/shop-17/1-1/want/7/1 -m mark')
        self._await_records(self.host, 0, 7, 1)
        self.host.panels.command('unplug 0')
        self.host.panels.command('plug 0')
        self._await_records(self.host, 0, 7, 2)
        self.assertEqual(self.host.picture(0), [])

    def keyedRecord_theLatestCounts(self):
        block, = blocks('A keyed record')
        self._run(block)
        self._await(lambda: self.host.received(0, 7)[-1:] == [b'30'], 'the panel has the last one')

    def record_isAnswered(self):
        block, = blocks('A record, and what became of it')
        self.assertEqual(json.loads(self._run(block)), {'answer': 'taken', 'host': 'shop-17', 'place': '1-1'})
        self.assertEqual(self.host.received(0, 5), [b'hello'])

    def watch_tellsEachRecord(self):
        block, = blocks('Watch a panel')
        watch = self._begin(block)
        self._await_client('panel/1/shop-17/1-1/got/#')
        self.host.panels.command('emit 1 type=20 hex=ff')  # another panel's
        self.host.panels.command('emit 0 type=20 hex=000a02')
        self.assertEqual(watch.stdout.readline(), 'panel/1/shop-17/1-1/got/20 000a02\n')

    def all_arePaintedAndAnswer(self):
        block = blocks('All panels of all hosts')[0]
        other = self._add_host('shop-18', 1)
        said = self._run(f'{block}\nwait || [ $? -eq 27 ]')
        answers = sorted((answer['host'], answer['place'], answer['answer'])
                         for answer in map(json.loads, filter(lambda line: line.startswith('{'), said.splitlines())))
        self.assertEqual(answers, [('shop-17', '1-1', 'taken'), ('shop-17', '1-2', 'taken'),
                                   ('shop-18', '1-1', 'taken')])
        for panel in (0, 1):
            self._expect(on_white((0, 0, PICTURE)), panel)
            self.assertEqual(self.host.received(panel, 5), [b'hello'])
        other.panels.expect(on_white((0, 0, PICTURE)), seconds=30)

    def wish_isAnsweredEachTimeItIsApplied(self):
        listen, wish = blocks('All panels of all hosts')[1:]
        listener = self._begin(listen)
        self._await_client('panel/1/+/answer/sign')
        self._run(wish)
        answers = [json.loads(listener.stdout.readline()) for _ in range(2)]
        self.assertEqual(sorted((answer['place'], answer['answer']) for answer in answers),
                         [('1-1', 'taken'), ('1-2', 'taken')])
        for line in ('unplug 1', 'plug 1'):
            self.host.panels.command(line)
        self.assertEqual(json.loads(listener.stdout.readline()), {'answer': 'taken', 'host': 'shop-17', 'place': '1-2'})
        self._expect(on_white((0, 0, PICTURE)), 1)

    def clientOfMqtt311_isObeyed(self):
        block, = blocks('MQTT 3.1.1, and home automation')
        self._run(block)
        self._expect(on_white((0, 0, PICTURE)))
        listener = self._begin("mosquitto_sub -V 311 -t 'panel/1/shop-17/+/got/20' -F '%t %x' -C 1")
        self._await_client('panel/1/shop-17/+/got/20')
        self.host.panels.command('emit 1 type=20 hex=00ff')
        self.assertEqual(listener.stdout.readline(), 'panel/1/shop-17/1-2/got/20 00ff\n')
        self._run('mosquitto_pub -V 311 -q 1 -t panel/1/shop-17/1-1/do/send/5 -m old')
        self.assertEqual(self._await_records(self.host, 0, 5, 1), [b'old'])

    def forward_handsRecordsOn(self):
        block, = blocks("From one host's panels to another's")
        other = self._add_host('shop-18', 2)
        self._begin(block)
        self._await_client('panel/1/shop-17/+/got/20')
        self.host.panels.command('emit 1 type=20 hex=000aff')
        self.host.panels.command('emit 1 type=21 hex=01')  # not to be handed on
        for line in ('emit 1 type=20 hex=25733025', 'emit 1 type=20 hex=5c6e20'):  # what a shell might take for its own
            self.host.panels.command(line)
        for panel in (0, 1):
            self.assertEqual(self._await_records(other, panel, 20, 3), [b'\0\n\xff', b'%s0%', b'\\n '])
            self.assertEqual(other.received(panel, 21), [])

    def python_sendsDrawsAndReacts(self):
        block, = blocks('Python')
        send, draw, react = block.splitlines()
        self.assertEqual(self._run(send), 'taken\n')
        self.assertEqual(self.host.received(0, 5), [b'from Python'])
        self._run(draw)
        self._await(lambda: self.host.picture(0), 'the panel shows it')
        self._expect(self._drawn('Back at 12'))
        self._expect_reactions(react)

    def _drawn(self, text):
        """As Pillow itself reads the example's file."""
        code = ('import io, sys; sys.path.insert(0, "examples/mqtt"); import DrawText; from PIL import Image\n'
                f'image = Image.open(io.BytesIO(DrawText.draw({text!r}))).convert("L")\n'
                'for y in range(image.height):\n'
                '    print("".join("#" if image.getpixel((x, y)) < 128 else "." for x in range(image.width)))')
        rows = subprocess.run(['/usr/bin/python3', '-c', code], cwd=self.folder, env=self.environment,
                              stdout=subprocess.PIPE, text=True, check=True).stdout.splitlines()
        self.assertEqual((len(rows), len(rows[0])), (HEIGHT, WIDTH))
        self.assertTrue(any('###' in row for row in rows))
        return rows

    def _expect_reactions(self, react):
        listener = self._begin(react)
        for _ in range(2):  # a line for each type
            self.assertEqual(listener.stdout.readline(), 'listening\n')
        for count, line in enumerate(('emit 0 type=20 hex=03', 'emit 1 type=20 hex=03', 'emit 0 type=20 hex=03'), 1):
            self.host.panels.command(line)
            self._await(lambda: sum(len(self.host.received(panel, 7)) for panel in (0, 1)) == count,
                        'the lamp is switched')
        self.assertEqual(self.host.received(0, 7), [b'on', b'off'])
        self.assertEqual(self.host.received(1, 7), [b'on'])
        self.host.panels.command('emit 1 type=21 hex=0102')
        for panel in (0, 1):
            self.assertEqual(self._await_records(self.host, panel, 21, 1), [b'\1\2'])

    def nodeRed_flowIsWholeAndSpeaksTheContract(self):
        """Without Node-RED, which Debian lacks: its function's values are published by another client."""
        nodes = {node['id']: node for node in json.loads((ROOT / 'examples/mqtt/KeyToBar.json').read_text())}
        by_name = {node.get('name'): node for node in nodes.values()}
        brokers = [node['id'] for node in nodes.values() if node['type'] == 'mqtt-broker']
        tabs = [node['id'] for node in nodes.values() if node['type'] == 'tab']
        self.assertEqual([nodes[each]['protocolVersion'] for each in brokers], ['5'])
        for node in nodes.values():
            self.assertIn(node['type'], NODE_PROPERTIES)
            self.assertLessEqual(NODE_PROPERTIES[node['type']], node.keys())
            self.assertEqual([node.get('z')] if node['type'] not in ('tab', 'mqtt-broker') else tabs, tabs)
            self.assertEqual([node['broker']] if node['type'] in ('mqtt in', 'mqtt out') else brokers, brokers)
            for wire in sum(node.get('wires', []), []):
                self.assertIn(wire, nodes)
        code = by_name['as a bar']['func']
        topic, = re.findall(r'topic: `(.*?)`', code)
        answers, = re.findall(r"responseTopic: '(.*?)'", code)
        properties = dict(re.findall(r"(width|format): '(\w+)'", code), height=re.search(r'rows = (\d+)', code)[1])
        self.assertEqual((properties, answers), ({'width': '144', 'height': '8', 'format': 'bits'},
                                                 by_name['answers']['topic']))
        listener = self._begin(f"mosquitto_sub -V 5 -t '{by_name['what panels send']['topic']}' -F %t -C 1")
        self._await_client(by_name['what panels send']['topic'])
        self.host.panels.command('emit 0 type=20 hex=21')
        place = listener.stdout.readline().split('/')[3]
        (self.folder / 'bits').write_bytes((b'\xff\xff\xff\xff\x80' + bytes(13)) * 8)  # 33 of 144 pixels
        options = ' '.join(f'-D publish user-property {name} {value}' for name, value in properties.items())
        answered = self._begin(f'mosquitto_sub -V 5 -t {answers} -C 1')
        self._await_client(answers)
        self._run(f'mosquitto_pub -V 5 -q 1 -t {topic.replace("${place}", place)} -f bits {options} '
                  f'-D publish response-topic {answers} -D publish correlation-data 1')
        answer = answered.stdout.readline()
        self.assertEqual(json.loads(answer)['answer'], 'taken', answer)
        self._expect(on_white((0, 0, ['#' * 33] * 8)))


if __name__ == '__main__':
    unittest.main()
