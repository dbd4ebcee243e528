// Files for the user's disk, and text for the clipboard.

import {byId, make} from './dom.js';
import {Server} from './Server.js';

// The clipboard itself is closed to pages that come over a network without TLS.
export async function copyText(text) {
    try {
        await navigator.clipboard.writeText(text);
        return true;
    } catch {
        const area = make('textarea', {value: text, className: 'aside'});
        document.body.append(area);
        const focused = document.activeElement;
        area.select();
        const isCopied = document.execCommand('copy');
        area.remove();
        focused?.focus();
        return isCopied;
    }
}

export function saveBlob(blob, name) {
    const href = URL.createObjectURL(blob);
    make('a', {href, download: name}).click();
    setTimeout(() => URL.revokeObjectURL(href), 60000);
}

function enlarged(canvas, zoom) {
    const large = make('canvas', {width: canvas.width * zoom, height: canvas.height * zoom});
    const context = large.getContext('2d', {alpha: false});
    context.imageSmoothingEnabled = false;
    context.drawImage(canvas, 0, 0, large.width, large.height);
    return large;
}

// Asks what of an LCD is to be saved. Pictures are those on the page, also when panelsim has
// ended meanwhile; the animation is panelsim's.
export class SaveDialog {
    #dialog = byId('save');
    #list = this.#dialog.querySelector('ul');
    #settings;

    constructor(settings) {
        this.#settings = settings;
    }

    open(view) {
        const {zoom} = this.#settings;
        const name = `panel${view.panel}-lcd${view.lcd}`;
        this.#dialog.querySelector('h2').textContent = `Save LCD ${view.lcd} of panel ${view.panel}`;
        this.#list.replaceChildren();
        for (const each of zoom === 1 ? [1] : [1, zoom])
            this.#add(`Picture as PNG, ${each}:1`, () => this.#savePicture(view, each, name));
        for (const each of zoom === 1 ? [1] : [1, zoom])
            this.#addLink(`Last 10 s as GIF, ${each}:1`, `${Server.lcdPath(view.panel, view.lcd)}.gif?zoom=${each}`,
                          `${name}.gif`);
        this.#dialog.showModal();
    }

    #savePicture(view, zoom, name) {
        enlarged(view.canvas, zoom).toBlob((blob) => saveBlob(blob, zoom === 1 ? `${name}.png` : `${name}-${zoom}x.png`));
    }

    #add(textContent, save) {
        const button = make('button', {type: 'button', textContent});
        button.addEventListener('click', () => {
            save();
            this.#dialog.close();
        });
        this.#list.append(make('li', {}, button));
    }

    #addLink(textContent, href, download) {
        const link = make('a', {className: 'button', textContent, href, download});
        link.addEventListener('click', () => this.#dialog.close());
        this.#list.append(make('li', {}, link));
    }
}
