// Two curves of the last minute: out as a line, in as dashes. The caption says the latest.

import {say} from './dom.js';
import {rate} from './text.js';

const span = 60; // seconds
const ways = ['in', 'out'];

export class Plot {
    #canvas;
    #caption;
    #of;
    #noun;

    // `of` is what of a point is drawn: 'packets' or 'bytes'.
    constructor(canvas, of, noun) {
        this.#canvas = canvas;
        this.#caption = canvas.parentElement.querySelector('figcaption');
        this.#of = of;
        this.#noun = noun;
    }

    draw(points, latest, now) {
        const most = Math.max(1, ...points.flatMap((point) => ways.map((way) => point[way][this.#of])));
        for (const way of ways)
            say(this.#caption.querySelector(`[data-of=${way}]`), rate(latest[way][this.#of]));
        this.#canvas.setAttribute('aria-label',
            `${this.#noun} a second in the last minute: ${rate(latest.out[this.#of])} out and ` +
            `${rate(latest.in[this.#of])} in just now, ${rate(most)} at most`);
        const context = this.#begin(most);
        for (const way of ways)
            this.#drawCurve(context, points, way, most, now);
    }

    #begin(most) {
        const {clientWidth, clientHeight} = this.#canvas;
        this.#canvas.width = Math.round(clientWidth * devicePixelRatio);
        this.#canvas.height = Math.round(clientHeight * devicePixelRatio);
        const context = this.#canvas.getContext('2d');
        context.scale(devicePixelRatio, devicePixelRatio);
        const style = getComputedStyle(this.#canvas);
        context.strokeStyle = style.borderTopColor;
        context.strokeRect(0.5, 0.5, clientWidth - 1, clientHeight - 1);
        context.fillStyle = style.color;
        context.font = `11px ${style.fontFamily}`;
        context.fillText(rate(most), 4, 12);
        return context;
    }

    #drawCurve(context, points, way, most, now) {
        const {clientWidth, clientHeight} = this.#canvas;
        context.beginPath();
        for (const point of points) {
            const x = clientWidth * (1 - (now - point.time) / span);
            context.lineTo(x, clientHeight - 2 - (clientHeight - 18) * point[way][this.#of] / most);
        }
        context.strokeStyle = getComputedStyle(this.#caption.querySelector(`.${way}`)).color;
        context.lineWidth = 1.5;
        context.setLineDash(way === 'in' ? [4, 3] : []);
        context.stroke();
    }
}
