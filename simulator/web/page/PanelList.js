// All panels that there are or were.

import {byId} from './dom.js';
import {PanelView} from './PanelView.js';

// Milliseconds between two refreshes of what is said of the LCDs, and how long they go on
// after the last picture, which takes the marks away.
const refreshEvery = 250;
const refreshFor = 1000;

export class PanelList {
    #element = byId('panels');
    #panels = new Map();
    #lcdOf = new WeakMap(); // by the element that the observer knows
    #options;
    #timer = 0;
    #drawnAt = 0;

    #observer = new IntersectionObserver((entries) => {
        for (const {target, isIntersecting} of entries)
            this.#lcdOf.get(target).isInView = isIntersecting;
    }, {rootMargin: '100px'});

    constructor(options) {
        this.#options = {...options, observe: (view) => this.#observe(view)};
    }

    reset() {
        this.#observer.disconnect();
        this.#panels.clear();
        this.#element.replaceChildren();
        byId('no-panels').hidden = false;
    }

    // A panel, when something about it has changed.
    update(state) {
        this.panel(state.panel).update(state);
    }

    draw(picture) {
        this.panel(picture.panel).draw(picture);
        this.#drawnAt = performance.now();
        this.#timer ||= setInterval(() => this.#refresh(), refreshEvery);
    }

    panel(number) {
        let panel = this.#panels.get(number);
        if (panel)
            return panel;
        panel = new PanelView(number, this.#options);
        this.#panels.set(number, panel);
        byId('no-panels').hidden = true;
        const next = this.numbers.find((other) => other > number);
        this.#element.insertBefore(panel.element, next === undefined ? null : this.#panels.get(next).element);
        return panel;
    }

    get numbers() {
        return [...this.#panels.keys()].sort((one, other) => one - other);
    }

    get lcdCount() {
        return [...this.#panels.values()].reduce((sum, panel) => sum + panel.lcdCount, 0);
    }

    #refresh() {
        for (const panel of this.#panels.values())
            panel.refresh();
        if (performance.now() - this.#drawnAt > refreshFor) {
            clearInterval(this.#timer);
            this.#timer = 0;
        }
    }

    #observe(view) {
        this.#lcdOf.set(view.element, view);
        this.#observer.observe(view.element);
    }
}
