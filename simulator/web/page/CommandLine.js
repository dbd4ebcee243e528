// The command line, its history, and what panelsim answers to any command of this page.

import {byId, say} from './dom.js';

const kept = 200;
const key = 'panelsim.history';

export class CommandLine {
    #server;
    #input = byId('command');
    #history = CommandLine.#recall();
    #at = this.#history.length; // the one that stands in the line; behind the last: what is typed
    #typed = '';

    constructor(server) {
        this.#server = server;
        byId('command-line').addEventListener('submit', (event) => {
            event.preventDefault();
            this.#submit();
        });
        this.#input.addEventListener('keydown', (event) => this.#browse(event));
    }

    // Sends a command, from wherever on the page it comes, and says what came of it.
    async send(line) {
        this.#remember(line);
        say(byId('command-answer'), '');
        say(byId('command-error'), '');
        try {
            await this.#server.send(line);
            say(byId('command-answer'), `✓ ${line}`);
            return true;
        } catch (error) {
            say(byId('command-error'), `⚠ ${line}: ${error.message}`);
            return false;
        }
    }

    async #submit() {
        const line = this.#input.value.trim();
        if (line !== '' && await this.send(line) && this.#input.value.trim() === line)
            this.#input.value = '';
    }

    #remember(line) {
        if (this.#history.at(-1) !== line)
            this.#history.push(line);
        this.#history.splice(0, this.#history.length - kept);
        this.#at = this.#history.length;
        try {
            sessionStorage.setItem(key, JSON.stringify(this.#history));
        } catch { /* a browser may refuse to keep anything */ }
    }

    #browse(event) {
        const step = {ArrowUp: -1, ArrowDown: 1}[event.key];
        const to = this.#at + step;
        if (step === undefined || event.altKey || event.ctrlKey || event.metaKey)
            return;
        event.preventDefault();
        if (to < 0 || to > this.#history.length)
            return;
        if (this.#at === this.#history.length)
            this.#typed = this.#input.value;
        this.#at = to;
        this.#input.value = this.#history[to] ?? this.#typed;
        this.#input.setSelectionRange(this.#input.value.length, this.#input.value.length);
    }

    static #recall() {
        try {
            return JSON.parse(sessionStorage.getItem(key)) ?? [];
        } catch {
            return [];
        }
    }
}
