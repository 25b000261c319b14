// The reports of games, the same in every run but for their times.

const kVersion = { reportingVersion: '7.0.0', sdkVersion: '0.0.0', mwVersion: '3.2.1', os: '12' };

// An identifier as the library makes them, from a number.
export function identifier(number) {
  const digits = number.toString(16).toUpperCase().padStart(12, '0');
  const scattered = (Math.imul(number + 1, 2654435761) >>> 0)
    .toString(16)
    .toUpperCase()
    .padStart(8, '0');
  return `${scattered}-1C64-4C26-9BAA-${digits}`;
}

export class Game {
  constructor(number, bundleId = 'com.example.starhopper', appVersion = '1.4.2') {
    this.userId = identifier(1000 + number);
    this.number = number;
    this.made = 0;
    this.own = { bundleId, appVersion };
  }

  #next() {
    return identifier(1000000 * (this.number + 1) + ++this.made);
  }

  #common() {
    return {
      userId: this.userId,
      country: 'US',
      device: 'x86_64',
      platform: 'iOS',
      bundleId: this.own.bundleId,
    };
  }

  // The reports of a session's start and stop.
  session(startTime, stopTime, totalDuration, first = false) {
    const start = {
      ...this.#common(),
      ...kVersion,
      appVersion: this.own.appVersion,
      type: first ? 'ReportTypeSessionFirst' : 'ReportTypeSessionStart',
      sessionId: this.#next(),
      startTime,
    };
    const stop = { ...start, type: 'ReportTypeSessionStop', stopTime, totalDuration };
    return { start, stop };
  }

  ad(network, adType, fill, zoneId) {
    return {
      ...this.#common(),
      type: zoneId === undefined ? 'ReportTypeAdAttempt' : 'ReportTypeAdZoneAttempt',
      adEventId: this.#next(),
      network,
      adType,
      fill,
      ...(zoneId === undefined ? {} : { zoneId }),
    };
  }
}

// Numbers from 0 to 1, the same for the same seed.
export function randomNumbers(seed) {
  let state = seed >>> 0;
  return () => {
    state = (Math.imul(state, 1664525) + 1013904223) >>> 0;
    return state / 2 ** 32;
  };
}

// The reports of a busy day: sessions and ads of many installations.
export function busyDay(count, seed) {
  const random = randomNumbers(seed);
  const pick = (choices) => choices[Math.floor(random() * choices.length)];
  const games = Array.from({ length: 20 }, (_, number) => new Game(number));
  const now = Date.now() / 1000;
  const reports = [];
  while (reports.length < count) {
    const game = pick(games);
    if (random() < 0.2) {
      const start = now - 86400 * random();
      const length = 30 + 600 * random();
      const { start: began, stop } = game.session(
        start,
        start + length,
        length * (0.5 + random() / 2),
      );
      reports.push(began, stop);
    } else {
      reports.push(
        game.ad(
          pick(['Sunrise', 'Meteor', 'Flicker']),
          pick(['banner', 'interstitial', 'rewarded']),
          random() < 0.7,
          random() < 0.5 ? 'main menu' : undefined,
        ),
      );
    }
  }
  return reports.slice(0, count);
}
