// Packets and bytes a second, from sums that are told when they have changed.

const kept = 60;    // seconds
const pause = 1.2;  // seconds; longer without being told means that nothing came meanwhile
const usual = 0.5;  // seconds from one event to the next
const least = 0.2;  // seconds; in less, a few packets would make a peak

const ways = ['out', 'in'];
const nothing = {out: {packets: 0, bytes: 0}, in: {packets: 0, bytes: 0}};

function slope(before, after, seconds) {
    const rise = (way, of) => Math.max(0, after[way][of] - before[way][of]) / seconds;
    return Object.fromEntries(ways.map((way) => [way, {packets: rise(way, 'packets'), bytes: rise(way, 'bytes')}]));
}

export class Rates {
    #time = null;
    #sums = null;
    #points = []; // {time, out, in}: the rates up to that time

    static get none() {
        return nothing;
    }

    add(time, sums) {
        if (this.#time !== null && time < this.#time + least)
            return;
        if (this.#time !== null) {
            if (time - this.#time > pause) {
                this.#points.push({time: this.#time + usual / 10, ...nothing}, {time: time - usual, ...nothing});
                this.#time = time - usual;
            }
            this.#points.push({time, ...slope(this.#sums, sums, time - this.#time)});
        }
        this.#time = time;
        this.#sums = sums;
        while (this.#points.length > 0 && this.#points[0].time < time - kept)
            this.#points.shift();
    }

    // Not counted: what came while nobody listened.
    interrupt() {
        this.#time = null;
    }

    points(now) {
        const points = this.#points.filter(({time}) => time >= now - kept);
        if (this.#time !== null && now - this.#time > pause)
            points.push({time: this.#time + usual / 10, ...nothing}, {time: now, ...nothing});
        return points;
    }

    latest(now) {
        return this.points(now).at(-1) ?? nothing;
    }
}
