// How the page shows things: kept by the browser for the next time.

import {byId, say} from './dom.js';

const roomy = 1000; // CSS pixels of a window in which LCDs are shown larger

function recall(key) {
    try {
        return localStorage.getItem(`panelsim.${key}`);
    } catch {
        return null; // a browser may refuse to keep anything
    }
}

function keep(key, value) {
    try {
        localStorage.setItem(`panelsim.${key}`, value);
    } catch { /* as above */ }
}

export class Settings {
    #zoom = byId('zoom');
    #grid = byId('grid');
    #theme = byId('theme');
    #panelsOnly = byId('panels-only');
    #listeners = [];

    constructor() {
        this.#zoom.value = recall('zoom') ?? (innerWidth < roomy ? 1 : 2);
        this.#theme.value = recall('theme') ?? '';
        this.#grid.checked = recall('grid') === 'true';
        this.#panelsOnly.checked = recall('panelsOnly') === 'true';
        this.#zoom.addEventListener('input', () => this.#change());
        for (const control of [this.#grid, this.#theme, this.#panelsOnly])
            control.addEventListener('change', () => this.#change());
        this.#followResolution();
        this.#show();
    }

    get zoom() {
        return Number(this.#zoom.value);
    }

    // The width of an LCD's pixel on the page, in CSS pixels: a whole number of the screen's,
    // or some columns would be wider than others.
    get cell() {
        return Math.max(1, Math.round(this.zoom * devicePixelRatio)) / devicePixelRatio;
    }

    onChange(listener) {
        this.#listeners.push(listener);
    }

    #followResolution() {
        matchMedia(`(resolution: ${devicePixelRatio}dppx)`).addEventListener('change', () => {
            this.#followResolution();
            this.#show();
        }, {once: true});
    }

    #change() {
        keep('zoom', this.#zoom.value);
        keep('theme', this.#theme.value);
        keep('grid', this.#grid.checked);
        keep('panelsOnly', this.#panelsOnly.checked);
        this.#show();
    }

    #show() {
        const root = document.documentElement;
        root.dataset.theme = this.#theme.value;
        root.classList.toggle('grid', this.#grid.checked);
        root.classList.toggle('panels-only', this.#panelsOnly.checked);
        root.style.setProperty('--cell', `${this.cell}px`);
        say(byId('zoom-value'), `${this.zoom}:1`);
        this.#zoom.setAttribute('aria-valuetext', `${this.zoom} to 1`);
        for (const listener of this.#listeners)
            listener();
    }
}
