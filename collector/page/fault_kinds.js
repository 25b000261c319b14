// The faults that the collector can make, and what a game makes of them.

import { clip } from './dom.js';
import { kEndpoints } from './words.js';

const kReply = ['types', 'match', 'replyStatus', 'late'];

// `fields` are those that apply besides how often.
export const kEffects = {
  temporary: {
    title: 'Try again',
    group: 'Answers',
    fields: kReply,
    says: 'The answer is {"success":false}. The game sends the report again at once; after the third failure it waits until it next comes to the foreground.',
  },
  permanent: {
    title: 'Refuse for good',
    group: 'Answers',
    fields: [...kReply, 'error'],
    says: 'The game drops the report and writes the text to its log.',
  },
  status: {
    title: 'Another status',
    group: 'Answers',
    fields: ['types', 'match', 'status', 'late'],
    says: 'The ordinary body under another HTTP status. Only the body counts: the report is delivered.',
  },
  empty: {
    title: 'Empty body',
    group: 'Answers',
    fields: kReply,
    says: 'An answer without a body. The report is tried again.',
  },
  garbage: {
    title: 'Garbage',
    group: 'Answers',
    fields: kReply,
    says: 'A body that is no JSON. The report is tried again.',
  },
  array: {
    title: 'An array',
    group: 'Answers',
    fields: kReply,
    says: 'JSON, but no object. The report is tried again.',
  },
  huge: {
    title: 'Huge body',
    group: 'Answers',
    fields: kReply,
    says: 'More than a game takes. The report is tried again.',
  },
  delay: {
    title: 'Late answer',
    group: 'Time',
    fields: ['types', 'match', 'seconds'],
    says: 'The ordinary answer, late. A game waits for 60 seconds.',
  },
  stall: {
    title: 'Stalled answer',
    group: 'Time',
    fields: ['types', 'match', 'seconds'],
    says: 'The answer stops in the middle of its body for a while.',
  },
  'cut-before': {
    title: 'Server away',
    group: 'Connection',
    fields: [],
    connection: true,
    says: 'The connection is cut before anything is said. The report is tried again.',
  },
  'cut-during': {
    title: 'Cut during the request',
    group: 'Connection',
    fields: ['types', 'match', 'late'],
    says: 'The report does not arrive, and the game knows: it is tried again.',
  },
  'cut-after': {
    title: 'Cut after the request',
    group: 'Connection',
    fields: ['types', 'match', 'late'],
    says: 'The report arrives, but the game does not hear so: it comes again, as a duplicate.',
  },
  redirect: {
    title: 'Redirect',
    group: 'Connection',
    fields: ['types', 'match', 'to', 'late'],
    says: 'To https the game follows; to http it does not.',
  },
  'expired-certificate': {
    title: 'Expired certificate',
    group: 'Connection',
    fields: [],
    connection: true,
    says: 'The game does not trust the server. The report is tried again.',
  },
  'wrong-host-certificate': {
    title: 'Certificate of another host',
    group: 'Connection',
    fields: [],
    connection: true,
    says: 'The game does not trust the server. The report is tried again.',
  },
};

export const kPresets = [
  ['Server away', 'Every connection is cut until switched off.', { effect: 'cut-before' }],
  [
    'Refuse all for 10 requests',
    'Those reports are lost to the game.',
    { effect: 'permanent', error: 'refused by the collector', times: 10 },
  ],
  ['Try again, 3 times', 'What the next three reports hear.', { effect: 'temporary', times: 3 }],
  [
    'A third is tried again',
    'A share of all requests, until switched off.',
    { effect: 'temporary', share: 0.33, seed: 7 },
  ],
  [
    'Lost answers, 5 times',
    'They arrive, and come again as duplicates.',
    { effect: 'cut-after', times: 5 },
  ],
  ['Slow by 2 seconds', 'Every answer is late.', { effect: 'delay', seconds: 2 }],
  ['Garbage, 5 times', 'Answers that nobody can read.', { effect: 'garbage', times: 5 }],
  ['Expired certificate', 'No connection is trusted.', { effect: 'expired-certificate' }],
];

// ---- A fault in words ----

const kLongestValue = 60;

export function scopeOf(fault) {
  const types =
    fault.types?.length && fault.types.length < Object.keys(kEndpoints).length
      ? fault.types.map((type) => kEndpoints[type] ?? type).join(', ')
      : 'all requests';
  const match = Object.entries(fault.match ?? {})
    .map(
      ([name, value]) => `${name} = ${typeof value === 'string' ? value : JSON.stringify(value)}`,
    )
    .map((text) => clip(text, kLongestValue));
  return match.length ? `${types} with ${match.join(' and ')}` : types;
}

export function detailsOf(fault) {
  return [
    fault.status === undefined ? null : `status ${fault.status}`,
    fault.seconds ? `${fault.seconds} s late` : null,
    fault.to ? `to ${fault.to}` : null,
    fault.error ? `“${clip(fault.error, kLongestValue)}”` : null,
  ]
    .filter(Boolean)
    .join(', ');
}

export function extentOf(fault) {
  if (fault.times !== undefined) return `${fault.left ?? fault.times} of ${fault.times} left`;
  if (fault.share !== undefined) return `${Math.round(100 * fault.share)} % of them`;
  return 'until switched off';
}
