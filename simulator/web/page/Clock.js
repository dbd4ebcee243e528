// The simulation's time, between two events that tell it.

export class Clock {
    #start = 0;
    #stoppedAt = null;

    set(time) {
        this.#start = performance.now() - time * 1000;
        this.#stoppedAt = null;
    }

    stop() {
        this.#stoppedAt = this.now;
    }

    get now() {
        return this.#stoppedAt ?? (performance.now() - this.#start) / 1000;
    }
}
