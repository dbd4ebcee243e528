// Making and finding elements.

export const byId = (id) => document.getElementById(id);

// make('p', {className: 'hint', textContent: 'so'}, child, …). Names with a dash are attributes.
export function make(name, properties = {}, ...children) {
    const element = document.createElement(name);
    for (const [key, value] of Object.entries(properties)) {
        if (key.includes('-') || key === 'role' || key === 'for')
            element.setAttribute(key, value);
        else
            element[key] = value;
    }
    element.append(...children);
    return element;
}

// Says what is new, and leaves alone what stays: each change of a text is laid out again.
export function say(element, text) {
    if (element.textContent !== text)
        element.textContent = text;
}

// Has a select offer these, [[value, text], …], and keeps what is chosen.
export function offer(select, choices) {
    const options = [...select.options];
    if (options.length === choices.length &&
        choices.every(([value, text], index) => options[index].value === value && options[index].text === text))
        return; // one who has it open would lose it
    const chosen = select.value;
    select.replaceChildren(...choices.map(([value, textContent]) => make('option', {value, textContent})));
    if (choices.some(([value]) => value === chosen))
        select.value = chosen;
}
