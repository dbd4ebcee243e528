// What is asked of panelsim, the stream aside.

const notThere = 'panelsim does not answer. Has it ended?';

export class Server {
    // The token stands behind the # of the address, also of one that is pasted over this one.
    get #token() {
        return location.hash.slice(1);
    }

    async #get(path) {
        const answer = await fetch(path, {cache: 'no-store'}).catch(() => { throw new Error(notThere); });
        if (!answer.ok)
            throw new Error((await answer.json().catch(() => ({}))).error ?? `${path}: ${answer.status}`);
        return answer;
    }

    async json(path) {
        return (await this.#get(path)).json();
    }

    async text(path) {
        return (await this.#get(path)).text();
    }

    // Throws an Error with the reason when the command can't be carried out.
    async send(line) {
        const answer = await fetch('api/command', {
            method: 'POST',
            headers: {'X-Panelsim-Token': this.#token, 'Content-Type': 'text/plain'},
            body: line,
        }).catch(() => { throw new Error(notThere); });
        if (answer.ok)
            return;
        const {error = `status ${answer.status}`} = await answer.json().catch(() => ({}));
        throw new Error(answer.status === 403
            ? `${error}. Open the address that panelsim has printed: it has the token that commands need.`
            : error);
    }

    static lcdPath(panel, lcd) {
        return `api/panels/${panel}/lcds/${lcd}`;
    }
}
