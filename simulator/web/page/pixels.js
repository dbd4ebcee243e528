// From the picture of a `screen` event to the pixels of an ImageData.

const littleEndian = new Uint8Array(new Uint32Array([1]).buffer)[0] === 1;

function word(red, green, blue) {
    return (littleEndian ? 0xff000000 | blue << 16 | green << 8 | red
                         : red << 24 | green << 16 | blue << 8 | 0xff) >>> 0;
}

function wordOf(colour) {
    const value = parseInt(colour.slice(1), 16);
    return word(value >> 16, value >> 8 & 0xff, value & 0xff);
}

function expandBits(text, zero, one, pixels) {
    const count = pixels.length;
    const whole = count >> 3;
    let at = 0;
    for (let index = 0; index < whole; ++index) {
        const byte = text.charCodeAt(index);
        pixels[at] = byte & 128 ? one : zero;
        pixels[at + 1] = byte & 64 ? one : zero;
        pixels[at + 2] = byte & 32 ? one : zero;
        pixels[at + 3] = byte & 16 ? one : zero;
        pixels[at + 4] = byte & 8 ? one : zero;
        pixels[at + 5] = byte & 4 ? one : zero;
        pixels[at + 6] = byte & 2 ? one : zero;
        pixels[at + 7] = byte & 1 ? one : zero;
        at += 8;
    }
    for (const byte = text.charCodeAt(whole); at < count; ++at)
        pixels[at] = byte & 128 >> (at & 7) ? one : zero;
}

function expandRgb(text, pixels) {
    for (let at = 0, from = 0; at < pixels.length; ++at, from += 3)
        pixels[at] = word(text.charCodeAt(from), text.charCodeAt(from + 1), text.charCodeAt(from + 2));
}

function expand(picture, pixels) {
    if (picture.rgb !== undefined) {
        expandRgb(atob(picture.rgb), pixels);
        return;
    }
    const [zero, one = zero] = picture.colours.map(wordOf);
    expandBits(atob(picture.bits), zero, one, pixels);
}

// `target` has the LCD's pixels, `width` of them in a row, a 32-bit word each.
export function drawPicture(picture, target, width) {
    const {x, y, columns, rows} = picture;
    if (columns === width) {
        expand(picture, target.subarray(y * width, (y + rows) * width));
        return;
    }
    const part = new Uint32Array(columns * rows);
    expand(picture, part);
    for (let row = 0; row < rows; ++row)
        target.set(part.subarray(row * columns, (row + 1) * columns), (y + row) * width + x);
}
