// The sessions of each installation over time, drawn and as a table.

import { get, query } from './api.js';
import { byId, clip, gathered, make } from './dom.js';
import { reportDetail } from './report_detail.js';
import { itemsOf, sessionsOf, stateOf } from './timeline_items.js';
import { duration, exactTime, number, shortId, time } from './words.js';

const kInstallations = 40;
const kTableRows = 200;
const kBetweenLoads = 700;
const kLongestName = 60;
const kWideSpan = 7200;
const kFirstSpan = 3600;
const kMargin = 0.06;
const kTogether = 0.02;
const kUnknownWidth = 1000;

const seconds = (date) => date.valueOf() / 1000;
const reportOf = (id) => get(`/api/reports/${id}`);

export class TimelineView {
  constructor(context) {
    this.context = context;
    this.installations = [];
    this.sessions = [];
    this.loadSoon = gathered(() => this.#load(), kBetweenLoads);
    this.#listen();
  }

  show() {
    this.shown = true;
    this.loadSoon();
    this.ticking = setInterval(() => this.#tick(), 2000);
  }

  hide() {
    this.shown = false;
    clearInterval(this.ticking);
  }

  arrived() {
    if (this.shown) this.loadSoon();
  }

  async #load() {
    const [timeline, library] = await this.context.watch(
      Promise.all([
        get(`/api/timeline${query({ limit: kInstallations })}`),
        import('./vendor/vis-timeline/vis-timeline-graph2d.min.js'),
      ]),
    );
    if (!this.shown) return;
    this.installations = timeline.installations.filter(
      ({ sessions, ads }) => sessions.length || ads.length,
    );
    byId('chart').hidden = !this.installations.length;
    this.#makeChart(library);
    this.#readSessions();
    this.#drawGroups();
    if (!this.placed && this.installations.length) this.#placeFirst();
    else if (byId('follow').checked) this.#follow();
    this.#drawItems();
    this.#fillTable(timeline.truncated);
  }

  #readSessions() {
    const now = Date.now() / 1000;
    this.sessions = this.installations.map((installation) => sessionsOf(installation, now));
    this.running = this.sessions.some((sessions) =>
      sessions.some(({ state }) => state === 'running'),
    );
  }

  // A running session grows.
  #tick() {
    if (!this.running) return;
    this.#readSessions();
    this.#drawItems();
  }

  // ---- The chart ----

  // The texts in it come from games: its templates make elements, never markup.
  #makeChart({ DataSet, Timeline }) {
    if (this.chart || !this.installations.length) return;
    this.items = new DataSet();
    this.groups = new DataSet();
    this.drawn = new Map();
    this.chart = new Timeline(byId('chart'), this.items, this.groups, {
      stack: false,
      groupHeightMode: 'fixed',
      maxHeight: '62vh',
      verticalScroll: true,
      zoomKey: 'ctrlKey',
      zoomMin: 200,
      orientation: 'top',
      margin: { axis: 10, item: 0 },
      showMajorLabels: true,
      showCurrentTime: true,
      selectable: true,
      multiselect: false,
      groupOrder: 'id',
      template: (item) => make('span', {}, item.words),
      groupTemplate: (group) => groupLabel(group?.installation),
      tooltip: { delay: 150, template: (item) => tooltip(item.lines), overflowMethod: 'flip' },
    });
    this.chart.on('select', ({ items }) => this.#pick(this.items.get(items[0])));
    this.chart.on('rangechanged', () => this.#drawItems());
  }

  #drawGroups() {
    if (!this.chart) return;
    const groups = this.installations.map((installation, id) => ({
      id,
      content: '',
      installation,
    }));
    const gone = this.groups.getIds().filter((id) => id >= groups.length);
    this.groups.remove(gone);
    const changed = groups.filter(
      ({ id, installation }) => this.groups.get(id)?.installation.user !== installation.user,
    );
    this.groups.update(changed);
  }

  // Only what has changed is drawn anew: the rest keeps its place, and its tooltip.
  #drawItems() {
    if (!this.chart) return;
    const { start, end } = this.chart.getWindow();
    const wanted = itemsOf(
      this.installations,
      this.sessions,
      {
        start: seconds(start),
        end: seconds(end),
      },
      byId('chart').clientWidth || kUnknownWidth,
    );
    const changed = [];
    const next = new Map();
    for (const item of wanted) {
      const form = JSON.stringify(item);
      if (this.drawn.get(item.key) !== form) changed.push(visItem(item));
      next.set(item.key, form);
    }
    const gone = [...this.drawn.keys()].filter((key) => !next.has(key));
    this.drawn = next;
    if (gone.length) this.items.remove(gone);
    if (changed.length) this.items.update(changed);
  }

  // ---- The window ----

  // From the first to the last that is known.
  #extent() {
    let [first, last] = [Infinity, -Infinity];
    const widen = (moment) => {
      first = Math.min(first, moment);
      last = Math.max(last, moment);
    };
    for (const sessions of this.sessions) {
      for (const { start, end, stopArrived } of sessions)
        [start, end, stopArrived ?? end].forEach(widen);
    }
    for (const { ads } of this.installations) ads.forEach(({ arrived }) => widen(arrived));
    return [first, last];
  }

  #placeFirst() {
    const [first, last] = this.#extent();
    this.placed = true;
    this.#showSpan(last - first > kWideSpan ? kFirstSpan : 'all');
  }

  #showSpan(span) {
    if (!this.chart) return;
    const [first, last] = this.#extent();
    const width = span === 'all' ? Math.max(10, last - first) : Number(span);
    this.#setWindow(last - width * (1 + kMargin), last + width * kMargin);
  }

  #follow() {
    const { start, end } = this.chart.getWindow();
    const width = seconds(end) - seconds(start);
    const [, last] = this.#extent();
    this.#setWindow(last - width * (1 - kMargin), last + width * kMargin);
  }

  #setWindow(start, end) {
    this.chart.setWindow(start * 1000, end * 1000, { animation: false });
  }

  #listen() {
    for (const button of document.querySelectorAll('[data-span]')) {
      button.addEventListener('click', () => this.#showSpan(button.dataset.span));
    }
    byId('follow').addEventListener('change', () => byId('follow').checked && this.#follow());
    byId('chart').addEventListener('keydown', (event) => this.#key(event));
    byId('to-table').addEventListener('click', (event) => {
      event.preventDefault();
      byId('sessions-title').focus();
    });
  }

  #key(event) {
    if (!this.chart || event.ctrlKey || event.metaKey || event.altKey) return;
    const still = { animation: false };
    const actions = {
      ArrowLeft: () => this.#move(-0.2),
      ArrowRight: () => this.#move(0.2),
      '+': () => this.chart.zoomIn(0.4, still),
      '=': () => this.chart.zoomIn(0.4, still),
      '-': () => this.chart.zoomOut(0.4, still),
      Home: () => this.#showSpan('all'),
    };
    if (!actions[event.key]) return;
    event.preventDefault();
    actions[event.key]();
  }

  #move(share) {
    const { start, end } = this.chart.getWindow();
    const way = share * (seconds(end) - seconds(start));
    this.#setWindow(seconds(start) + way, seconds(end) + way);
  }

  // ---- What somebody chooses ----

  #pick(item) {
    if (!item) return void (byId('picked').hidden = true);
    if (item.crowd) return void this.#pickCrowd(item);
    if (item.ad) return void this.#showReports(item.lines[0], reportOf(item.ad));
    this.#showSession(item.session);
  }

  // Ads that arrived together are shown together: nobody could come close enough.
  #pickCrowd({ crowd: [first, last], ads, lines }) {
    if (last - first < kTogether)
      return this.#showReports(lines[0], Promise.all(ads.map(reportOf)));
    const margin = last - first;
    this.#setWindow(first - margin, last + margin);
  }

  #showSession(session) {
    return this.#showReports(
      `Session ${shortId(session)}`,
      get(`/api/reports${query({ session, order: 'asc', limit: 10 })}`),
    );
  }

  async #showReports(title, request) {
    const reply = await this.context.watch(request);
    const rows = reply.reports ?? [reply].flat();
    byId('picked-title').textContent = clip(title, kLongestName);
    byId('picked-body').replaceChildren(
      make(
        'div',
        { class: 'reports-of' },
        ...rows.map((row) =>
          make(
            'article',
            {},
            ...reportDetail(row, 'h3').filter(Boolean),
            make('p', {}, make('a', { href: `#reports/${row.id}` }, 'Open in the list')),
          ),
        ),
      ),
    );
    byId('picked').hidden = false;
    byId('picked').scrollIntoView({ block: 'nearest' });
  }

  // ---- The table ----

  #fillTable(truncated) {
    const all = this.installations.flatMap((installation, index) =>
      this.sessions[index].map((session) => ({ installation, session })),
    );
    all.sort((a, b) => b.session.start - a.session.start);
    const rows = all.slice(0, kTableRows);
    byId('sessions').tBodies[0].replaceChildren(...rows.map((row) => this.#tableRow(row)));
    const parts = [];
    if (all.length > rows.length)
      parts.push(`The newest ${number(rows.length)} of ${number(all.length)} sessions.`);
    if (truncated) parts.push('Older sessions, ads or installations are left out of this view.');
    byId('sessions-note').textContent = parts.join(' ');
    byId('sessions-note').hidden = !parts.length;
  }

  #tableRow({ installation, session }) {
    const length = (value) =>
      make('td', { class: 'number' }, value == null ? '–' : duration(value));
    const open = make(
      'button',
      {
        type: 'button',
        class: 'link',
        title: stateOf(session),
        on: { click: () => this.#showSession(session.session).then(() => byId('picked').focus()) },
      },
      shortId(session.session),
    );
    const filled = session.ads.filter((ad) => ad.fill).length;
    return make(
      'tr',
      {},
      make(
        'td',
        { class: 'name' },
        clip(installation.bundleId ?? '–', kLongestName),
        ' ',
        make('span', { class: 'quiet' }, shortId(installation.user)),
      ),
      make(
        'th',
        { scope: 'row' },
        open,
        session.first ? make('span', { class: 'quiet' }, ' first') : null,
      ),
      make('td', {}, make('time', { title: exactTime(session.start) }, time(session.start))),
      session.state === 'stopped'
        ? length(session.length)
        : make('td', { class: 'number quiet' }, session.state === 'running' ? 'open' : 'no stop'),
      length(session.played),
      length(session.paused),
      length(session.waited),
      make('td', { class: 'number' }, session.ads.length ? `${filled}/${session.ads.length}` : '–'),
    );
  }
}

const visItem = (item) => ({
  ...item,
  id: item.key,
  content: '',
  start: item.start * 1000,
  ...(item.end === undefined ? {} : { end: item.end * 1000 }),
});

function groupLabel(installation) {
  if (!installation) return make('div');
  return make(
    'div',
    { class: 'installation' },
    make('strong', {}, clip(installation.bundleId ?? 'unnamed game', kLongestName)),
    make(
      'span',
      {},
      `${clip(installation.appVersion ?? '', kLongestName)} · ${shortId(installation.user)}`,
    ),
  );
}

const tooltip = (lines) =>
  make('div', { class: 'tooltip' }, ...lines.map((line) => make('div', {}, clip(line, 120))));
