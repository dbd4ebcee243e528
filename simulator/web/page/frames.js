// Work that is done once before the next picture of the browser, however often it is asked for.

const tasks = new Set();
let isAsked = false;

function run() {
    isAsked = false;
    const due = [...tasks];
    tasks.clear();
    for (const task of due)
        task();
}

// `task` is known by its identity: give the same function again, not a new one.
export function beforeNextFrame(task) {
    tasks.add(task);
    if (isAsked)
        return;
    isAsked = true;
    requestAnimationFrame(run);
}
