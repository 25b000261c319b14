// The page stays quick with ten thousand reports.

import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { go, startBrowser, withPage } from './browser.js';
import { Collector, until } from './collector.js';
import { busyDay } from './game.js';

const kReports = 10000;
const kSeed = 20261121;
const kMostElements = 2500;
const kMostInTheChart = 9000;
const kMilliseconds = 30000;

let collector;
let browser;

before(async () => {
  [collector, browser] = await Promise.all([Collector.start(), startBrowser()]);
  console.log(`seed ${kSeed}`);
  const begin = Date.now();
  await collector.reportAll(busyDay(kReports, kSeed));
  console.log(`${kReports} reports sent in ${((Date.now() - begin) / 1000).toFixed(1)} s`);
});
after(async () => {
  await browser?.close();
  await collector?.remove();
});

const elements = (page) => page.evaluate(() => document.querySelectorAll('*').length);

async function timed(what, act) {
  const begin = Date.now();
  await act();
  const taken = Date.now() - begin;
  console.log(`${what}: ${taken} ms`);
  assert.ok(taken < kMilliseconds, `${what} took ${taken} ms`);
}

test('the list holds all of them in few elements, from end to end', async () => {
  await withPage(browser, collector, '#reports', async (page) => {
    const { reports } = await collector.status();
    assert.ok(reports >= kReports, `${reports} reports`);
    await timed('first rows', () => page.locator('#list .row[aria-posinset="1"]').waitFor());
    await page.locator('#list-note', { hasText: reports.toLocaleString('en-US') }).waitFor();
    assert.equal(
      await page.locator('#list .row').first().getAttribute('aria-setsize'),
      String(reports),
    );

    await page.locator('#list').focus();
    await timed('to the last row', async () => {
      await page.keyboard.press('End');
      await page.locator(`#list .row:not(.missing)[aria-posinset="${reports}"]`).waitFor();
    });

    const count = await elements(page);
    console.log(`elements in the page with ${reports} reports: ${count}`);
    assert.ok(count < kMostElements, `${count} elements`);
  });
});

test('scrolling draws without long pauses', async () => {
  await withPage(browser, collector, '#reports', async (page) => {
    await page.locator('#list .row[aria-posinset="1"]').waitFor();
    const longest = await page.evaluate(async () => {
      const list = document.getElementById('list');
      let last = performance.now();
      let longestFrame = 0;
      for (let step = 0; step < 100; ++step) {
        list.scrollTop += 1500;
        await new Promise(requestAnimationFrame);
        const now = performance.now();
        longestFrame = Math.max(longestFrame, now - last);
        last = now;
      }
      return longestFrame;
    });
    console.log(`longest of 100 frames while scrolling: ${Math.round(longest)} ms`);
    assert.ok(longest < 2000, `a frame took ${longest} ms`);
  });
});

test('filters find what the collector finds', async () => {
  await withPage(browser, collector, '#reports', async (page) => {
    const { total } = await collector.ask(
      'GET',
      '/api/reports?kind=ad-attempt&text=Flicker&limit=1',
    );
    assert.ok(total > 100, `${total} are to be found`);

    await timed('filter', async () => {
      await page.locator('#filters').getByLabel('Kind').selectOption('ad-attempt');
      await page.locator('#filters').getByLabel('Text').fill('Flicker');
      await page
        .locator('#list-note', { hasText: `${total.toLocaleString('en-US')} reports that match` })
        .waitFor();
    });

    const words = await page.locator('#list .row .what').allInnerTexts();
    assert.ok(
      words.length > 5 && words.every((text) => text.startsWith('Flicker')),
      words.join('; '),
    );
    assert.match(page.url(), /#reports\?kind=ad-attempt&text=Flicker/);
    await page.reload();
    await page.locator('#list-note', { hasText: total.toLocaleString('en-US') }).waitFor();
  });
});

test('arrivals join a list that is scrolled down without moving it', async () => {
  await withPage(browser, collector, '#reports', async (page) => {
    await page.locator('#list .row[aria-posinset="1"]').waitFor();
    await page.locator('#list').evaluate((list) => (list.scrollTop = 3000));
    const inView = () =>
      page.locator('#list').evaluate((list) => {
        const top = list.getBoundingClientRect().top;
        return [...list.querySelectorAll('.row')].find(
          (row) => row.getBoundingClientRect().top >= top,
        ).id;
      });
    const before = await until(inView, 'a row in view');

    await collector.reportAll(busyDay(20, kSeed + 1));
    const { total } = await collector.ask('GET', '/api/reports?limit=1');
    await page.locator('#list-note', { hasText: total.toLocaleString('en-US') }).waitFor();

    assert.equal(await inView(), before);
  });
});

test('the timeline draws a bounded number of marks', async () => {
  await withPage(browser, collector, '#overview', async (page) => {
    await page.locator('#tiles .tile').first().waitFor();
    await timed('timeline', async () => {
      await go(page, 'timeline');
      await page.locator('.vis-range.session').first().waitFor();
    });
    await page.getByRole('button', { name: 'All' }).click();
    await page.locator('.vis-point.ad.crowd').first().waitFor();

    const count = await elements(page);
    console.log(`elements in the page with the timeline of all: ${count}`);
    assert.ok(count < kMostInTheChart, `${count} elements`);
  });
});
