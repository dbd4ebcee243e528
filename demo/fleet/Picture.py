"""Pictures as text, as panelsim tells them ('#' is black, '.' white, a line a row), and as PNG files."""
import struct
import zlib

SHADES = {'#': 0, '.': 255}


def inverted(rows):
    return [row.translate(str.maketrans('#.', '.#')) for row in rows]


def png(rows, zoom=1):
    """The bytes of a grey PNG file. What is neither black nor white is grey."""
    def chunk(name, content):
        return struct.pack('>I', len(content)) + name + content + struct.pack('>I', zlib.crc32(name + content))

    lines = b''.join((b'\0' + bytes(SHADES.get(pixel, 128) for pixel in row for _ in range(zoom))) * zoom
                     for row in rows)
    header = struct.pack('>IIBBBBB', len(rows[0]) * zoom, len(rows) * zoom, 8, 0, 0, 0, 0)
    return b'\x89PNG\r\n\x1a\n' + chunk(b'IHDR', header) + chunk(b'IDAT', zlib.compress(lines)) + chunk(b'IEND', b'')


def sheet(rows_of_pictures, width, height, gap):
    """Pictures of one size side by side and below each other, grey where there is none."""
    sheet = []
    for pictures in rows_of_pictures:
        sheet += ['+'] * gap
        for y in range(height):
            sheet.append('+' * gap + ('+' * gap).join(
                picture[y] if len(picture) > y else '+' * width for picture in pictures))
    sheet += ['+'] * gap
    longest = max(len(row) for row in sheet) + gap
    return [row.ljust(longest, '+') for row in sheet]
