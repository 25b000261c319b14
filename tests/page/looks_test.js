// Pictures of every view in light and dark, on a laptop and a phone, for people to look at. They go
// to the folder that ZLN_PAGE_PICTURES names.

import assert from 'node:assert/strict';
import { mkdirSync, statSync } from 'node:fs';
import path from 'node:path';
import { after, before, test } from 'node:test';
import { show, startBrowser, withPage } from './browser.js';
import { Collector } from './collector.js';
import { Game, randomNumbers } from './game.js';

const kFolder = process.env.ZLN_PAGE_PICTURES;
const kViews = ['overview', 'timeline', 'reports', 'reports/3', 'faults', 'settings'];
const kLooks = [
  ['light', 1280, 800],
  ['dark', 1280, 800],
  ['light', 390, 844],
  ['dark', 390, 844],
];
const kSeed = 7;
const kLeastBytes = 8000;

let collector;
let browser;

before(async () => {
  if (!kFolder) return;
  mkdirSync(kFolder, { recursive: true });
  [collector, browser] = await Promise.all([Collector.start(), startBrowser()]);
});
after(async () => {
  await browser?.close();
  await collector?.remove();
});

async function play() {
  const random = randomNumbers(kSeed);
  const now = Date.now() / 1000;
  const games = [new Game(1), new Game(2, 'com.example.lanternkeep', '0.9.0'), new Game(3)];
  for (const [number, game] of games.entries()) {
    const { start, stop } = game.session(
      now - 300 + 20 * number,
      now - 120 - 30 * number,
      60 + 30 * number,
      true,
    );
    for (const report of [start, stop]) await collector.report(report);
    await collector.report(game.session(now - 60, 0, 0).start);
    for (const network of ['Sunrise', 'Meteor', 'Flicker']) {
      await collector.report(game.ad(network, 'banner', random() < 0.6));
      await collector.report(game.ad(network, 'rewarded', random() < 0.6, 'main menu'));
    }
  }
  await collector.report({ type: 'ReportTypeSessionStart', sessionId: 3 });
  await collector.ask('POST', '/api/faults', {
    effect: 'delay',
    seconds: 1,
    share: 0.3,
    seed: kSeed,
  });
  await collector.ask('PUT', '/api/settings', {
    values: { ConfigSerializationKeyConfigUpdateInterval: -1 },
  });
}

// Pictures of views, each named with its address.
async function take(views) {
  for (const [scheme, width, height] of kLooks) {
    await withPage(
      browser,
      collector,
      '',
      async (page) => {
        for (const [name, hash] of views) {
          const file = path.join(kFolder, `${name}-${scheme}-${width}.png`);
          await show(page, collector, hash);
          await page.screenshot({ path: file });
          assert.ok(statSync(file).size > kLeastBytes, `${file} is all but empty`);
        }
      },
      { scheme, size: { width, height } },
    );
  }
}

const skip = kFolder ? false : 'ZLN_PAGE_PICTURES names no folder';

test('pictures of the first run', { skip }, () => take([['first-run', '']]));

test('pictures of all views', { skip }, async () => {
  await play();
  await take(kViews.map((view) => [view.replace('/', '-'), view]));
});
