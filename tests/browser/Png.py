"""The pixels of a PNG file with 8 bits a channel, not interlaced."""
import struct
import zlib

CHANNELS = {0: 1, 2: 3, 6: 4}


def _paeth(left, up, corner):
    to_left, to_up, to_corner = abs(up - corner), abs(left - corner), abs(left + up - 2 * corner)
    if to_left <= to_up and to_left <= to_corner:
        return left
    return up if to_up <= to_corner else corner


def _unfilter(kind, line, before, step):
    for at, value in enumerate(line):
        left = line[at - step] if at >= step else 0
        corner = before[at - step] if at >= step else 0
        add = (0, left, before[at], (left + before[at]) // 2, _paeth(left, before[at], corner))[kind]
        line[at] = (value + add) & 255


def _chunks(data):
    at = 8
    while at < len(data):
        size, kind = struct.unpack('>I4s', data[at:at + 8])
        yield kind, data[at + 8:at + 8 + size]
        at += 12 + size


def decode(data):
    """A list of rows of '#rrggbb'."""
    assert data[:8] == b'\x89PNG\r\n\x1a\n', data[:8]
    chunks = list(_chunks(data))
    width, height, depth, colour = struct.unpack('>IIBB', chunks[0][1][:10])
    assert depth == 8, depth
    step = CHANNELS[colour]
    raw = zlib.decompress(b''.join(part for kind, part in chunks if kind == b'IDAT'))
    rows = []
    before = bytearray(width * step)
    for y in range(height):
        begin = y * (width * step + 1)
        line = bytearray(raw[begin + 1:begin + 1 + width * step])
        if raw[begin]:
            _unfilter(raw[begin], line, before, step)
        pixels = (line[at:at + step] for at in range(0, len(line), step))
        rows.append(['#' + (pixel[:1] * 3 if step == 1 else pixel[:3]).hex() for pixel in pixels])
        before = line
    return rows


def enlarge(rows, zoom):
    """Each pixel as so many by so many."""
    return [[pixel for pixel in row for _ in range(zoom)] for row in rows for _ in range(zoom)]
