// What a panel's boot loader has taken of an upgrade; hidden until there is something to tell.

import {make, say} from './dom.js';
import {count, counted} from './text.js';

class ImageRow {
    #name;
    #progress;
    #state = make('td');
    #size = make('td', {className: 'number'});
    #crc = make('td', {className: 'code'});

    constructor(panel, name) {
        this.#name = name;
        this.#progress = make('progress', {max: 1, value: 0, 'aria-label': `${name} image of panel ${panel}, written`});
        this.element = make('tr', {},
            make('th', {scope: 'row', textContent: name}), this.#state,
            make('td', {}, this.#progress), this.#size, this.#crc);
    }

    update({state, size, written, crc}) {
        this.#progress.max = size || 1;
        this.#progress.value = written;
        this.element.dataset.state = state;
        say(this.#state, state === 'mismatched' ? '⚠ mismatched' : state === 'verified' ? '✓ verified' : state);
        say(this.#size, size ? `${count(written)} of ${count(size)}` : '—');
        say(this.#crc, crc);
    }
}

export class FirmwareView {
    #rows;
    #counts = make('p', {className: 'hint'});

    constructor(panel) {
        this.#rows = {main: new ImageRow(panel, 'main'), servo: new ImageRow(panel, 'servo')};
        const head = ['Image', 'State', 'Written', 'Bytes', 'CRC-32']
            .map((textContent) => make('th', {scope: 'col', textContent}));
        this.element = make('div', {className: 'firmware', hidden: true},
            make('h4', {textContent: 'Firmware upgrade'}),
            make('div', {className: 'wide', tabIndex: 0, role: 'group',
                         'aria-label': `Firmware images of panel ${panel}`},
                make('table', {'aria-label': `Firmware images of panel ${panel}, a row each`},
                    make('thead', {}, make('tr', {}, ...head)),
                    make('tbody', {}, this.#rows.main.element, this.#rows.servo.element))),
            this.#counts);
    }

    update(firmware) {
        this.#rows.main.update(firmware.main);
        this.#rows.servo.update(firmware.servo);
        this.element.hidden = firmware.records === 0 && firmware.main.state === 'untouched' &&
            firmware.servo.state === 'untouched';
        say(this.#counts, `${counted(firmware.records, 'record')}: ` +
            `requests ${count(firmware.requestsAccepted)} accepted, ${count(firmware.requestsRefused)} refused; ` +
            `chunks ${count(firmware.chunksWritten)} written, ${count(firmware.chunksRefused)} refused; ` +
            `${count(firmware.recordsLost)} lost; ${counted(firmware.replies, 'answer')}`);
    }
}
