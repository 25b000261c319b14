// The settings that games are answered with.

import { get, post, put, remove } from './api.js';
import { byId, gathered, make } from './dom.js';
import { kPrefix, kSettings } from './setting_names.js';

const kSources = {
  none: 'Nothing is set: games keep what they have.',
  file: 'As the file says.',
  api: 'Set here or by a program, in place of the file.',
};

const isNumber = (text) => text.trim() !== '' && Number.isFinite(Number(text));

export class SettingsView {
  constructor(context) {
    this.context = context;
    this.saved = {};
    this.form = byId('settings-form');
    this.lintSoon = gathered(() => this.#lint(), 250);
    byId('settings-rows').append(...kSettings.map(settingRow));
    this.form.addEventListener('input', () => this.#edited());
    this.form.addEventListener('submit', (event) => this.#save(event));
    byId('settings-undo').addEventListener('click', () => this.#fill(this.last));
    byId('settings-file').addEventListener('click', () => this.#change(remove('/api/settings')));
  }

  show() {
    this.load();
  }

  hide() {}

  async load() {
    this.take(await this.context.watch(get('/api/settings')));
  }

  // What somebody is typing is not taken from him.
  take(reply) {
    if (this.dirty && JSON.stringify(reply.values) !== JSON.stringify(this.saved)) {
      this.last = reply;
      byId('settings-source').textContent =
        'They were changed elsewhere meanwhile; “Undo changes” shows how.';
      return;
    }
    if (!this.dirty) this.#fill(reply);
  }

  #fill(reply) {
    this.last = reply;
    this.saved = reply.values;
    for (const { key, kind } of kSettings) this.#setField(key, kind, reply.values[key]);
    byId('settings-source').textContent = kSources[reply.source];
    byId('settings-file').disabled = reply.source !== 'api';
    this.#showState();
    this.#showLint(reply.lint);
  }

  #setField(key, kind, value) {
    if (kind === 'number') this.form[key].value = value === undefined ? '' : Number(value);
    else this.form[key].value = value === undefined ? '' : String(Boolean(value));
  }

  // ---- Editing ----

  // Members that this page has no field for stay as they are.
  #values() {
    const values = { ...this.saved };
    for (const { key, kind } of kSettings) {
      const text = this.form[key].value;
      if (text.trim() === '') delete values[key];
      else if (kind === 'switch') values[key] = sameSwitch(this.saved[key], text);
      else if (isNumber(text)) values[key] = Number(text);
    }
    return values;
  }

  #edited() {
    this.#showState();
    this.lintSoon();
  }

  #showState() {
    const wrong = kSettings.filter(({ key, kind }) => {
      const text = this.form[key].value;
      const bad = kind === 'number' && text.trim() !== '' && !isNumber(text);
      if (kind === 'number') this.form[key].setAttribute('aria-invalid', String(bad));
      return bad;
    });
    const values = this.#values();
    this.dirty = wrong.length > 0 || sorted(values) !== sorted(this.saved);
    byId('settings-save').disabled = !this.dirty || wrong.length > 0;
    byId('settings-undo').disabled = !this.dirty;
    byId('settings-answer').textContent = JSON.stringify(values, null, 2);
  }

  async #lint() {
    const reply = await this.context.watch(post('/api/settings/lint', { values: this.#values() }));
    this.#showLint(reply.lint);
  }

  // What concerns a setting stands with it, all else above them.
  #showLint(lint) {
    for (const { key } of kSettings) {
      byId(`lint-${key}`).replaceChildren(
        ...lint.filter((one) => one.key === key).map((one) => lintLine(one)),
      );
    }
    const others = lint.filter((one) => !kSettings.some(({ key }) => key === one.key));
    byId('settings-lint').replaceChildren(...others.map((one) => lintLine(one, one.key)));
  }

  // ---- Saving ----

  #save(event) {
    event.preventDefault();
    if (!byId('settings-save').disabled)
      this.#change(put('/api/settings', { values: this.#values() }));
  }

  async #change(request) {
    await this.context.watch(request);
    this.dirty = false;
    await this.load();
  }
}

// A switch that a file gives as a number stays one while it means the same.
function sameSwitch(before, text) {
  const on = text === 'true';
  return typeof before === 'number' && Boolean(before) === on ? before : on;
}

const sorted = (values) => JSON.stringify(Object.entries(values).sort());

const lintLine = (one, key = '') =>
  make('li', { class: one.severity }, key ? make('strong', {}, `${key} `) : null, one.text);

// ---- Rows ----

function settingRow(setting) {
  const { key, name, says } = setting;
  return make(
    'div',
    { class: 'setting' },
    make(
      'div',
      {},
      make(
        'label',
        { htmlFor: setting.kind === 'number' ? key : undefined, id: `label-${key}` },
        make('span', { class: 'prefix' }, kPrefix),
        make('wbr'),
        make('strong', {}, ...breakable(name)),
      ),
      make('p', { class: 'quiet', id: `says-${key}` }, says),
      make('ul', { class: 'lint', id: `lint-${key}`, 'aria-live': 'polite' }),
    ),
    setting.kind === 'number' ? numberControl(setting) : switchControl(setting),
  );
}

// Long names break between their words on narrow screens.
const breakable = (name) => name.split(/(?=[A-Z])/).flatMap((word) => [make('wbr'), word]);

function numberControl({ key, unit, fallback }) {
  return make(
    'div',
    { class: 'control' },
    make('input', {
      id: key,
      name: key,
      type: 'text',
      inputMode: 'decimal',
      autocomplete: 'off',
      placeholder: 'left out',
      'aria-describedby': `says-${key} lint-${key}`,
    }),
    make('span', { class: 'quiet' }, `${unit}, default ${fallback.toLocaleString()}`),
  );
}

function switchControl({ key, fallback }) {
  const option = (value, text) =>
    make(
      'label',
      {},
      make('input', { type: 'radio', name: key, value, checked: value === '' }),
      make('span', {}, text),
    );
  return make(
    'div',
    { class: 'control' },
    make(
      'div',
      { class: 'switch', role: 'radiogroup', 'aria-labelledby': `label-${key}` },
      option('', 'left out'),
      option('true', 'on'),
      option('false', 'off'),
    ),
    make('span', { class: 'quiet' }, `default ${fallback ? 'on' : 'off'}`),
  );
}
