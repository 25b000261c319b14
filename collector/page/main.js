// The page: which view is shown, what all of them share, and what happens when something arrives.

import { get } from './api.js';
import { byId, copy, gathered, make } from './dom.js';
import { FaultsView } from './faults.js';
import { Live } from './live.js';
import { OverviewView } from './overview.js';
import { ReportsView } from './reports.js';
import { SettingsView } from './settings.js';
import { TimelineView } from './timeline.js';
import { kEndpoints } from './words.js';

const kStates = {
  connecting: 'connecting …',
  live: 'live',
  lost: 'connection lost, trying again …',
};
const kBetweenAnnouncements = 4000;

// What the views need of the page.
const context = {
  status: null,
  watch,
  // Shows a view; an empty value in the parameters is left out.
  go(path, parameters = {}, instead = false) {
    const given = Object.entries(parameters).filter(([, value]) => value);
    const hash = `#${path}${given.length ? `?${new URLSearchParams(given)}` : ''}`;
    if (instead) history.replaceState(null, '', hash);
    else history.pushState(null, '', hash);
    showView();
  },
  countFaults(count) {
    byId('fault-count').hidden = count === 0;
    byId('fault-count').textContent = count;
    byId('fault-count').title = `${count} in force`;
  },
};

// Passes a request's answer on; a failure is shown, and remains one.
async function watch(request, instead) {
  try {
    const reply = await request;
    byId('trouble').hidden = true;
    return reply;
  } catch (failure) {
    byId('trouble').textContent = instead ?? `The collector says: ${failure.message}`;
    byId('trouble').hidden = false;
    throw failure;
  }
}

// ---- Views ----

const views = {
  overview: new OverviewView(context),
  timeline: new TimelineView(context),
  reports: new ReportsView(context),
  faults: new FaultsView(context),
  settings: new SettingsView(context),
};
let current = null;

function showView() {
  const [path, parameters] = location.hash.slice(1).split('?');
  const [name, ...rest] = path.split('/');
  const shown = views[name] ? name : 'overview';
  for (const id of Object.keys(views)) byId(`view-${id}`).hidden = id !== shown;
  for (const link of document.querySelectorAll('nav a')) markLink(link, shown);
  if (current !== views[shown]) {
    current?.hide();
    current = views[shown];
    scrollTo(0, 0);
  }
  document.title = `${byId(`${shown}-title`).textContent} · zln-collector`;
  current.show(rest.join('/'), new URLSearchParams(parameters));
  showWelcome();
}

function markLink(link, shown) {
  if (link.hash === `#${shown}`) link.setAttribute('aria-current', 'page');
  else link.removeAttribute('aria-current');
}

function skipToContent(event) {
  event.preventDefault();
  byId('content').focus();
}

// ---- The first run ----

async function loadStatus() {
  context.status = await watch(get('/api/status'));
  byId('trust-line').textContent = `SSL_CERT_FILE=${context.status.authority}`;
  byId('ports').replaceChildren(
    ...hosts(context.status.ports).flatMap(([what, port]) => [
      make('dt', {}, what),
      make('dd', {}, make('code', {}, `localhost:${port}`)),
    ]),
  );
  showWelcome();
  current?.statusChanged?.();
}

function hosts(ports) {
  const different = new Set(Object.values(ports));
  if (different.size === 1) return [['all six', [...different][0]]];
  return Object.entries(kEndpoints).map(([name, what]) => [what, ports[name]]);
}

function showWelcome() {
  const empty = context.status !== null && context.status.reports === 0;
  const useful = current !== views.faults && current !== views.settings;
  byId('welcome').hidden = !empty || !useful;
  document.body.classList.toggle('empty', empty);
}

// ---- What happens ----

let unannounced = 0;
const announce = gathered(() => {
  byId('announce').textContent =
    unannounced === 1 ? '1 report arrived' : `${unannounced} reports arrived`;
  unannounced = 0;
}, kBetweenAnnouncements);

function reportArrived() {
  if (context.status) ++context.status.reports;
  ++unannounced;
  announce();
  showWelcome();
  for (const view of Object.values(views)) view.arrived?.();
}

function allCleared() {
  if (context.status) context.status.reports = 0;
  views.reports.load();
  for (const view of Object.values(views)) view.arrived?.();
  showWelcome();
}

// After a pause anything may be different, also that reports were cleared.
async function loadAnew() {
  if (views.reports.loaded) views.reports.load();
  views.faults.load();
  await catchUp();
}

async function catchUp() {
  for (const view of Object.values(views)) view.arrived?.();
  views.settings.load();
  await loadStatus();
}

function showConnection(state) {
  byId('connection').dataset.state = state;
  byId('connection').textContent = kStates[state];
}

const live = new Live('/api/events', showConnection);
live.addEventListener('connected', ({ detail }) => (detail.again ? loadAnew() : catchUp()));
live.addEventListener('resync', loadAnew);
live.addEventListener('report', reportArrived);
live.addEventListener('amended', (event) => {
  for (const view of Object.values(views)) view.amended?.(event.detail);
});
live.addEventListener('cleared', allCleared);
live.addEventListener('faults', (event) => views.faults.take(event.detail));
live.addEventListener('settings', (event) => views.settings.take(event.detail));

window.addEventListener('hashchange', showView);
window.addEventListener('popstate', showView);
document.querySelector('.skip').addEventListener('click', skipToContent);
byId('trust-copy').addEventListener('click', (event) =>
  copy(byId('trust-line').textContent, event.target),
);
showView();
live.connect();
