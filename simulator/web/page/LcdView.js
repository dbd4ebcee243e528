// One LCD: its pixels, what drew on it last, and the pixel that is pointed at.

import {make, say} from './dom.js';
import {beforeNextFrame} from './frames.js';
import {drawPicture} from './pixels.js';
import {layerLines} from './text.js';

const drawnFor = 600;   // milliseconds for which an LCD counts as drawn on just now
const maxPending = 16;  // pictures of an LCD out of view, until they are drawn all the same

const moves = {ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1]};

function covers(picture) {
    return picture.columns === picture.width && picture.rows === picture.height;
}

function joined(one, other) {
    const x = Math.min(one.x, other.x);
    const y = Math.min(one.y, other.y);
    return {
        x, y,
        columns: Math.max(one.x + one.columns, other.x + other.columns) - x,
        rows: Math.max(one.y + one.rows, other.y + other.rows) - y,
    };
}

export class LcdView {
    #panel;
    #lcd;
    #readout;
    #canvas;
    #context;
    #cursor = make('div', {className: 'cursor', hidden: true});
    #title = make('span');
    #lines = [make('div'), make('div')];
    #image = null;
    #words = null; // the same memory as that of #image, a pixel each
    #pending = [];
    #latest = null;
    #drawnAt = -Infinity;
    #isInView = false;
    #point = {x: 0, y: 0};

    #paintInView = () => {
        if (this.#isInView)
            this.#paint();
    };

    constructor(panel, lcd, readout, onSave) {
        this.#panel = panel;
        this.#lcd = lcd;
        this.#readout = readout;
        this.#canvas = make('canvas', {
            tabIndex: 0, role: 'application', 'aria-roledescription': 'LCD',
            'aria-label': `LCD ${lcd} of panel ${panel}; the arrow keys tell its pixels`,
        });
        this.#canvas.dataset.panel = panel;
        this.#canvas.dataset.lcd = lcd;
        this.#context = this.#canvas.getContext('2d', {alpha: false});
        const save = make('button', {type: 'button', textContent: 'Save',
                                     'aria-label': `Save LCD ${lcd} of panel ${panel}…`});
        save.addEventListener('click', () => onSave(this));
        this.element = make('figure', {className: 'lcd'},
            make('figcaption', {},
                make('div', {className: 'title'}, this.#title, save),
                make('div', {className: 'layer'}, ...this.#lines)),
            make('div', {className: 'screen'},
                make('div', {className: 'glass'}, this.#canvas, make('div', {className: 'cells'}), this.#cursor)));
        this.#listen();
    }

    get panel() {
        return this.#panel;
    }

    get lcd() {
        return this.#lcd;
    }

    get isDrawnOn() {
        return Boolean(this.#latest?.slices);
    }

    get canvas() {
        this.#paint();
        return this.#canvas;
    }

    set isInView(isInView) {
        this.#isInView = isInView;
        this.refresh();
        beforeNextFrame(this.#paintInView);
    }

    // What `state` tells of the LCD; its picture comes by itself.
    update(state) {
        this.#resize(state.width, state.height);
        this.#latest = state;
        this.#readout.change(this);
        this.refresh();
    }

    clear() {
        const {width, height} = this.#image;
        this.draw({width, height, x: 0, y: 0, columns: width, rows: height, colours: ['#ffffff'],
                   bits: '', slices: 0, layer: null});
        this.#drawnAt = -Infinity;
        this.refresh();
    }

    draw(picture) {
        this.#resize(picture.width, picture.height);
        if (this.#latest?.slices !== picture.slices)
            this.#drawnAt = performance.now();
        this.#latest = picture;
        this.#readout.change(this);
        if (covers(picture))
            this.#pending.length = 0;
        this.#pending.push(picture);
        if (this.#isInView)
            beforeNextFrame(this.#paintInView);
        else if (this.#pending.length > maxPending)
            this.#paint();
    }

    // The words are said anew a few times a second, not with each picture.
    refresh() {
        const isDrawn = performance.now() - this.#drawnAt < drawnFor;
        this.element.classList.toggle('drawn', isDrawn);
        if (!this.#latest || !this.#isInView && !isDrawn)
            return;
        const {width, height, layer} = this.#latest;
        say(this.#title, `LCD ${this.#lcd} ${width}×${height}`);
        layerLines(layer).forEach((line, index) => say(this.#lines[index], line));
    }

    colourAt(x, y) {
        this.#paint();
        const at = 4 * (y * this.#canvas.width + x);
        const rgb = this.#image.data.slice(at, at + 3);
        return '#' + [...rgb].map((part) => part.toString(16).padStart(2, '0')).join('');
    }

    leave() {
        this.#cursor.hidden = true;
        this.#readout.leave(this);
    }

    #resize(width, height) {
        if (this.#image?.width === width && this.#image.height === height)
            return;
        this.#canvas.width = width;
        this.#canvas.height = height;
        this.#image = new ImageData(width, height);
        this.#words = new Uint32Array(this.#image.data.buffer).fill(0xffffffff);
        this.#pending.length = 0;
        this.#context.putImageData(this.#image, 0, 0);
        this.element.style.setProperty('--columns', width);
        this.element.style.setProperty('--rows', height);
    }

    #paint() {
        if (this.#pending.length === 0)
            return;
        for (const picture of this.#pending)
            drawPicture(picture, this.#words, this.#canvas.width);
        const {x, y, columns, rows} = this.#pending.reduce(joined);
        this.#pending.length = 0;
        this.#context.putImageData(this.#image, 0, 0, x, y, columns, rows);
    }

    #listen() {
        const canvas = this.#canvas;
        canvas.addEventListener('pointermove', (event) => this.#tell(this.#pixelUnder(event)));
        canvas.addEventListener('pointerdown', (event) => this.#tell(this.#pixelUnder(event)));
        canvas.addEventListener('pointerleave', () => {
            if (document.activeElement !== canvas)
                this.leave();
        });
        canvas.addEventListener('blur', () => this.leave());
        canvas.addEventListener('focus', () => {
            if (canvas.matches(':focus-visible'))
                this.#tell(this.#point);
        });
        canvas.addEventListener('keydown', (event) => this.#move(event));
    }

    #pixelUnder({clientX, clientY}) {
        const {left, top, width, height} = this.#canvas.getBoundingClientRect();
        return {
            x: Math.floor((clientX - left) * this.#canvas.width / width),
            y: Math.floor((clientY - top) * this.#canvas.height / height),
        };
    }

    #move(event) {
        const step = event.shiftKey ? 8 : 1;
        const {x, y} = this.#point;
        if (event.key in moves && !event.ctrlKey && !event.altKey && !event.metaKey) {
            const [dx, dy] = moves[event.key];
            this.#tell({x: x + dx * step, y: y + dy * step});
        } else if (event.key === 'Home')
            this.#tell({x: 0, y});
        else if (event.key === 'End')
            this.#tell({x: this.#canvas.width - 1, y});
        else
            return;
        event.preventDefault();
        this.#cursor.scrollIntoView({block: 'nearest', inline: 'nearest'});
    }

    #tell({x, y}) {
        if (!this.#image)
            return;
        this.#point = {
            x: Math.min(Math.max(x, 0), this.#canvas.width - 1),
            y: Math.min(Math.max(y, 0), this.#canvas.height - 1),
        };
        this.#cursor.style.setProperty('--x', this.#point.x);
        this.#cursor.style.setProperty('--y', this.#point.y);
        this.#cursor.hidden = false;
        this.#readout.tell(this, this.#point.x, this.#point.y);
    }
}
