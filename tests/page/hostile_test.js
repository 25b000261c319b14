// Values that a game sends are never taken for markup.

import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { appears, go, settled, startBrowser, withPage } from './browser.js';
import { Collector, pause, until } from './collector.js';
import { Game } from './game.js';

const kImage = '<img src=x onerror="window.hit=1">';
const kScript = '<script>window.hit=2</script>';
const kVector = '<svg onload="window.hit=3"><a href="javascript:window.hit=4">come</a></svg>';
const kBroken = "\"><b id=planted>' onmouseover=window.hit=5 x='";

let collector;
let browser;

before(async () => {
  [collector, browser] = await Promise.all([Collector.start(), startBrowser()]);
  const game = new Game(1, kImage, kScript);
  const now = Date.now() / 1000;
  const { start, stop } = game.session(now - 60, now - 20, 30);
  await collector.report(start);
  await collector.report(stop);
  await collector.report(game.ad(kImage, kScript, true, kVector));
  await pause(100);
  await collector.report({
    ...game.ad(kBroken, kImage, false),
    [kImage]: { [kScript]: [kVector] },
  });
  await collector.report({ type: kImage, userId: kScript, sessionId: kVector });
  await collector.report(`${kImage}${kScript} is no JSON`);
  await collector.ask('POST', '/api/faults', {
    effect: 'permanent',
    error: kImage,
    match: { [kScript]: kVector },
    times: 3,
  });
});
after(async () => {
  await browser?.close();
  await collector?.remove();
});

// What would be there if a value had been taken for markup.
async function checkNothingRan(page, where) {
  const found = await page.evaluate(() => ({
    hit: window.hit,
    images: document.querySelectorAll('img:not(.brand img)').length,
    scripts: document.querySelectorAll('script').length,
    vectors: document.querySelectorAll('main svg, .vis-tooltip svg').length,
    planted: document.querySelectorAll('#planted, b').length,
    handlers: document.querySelectorAll('[onerror], [onload], [onmouseover]').length,
    links: document.querySelectorAll('a[href^="javascript:"]').length,
  }));
  assert.deepEqual(
    found,
    { hit: undefined, images: 0, scripts: 1, vectors: 0, planted: 0, handlers: 0, links: 0 },
    where,
  );
}

const shows = (page, selector, text) => page.locator(selector, { hasText: text }).first().waitFor();

test('in the overview they are texts', async () => {
  await withPage(browser, collector, '#overview', async (page) => {
    await shows(page, '#fill th', kImage);
    await shows(page, '#fill td', kScript);
    await shows(page, '#latest .what', kBroken);
    await checkNothingRan(page, 'overview');
  });
});

test('in the list and the detail of every report they are texts', async () => {
  await withPage(browser, collector, '#reports', async (page) => {
    await shows(page, '#list .what', `${kImage} ${kScript} in ${kVector}`.slice(0, 60));
    const rows = await page.locator('#list .row').all();
    assert.equal(rows.length, 6);
    for (const row of rows) {
      await row.click();
      const id = (await row.getAttribute('id')).replace('report-', '#');
      await page.locator('#detail .detail-title', { hasText: id }).waitFor();
      await checkNothingRan(page, `report ${id}`);
    }
    await page.goto(`${collector.page}#reports/3`);
    await shows(page, '#detail pre', JSON.stringify(kImage));
    await page.goto(`${collector.page}#reports/6`);
    await shows(page, '#detail pre', `${kImage}${kScript} is no JSON`);
    await checkNothingRan(page, 'a body that is no JSON');
  });
});

test('in the timeline, its tooltips and its table they are texts', async () => {
  await withPage(browser, collector, '#timeline', async (page) => {
    await shows(page, '.vis-label strong', kImage);
    await shows(page, '.vis-label span', kScript);
    await shows(page, '#sessions td', kImage);
    // Each click on the two ads zooms in, until they are drawn apart; this may be while a click begins.
    await until(async () => {
      if ((await page.locator('.vis-point.ad.filled').count()) > 0) return true;
      const crowd = page.locator('.vis-point.ad.crowd').first();
      await crowd.click({ timeout: 1000 }).catch(() => undefined);
      await settled(page);
      return false;
    }, 'the two ads are drawn apart');
    await until(async () => {
      await page.mouse.move(0, 0);
      await page.locator('.vis-point.ad.filled .vis-dot').hover();
      return appears(page.locator('.vis-tooltip', { hasText: `${kImage} ${kScript}` }));
    }, 'the mark says what it is');
    await checkNothingRan(page, 'tooltip of an ad');
    await page.locator('.vis-point.ad.filled .vis-dot').click();
    await shows(page, '#picked-title', kImage);
    await checkNothingRan(page, 'chosen ad');
  });
});

test('in the faults they are texts', async () => {
  await withPage(browser, collector, '#faults', async (page) => {
    await shows(page, '#fault-list', kImage);
    await shows(page, '#fault-list', kScript);
    await checkNothingRan(page, 'faults');
  });
});

test('in the address they are texts', async () => {
  const hash = `#reports?${new URLSearchParams({ text: kImage, session: kScript, kind: kVector })}`;
  await withPage(browser, collector, hash, async (page) => {
    await shows(page, '#chips', '<script>');
    await checkNothingRan(page, 'address');
    await go(page, 'faults');
  });
});
