// Counts, fill rates and verdicts at a glance.

import { get } from './api.js';
import { byId, gathered, make, redraw } from './dom.js';
import { badge } from './report_detail.js';
import { kKinds, kOutcomes, kVerdicts, number, percent, summaryOf, time } from './words.js';

const kBetweenLoads = 500;
const kLatest = 8;

export class OverviewView {
  constructor(context) {
    this.context = context;
    this.loadSoon = gathered(() => this.#load(), kBetweenLoads);
  }

  show() {
    this.shown = true;
    this.loadSoon();
  }

  hide() {
    this.shown = false;
  }

  arrived() {
    if (this.shown) this.loadSoon();
  }

  amended() {
    this.arrived();
  }

  async #load() {
    const [summary, latest] = await this.context.watch(
      Promise.all([get('/api/summary'), get(`/api/reports?order=desc&limit=${kLatest}`)]),
    );
    redraw(byId('view-overview'), () => {
      byId('tiles').replaceChildren(...tiles(summary));
      byId('fill').tBodies[0].replaceChildren(...fillRows(summary.fill));
      byId('verdicts').tBodies[0].replaceChildren(...verdictRows(summary.verdicts));
      byId('answers').replaceChildren(...shares(summary.byOutcome));
      byId('latest').replaceChildren(...latest.reports.map(latestLine));
    });
  }
}

// ---- Tiles ----

function tiles(summary) {
  const { suspect = 0, invalid = 0 } = summary.byVerdict;
  return [
    tile('Reports', summary.reports, '#reports'),
    tile('Installations', summary.installations, '#timeline'),
    tile('Sessions', summary.sessions, '#timeline'),
    tile('Duplicates', summary.duplicates, '#reports?verdict=duplicate', 'duplicate'),
    tile('Suspect', suspect, '#reports?verdict=suspect', 'suspect'),
    tile('Invalid', invalid, '#reports?verdict=invalid', 'invalid'),
  ];
}

// A count of something unwelcome stands out only when there is any.
function tile(name, count, href, mood = '') {
  return make(
    'div',
    { class: `tile ${count ? mood : ''}` },
    make('dt', {}, name),
    make('dd', {}, make('a', { href }, number(count))),
  );
}

// ---- Tables ----

function fillRows(fill) {
  if (!fill.length) return [emptyRow(5, 'No ad attempt has arrived.')];
  return [...fill]
    .sort((a, b) => b.attempts - a.attempts)
    .map((one) =>
      make(
        'tr',
        {},
        make('th', { scope: 'row', class: 'name' }, one.network),
        make('td', { class: 'name' }, one.adType),
        make('td', { class: 'number' }, number(one.attempts)),
        make('td', { class: 'number' }, number(one.filled)),
        make('td', {}, bar(one.filled, one.attempts)),
      ),
    );
}

const bar = (part, whole) =>
  make(
    'span',
    { class: 'rate' },
    make('span', { class: 'rail', vars: { share: `${whole ? (100 * part) / whole : 0}%` } }),
    make('span', { class: 'share' }, percent(part, whole)),
  );

function verdictRows(verdicts) {
  const kinds = Object.keys(kKinds).filter((kind) => Object.values(verdicts[kind]).some(Boolean));
  if (!kinds.length) return [emptyRow(5, 'No report has arrived.')];
  return kinds.map((kind) =>
    make(
      'tr',
      {},
      make('th', { scope: 'row' }, kKinds[kind]),
      ...Object.keys(kVerdicts).map((verdict) =>
        verdictCell(kind, verdict, verdicts[kind][verdict]),
      ),
    ),
  );
}

function verdictCell(kind, verdict, count) {
  if (!count) return make('td', { class: 'number none' }, '–');
  return make(
    'td',
    { class: `number ${verdict}` },
    make('a', { href: `#reports?${new URLSearchParams({ kind, verdict })}` }, number(count)),
  );
}

const emptyRow = (columns, text) =>
  make('tr', {}, make('td', { colSpan: columns, class: 'quiet' }, text));

// ---- Lists ----

function shares(byOutcome) {
  const outcomes = Object.keys(kOutcomes).filter((outcome) => byOutcome[outcome]);
  const all = outcomes.reduce((sum, outcome) => sum + byOutcome[outcome], 0);
  if (!all) return [make('li', { class: 'quiet' }, 'Nobody has asked.')];
  return outcomes.map((outcome) =>
    make(
      'li',
      {},
      make('span', {}, kOutcomes[outcome]),
      bar(byOutcome[outcome], all),
      make('span', { class: 'number' }, number(byOutcome[outcome])),
    ),
  );
}

function latestLine(row) {
  return make(
    'li',
    {},
    make('time', { class: 'when' }, time(row.arrived)),
    make('a', { href: `#reports/${row.id}` }, kKinds[row.kind] ?? row.kind),
    make('span', { class: 'what' }, summaryOf(row)),
    badge(row.verdict),
  );
}
