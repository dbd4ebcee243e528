"""What a forge makes of the documents: headings with their anchors, links, blocks of code."""
import re
from pathlib import Path

FENCE = re.compile(r'^ *```(\S*)$')
HEADING = re.compile(r'^(#+) (.*)$')
# Text that may itself have brackets in it, as an image in a link; and where it leads.
LINK = re.compile(r'(?<!\\)(!?)\[((?:[^\[\]]|\[[^\]]*\])*)\]\(([^()\s]+)\)')
CODE_SPAN = re.compile(r'(`+)(?:.*?[^`])??\1(?!`)')


def documents(root):
    """Those of a tree, by their names in it."""
    found = [*Path(root).glob('*.md'), *(Path(root) / 'docs').rglob('*.md')]
    return sorted(str(path.relative_to(root)) for path in found)


def is_remote(target):
    return re.match(r'[a-z]+:', target) is not None


class Slugs:
    """Anchors of headings as forges name them: the second of a name ends in -1."""

    def __init__(self):
        self.seen = {}

    def of(self, title):
        text = LINK.sub(r'\2', title)
        slug = re.sub(r'[^\w\- ]', '', text.lower()).strip().replace(' ', '-')
        count = self.seen.get(slug, 0)
        self.seen[slug] = count + 1
        return f'{slug}-{count}' if count else slug


def outside_code(pattern, change, line):
    """The line, with each match that is no code (its text may have some) given to `change`
    as it stands in the line."""
    blank = CODE_SPAN.sub(lambda span: '`' * len(span.group()), line)
    parts, end = [], 0
    for match in pattern.finditer(blank):
        parts += [line[end:match.start()], change(pattern.match(line, match.start(), match.end()))]
        end = match.end()
    return ''.join([*parts, line[end:]])


def lines(text):
    """(line, whether it is prose) for each line."""
    is_code = False
    for line in text.splitlines():
        is_fence = FENCE.match(line) is not None
        yield line, not (is_code or is_fence)
        is_code ^= is_fence


def blocks(text):
    """(line number, language, lines) for each block of code."""
    begin = None
    for number, line in enumerate(text.splitlines(), 1):
        fence = FENCE.match(line)
        if fence and begin is None:
            begin, language, inside = number, fence.group(1), []
        elif fence:
            yield begin, language, inside
            begin = None
        elif begin is not None:
            inside.append(line)


def anchors(text):
    slugs = Slugs()
    for line, is_prose in lines(text):
        if not is_prose:
            continue
        if heading := HEADING.match(line):
            yield slugs.of(heading.group(2))
        yield from re.findall(r'<a (?:id|name)="([^"]+)"', line)


def links(text):
    """(line number, target) for each link and image."""
    for number, (line, is_prose) in enumerate(lines(text), 1):
        if not is_prose:
            continue
        targets = []
        bare = CODE_SPAN.sub('``', line)
        targets += [link.group(3) for link in LINK.finditer(bare)]
        targets += re.findall(r'(?:href|src)="([^"]+)"', bare)
        yield from ((number, target) for target in targets)
