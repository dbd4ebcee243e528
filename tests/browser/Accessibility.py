"""What a page owes to those who hear it, or have other eyes or hands than its author.

`faults(browser)` judges the tree that the browser makes for screen readers, and the styles
that it has computed."""

NAMED = {  # roles that say nothing without a name
    'application', 'button', 'checkbox', 'combobox', 'complementary', 'dialog', 'DisclosureTriangle', 'image',
    'img', 'link', 'listbox', 'main', 'menuitem', 'option', 'progressbar', 'radio', 'region', 'searchbox', 'slider',
    'spinbutton', 'switch', 'tab', 'table', 'textbox'}
PARENTS = {'cell': {'row'}, 'columnheader': {'row'}, 'row': {'rowgroup', 'table'}, 'rowgroup': {'table'},
           'listitem': {'list'}}

# Text against what lies behind it, frames of controls, sizes, ids and references.
STYLES = r'''
const faults = [];
const seen = (element) => element.checkVisibility({checkOpacity: true, checkVisibilityCSS: true});
const parse = (text) => {
    const parts = text.match(/[\d.]+/g).map(Number);
    return {rgb: parts.slice(0, 3), alpha: parts[3] ?? 1};
};
const over = (one, other) => ({
    rgb: one.rgb.map((part, index) => part * one.alpha + other.rgb[index] * (1 - one.alpha)),
    alpha: one.alpha + other.alpha * (1 - one.alpha),
});
const behind = (element) => {
    let colour = {rgb: [0, 0, 0], alpha: 0};
    for (let each = element; each && colour.alpha < 1; each = each.parentElement)
        colour = over(colour, parse(getComputedStyle(each).backgroundColor));
    return over(colour, {rgb: [255, 255, 255], alpha: 1});
};
const luminance = ({rgb}) => {
    const [red, green, blue] = rgb.map((part) => part / 255)
        .map((part) => part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4);
    return 0.2126 * red + 0.7152 * green + 0.0722 * blue;
};
const contrast = (one, other) => {
    const [dark, light] = [luminance(one), luminance(other)].sort((a, b) => a - b);
    return (light + 0.05) / (dark + 0.05);
};
const what = (element) =>
    `${element.localName}#${element.id}.${element.className} "${element.textContent.trim().slice(0, 30)}"`;
const judge = (element, colour, limit, kind, ground = behind(element)) => {
    const ratio = contrast(over(parse(colour), ground), ground);
    if (ratio < limit)
        faults.push(`${kind} ${ratio.toFixed(2)} < ${limit}: ${what(element)}`);
};
let texts = 0;
const walker = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
while (walker.nextNode()) {
    const element = walker.currentNode.parentElement;
    if (!walker.currentNode.data.trim() || element.closest('script, [disabled]') || !seen(element))
        continue;
    ++texts;
    const style = getComputedStyle(element);
    const size = parseFloat(style.fontSize);
    const isLarge = size >= 24 || size >= 18.66 && Number(style.fontWeight) >= 700;
    judge(element, style.color, isLarge ? 3 : 4.5, 'contrast of text');
}
if (texts < 30)
    faults.push(`${texts} texts were looked at`);
for (const element of document.querySelectorAll('button, a.button, select, input')) {
    if (!seen(element))
        continue;
    const style = getComputedStyle(element);
    const isDrawn = !['checkbox', 'radio', 'range'].includes(element.type);
    if (element.placeholder)
        judge(element, getComputedStyle(element, '::placeholder').color, 4.5, 'contrast of a placeholder');
    if (element.value && isDrawn)
        judge(element, style.color, 4.5, 'contrast of a value');
    if (isDrawn)
        judge(element, style.borderTopColor, 3, 'contrast of a frame', behind(element.parentElement));
    const {width, height} = (element.closest('label') ?? element).getBoundingClientRect();
    if (width < 24 || height < 24)
        faults.push(`small, ${width} x ${height}: ${what(element)}`);
}
const ids = [...document.querySelectorAll('[id]')].map(({id}) => id);
for (const id of ids)
    if (ids.indexOf(id) !== ids.lastIndexOf(id))
        faults.push(`two of id ${id}`);
for (const name of ['for', 'aria-labelledby', 'aria-describedby', 'aria-controls'])
    for (const element of document.querySelectorAll(`[${name}]`))
        for (const id of element.getAttribute(name).split(/\s+/))
            if (!document.getElementById(id))
                faults.push(`${name} of ${what(element)} leads nowhere: ${id}`);
for (const element of document.querySelectorAll('[tabindex]'))
    if (element.tabIndex > 0)
        faults.push(`out of order for Tab: ${what(element)}`);
for (const element of document.querySelectorAll('input, select, textarea'))
    if (element.labels.length === 0 && !element.ariaLabel)
        faults.push(`without a label: ${what(element)}`);
let level = 0;
for (const heading of document.querySelectorAll('h1, h2, h3, h4, h5, h6')) {
    if (!seen(heading))
        continue;
    const next = Number(heading.localName[1]);
    if (next > level + 1)
        faults.push(`level ${next} follows ${level}: ${what(heading)}`);
    level = next;
}
for (const [selector, number] of [['h1', 1], ['main', 1], ['body > header', 1], ['aside', 1]])
    if (document.querySelectorAll(selector).length !== number)
        faults.push(`not ${number} of ${selector}`);
if (!document.documentElement.lang || !document.title)
    faults.push('no language, or no title');
return faults;
'''


def _value(node, key):
    return node.get(key, {}).get('value', '')


def _tree_faults(nodes):
    by_id = {node['nodeId']: node for node in nodes}

    def parent_role(node):
        parent = by_id.get(node.get('parentId'))
        while parent and (parent.get('ignored') or _value(parent, 'role') in ('none', 'generic')):
            parent = by_id.get(parent.get('parentId'))
        return _value(parent, 'role') if parent else ''

    counts = {}
    for node in nodes:
        role = _value(node, 'role')
        if node.get('ignored'):
            continue
        counts[role] = counts.get(role, 0) + 1
        name = _value(node, 'name').strip()
        properties = {each['name']: each['value'].get('value') for each in node.get('properties', [])}
        if role in NAMED and not name:
            yield f'without a name: {role} {node.get("backendDOMNodeId")}'
        if properties.get('focusable') and role in ('generic', 'none', '', 'StaticText'):
            yield f'focusable without a role: {name}'
        if role in PARENTS and parent_role(node) not in PARENTS[role]:
            yield f'{role} "{name}" in {parent_role(node)}'
    for role in ('main', 'banner', 'complementary', 'heading', 'button', 'slider', 'table', 'status', 'application'):
        if not counts.get(role):
            yield f'no {role} in the tree'


def _repeated_names(nodes):
    names = [(_value(node, 'role'), _value(node, 'name')) for node in nodes
             if not node.get('ignored') and _value(node, 'role') in ('button', 'application', 'region', 'link')]
    return [f'two of the same name: {each}' for each in sorted(set(names)) if names.count(each) > 1]


def faults(browser):
    browser.cdp('Accessibility.enable')
    nodes = browser.cdp('Accessibility.getFullAXTree')['nodes']
    return [*_tree_faults(nodes), *_repeated_names(nodes), *browser.run(STYLES)]
