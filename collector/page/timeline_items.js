// What the timeline draws: bars for sessions, marks for ads.

import { duration, exactTime, shortId, time } from './words.js';

const kMarkWidth = 20;
const kBarWidth = 2;
const kMostOfACrowd = 10;
const kSilence = 600;
const kWorthShowing = 0.5;

const clamp = (value, low, high) => Math.min(high, Math.max(low, value));

// The sessions of an installation with what can be said of their ends, in order of their begin.
// Reports of a session whose stop is missing leave open when it ended: the next session began later,
// and the last sign of life is its own begin or an ad.
export function sessionsOf(installation, now) {
  const sessions = [...installation.sessions].sort((a, b) => a.start - b.start);
  return sessions.map((session, index) => {
    if (session.stop !== null) return stopped(session, installation);
    const next = sessions[index + 1]?.start ?? Infinity;
    return open(session, installation, next, now);
  });
}

function stopped(session, installation) {
  const end = Math.max(session.start, session.stop);
  const length = session.stop - session.start;
  const played = session.played ?? length;
  return {
    ...session,
    length,
    played,
    end,
    paused: Math.max(0, length - played),
    share: length > 0 ? clamp(played / length, 0, 1) : 1,
    waited: session.stopArrived === null ? null : session.stopArrived - session.stop,
    ads: adsBetween(installation, session.start, end),
    state: 'stopped',
  };
}

function open(session, installation, next, now) {
  const ads = adsBetween(installation, session.start, next);
  const sign = ads.at(-1)?.arrived ?? session.start;
  const running = next === Infinity && now - sign < kSilence;
  return {
    ...session,
    ads,
    sign,
    end: running ? Math.max(now, session.start) : Math.min(next, sign + kSilence),
    state: running ? 'running' : 'ended',
  };
}

const adsBetween = (installation, from, to) =>
  installation.ads.filter((ad) => ad.arrived >= from && ad.arrived <= to);

export const stateOf = (session) =>
  ({
    stopped: 'stopped',
    running: 'no stop reported so far',
    ended: 'no stop reported: killed, or stop reports are off',
  })[session.state];

// ---- Items ----

// The items of what lies in the window or near it, for a chart so many pixels wide. What would stand
// closer together than a reader can tell apart becomes one mark, so their number is bounded.
export function itemsOf(installations, sessions, window, width) {
  const span = window.end - window.start;
  const near = { start: window.start - span, end: window.end + span };
  const pixel = span / width;
  return installations.flatMap((installation, group) => [
    ...bars(sessions[group], group, near, kBarWidth * pixel),
    ...marks(installation, group, near, kMarkWidth * pixel),
  ]);
}

function bars(sessions, group, near, least) {
  const items = [];
  let drawnTo = -Infinity;
  for (const session of sessions) {
    const end = Math.max(session.end, session.stopArrived ?? 0);
    if (end < near.start || session.start > near.end || end < drawnTo + least) continue;
    drawnTo = end;
    items.push(bar(session, group));
    if (session.waited > kWorthShowing) items.push(waitingBar(session, group));
  }
  return items;
}

function bar(session, group) {
  return {
    key: `session ${group} ${session.session}`,
    session: session.session,
    group,
    type: 'range',
    start: session.start,
    end: session.end,
    className: `session ${session.state}`,
    style: `--played: ${Math.round(1000 * (session.share ?? 1)) / 10}%`,
    words: session.state === 'stopped' ? duration(session.played) : '',
    lines: sessionLines(session),
  };
}

function sessionLines(session) {
  const name = `${session.first ? 'First session' : 'Session'} ${shortId(session.session)}`;
  const begin = `began ${exactTime(session.start)}`;
  if (session.state !== 'stopped') return [name, begin, stateOf(session)];
  const reported =
    session.waited === null ? [] : [`reported ${duration(session.waited)} after its stop`];
  return [
    name,
    begin,
    `${duration(session.length)} long: ${duration(session.played)} played, ${duration(session.paused)} paused`,
    ...reported,
  ];
}

function waitingBar(session, group) {
  return {
    key: `waiting ${group} ${session.session}`,
    session: session.session,
    group,
    type: 'range',
    start: session.end,
    end: session.stopArrived,
    className: 'waiting',
    words: '',
    lines: [
      `Session ${shortId(session.session)} had stopped`,
      `its report arrived ${duration(session.waited)} later:`,
      'the game was in the background or had no network',
    ],
  };
}

// ---- Ads ----

function marks(installation, group, near, width) {
  return together(installation.ads, width)
    .filter(([first]) => first.arrived >= near.start && first.arrived <= near.end)
    .map((few) => (few.length === 1 ? mark(few[0], group) : crowd(few, group)));
}

function mark(ad, group) {
  return {
    key: `ad ${ad.id}`,
    ad: ad.id,
    group,
    type: 'point',
    start: ad.arrived,
    className: `ad ${ad.fill ? 'filled' : 'unfilled'}`,
    words: '',
    lines: [
      `${ad.network} ${ad.adType}`,
      ...(ad.zoneId === null ? [] : [`zone ${ad.zoneId}`]),
      `${ad.fill ? 'filled' : 'not filled'}, arrived ${time(ad.arrived)}`,
    ],
  };
}

// The ads in groups, each with those that arrived within `width` of its first. A mark stands at the
// first, so marks are at least so far apart, and keep their places when the window moves.
function together(ads, width) {
  const groups = [];
  for (const ad of [...ads].sort((a, b) => a.arrived - b.arrived)) {
    const last = groups.at(-1);
    if (last && ad.arrived < last[0].arrived + width) last.push(ad);
    else groups.push([ad]);
  }
  return groups;
}

function crowd(ads, group) {
  const filled = ads.filter((ad) => ad.fill).length;
  const [first, last] = [ads[0].arrived, ads.at(-1).arrived];
  return {
    key: `crowd ${group} ${ads[0].id} ${ads.length}`,
    crowd: [first, last],
    ads: ads.slice(0, kMostOfACrowd).map(({ id }) => id),
    group,
    type: 'point',
    start: first,
    className: 'ad crowd',
    style: `--share: ${Math.round((100 * filled) / ads.length)}%`,
    words: String(ads.length),
    lines: [`${ads.length} ads, ${filled} filled`, 'choose them to come closer'],
  };
}
