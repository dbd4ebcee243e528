// A form for each command, made from what /api/commands tells of the language.

import {byId, make, offer, say} from './dom.js';

const nameOf = (order) => order.second ? `${order.verb} ${order.second}` : order.verb;

function chip(name, value, text, onChoose) {
    const radio = make('input', {type: 'radio', name, value});
    radio.addEventListener('change', onChoose);
    return make('label', {}, radio, ` ${text}`);
}

const shape = ({name, argument}) => argument ? `${name}=${argument}` : name;

// One place of a line: a choice of words, and the value of one that takes a value.
class PlaceControl {
    #place;
    #word;
    #value;
    #valueLabel = make('span');
    #help;

    constructor(place, index, onChange) {
        this.#place = place;
        this.#help = make('p', {className: 'hint', id: `place-${index}-help`});
        this.#value = make('input', {className: 'code', spellcheck: false, 'aria-describedby': this.#help.id});
        this.#value.addEventListener('input', onChange);
        this.element = make('div', {className: 'place'},
            make('label', {}, this.#valueLabel, this.#value), this.#help);
        if (place.words.length > 1)
            this.element.prepend(this.#choice(`place-${index}`, onChange));
        this.#choose(place.words.length === 1 || place.required ? place.words[0] : null);
    }

    get word() {
        const value = this.#value.value.trim();
        if (!this.#word?.argument)
            return this.#word?.name ?? '';
        return value || this.#value.required ? `${this.#word.name}=${value}` : '';
    }

    #choice(name, onChange) {
        const {words, required} = this.#place;
        const choices = required ? words : [...words, null];
        const legend = choices.map((word) => word?.name ?? 'default').join(', ');
        const chips = choices.map((word) => chip(name, '', word ? shape(word) : 'default', () => {
            this.#choose(word);
            onChange();
        }));
        chips.at(required ? 0 : -1).querySelector('input').checked = true;
        return make('fieldset', {className: 'chips'},
            make('legend', {className: 'unseen', textContent: legend}), ...chips);
    }

    #choose(word) {
        const argument = word?.argument;
        this.#word = word;
        this.#value.parentElement.hidden = !argument;
        this.#value.required = Boolean(argument) && this.#place.required;
        this.#value.placeholder = argument ?? '';
        say(this.#valueLabel, argument ? `${word.name}=` : '');
        say(this.#help, word?.help ?? '');
    }
}

export class CommandForm {
    #server;
    #orders = byId('command-orders');
    #panel = byId('command-panel');
    #places = byId('command-places');
    #made = byId('command-made');
    #language = [];
    #order = null;
    #controls = [];

    // `onSend` takes the line.
    constructor(server, onSend) {
        this.#server = server;
        this.#panel.addEventListener('change', () => this.#show());
        byId('command-form').addEventListener('submit', (event) => {
            event.preventDefault();
            onSend(this.#line);
        });
        this.showPanels([]);
    }

    // Beside those that there are, one that could be plugged in.
    showPanels(numbers) {
        const next = (numbers.at(-1) ?? -1) + 1;
        offer(this.#panel, [...numbers.map((number) => [`${number}`, `${number}`]), [`${next}`, `${next} (none yet)`]]);
        this.#show();
    }

    // The language stays as it is until panelsim is another.
    async load() {
        const {orders} = await this.#server.json('api/commands');
        this.#language = orders;
        const legend = this.#orders.querySelector('legend');
        this.#orders.replaceChildren(legend, ...orders.map((order, index) =>
            chip('order', `${index}`, nameOf(order), () => this.#choose(order))));
        this.#choose(orders.find((order) => order.places.length > 0) ?? orders[0]);
    }

    choosePanel(number) {
        this.#panel.value = number;
        this.#show();
        byId('command-builder').open = true;
        this.#orders.querySelector('input:checked')?.focus();
    }

    get #line() {
        const {verb, second} = this.#order ?? {};
        return [verb, this.#panel.value, second, ...this.#controls.map(({word}) => word)].filter(Boolean).join(' ');
    }

    #choose(order) {
        this.#order = order;
        this.#orders.querySelectorAll('input')[this.#language.indexOf(order)].checked = true;
        this.#controls = order.places.map((place, index) => new PlaceControl(place, index, () => this.#show()));
        this.#places.replaceChildren(...this.#controls.map(({element}) => element));
        this.#show();
    }

    #show() {
        say(this.#made, this.#order ? this.#line : '');
        byId('command-form').querySelector('[type=submit]').disabled = !this.#order;
    }
}
