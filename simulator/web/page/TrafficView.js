// Packets and bytes a second, of one panel or of all.

import {byId, offer} from './dom.js';
import {Plot} from './Plot.js';
import {Rates} from './Rates.js';

function sum(traffics) {
    const total = {out: {packets: 0, bytes: 0}, in: {packets: 0, bytes: 0}};
    for (const traffic of traffics)
        for (const way of ['out', 'in']) {
            total[way].packets += traffic[way].packets;
            total[way].bytes += traffic[way].bytes;
        }
    return total;
}

export class TrafficView {
    #clock;
    #chosen = byId('traffic-panel');
    #plots = [new Plot(byId('plot-packets'), 'packets', 'Packets'), new Plot(byId('plot-bytes'), 'bytes', 'Bytes')];
    #latest = new Map();
    #rates = new Map(); // by the panel's number; '' is all

    constructor(clock) {
        this.#clock = clock;
        this.#chosen.addEventListener('change', () => this.show());
    }

    reset() {
        this.#latest.clear();
        this.#rates.clear();
        this.show();
    }

    // What `state` tells; what came before it is no traffic of a moment.
    begin(time, panels) {
        for (const rates of this.#rates.values())
            rates.interrupt();
        this.add(time, panels.map(({panel, traffic}) => ({panel, ...traffic})));
    }

    add(time, traffics) {
        for (const traffic of traffics)
            this.#latest.set(String(traffic.panel), traffic);
        for (const {panel} of traffics)
            this.#of(String(panel)).add(time, this.#latest.get(String(panel)));
        this.#of('').add(time, sum(this.#latest.values()));
        offer(this.#chosen, [['', 'all panels'],
                             ...[...this.#latest.keys()].sort((a, b) => a - b).map((panel) => [panel, `panel ${panel}`])]);
    }

    latest(panel) {
        return this.#of(String(panel)).latest(this.#clock.now);
    }

    show() {
        const {now} = this.#clock;
        const rates = this.#of(this.#chosen.value);
        for (const plot of this.#plots)
            plot.draw(rates.points(now), rates.latest(now), now);
    }

    #of(panel) {
        if (!this.#rates.has(panel))
            this.#rates.set(panel, new Rates());
        return this.#rates.get(panel);
    }
}
