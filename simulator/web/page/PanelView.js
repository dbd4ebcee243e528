// One panel: its link, its LCDs, its firmware. Unplugged, it stays with what it showed last.

import {make, say} from './dom.js';
import {count, rate} from './text.js';
import {FirmwareView} from './FirmwareView.js';
import {LcdView} from './LcdView.js';

const drop = (what) => `${rate(what.packets)} packets/s, ${rate(what.bytes)} B/s`;

export class PanelView {
    #number;
    #options;
    #isPlugged = false;
    #state = make('span', {className: 'plug'});
    #details = make('span', {className: 'hint'});
    #rates = make('span', {className: 'hint number'});
    #button = make('button', {type: 'button'});
    #firmware;
    #lcds = make('div', {className: 'lcds'});
    #noLcd = make('p', {className: 'hint', textContent: 'Nothing was drawn so far.'});
    #views = new Map();

    // `options`: readout, onSave(view), onOrder(line), onChoose(panel), observer of what is in view.
    constructor(number, options) {
        this.#number = number;
        this.#options = options;
        this.#firmware = new FirmwareView(number);
        const id = `panel-${number}`;
        const choose = make('button', {type: 'button', textContent: 'Command…',
                                       'aria-label': `Make a command for panel ${number}…`});
        choose.addEventListener('click', () => options.onChoose(number));
        this.#button.addEventListener('click', () => options.onOrder(`${this.#verb} ${number}`));
        this.element = make('section', {className: 'panel', 'aria-labelledby': id},
            make('div', {className: 'title'},
                make('h3', {id, textContent: `Panel ${number}`}), this.#state, this.#button, choose),
            make('p', {className: 'facts'}, this.#details, this.#rates),
            this.#lcds, this.#noLcd, this.#firmware.element);
        this.element.dataset.panel = number;
    }

    get #verb() {
        return this.#isPlugged ? 'unplug' : 'plug';
    }

    update(state) {
        this.#isPlugged = state.plugged;
        this.element.classList.toggle('unplugged', !state.plugged);
        say(this.#state, state.plugged ? '● plugged' : '○ unplugged, as it was');
        say(this.#button, state.plugged ? 'Unplug' : 'Plug');
        this.#button.setAttribute('aria-label', `${this.#button.textContent} panel ${this.#number}`);
        say(this.#details, `${state.id}, packets up to ${count(state.maxPacketSize)} B`);
        this.#firmware.update(state.firmware);
        for (const lcd of state.lcds)
            this.#view(lcd.lcd).update(lcd);
        const drawn = new Set(state.lcds.map(({lcd}) => lcd));
        for (const [lcd, view] of this.#views)
            if (state.plugged && !drawn.has(lcd))
                view.clear(); // lost its power, and is not drawn on since
        this.#noLcd.hidden = this.#views.size > 0;
    }

    draw(picture) {
        this.#view(picture.lcd).draw(picture);
    }

    updateFirmware(firmware) {
        this.#firmware.update(firmware);
    }

    updateRates({out, in: into}) {
        say(this.#rates, `out ${drop(out)}; in ${drop(into)}`);
    }

    refresh() {
        for (const view of this.#views.values())
            view.refresh();
    }

    get lcdCount() {
        return this.#views.size;
    }

    #view(lcd) {
        let view = this.#views.get(lcd);
        if (view)
            return view;
        view = new LcdView(this.#number, lcd, this.#options.readout, this.#options.onSave);
        this.#views.set(lcd, view);
        this.#noLcd.hidden = true;
        const next = [...this.#views.keys()].filter((other) => other > lcd).sort((one, other) => one - other)[0];
        this.#lcds.insertBefore(view.element, next === undefined ? null : this.#views.get(next).element);
        this.#options.observe(view);
        return view;
    }
}
