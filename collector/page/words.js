// Reports, times and numbers in words.

import { clip } from './dom.js';

export const kKinds = {
  'session-first': 'First session',
  'session-start': 'Session start',
  'session-stop': 'Session stop',
  'ad-attempt': 'Ad attempt',
  'ad-zone-attempt': 'Ad attempt in a zone',
  unknown: 'Unknown',
};

export const kVerdicts = {
  valid: 'valid',
  duplicate: 'duplicate',
  suspect: 'suspect',
  invalid: 'invalid',
};

export const kOutcomes = {
  accepted: 'accepted',
  retry: 'try again',
  dropped: 'refused for good',
  other: 'something else',
  cut: 'cut off',
};

// The endpoints of a game, in the order of their ports.
export const kEndpoints = {
  'session-first': 'first sessions',
  'session-start': 'session starts',
  'session-stop': 'session stops',
  'ad-attempt': 'ad attempts',
  'ad-zone-attempt': 'ad attempts in zones',
  config: 'settings',
};

const kLongestWord = 80;
const kFills = new Map([
  [true, 'filled'],
  [false, 'not filled'],
]);
const kTime = new Intl.DateTimeFormat(undefined, {
  hour: '2-digit',
  minute: '2-digit',
  second: '2-digit',
  hourCycle: 'h23',
});
const kDay = new Intl.DateTimeFormat(undefined, { day: 'numeric', month: 'short' });

export const number = (value) => Number(value ?? 0).toLocaleString();

const dateOf = (seconds) => new Date(seconds * 1000);

// A time of today without the day.
export function time(seconds) {
  const date = dateOf(seconds);
  if (!Number.isFinite(date.getTime())) return String(seconds);
  const clock = kTime.format(date);
  return date.toDateString() === new Date().toDateString()
    ? clock
    : `${kDay.format(date)} ${clock}`;
}

export function exactTime(seconds) {
  const date = dateOf(seconds);
  return Number.isFinite(date.getTime()) ? date.toISOString().replace('T', ' ') : String(seconds);
}

export function duration(seconds) {
  if (!Number.isFinite(seconds)) return '–';
  if (seconds < 0) return `−${duration(-seconds)}`;
  if (seconds === 0) return '0 s';
  if (seconds < 60) return `${seconds < 10 ? seconds.toFixed(1) : Math.round(seconds)} s`;
  const whole = Math.round(seconds);
  if (whole < 3600) return `${Math.floor(whole / 60)} min ${whole % 60} s`;
  if (whole < 86400) return `${Math.floor(whole / 3600)} h ${Math.floor((whole % 3600) / 60)} min`;
  return `${Math.floor(whole / 86400)} d ${Math.floor((whole % 86400) / 3600)} h`;
}

export const percent = (part, whole) => (whole ? `${Math.round((100 * part) / whole)} %` : '–');

export const shortId = (id) => (id ? clip(String(id), 8).replace('…', '') : '–');

const word = (value) =>
  clip(typeof value === 'string' ? value : (JSON.stringify(value) ?? '?'), kLongestWord);

function sessionWords(body) {
  const known = [body.bundleId, body.appVersion].filter((value) => value !== undefined);
  return known.length ? known.map(word).join(' ') : word(body);
}

function adWords(body) {
  const zone = body.zoneId === undefined ? '' : ` in ${word(body.zoneId)}`;
  return `${word(body.network)} ${word(body.adType)}${zone}, ${kFills.get(body.fill) ?? word(body.fill)}`;
}

// What a report says, in one line.
export function summaryOf(row) {
  if (!row.body) return clip(row.raw || 'an empty body', kLongestWord);
  if (row.kind === 'session-stop') {
    const played = row.body.totalDuration;
    return `${sessionWords(row.body)}, ${typeof played === 'number' ? duration(played) : '?'} played`;
  }
  if (row.kind.startsWith('session')) return sessionWords(row.body);
  if (row.kind.startsWith('ad')) return adWords(row.body);
  return word(row.body);
}

// What the game was answered.
export function answerOf(answer) {
  const outcome = kOutcomes[answer.outcome] ?? answer.outcome;
  return answer.outcome === 'other' ? `status ${answer.status}` : outcome;
}
