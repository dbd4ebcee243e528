"""A page of another origin, which knows the port but not the token."""
import http.server
import json
import socket
import threading

from PageTest import PageTest
from Simulation import wait_until

HOSTILE = '''<!DOCTYPE html><title>hostile</title><link rel="icon" href="data:,"><body><script>
const root = ROOT;
const results = {};
const tell = (name, promise) => promise.then((value) => { results[name] = `GOT ${value}`; },
                                             () => { results[name] = 'nothing'; });
const read = (path, options) => fetch(root + path, options).then((answer) => answer.text());
const load = (name, path) => new Promise((resolve, reject) => {
    const element = document.createElement(name);
    element.onload = () => name === 'iframe' ? reject() : resolve(name);
    element.onerror = reject;
    element.src = root + path;
    document.body.append(element);
});
const post = {method: 'POST', body: 'unplug 0'};
const token = {'X-Panelsim-Token': '0'.repeat(32)};
const stream = new Promise((resolve, reject) => {
    const source = new EventSource(root + 'api/events');
    source.onopen = () => resolve('a stream');
    source.addEventListener('state', () => resolve('the state'));
    source.onerror = () => { source.close(); reject(); };
});
const target = document.createElement('iframe');
target.name = 'target';
const form = document.createElement('form');
Object.assign(form, {method: 'POST', action: root + 'api/command', enctype: 'text/plain', target: 'target'});
form.append(Object.assign(document.createElement('input'), {name: 'unplug 0', value: ''}));
document.body.append(target, form);
form.submit();
Promise.all([
    tell('state', read('api/state')),
    tell('page', read('')),
    tell('post', read('api/command', post)),
    tell('post with a token', read('api/command', {...post, headers: token})),
    tell('blind post', fetch(root + 'api/command', {...post, mode: 'no-cors'}).then((answer) => answer.text())
        .then((text) => text || Promise.reject())),
    tell('stream', stream),
    tell('picture', load('img', 'api/panels/0/lcds/0.png')),
    tell('script', load('script', 'main.js')),
    tell('frame', load('iframe', '')),
]).then(() => { window.results = results; });
</script></body>'''


class PageStrangers(PageTest):

    def pageOfAnotherOrigin_getsNowhere(self):
        self.allowed = ('',)  # the browser says of each that it was refused
        simulation = self.simulate()
        address = self._serve(HOSTILE.replace('ROOT', json.dumps(simulation.root)))
        browser = self.browse()
        for origin in (address, address.replace('127.0.0.1', 'localhost')):
            browser.driver.get(origin)
            results = wait_until(lambda: browser.run('return window.results ?? null'), 'what the page got')
            self.assertEqual(results, {name: 'nothing' for name in results})
            self.assertEqual(len(results), 9)
            for frame in browser.find_all('iframe'):
                browser.driver.switch_to.frame(frame)
                self.assertEqual(browser.find_all('#panels'), [])
                browser.driver.switch_to.default_content()
        self.assertNotIn('order', simulation.log())
        self.assertTrue(simulation.state()['panels'][0]['plugged'])

    def linkFromAnotherOrigin_showsThePage(self):
        simulation = self.simulate()
        address = self._serve(f'<!DOCTYPE html><title>a link</title><link rel="icon" href="data:,">'
                              f'<a href="{simulation.address}">the panels</a>')
        browser = self.browse()
        browser.driver.get(address)
        browser.click('a')
        browser.wait_for_text('#connection', 'live')

    def nameThatIsNotOurs_isRefused(self):
        simulation = self.simulate()
        for host in ('evil.example', f'evil.example:{simulation.port}', '127.0.0.1', ''):
            for path in ('/', '/api/state', '/main.js'):
                self.assertIn(b' 403 ', self._ask(simulation.port, path, host), (host, path))
        self.assertIn(b' 200 ', self._ask(simulation.port, '/', f'localhost:{simulation.port}'))

    def _ask(self, port, path, host):
        with socket.create_connection(('127.0.0.1', port), timeout=60) as connection:
            connection.sendall(f'GET {path} HTTP/1.1\r\nHost: {host}\r\nConnection: close\r\n\r\n'.encode())
            return connection.recv(4096).split(b'\r\n')[0]

    def _serve(self, page):
        class Handler(http.server.BaseHTTPRequestHandler):
            def do_GET(self):
                self.send_response(200)
                self.send_header('Content-Type', 'text/html; charset=utf-8')
                self.end_headers()
                self.wfile.write(page.encode())

            def log_message(self, *_):
                pass

        server = http.server.ThreadingHTTPServer(('127.0.0.1', 0), Handler)
        threading.Thread(target=server.serve_forever, daemon=True).start()
        self.addCleanup(server.server_close)
        self.addCleanup(server.shutdown)
        return f'http://127.0.0.1:{server.server_address[1]}/'
