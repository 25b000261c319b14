// What arrives is shown at once, and the page comes back after the collector was away.

import assert from 'node:assert/strict';
import { after, before, beforeEach, test } from 'node:test';
import { go, startBrowser, withPage } from './browser.js';
import { Collector, until } from './collector.js';
import { Game } from './game.js';

let collector;
let browser;
const game = new Game(1);
const now = Date.now() / 1000;

before(async () => {
  [collector, browser] = await Promise.all([Collector.start(), startBrowser()]);
});
after(async () => {
  await browser?.close();
  await collector?.remove();
});
beforeEach(() => collector.ask('DELETE', '/api/reports'));

const rows = (page) => page.locator('#list .row');
const tile = (page, name) => page.locator('#tiles .tile', { hasText: name }).locator('dd');

test('an empty collector says how a game comes to trust it', async () => {
  await withPage(browser, collector, '', async (page) => {
    const { authority, ports } = await collector.status();
    assert.equal(await page.locator('#trust-line').textContent(), `SSL_CERT_FILE=${authority}`);
    assert.match(await page.locator('#ports').innerText(), new RegExp(`localhost:${ports.config}`));

    await collector.report(game.ad('Sunrise', 'banner', true));

    await page.locator('#welcome').waitFor({ state: 'hidden' });
    await page.locator('#fill tbody tr', { hasText: 'Sunrise' }).waitFor();
  });
});

test('reports appear in the list without a reload', async () => {
  await withPage(browser, collector, '#reports', async (page) => {
    await page.evaluate(() => (window.sameDocument = true));

    await collector.report(game.session(now - 60, now - 10, 40).start);
    await collector.report(game.ad('Meteor', 'rewarded', false, 'shop'));

    await page.locator('#list .row', { hasText: 'Meteor rewarded in shop, not filled' }).waitFor();
    assert.equal(await rows(page).count(), 2);
    assert.match(await rows(page).first().innerText(), /Ad attempt in a zone/);
    assert.match(await rows(page).first().innerText(), /valid/);
    assert.equal(await page.evaluate(() => window.sameDocument), true);
  });
});

test('an arrival is announced to screen readers', async () => {
  await withPage(browser, collector, '#reports', async (page) => {
    await collector.report(game.ad('Sunrise', 'banner', true));

    await page.locator('#announce', { hasText: '1 report arrived' }).waitFor({ state: 'attached' });
  });
});

test('the overview counts what arrives, and repeats as duplicates', async () => {
  await withPage(browser, collector, '#overview', async (page) => {
    const { start, stop } = game.session(now - 60, now - 10, 40);
    for (const report of [start, stop, stop]) await collector.report(report);
    await collector.report(game.ad('Sunrise', 'banner', true));
    await collector.report(game.ad('Sunrise', 'banner', false));
    await collector.report('no JSON at all');

    await until(async () => (await tile(page, 'Reports').innerText()) === '6', '6 reports');
    assert.equal(await tile(page, 'Installations').innerText(), '1');
    assert.equal(await tile(page, 'Sessions').innerText(), '1');
    assert.equal(await tile(page, 'Duplicates').innerText(), '1');
    assert.equal(await tile(page, 'Invalid').innerText(), '1');
    const fill = await page.locator('#fill tbody tr').innerText();
    assert.deepEqual(fill.split(/\s+/).slice(0, 6), ['Sunrise', 'banner', '2', '1', '50', '%']);
    const stops = await page.locator('#verdicts tr', { hasText: 'Session stop' }).innerText();
    assert.deepEqual(stops.split(/\s+/), ['Session', 'stop', '1', '1', '–', '–']);
  });
});

test('a chosen report is shown in full, with its findings', async () => {
  await collector.report({ type: 'ReportTypeAdAttempt', network: 'x'.repeat(5000) });

  await withPage(browser, collector, '#reports', async (page) => {
    await rows(page).first().click();

    const detail = page.locator('#detail');
    await detail.locator('.badge', { hasText: 'invalid' }).waitFor();
    assert.match(await detail.locator('.lint').innerText(), /schema/);
    assert.match(page.url(), /#reports\/\d+$/);
    const clipped = await detail.locator('pre').innerText();
    assert.ok(clipped.length < 1000, `a long text takes ${clipped.length} characters`);
    await detail.locator('pre button').click();
    assert.match(await detail.locator('pre').innerText(), /x{5000}/);
  });
});

test('a paused list waits, and says how many arrived', async () => {
  await withPage(browser, collector, '#reports', async (page) => {
    await collector.report(game.ad('Sunrise', 'banner', true));
    await rows(page).first().waitFor();
    await page.getByRole('button', { name: 'Pause' }).click();

    await collector.report(game.ad('Meteor', 'banner', true));

    await page.locator('#list-note', { hasText: '1 arrived since' }).waitFor();
    assert.equal(await rows(page).count(), 1);
    await page.getByRole('button', { name: 'Resume' }).click();
    await page.locator('#list .row', { hasText: 'Meteor' }).waitFor();
  });
});

test('reports are cleared after a confirmation only', async () => {
  await collector.report(game.ad('Sunrise', 'banner', true));
  await withPage(browser, collector, '#reports', async (page) => {
    await rows(page).first().waitFor();

    await page.getByRole('button', { name: 'Clear …' }).click();
    await page.getByRole('button', { name: 'Keep them' }).click();
    assert.equal((await collector.status()).reports, 1);
    await page.getByRole('button', { name: 'Clear …' }).click();
    await page.getByRole('button', { name: 'Clear', exact: true }).click();

    await page.locator('#welcome').waitFor();
    assert.equal((await collector.status()).reports, 0);
  });
});

test('the export is what arrived', async () => {
  const report = game.ad('Sunrise', 'banner', true);
  await collector.report(report);
  await withPage(browser, collector, '#reports', async (page) => {
    const [download] = await Promise.all([
      page.waitForEvent('download'),
      page.getByRole('link', { name: 'JSON lines' }).click(),
    ]);
    const stream = await download.createReadStream();
    let text = '';
    for await (const piece of stream) text += piece;

    assert.match(text, new RegExp(report.adEventId));
  });
});

test('the page comes back by itself when the collector does', async () => {
  await collector.report(game.ad('Sunrise', 'banner', true));
  await withPage(
    browser,
    collector,
    '#reports',
    async (page) => {
      await rows(page).first().waitFor();

      await collector.end();
      await page.locator('#connection[data-state=lost]').waitFor();
      await collector.run();
      await collector.report(game.ad('Meteor', 'banner', true));

      await page.locator('#connection[data-state=live]').waitFor();
      await page.locator('#list .row', { hasText: 'Meteor' }).waitFor();
      await go(page, 'overview');
      await until(async () => (await tile(page, 'Reports').innerText()) === '2', '2 reports');
    },
    { mayBeAway: true },
  );
});
