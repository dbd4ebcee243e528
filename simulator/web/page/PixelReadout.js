// The line that tells a pixel: where it is, its colour, and the slice that drew it.

import {byId, say} from './dom.js';
import {sliceText} from './text.js';
import {Server} from './Server.js';

const patience = 150; // milliseconds that one stays at a pixel until panelsim is asked

export class PixelReadout {
    #server;
    #element = byId('pixel');
    #swatch = this.#element.querySelector('.swatch');
    #words = this.#element.querySelector('.words');
    #timer = 0;
    #at = null; // what is told: view, x, y, place

    constructor(server) {
        this.#server = server;
    }

    tell(view, x, y) {
        const place = `Panel ${view.panel}, LCD ${view.lcd}, pixel ${x},${y}`;
        if (place === this.#at?.place)
            return;
        this.#at = {view, x, y, place};
        this.#show(view.colourAt(x, y));
        clearTimeout(this.#timer);
        this.#askSoon();
    }

    // The view's LCD is another one than before, and so may be what is told of it.
    change(view) {
        if (view === this.#at?.view && this.#timer === 0)
            this.#askSoon();
    }

    // What is told stays, as it was.
    leave(view) {
        if (view === this.#at?.view)
            this.#at = null;
    }

    #askSoon() {
        this.#timer = setTimeout(() => {
            this.#timer = 0;
            this.#ask(this.#at);
        }, patience);
    }

    async #ask(at) {
        if (!at)
            return;
        const path = `${Server.lcdPath(at.view.panel, at.view.lcd)}/pixel?x=${at.x}&y=${at.y}`;
        const {colour, slice} = await this.#server.json(path).catch((error) => ({slice: error}));
        if (at !== this.#at)
            return;
        const none = at.view.isDrawnOn ? 'drawn by no slice that is still known' : 'not drawn on since the plug';
        const what = slice instanceof Error ? slice.message : slice ? sliceText(slice) : none;
        this.#show(colour ?? at.view.colourAt(at.x, at.y), what);
    }

    #show(colour, slice = '…') {
        this.#swatch.hidden = false;
        this.#swatch.style.backgroundColor = colour;
        say(this.#words, `${this.#at.place}: ${colour}, ${slice}`);
    }
}
