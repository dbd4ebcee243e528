// A list of what happened, each once: commands, violations. The page has the latest of them.

import {make, say} from './dom.js';
import {beforeNextFrame} from './frames.js';
import {seconds} from './text.js';

const kept = 200;

export class EventList {
    #list;
    #textOf;
    #waiting = [];
    #last = -1; // the number of the latest

    #paint = () => this.#show();

    constructor(list, textOf) {
        this.#list = list;
        this.#textOf = textOf;
    }

    get count() {
        return this.#last + 1;
    }

    reset() {
        this.#list.replaceChildren();
        this.#waiting = [];
        this.#last = -1;
    }

    add(events) {
        const fresh = events.filter(({n}) => n > this.#last);
        if (fresh.length === 0)
            return;
        this.#last = fresh.at(-1).n;
        this.#waiting = [...this.#waiting, ...fresh].slice(-kept);
        beforeNextFrame(this.#paint);
    }

    #show() {
        const isAtEnd = this.#list.scrollTop + this.#list.clientHeight >= this.#list.scrollHeight - 4;
        const items = this.#waiting.map((event) => {
            const item = make('li', {}, make('span', {className: 'time'}), ` ${this.#textOf(event)}`);
            say(item.firstChild, `${seconds(event.time)} s`);
            return item;
        });
        this.#waiting = [];
        this.#list.append(...items);
        while (this.#list.children.length > kept)
            this.#list.firstElementChild.remove();
        if (isAtEnd)
            this.#list.scrollTop = this.#list.scrollHeight;
    }
}
