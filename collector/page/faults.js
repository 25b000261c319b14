// The faults in force, and what puts others there.

import { get, post, remove } from './api.js';
import { byId, gathered, make } from './dom.js';
import { detailsOf, extentOf, kEffects, kPresets, scopeOf } from './fault_kinds.js';
import { kEndpoints, number } from './words.js';

export class FaultsView {
  constructor(context) {
    this.context = context;
    this.form = byId('fault-form');
    this.loadSoon = gathered(() => this.load(), 500);
    this.#makePresets();
    this.#makeForm();
    byId('faults-off').addEventListener('click', () => this.#change(remove('/api/faults')));
    this.load();
  }

  show() {
    this.load();
  }

  hide() {}

  statusChanged() {
    this.#showFields();
  }

  // Their hits and what is left of them change with what arrives.
  arrived() {
    if (!byId('view-faults').hidden) this.loadSoon();
  }

  async load() {
    this.take(await this.context.watch(get('/api/faults')));
  }

  take(reply) {
    const faults = Array.isArray(reply) ? reply : reply.faults;
    this.context.countFaults(faults.length);
    byId('faults-off').hidden = faults.length < 2;
    byId('fault-list').replaceChildren(
      ...(faults.length
        ? faults.map((fault) => this.#line(fault))
        : [make('li', { class: 'quiet none' }, 'None: every request gets its ordinary answer.')]),
    );
  }

  #line(fault) {
    const title = kEffects[fault.effect]?.title ?? fault.effect;
    const details = detailsOf(fault);
    return make(
      'li',
      { 'data-fault': fault.id },
      make(
        'div',
        {},
        make('strong', {}, title),
        details ? ` ${details}` : '',
        make('div', { class: 'quiet' }, scopeOf(fault)),
      ),
      make(
        'div',
        { class: 'extent' },
        extentOf(fault),
        make('div', { class: 'quiet' }, `${number(fault.hits)} hits`),
      ),
      make(
        'button',
        {
          type: 'button',
          'aria-label': `Switch off: ${title}, ${scopeOf(fault)}`,
          on: { click: () => this.#change(remove(`/api/faults/${fault.id}`)) },
        },
        'Switch off',
      ),
    );
  }

  async #change(request) {
    await this.context.watch(request);
    await this.load();
  }

  #makePresets() {
    byId('presets').append(
      ...kPresets.map(([title, text, fault]) =>
        make(
          'button',
          {
            type: 'button',
            on: { click: () => this.#change(post('/api/faults', fault)) },
          },
          make('strong', {}, title),
          make('span', {}, text),
        ),
      ),
    );
  }

  // ---- The form ----

  #makeForm() {
    this.form.append(
      field(
        'effect',
        'What happens',
        effectChoice(),
        make('p', { class: 'quiet', id: 'effect-says' }),
      ),
      choices(
        'types',
        'To which requests',
        Object.entries(kEndpoints).map(([value, text]) =>
          choice('checkbox', 'types', value, text, true),
        ),
      ),
      field(
        'match',
        'Only when the body has',
        make(
          'span',
          { class: 'pair' },
          textInput('matchName', 'network', 'Member'),
          ' = ',
          textInput('matchValue', 'any value', 'Value'),
        ),
        make(
          'p',
          { class: 'quiet' },
          'A member of the report, such as network, zoneId or userId. Empty: any body.',
        ),
      ),
      field('error', 'Text for the game’s log', textInput('error', 'not wanted here')),
      field('status', 'HTTP status', numberInput('status', { min: 200, max: 599, value: 503 })),
      field(
        'replyStatus',
        'HTTP status',
        numberInput('replyStatus', { min: 200, max: 599, placeholder: '200' }),
        make('p', { class: 'quiet' }, 'Games look at the body alone.'),
      ),
      field(
        'seconds',
        'Seconds',
        numberInput('seconds', { min: 0, max: 3600, step: 'any', value: 2 }),
      ),
      field(
        'late',
        'Seconds before it happens',
        numberInput('late', { min: 0, max: 3600, step: 'any', placeholder: '0' }),
      ),
      choices('to', 'To', [
        choice('radio', 'to', 'https', 'https', true),
        choice('radio', 'to', 'http', 'http'),
      ]),
      choices('extent', 'How often', [
        choice('radio', 'extent', 'always', 'until switched off'),
        choice('radio', 'extent', 'times', 'for the next requests:', true),
        numberInput('times', { min: 1, max: 1000000, value: 3, 'aria-label': 'How many requests' }),
        choice('radio', 'extent', 'share', 'for a share, in %:'),
        numberInput('share', {
          min: 0,
          max: 100,
          step: 'any',
          value: 30,
          'aria-label': 'Share in percent',
        }),
        make('label', { class: 'check' }, 'seed', numberInput('seed', { min: 0, value: 7 })),
      ]),
      make(
        'p',
        { class: 'request quiet' },
        'The same for a program: ',
        make('code', { id: 'fault-request' }),
      ),
      make(
        'div',
        { class: 'buttons' },
        make('button', { type: 'submit', class: 'primary' }, 'Put in force'),
      ),
    );
    this.form.addEventListener('input', () => this.#showFields());
    this.form.addEventListener('submit', (event) => {
      event.preventDefault();
      this.#change(post('/api/faults', this.#fault()));
    });
    this.#showFields();
  }

  // Which fields apply. What concerns a connection is decided before its request is known: its type
  // is that of the port, if each has one of its own.
  #fields() {
    const effect = kEffects[this.form.effect.value];
    const ports = new Set(Object.values(this.context.status?.ports ?? {}));
    return [...effect.fields, ...(effect.connection && ports.size > 1 ? ['types'] : [])];
  }

  #showFields() {
    const fields = ['effect', 'extent', ...this.#fields()];
    for (const element of this.form.querySelectorAll('[data-field]')) {
      element.hidden = !fields.includes(element.dataset.field);
    }
    byId('effect-says').textContent = kEffects[this.form.effect.value].says;
    byId('fault-request').textContent = `POST /api/faults ${JSON.stringify(this.#fault())}`;
  }

  #fault() {
    const { form } = this;
    const fields = this.#fields();
    const has = (name) => fields.includes(name);
    const fault = { effect: form.effect.value };
    const types = [...form.querySelectorAll('[name=types]:checked')].map((box) => box.value);
    if (has('types') && types.length < Object.keys(kEndpoints).length) fault.types = types;
    if (has('match') && form.matchName.value)
      fault.match = { [form.matchName.value]: matchValue(form) };
    if (has('error') && form.error.value) fault.error = form.error.value;
    if (has('status')) fault.status = Number(form.status.value);
    if (has('replyStatus') && form.replyStatus.value) fault.status = Number(form.replyStatus.value);
    if (has('seconds')) fault.seconds = Number(form.seconds.value);
    if (has('late') && form.late.value) fault.seconds = Number(form.late.value);
    if (has('to')) fault.to = form.to.value;
    return { ...fault, ...extent(form) };
  }
}

function extent(form) {
  if (form.extent.value === 'times') return { times: Number(form.times.value) };
  if (form.extent.value !== 'share') return {};
  return { share: Number(form.share.value) / 100, seed: Number(form.seed.value) };
}

// A switch or a number is meant as such, all else is text.
function matchValue(form) {
  const text = form.matchValue.value;
  return /^(true|false|-?\d+(\.\d+)?)$/.test(text) ? JSON.parse(text) : text;
}

// ---- Parts of the form ----

function field(name, label, control, ...more) {
  return make(
    'div',
    { class: 'field', 'data-field': name },
    make('label', {}, make('span', {}, label), control),
    ...more,
  );
}

function choices(name, legend, children) {
  return make(
    'fieldset',
    { class: 'field', 'data-field': name },
    make('legend', {}, legend),
    make('div', { class: 'choices' }, ...children),
  );
}

const choice = (type, name, value, text, checked = false) =>
  make('label', { class: 'check' }, make('input', { type, name, value, checked }), text);

const textInput = (name, placeholder, label) =>
  make('input', {
    type: 'text',
    name,
    placeholder,
    'aria-label': label,
    autocomplete: 'off',
    spellcheck: false,
  });

const numberInput = (name, properties) => make('input', { type: 'number', name, ...properties });

function effectChoice() {
  const groups = [...new Set(Object.values(kEffects).map(({ group }) => group))];
  return make(
    'select',
    { name: 'effect' },
    ...groups.map((group) =>
      make(
        'optgroup',
        { label: group },
        ...Object.entries(kEffects)
          .filter(([, effect]) => effect.group === group)
          .map(([value, { title }]) => make('option', { value }, title)),
      ),
    ),
  );
}
