// Puts the page together: what the stream tells goes to the views, what is clicked to panelsim.

import {byId, say} from './dom.js';
import {copyText, SaveDialog} from './saving.js';
import {count, counted, seconds} from './text.js';
import {Clock} from './Clock.js';
import {CommandForm} from './CommandForm.js';
import {CommandLine} from './CommandLine.js';
import {EventList} from './EventList.js';
import {PanelList} from './PanelList.js';
import {PixelReadout} from './PixelReadout.js';
import {RecordTable} from './RecordTable.js';
import {Server} from './Server.js';
import {Settings} from './Settings.js';
import {Stream} from './Stream.js';
import {TrafficView} from './TrafficView.js';

const tick = 500; // milliseconds between two pictures of what moves with time alone

const clock = new Clock();
const settings = new Settings();
const server = new Server();
const line = new CommandLine(server);
const form = new CommandForm(server, (command) => line.send(command));
const records = new RecordTable();
const traffic = new TrafficView(clock);
const dialog = new SaveDialog(settings);
const orders = new EventList(byId('orders-list'), (order) => order.line);
const violations = new EventList(byId('violations-list'), ({panel, text}) => `⚠ violation, panel ${panel}: ${text}`);
const panels = new PanelList({
    readout: new PixelReadout(server),
    onSave: (view) => dialog.open(view),
    onOrder: (command) => line.send(command),
    onChoose: (panel) => form.choosePanel(panel),
});

let simulation = null;
let version = '';
let ticking = 0;
const plugged = new Map();

const connections = {
    live: ['● live', ''],
    asleep: ['asleep', ''], // seen for a moment, when the page is shown again
    lost: ['⚠ lost', 'panelsim does not answer; trying again. What is shown is what came last.'],
    full: ['⚠ refused', 'panelsim says that too many pages listen already; trying again.'],
    ended: ['■ ended', 'The simulation has ended. Its pictures stay until another begins here.'],
};

function showConnection(state) {
    const [word, banner] = connections[state];
    byId('connection').dataset.state = state;
    say(byId('connection'), word);
    showBanner(banner);
    clearInterval(ticking);
    if (state === 'live')
        ticking = setInterval(showTime, tick);
    else
        clock.stop();
}

function showBanner(text) {
    byId('banner').hidden = text === '';
    say(byId('banner'), text);
}

function showTime() {
    traffic.show();
    for (const number of panels.numbers)
        panels.panel(number).updateRates(traffic.latest(number));
    showSummary();
}

function showSummary() {
    const there = [...plugged.values()].filter(Boolean).length;
    say(byId('summary'), `${version}, ${counted(plugged.size, 'panel')}, ${count(there)} plugged, ` +
        `${counted(panels.lcdCount, 'LCD')}, ${seconds(clock.now, 1)} s`);
}

function showPanel(state) {
    plugged.set(state.panel, state.plugged);
    panels.update(state);
    form.showPanels(panels.numbers);
    showSummary();
}

function addOrders(events) {
    orders.add(events);
    say(byId('orders-count'), count(orders.count));
}

function addViolations(events) {
    violations.add(events);
    byId('violations-list').hidden = violations.count === 0;
    byId('violations').classList.toggle('some', violations.count > 0);
    say(byId('violations-count'), violations.count === 0 ? 'none' : `⚠ ${counted(violations.count, 'violation')}`);
}

// Another simulation at the same address has nothing to do with what is shown.
function beginAnew(state) {
    for (const part of [panels, records, traffic, orders, violations])
        part.reset();
    plugged.clear();
    if (simulation !== null)
        showBanner('This is another simulation. To give it commands, open the address that it has printed.');
    simulation = state.simulation;
    form.load().catch((error) => say(byId('command-error'), `⚠ ${error.message}`));
}

function showState(state) {
    if (state.simulation !== simulation)
        beginAnew(state);
    version = state.version;
    clock.set(state.time);
    records.names = state.types;
    traffic.begin(state.time, state.panels);
    for (const panel of state.panels)
        showPanel(panel);
    addOrders(state.orders);
    addViolations(state.violations);
    showTime();
}

new Stream({
    state: showState,
    panel: showPanel,
    screen: (picture) => panels.draw(picture),
    records: (event) => records.add(event),
    traffic: ({time, panels: traffics}) => {
        clock.set(time);
        traffic.add(time, traffics);
    },
    firmware: ({panel, firmware}) => panels.panel(panel).updateFirmware(firmware),
    order: (order) => addOrders([order]),
    violation: (violation) => addViolations([violation]),
}, showConnection);

byId('script-copy').addEventListener('click', async () => {
    const script = await server.text('api/script').catch((error) => error);
    const isCopied = typeof script === 'string' && await copyText(script);
    say(byId('command-answer'), isCopied ? '✓ script copied' : '');
    say(byId('command-error'), isCopied ? '' : `⚠ not copied: ${script.message ?? 'the browser did not let me'}`);
});

// No links: what stands behind the # of the address is the token.
for (const button of document.querySelectorAll('[data-skip]'))
    button.addEventListener('click', () => {
        byId(button.dataset.skip).focus();
        byId(button.dataset.skip).scrollIntoView();
    });

// The address of the new simulation, pasted over the old one's.
addEventListener('hashchange', () => showBanner(''));
