// The timeline draws what the reports tell.

import assert from 'node:assert/strict';
import { after, before, beforeEach, test } from 'node:test';
import { appears, startBrowser, withPage } from './browser.js';
import { Collector, until } from './collector.js';
import { Game } from './game.js';

let collector;
let browser;
let game;
let number = 0;

before(async () => {
  [collector, browser] = await Promise.all([Collector.start(), startBrowser()]);
});
after(async () => {
  await browser?.close();
  await collector?.remove();
});
beforeEach(async () => {
  await collector.ask('DELETE', '/api/reports');
  game = new Game(++number);
});

const now = () => Date.now() / 1000;
const width = async (locator) => (await locator.boundingBox()).width;

async function reportSession({ start, stop }) {
  await collector.report(start);
  await collector.report(stop);
}

test('a session is as long as it lasted, played for its share, and waited to be reported', async () => {
  const end = now();
  await reportSession(game.session(end - 300, end - 60, 120));

  await withPage(browser, collector, '#timeline', async (page) => {
    const session = page.locator('.vis-range.session.stopped');
    await session.waitFor();
    const waiting = page.locator('.vis-range.waiting');

    const ratio = (await width(session)) / (await width(waiting));
    assert.ok(ratio > 3.2 && ratio < 4.4, `240 s to a good 60 s are drawn as ${ratio} to 1`);
    assert.equal(await session.evaluate((bar) => bar.style.getPropertyValue('--played')), '50%');
  });
});

test('a session without a stop runs until another one begins', async () => {
  const end = now();
  await collector.report(game.session(end - 200, 0, 0).start);
  await collector.report(game.session(end - 100, 0, 0).start);

  await withPage(browser, collector, '#timeline', async (page) => {
    await page.locator('.vis-range.session.running').waitFor();
    const ended = await page.locator('.vis-range.session.ended').boundingBox();
    const running = await page.locator('.vis-range.session.running').boundingBox();

    assert.ok(ended.x + ended.width <= running.x + 2, 'the bars overlap');
    assert.deepEqual(await page.locator('#sessions tbody td:nth-child(4)').allInnerTexts(), [
      'open',
      'no stop',
    ]);
  });
});

test('each installation has a row, each ad a mark', async () => {
  const other = new Game(++number, 'com.example.lanternkeep', '0.9.0');
  const end = now();
  await collector.report(game.session(end - 20, 0, 0).start);
  await collector.report(other.session(end - 20, 0, 0).start);
  await collector.report(game.ad('Sunrise', 'banner', true));
  await collector.report(other.ad('Meteor', 'rewarded', false, 'shop'));

  await withPage(browser, collector, '#timeline', async (page) => {
    await page.locator('.vis-point.ad.filled').waitFor();
    await page.locator('.vis-point.ad.unfilled').waitFor();

    const labels = (await page.locator('.vis-label .installation strong').allInnerTexts()).sort();
    assert.deepEqual(labels, ['com.example.lanternkeep', 'com.example.starhopper']);
    await until(async () => {
      await page.mouse.move(0, 0);
      await page.locator('.vis-point.ad.unfilled .vis-dot').hover();
      return appears(page.locator('.vis-tooltip', { hasText: 'Meteor rewarded' }));
    }, 'the mark says what it is');
  });
});

test('a chosen mark opens its report, a chosen bar those of its session', async () => {
  const end = now();
  const session = game.session(end - 100, end - 20, 60);
  await reportSession(session);
  const ad = game.ad('Sunrise', 'banner', true);
  await collector.report(ad);

  await withPage(browser, collector, '#timeline', async (page) => {
    await page.locator('.vis-point.ad .vis-dot').click();
    await page.locator('#picked pre', { hasText: ad.adEventId }).waitFor();
    await page.locator('.vis-range.session').click();
    await page.locator('#picked article').nth(1).waitFor();

    assert.deepEqual(
      await page.locator('#picked .detail-title > span:first-child').allInnerTexts(),
      ['Session start', 'Session stop'],
    );
  });
});

test('the table says the same as the drawing', async () => {
  const end = now();
  await reportSession(game.session(end - 3600, end - 3360, 200, true));

  await withPage(browser, collector, '#timeline', async (page) => {
    await page.locator('#sessions tbody tr').first().waitFor();

    const cells = await page
      .locator('#sessions tbody tr')
      .first()
      .locator('td, th')
      .allInnerTexts();
    assert.match(cells[1], /^[0-9A-F]{8} first$/);
    assert.deepEqual(cells.slice(3, 6), ['4 min 0 s', '3 min 20 s', '40 s']);
    assert.match(cells[6], /^56 min/);
  });
});

test('a new report moves into the drawing', async () => {
  await collector.report(game.session(now() - 20, 0, 0).start);
  await withPage(browser, collector, '#timeline', async (page) => {
    await page.locator('.vis-range.session').waitFor();
    assert.equal(await page.locator('.vis-point.ad').count(), 0);
    await page.getByLabel('Follow what arrives').check();

    await collector.report(game.ad('Sunrise', 'banner', true));

    await page.locator('.vis-point.ad.filled').waitFor();
  });
});
