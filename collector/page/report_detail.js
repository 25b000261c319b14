// One report in full.

import { clippedText, copyButton, make } from './dom.js';
import { answerOf, exactTime, kKinds, kVerdicts, number, time } from './words.js';

const kLongestText = 300;
const kMostLines = 300;
const kTimes = new Set(['startTime', 'stopTime']);

export const badge = (verdict) =>
  make(
    'span',
    { class: `badge ${kVerdicts[verdict] ? verdict : ''}` },
    kVerdicts[verdict] ?? verdict,
  );

export function reportDetail(row, heading = 'h2') {
  return [
    make(
      heading,
      { class: 'detail-title', tabIndex: -1 },
      make('span', {}, kKinds[row.kind] ?? row.kind),
      make('span', { class: 'quiet' }, ` #${row.id}`),
    ),
    make(
      'p',
      { class: 'facts' },
      badge(row.verdict),
      ` arrived ${time(row.arrived)}, answered: `,
      make('strong', {}, answerOf(row.answer)),
      ...faultOf(row.answer),
    ),
    findings(row.findings),
    references(row),
    ...body(row),
  ];
}

function faultOf(answer) {
  return answer.fault == null
    ? []
    : [' by ', make('a', { href: '#faults' }, `fault ${answer.fault}`)];
}

function findings(all) {
  if (!all.length) return null;
  return make(
    'ul',
    { class: 'lint' },
    ...all.map((finding) =>
      make(
        'li',
        { class: finding.severity },
        make('strong', {}, finding.code),
        ' ',
        clippedText(finding.text),
      ),
    ),
  );
}

// Where there is more of the same session and installation.
function references(row) {
  const links = [
    ['session', 'All of this session'],
    ['user', 'All of this installation'],
  ]
    .filter(([member]) => row[member])
    .map(([member, text]) =>
      make(
        'a',
        {
          href: `#reports?${new URLSearchParams({ [member]: row[member] })}`,
        },
        text,
      ),
    );
  return links.length ? make('p', { class: 'links' }, ...links) : null;
}

function body(row) {
  const text = row.body ? JSON.stringify(row.body, null, 2) : (row.raw ?? '');
  const code = make('pre', { class: 'code', tabIndex: 0, 'aria-label': 'The body' });
  code.append(...(row.body ? prettyLines(row.body) : [clippedText(text || '(empty)', 2000)]));
  return [
    make(
      'div',
      { class: 'title-row' },
      make('h3', {}, row.body ? 'Body' : 'Body, no JSON object'),
      copyButton(() => text),
    ),
    code,
  ];
}

// ---- JSON with its parts marked ----

function prettyLines(object) {
  const lines = new Printer(object).lines;
  if (lines.length <= kMostLines) return lines;
  const rest = make(
    'button',
    {
      type: 'button',
      class: 'more',
      on: { click: () => rest.replaceWith(...lines.slice(kMostLines)) },
    },
    `show all ${number(lines.length)} lines`,
  );
  return [...lines.slice(0, kMostLines), rest];
}

class Printer {
  constructor(object) {
    this.lines = [];
    this.#value(object, '', null, '');
  }

  #value(value, indent, key, comma) {
    if (value === null || typeof value !== 'object') {
      this.#line(indent, key, scalar(value), comma);
      return;
    }
    const [open, close] = Array.isArray(value) ? '[]' : '{}';
    const entries = Object.entries(value);
    if (!entries.length) {
      this.#line(indent, key, open + close, comma);
      return;
    }
    this.#line(indent, key, open, '');
    entries.forEach(([name, member], index) => {
      const last = index === entries.length - 1;
      this.#value(member, `${indent}  `, Array.isArray(value) ? null : name, last ? '' : ',');
    });
    this.#line(indent, null, close, comma);
  }

  #line(indent, key, value, comma) {
    const name =
      key === null
        ? []
        : [
            make('span', { class: 'key-name' }, clippedText(JSON.stringify(key), kLongestText)),
            ': ',
          ];
    this.lines.push(make('div', {}, indent, ...name, value, comma, ...dateOf(key, value)));
  }
}

function scalar(value) {
  const kind = value === null ? 'null' : typeof value;
  return make('span', { class: `value-${kind}` }, clippedText(JSON.stringify(value), kLongestText));
}

// The date beside a time.
function dateOf(key, value) {
  if (!kTimes.has(key)) return [];
  const seconds = Number(value.textContent);
  return Number.isFinite(seconds)
    ? [make('span', { class: 'remark' }, `  ${exactTime(seconds)}`)]
    : [];
}
