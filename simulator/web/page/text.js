// How numbers, bytes and layers are written.

const grouped = new Intl.NumberFormat('en');
const short = new Intl.NumberFormat('en', {maximumSignificantDigits: 3, notation: 'compact'});

export const count = (number) => grouped.format(number);
export const rate = (number) => short.format(number);
export const seconds = (time, digits = 6) => time.toFixed(digits);
export const counted = (number, noun) => `${count(number)} ${noun}${number === 1 ? '' : 's'}`;

// "0304" becomes "03 04".
export const hexText = (digits) => digits.replace(/..(?=.)/g, '$& ');

// The same as characters, what can't be shown as a dot.
export function plainText(digits) {
    let text = '';
    for (let at = 0; at < digits.length; at += 2) {
        const code = parseInt(digits.slice(at, at + 2), 16);
        text += code >= 0x20 && code < 0x7f ? String.fromCharCode(code) : '·';
    }
    return text;
}

const bits = (layer) => `${layer.bitsPerPixel} bit${layer.bitsPerPixel === 1 ? '' : 's'}`;
const place = (layer) => `${layer.width}×${layer.height ?? layer.rows} at ${layer.x},${layer.y}`;

// What drew on an LCD, in two short lines.
export function layerLines(layer) {
    if (!layer)
        return ['not drawn on', ''];
    return [`${layer.encoding}, ${bits(layer)}`, `${place(layer)}, ${count(layer.bytes)} B`];
}

export function sliceText(slice) {
    return `drawn at ${seconds(slice.time)} s by a ${slice.encoding} slice of ${bits(slice)}, ` +
        `${place(slice)}, ${count(slice.bytes)} bytes`;
}
