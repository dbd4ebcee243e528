// The stream of events. A hidden page has none; a lost one is tried again.

// Milliseconds until a lost one is tried again, and one whose simulation has ended.
const soon = 1000;
const later = 3000;

export class Stream {
    #handlers;
    #told; // takes 'live', 'asleep', 'lost', 'full', 'ended'
    #source = null;
    #isOpen = false;
    #retry = 0;
    #hasEnded = false;

    // `handlers` has an operation for each name of an event, which takes its data.
    constructor(handlers, told) {
        this.#handlers = handlers;
        this.#told = told;
        document.addEventListener('visibilitychange', () => this.#followVisibility());
        addEventListener('pagehide', () => this.#close());
        addEventListener('pageshow', () => this.#followVisibility());
        this.#followVisibility();
    }

    #followVisibility() {
        if (document.visibilityState === 'hidden') {
            this.#close();
            if (!this.#hasEnded)
                this.#told('asleep');
        } else if (!this.#source)
            this.#open();
    }

    #close() {
        clearTimeout(this.#retry);
        this.#source?.close();
        this.#source = null;
    }

    #open() {
        this.#close();
        const source = new EventSource('api/events');
        this.#source = source;
        this.#isOpen = false;
        source.onopen = () => {
            this.#isOpen = true;
            this.#hasEnded = false;
            this.#told('live');
        };
        source.onerror = () => this.#lose();
        for (const [name, handle] of Object.entries(this.#handlers))
            source.addEventListener(name, (event) => handle(JSON.parse(event.data)));
        source.addEventListener('end', () => {
            this.#hasEnded = true;
            this.#told('ended');
        });
    }

    // The browser would try again by itself, but not after each failure, nor as soon.
    #lose() {
        this.#close();
        if (!this.#hasEnded)
            this.#tellWhy();
        this.#retry = setTimeout(() => this.#followVisibility(), this.#hasEnded ? later : soon);
    }

    // An event source does not tell the status that it was answered with.
    async #tellWhy() {
        const isThere = !this.#isOpen && await fetch('api/commands').then(({ok}) => ok, () => false);
        if (!this.#source)
            this.#told(isThere ? 'full' : 'lost');
    }
}
