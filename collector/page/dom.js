// Elements and small helpers around them.

// Makes an element. Texts become text nodes, so what a game sends is never taken for markup.
// Properties that the element does not have become attributes; absent ones are left out.
export function make(tag, properties = {}, ...children) {
  const element = document.createElement(tag);
  for (const [name, value] of Object.entries(properties)) {
    if (value === undefined || value === null) continue;
    if (name === 'on') listen(element, value);
    else if (name === 'class') element.className = value;
    else if (name === 'vars') setVariables(element, value);
    else if (name in element && name !== 'list') element[name] = value;
    else element.setAttribute(name, value);
  }
  element.append(...children.filter((child) => child !== null && child !== undefined));
  return element;
}

function listen(element, listeners) {
  for (const [event, listener] of Object.entries(listeners)) {
    element.addEventListener(event, listener);
  }
}

// Variables for the style sheet.
function setVariables(element, variables) {
  for (const [name, value] of Object.entries(variables)) {
    element.style.setProperty(`--${name}`, value);
  }
}

export const byId = (id) => document.getElementById(id);

// Draws again what is in `root`. The link that had the focus may be replaced: the focus moves to the
// one in its place, or wherever one with the same target is now.
export function redraw(root, draw) {
  const had = document.activeElement;
  const place = [...root.querySelectorAll('a')].indexOf(had);
  draw();
  if (place < 0 || had.isConnected) return;
  const links = [...root.querySelectorAll('a')];
  const isSame = (link) => link?.href === had.href;
  (isSame(links[place]) ? links[place] : links.find(isSame))?.focus();
}

export function clip(text, longest) {
  return text.length > longest ? `${text.slice(0, longest)}…` : text;
}

// A text of any length: a long one shows its beginning and a button for the rest.
export function clippedText(text, longest = 300) {
  if (text.length <= longest) return document.createTextNode(text);
  const holder = make('span', {}, `${text.slice(0, longest)}… `);
  const all = make(
    'button',
    {
      type: 'button',
      class: 'more',
      on: { click: () => holder.replaceWith(document.createTextNode(text)) },
    },
    `show all ${text.length.toLocaleString()} characters`,
  );
  holder.append(all);
  return holder;
}

export function copyButton(textOf) {
  const button = make('button', { type: 'button' }, 'Copy');
  button.addEventListener('click', () => copy(textOf(), button));
  return button;
}

export async function copy(text, button) {
  const label = button.textContent;
  try {
    await navigator.clipboard.writeText(text);
    button.textContent = 'Copied';
  } catch {
    button.textContent = 'Not allowed';
  }
  setTimeout(() => (button.textContent = label), 1500);
}

const sleep = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

// A function that has `action` run, however often it is called: at once, then `pause` milliseconds
// after its last end at the soonest, and always once more after the last call.
export function gathered(action, pause) {
  let asked = false;
  let running = false;
  async function run() {
    running = true;
    try {
      while (asked) {
        asked = false;
        await action();
        await sleep(pause);
      }
    } finally {
      running = false;
    }
  }
  return () => {
    asked = true;
    if (!running) run();
  };
}
