// The list of reports, the newest first, and the chosen one in full.

import { get, query, remove } from './api.js';
import { byId, gathered, make } from './dom.js';
import { badge, reportDetail } from './report_detail.js';
import { VirtualList } from './virtual_list.js';
import { answerOf, kKinds, kVerdicts, number, shortId, summaryOf, time } from './words.js';

const kPage = 1000;
const kFirstPage = 200;
const kMostCatchUps = 5;
const kFilters = ['kind', 'verdict', 'text', 'session', 'user'];
const kChoices = { kind: kKinds, verdict: kVerdicts };

// What the list keeps of a report; the body is fetched when somebody looks at it.
const lineOf = (row) => ({
  id: row.id,
  arrived: row.arrived,
  kind: row.kind,
  user: row.user,
  verdict: row.verdict,
  answer: row.answer,
  summary: summaryOf(row),
});

// The filter that an address names; what is no choice is none.
function filterOf(parameters) {
  return Object.fromEntries(
    kFilters.map((name) => {
      const value = parameters.get(name) ?? '';
      return [name, kChoices[name] && !Object.hasOwn(kChoices[name], value) ? '' : value];
    }),
  );
}

export class ReportsView {
  constructor(context) {
    this.context = context;
    this.rows = [];
    this.total = 0;
    this.filter = {};
    this.active = 0;
    this.chosen = null;
    this.paused = false;
    this.missed = 0;
    this.generation = 0;
    this.frame = byId('list');
    this.form = byId('filters');
    this.list = new VirtualList(this.frame, {
      keyOf: (index) => this.rows[index]?.id ?? -1 - index,
      makeRow: (index) => this.#makeRow(index),
      onView: (last) => this.#loadUpTo(last),
    });
    this.catchUpSoon = gathered(() => this.#catchUp(), 200);
    this.#fillChoices();
    this.#listenToControls();
    this.#listenToList();
  }

  show(path, parameters) {
    const filter = filterOf(parameters);
    const changed = JSON.stringify(filter) !== JSON.stringify(this.filter);
    this.filter = filter;
    this.#showFilter();
    if (changed || !this.loaded) this.load();
    else this.catchUpSoon();
    this.#choose(path ? Number(path) : null);
  }

  hide() {}

  // ---- Loading ----

  async load() {
    const generation = ++this.generation;
    this.loaded = true;
    this.newest = null;
    const list = await this.#fetch({ limit: kFirstPage, order: 'desc' });
    if (generation !== this.generation) return;
    this.rows = list.reports.map(lineOf);
    this.total = list.total;
    this.more = list.more;
    this.newest = this.rows[0]?.id ?? 0;
    this.active = 0;
    this.missed = 0;
    this.list.invalidateAll();
    this.frame.scrollTop = 0;
    this.#resize();
    this.catchUpSoon();
  }

  #fetch(parameters) {
    return this.context.watch(get(`/api/reports${query({ ...this.filter, ...parameters })}`));
  }

  // The list has its full length from the start; its rows are fetched when they come into view.
  async #loadUpTo(last) {
    if (this.loading || !this.more || last < this.rows.length) return;
    this.loading = true;
    const generation = this.generation;
    try {
      const before = this.rows.at(-1)?.id;
      const list = await this.#fetch({ limit: kPage, order: 'desc', before });
      if (generation !== this.generation) return;
      this.rows.push(...list.reports.map(lineOf));
      this.more = list.more;
      if (!list.more) this.total = this.rows.length;
    } finally {
      this.loading = false;
    }
    this.#resize();
  }

  arrived() {
    if (this.paused) {
      ++this.missed;
      this.#note();
    } else {
      this.catchUpSoon();
    }
  }

  // While the list is being loaded there is no newest report; what follows its load catches up.
  async #catchUp() {
    if (this.paused) return;
    for (let more = true, round = 0; more && this.newest != null; ++round) {
      if (round === kMostCatchUps) return void this.load();
      more = await this.#fetchNewer();
    }
  }

  async #fetchNewer() {
    const generation = this.generation;
    const list = await this.#fetch({ after: this.newest, order: 'asc', limit: kPage });
    if (generation !== this.generation) return false;
    this.#takeNewer(list.reports.map(lineOf).reverse());
    return list.more;
  }

  #takeNewer(rows) {
    if (!rows.length) return;
    this.rows = rows.concat(this.rows);
    this.total += rows.length;
    this.newest = rows[0].id;
    this.active = this.frame.scrollTop > 0 || this.chosen ? this.active + rows.length : 0;
    this.#resize();
    this.list.shift(rows.length);
  }

  amended(row) {
    const index = this.rows.findIndex((line) => line.id === row.id);
    if (index >= 0) {
      this.rows[index] = lineOf(row);
      this.list.invalidate(row.id);
      this.list.draw();
    }
    if (this.chosen === row.id) this.#showDetail(row);
  }

  #resize() {
    this.list.resize(Math.max(this.total, this.rows.length));
    this.#markActive();
    this.#note();
  }

  #note() {
    const filtered = kFilters.some((name) => this.filter[name]);
    const what = filtered ? 'that match' : 'in all';
    const missed = this.missed ? `; paused, ${number(this.missed)} arrived since` : '; paused';
    byId('list-note').textContent =
      `${number(this.total)} reports ${what}${this.paused ? missed : ''}`;
  }

  // ---- Rows ----

  #makeRow(index) {
    const line = this.rows[index];
    if (!line) return make('div', { class: 'row missing', role: 'option' }, '…');
    return make(
      'div',
      {
        class: `row${line.id === this.chosen ? ' chosen' : ''}`,
        id: `report-${line.id}`,
        role: 'option',
        'aria-selected': String(line.id === this.chosen),
        on: { click: () => this.#open(this.rows.indexOf(line)) },
      },
      make('time', { class: 'when' }, time(line.arrived)),
      make('span', { class: `kind ${line.kind}` }, kKinds[line.kind] ?? line.kind),
      make('span', { class: 'what' }, line.summary),
      make('span', { class: 'who' }, shortId(line.user)),
      badge(line.verdict),
      make('span', { class: `answer ${line.answer.outcome}` }, answerOf(line.answer)),
    );
  }

  #markActive() {
    this.frame.querySelector('.row.active')?.classList.remove('active');
    const line = this.rows[this.active];
    const row = line && byId(`report-${line.id}`);
    if (row) row.classList.add('active');
    if (row) this.frame.setAttribute('aria-activedescendant', row.id);
    else this.frame.removeAttribute('aria-activedescendant');
  }

  #listenToList() {
    this.frame.addEventListener('keydown', (event) => this.#key(event));
    this.frame.addEventListener('scroll', () => this.#markActive(), { passive: true });
    byId('detail').addEventListener('keydown', (event) => {
      if (event.key === 'Escape') this.#close();
    });
  }

  #key(event) {
    const page = this.list.rowsInView;
    const steps = {
      ArrowDown: 1,
      ArrowUp: -1,
      PageDown: page,
      PageUp: -page,
      Home: -Infinity,
      End: Infinity,
    };
    if (event.key in steps) this.#move(steps[event.key]);
    else if (event.key === 'Enter' || event.key === ' ') this.#open(this.active, true);
    else if (event.key === 'Escape' && this.chosen) this.#close();
    else return;
    event.preventDefault();
  }

  // With a report open, the next one opens as the list is walked.
  #move(step) {
    this.active = Math.max(0, Math.min(this.list.count - 1, this.active + step));
    this.list.reveal(this.active);
    this.#markActive();
    if (this.chosen !== null) this.#open(this.active);
  }

  #open(index, takeFocus = false) {
    const line = this.rows[index];
    if (!line) return;
    this.active = index;
    this.takeFocus = takeFocus || matchMedia('(max-width: 900px)').matches;
    this.context.go(`reports/${line.id}`, this.filter, this.chosen !== null);
  }

  #close() {
    this.context.go('reports', this.filter);
    this.frame.focus();
  }

  // ---- The chosen report ----

  async #choose(id) {
    if (id === this.chosen) return;
    const before = this.chosen;
    this.chosen = id;
    for (const changed of [before, id]) this.list.invalidate(changed);
    byId('split').classList.toggle('open', id !== null);
    byId('detail').hidden = id === null;
    this.list.draw();
    this.#markActive();
    if (id === null) return;
    const row = await this.context.watch(
      get(`/api/reports/${id}`),
      'The report is no longer kept.',
    );
    if (this.chosen === id) this.#showDetail(row);
  }

  #showDetail(row) {
    const close = make(
      'button',
      {
        type: 'button',
        class: 'close',
        on: { click: () => this.#close() },
      },
      'Close',
    );
    byId('detail').replaceChildren(close, ...reportDetail(row).filter(Boolean));
    if (this.takeFocus) byId('detail').querySelector('.detail-title').focus();
    this.takeFocus = false;
  }

  // ---- Controls ----

  #fillChoices() {
    const option = ([value, text]) => make('option', { value }, text);
    this.form.kind.append(...[['', 'all'], ...Object.entries(kKinds)].map(option));
    this.form.verdict.append(...[['', 'all'], ...Object.entries(kVerdicts)].map(option));
  }

  #listenToControls() {
    const apply = gathered(() => this.#applyFilter(), 250);
    this.form.addEventListener('input', apply);
    this.form.addEventListener('submit', (event) => event.preventDefault());
    byId('pause').addEventListener('click', () => this.#pause(!this.paused));
    byId('clear').addEventListener('click', () => byId('confirm').showModal());
    byId('confirm-no').addEventListener('click', () => byId('confirm').close());
    byId('confirm-yes').addEventListener('click', () => this.#clear());
  }

  #applyFilter() {
    const { kind, verdict, text } = this.form;
    this.context.go(
      'reports',
      {
        ...this.filter,
        kind: kind.value,
        verdict: verdict.value,
        text: text.value,
      },
      true,
    );
  }

  #showFilter() {
    for (const name of ['kind', 'verdict', 'text']) {
      if (this.form[name].value !== this.filter[name]) this.form[name].value = this.filter[name];
    }
    const chips = [
      ['session', 'session'],
      ['user', 'installation'],
    ]
      .filter(([name]) => this.filter[name])
      .map(([name, text]) =>
        make(
          'button',
          {
            type: 'button',
            class: 'chip',
            'aria-label': `Stop showing only ${text} ${this.filter[name]}`,
            on: { click: () => this.context.go('reports', { ...this.filter, [name]: '' }) },
          },
          `${text} ${shortId(this.filter[name])} ×`,
        ),
      );
    byId('chips').replaceChildren(...chips);
  }

  #pause(paused) {
    this.paused = paused;
    this.missed = 0;
    byId('pause').setAttribute('aria-pressed', String(paused));
    byId('pause').textContent = paused ? 'Resume' : 'Pause';
    this.#note();
    if (!paused) this.catchUpSoon();
  }

  async #clear() {
    byId('confirm').close();
    await this.context.watch(remove('/api/reports'));
    this.context.go('reports', this.filter);
  }
}
