// A list of any length in which only the rows in view are elements.

import { make } from './dom.js';

const kRowsBeyondTheView = 6;

export class VirtualList {
  // `keyOf(index)` tells the rows apart when they move, `makeRow(index)` makes an element, and
  // `onView(last)` hears of the last row in view.
  constructor(frame, { keyOf, makeRow, onView }) {
    this.frame = frame;
    this.keyOf = keyOf;
    this.makeRow = makeRow;
    this.onView = onView;
    this.count = 0;
    this.shown = new Map();
    this.space = make('div', { class: 'space', role: 'presentation' });
    frame.append(this.space);
    frame.addEventListener('scroll', () => this.draw(), { passive: true });
    new ResizeObserver(() => this.#measure()).observe(frame);
  }

  resize(count) {
    this.count = count;
    this.space.style.height = `${count * this.rowHeight}px`;
    this.draw();
  }

  // Rows have come in above: what is looked at stays in place, unless it is the very top.
  shift(rows) {
    if (this.frame.scrollTop > 0) this.frame.scrollTop += rows * this.rowHeight;
  }

  // The row is made anew when it is in view.
  invalidate(key) {
    this.shown.get(key)?.remove();
    this.shown.delete(key);
  }

  invalidateAll() {
    for (const key of [...this.shown.keys()]) this.invalidate(key);
  }

  reveal(index) {
    const top = index * this.rowHeight;
    const bottom = top + this.rowHeight;
    if (top < this.frame.scrollTop) this.frame.scrollTop = top;
    const height = this.frame.clientHeight;
    if (bottom > this.frame.scrollTop + height) this.frame.scrollTop = bottom - height;
    this.draw();
  }

  get rowsInView() {
    return Math.max(1, Math.floor(this.frame.clientHeight / this.rowHeight));
  }

  draw() {
    const first = Math.max(
      0,
      Math.floor(this.frame.scrollTop / this.rowHeight) - kRowsBeyondTheView,
    );
    const inView = this.rowsInView + 2 * kRowsBeyondTheView + 1;
    const last = Math.min(this.count, first + inView) - 1;
    const wanted = new Set();
    for (let index = first; index <= last; ++index) wanted.add(this.#place(index));
    for (const key of [...this.shown.keys()]) {
      if (!wanted.has(key)) this.invalidate(key);
    }
    this.#order([...wanted]);
    this.onView(last);
  }

  get rowHeight() {
    return this.height ?? 36;
  }

  #measure() {
    const height = parseFloat(getComputedStyle(this.frame).getPropertyValue('--row'));
    if (height !== this.height) {
      this.height = height;
      this.invalidateAll();
    }
    this.resize(this.count);
  }

  #place(index) {
    const key = this.keyOf(index);
    let row = this.shown.get(key);
    if (!row) {
      row = this.makeRow(index);
      this.shown.set(key, row);
    }
    row.style.transform = `translateY(${index * this.rowHeight}px)`;
    row.setAttribute('aria-posinset', index + 1);
    row.setAttribute('aria-setsize', this.count);
    return key;
  }

  // Who has the elements read to him hears them in the order in which they are seen.
  #order(keys) {
    keys.forEach((key, place) => {
      const row = this.shown.get(key);
      const there = this.space.children[place];
      if (there !== row) this.space.insertBefore(row, there ?? null);
    });
  }
}
