// Which records are shown.

import {byId, offer} from './dom.js';
import {plainText} from './text.js';

export class RecordFilter {
    #panel = byId('filter-panel');
    #way = byId('filter-way');
    #type = byId('filter-type');
    #text = byId('filter-text');
    #names = {};
    #types = new Set();
    #panels = new Set();

    // `onChange` is called when other records are to be shown.
    constructor(onChange) {
        for (const control of [this.#panel, this.#way, this.#type])
            control.addEventListener('change', onChange);
        this.#text.addEventListener('input', onChange);
    }

    set names(names) {
        this.#names = names;
        this.#offerTypes();
    }

    name(type) {
        return this.#names[type] ?? '';
    }

    // Offers the panels and types that have come.
    learn(records) {
        const before = this.#types.size + this.#panels.size;
        for (const {type, panel} of records) {
            this.#types.add(type);
            this.#panels.add(panel);
        }
        if (before === this.#types.size + this.#panels.size)
            return;
        this.#offerTypes();
        offer(this.#panel, [['', 'all'], ...[...this.#panels].sort((a, b) => a - b).map((panel) => [`${panel}`, `${panel}`])]);
    }

    // A predicate for records.
    get test() {
        const [panel, way, type] = [this.#panel.value, this.#way.value, this.#type.value];
        const text = this.#text.value.trim().toLowerCase();
        const digits = /^[0-9a-f ]+$/.test(text) ? text.replaceAll(' ', '') : null;
        const names = Object.fromEntries(
            [...this.#types].map((each) => [each, this.name(each).toLowerCase().includes(text)]));
        return (record) => (panel === '' || record.panel === Number(panel)) &&
            (way === '' || record.way === way) &&
            (type === '' || record.type === Number(type)) &&
            (text === '' || names[record.type] || this.#hasDigits(record.bytes, digits) ||
             plainText(record.bytes).toLowerCase().includes(text));
    }

    // What /api/records understands of it.
    get query() {
        const chosen = {panel: this.#panel.value, type: this.#type.value, way: this.#way.value};
        const query = new URLSearchParams(Object.entries(chosen).filter(([, value]) => value !== ''));
        return query.size === 0 ? '' : `?${query}`;
    }

    #hasDigits(bytes, digits) {
        if (digits === null)
            return false;
        let at = bytes.indexOf(digits);
        while (at % 2 === 1) // from the middle of a byte
            at = bytes.indexOf(digits, at + 1);
        return at >= 0;
    }

    #offerTypes() {
        const types = [...this.#types].sort((one, other) => one - other);
        offer(this.#type, [['', 'all'], ...types.map((type) => [`${type}`, `${type} ${this.name(type)}`.trim()])]);
    }
}
