// The records that have come. Of thousands, the page has the rows that are in view alone.

import {byId, make, say} from './dom.js';
import {beforeNextFrame} from './frames.js';
import {RecordFilter} from './RecordFilter.js';
import {copyText} from './saving.js';
import {count, hexText, plainText, seconds} from './text.js';

const kept = 20000;
const slack = 5000;      // dropped together: one by one would move all the others each time
const columns = 7;
const paintEvery = 100;  // milliseconds; nobody reads faster, and each time all rows are laid out

// A record's cells, or what stands where records are missing.
function cellsOf(record, name) {
    if (record.gap)
        return ['', '', '', '', '', '', `${count(record.gap)} records came too fast`];
    return [seconds(record.time), `${record.panel}`, record.way, `${record.type} ${name}`.trim(),
            `${record.size}`, plainText(record.bytes), hexText(record.bytes)];
}

export class RecordTable {
    #table = byId('records-table');
    #body = this.#table.querySelector('.rows');
    #filter = new RecordFilter(() => this.#choose());
    #all = [];
    #shown = []; // those of #all that the filter lets through
    #test = () => true;
    #last = -1;  // the number of the latest
    #missed = 0;
    #isPaused = false;
    #since = 0;  // what has come in a pause
    #isAtEnd = true;
    #rows = [];
    #rowHeight = 0;
    #timer = 0;

    #paint = () => this.#show();

    constructor() {
        this.#table.addEventListener('scroll', () => this.#follow(), {passive: true});
        new ResizeObserver(() => beforeNextFrame(this.#paint)).observe(this.#table);
        byId('records-pause').addEventListener('click', () => this.#pause());
        byId('records-copy').addEventListener('click', () => this.#copy());
        byId('records-clear').addEventListener('click', () => this.#clear());
    }

    set names(names) {
        this.#filter.names = names;
        beforeNextFrame(this.#paint);
    }

    reset() {
        this.#last = -1;
        this.#clear();
    }

    // A stream that is opened anew begins with some that have been told before.
    add({records}) {
        const fresh = records.filter(({n}) => n > this.#last);
        if (fresh.length === 0)
            return;
        this.#filter.learn(fresh);
        const gap = fresh[0].n - this.#last - 1;
        if (gap > 0 && this.#last >= 0) {
            this.#missed += gap;
            fresh.unshift({gap});
        }
        this.#last = fresh.at(-1).n;
        this.#all.push(...fresh);
        if (this.#isPaused)
            this.#since += fresh.length;
        else
            this.#shown.push(...fresh.filter((record) => record.gap || this.#test(record)));
        this.#drop();
        this.#timer ||= setTimeout(() => {
            this.#timer = 0;
            beforeNextFrame(this.#paint);
        }, paintEvery);
    }

    #drop() {
        if (this.#all.length > kept + slack)
            this.#all.splice(0, this.#all.length - kept);
        if (this.#shown.length > kept + slack) {
            const dropped = this.#shown.length - kept;
            this.#shown.splice(0, dropped);
            if (!this.#isAtEnd)
                this.#table.scrollTop -= dropped * this.#rowHeight;
        }
    }

    #choose() {
        this.#test = this.#filter.test;
        this.#shown = this.#all.filter((record) => record.gap || this.#test(record));
        this.#since = 0;
        this.#isAtEnd = true;
        byId('records-save').href = `api/records${this.#filter.query}`;
        beforeNextFrame(this.#paint);
    }

    #pause() {
        this.#isPaused = !this.#isPaused;
        const button = byId('records-pause');
        button.setAttribute('aria-pressed', this.#isPaused);
        if (!this.#isPaused)
            this.#choose();
        beforeNextFrame(this.#paint);
    }

    #clear() {
        this.#all = [];
        this.#shown = [];
        this.#missed = 0;
        this.#since = 0;
        beforeNextFrame(this.#paint);
    }

    async #copy() {
        const lines = this.#shown.map((record) => cellsOf(record, this.#filter.name(record.type)).join('\t'));
        say(byId('records-answer'), await copyText(lines.join('\n') + '\n') ? `${count(lines.length)} rows copied`
                                                                             : 'The browser did not let me copy');
    }

    #follow() {
        const {scrollTop, clientHeight, scrollHeight} = this.#table;
        this.#isAtEnd = scrollTop + clientHeight >= scrollHeight - this.#rowHeight / 2;
        beforeNextFrame(this.#paint);
    }

    #show() {
        this.#rowHeight ||= this.#measureRow();
        const height = this.#shown.length * this.#rowHeight;
        this.#body.style.height = `${height}px`;
        this.#table.setAttribute('aria-rowcount', this.#shown.length + 1);
        if (this.#isAtEnd)
            this.#table.scrollTop = this.#table.scrollHeight;
        const first = Math.max(0, Math.floor(this.#table.scrollTop / this.#rowHeight) - 1);
        const room = Math.ceil(this.#table.clientHeight / this.#rowHeight) + 2;
        this.#fill(first, Math.min(room, this.#shown.length - first));
        this.#sayCount();
    }

    #sayCount() {
        const parts = [`${count(this.#shown.length)} shown`];
        if (this.#missed > 0)
            parts.push(`⚠ ${count(this.#missed)} missed`);
        if (this.#isPaused)
            parts.push(`paused, ${count(this.#since)} more since`);
        say(byId('records-count'), parts.join(', '));
    }

    #measureRow() {
        this.#fill(0, 1);
        return this.#rows[0].element.getBoundingClientRect().height || 18;
    }

    #fill(first, number) {
        while (this.#rows.length < number)
            this.#addRow();
        this.#rows.forEach(({element, cells}, index) => {
            element.hidden = index >= number;
            const record = this.#shown[first + index];
            if (!element.hidden && record)
                this.#fillRow(element, cells, record, first + index);
        });
    }

    #fillRow(element, cells, record, index) {
        element.style.transform = `translateY(${index * this.#rowHeight}px)`;
        element.setAttribute('aria-rowindex', index + 2);
        element.className = record.gap ? 'gap' : record.way;
        cellsOf(record, this.#filter.name(record.type)).forEach((text, column) => say(cells[column], text));
    }

    #addRow() {
        const cells = Array.from({length: columns}, () => make('span', {role: 'cell'}));
        const element = make('div', {role: 'row'}, ...cells);
        this.#rows.push({element, cells});
        this.#body.append(element);
    }
}
