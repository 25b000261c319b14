// The page works by keyboard, on a phone, in light and dark.

import assert from 'node:assert/strict';
import { after, before, test } from 'node:test';
import { go, kPhone, settled, show, startBrowser, withPage } from './browser.js';
import { Collector, until } from './collector.js';
import { Game } from './game.js';

const kViews = ['overview', 'timeline', 'reports', 'faults', 'settings'];
const kLeastContrast = 4.5;

let collector;
let browser;

before(async () => {
  [collector, browser] = await Promise.all([Collector.start(), startBrowser()]);
  const now = Date.now() / 1000;
  const game = new Game(1, `com.example.${'lantern'.repeat(20)}`);
  const { start, stop } = game.session(now - 200, now - 100, 50);
  for (const report of [stop, start, stop]) await collector.report(report);
  await collector.report(game.ad('Network'.repeat(20), 'rewarded', false, 'zone'.repeat(40)));
  await collector.report(game.ad('Sunrise', 'banner', true));
  await collector.report('no JSON');
  await collector.ask('POST', '/api/faults', {
    effect: 'temporary',
    match: { network: 'Flicker'.repeat(20) },
    times: 3,
  });
  await collector.ask('POST', '/api/faults', { effect: 'delay', seconds: 0, times: 1 });
  await collector.ask('PUT', '/api/settings', {
    values: {
      ConfigSerializationKeyReportTemporaryFailureLimit: 0,
      ConfigSerializationKeySendStopSessionReports: false,
    },
  });
});
after(async () => {
  await browser?.close();
  await collector?.remove();
});

// What has the focus, and whether that can be seen.
const focused = (page) =>
  page.evaluate(() => {
    const element = document.activeElement;
    const shown = element.closest('.switch') ? element.nextElementSibling : element;
    const style = getComputedStyle(shown);
    return {
      name: element.id || element.name || element.textContent.trim().slice(0, 30),
      tag: element.tagName,
      visible: style.outlineStyle !== 'none' && parseFloat(style.outlineWidth) > 0,
    };
  });

async function tabTo(page, name) {
  for (let steps = 0; steps < 80; ++steps) {
    await page.keyboard.press('Tab');
    const { name: now } = await focused(page);
    if (now === name) return;
  }
  assert.fail(`Tab never reaches ${name}`);
}

test('Tab goes through every view, and the focus is always to be seen', async () => {
  await withPage(browser, collector, '', async (page) => {
    for (const view of kViews) {
      await go(page, view);
      await settled(page);
      await page.evaluate(() => document.activeElement.blur());
      const seen = new Set();
      for (let steps = 0; steps < 70; ++steps) {
        await page.keyboard.press('Tab');
        const { name, tag, visible } = await focused(page);
        if (tag === 'BODY') break;
        assert.ok(visible, `${view}: the focus on ${tag} ${name} is not to be seen`);
        seen.add(name);
      }
      assert.ok(seen.size > 8, `${view}: only ${[...seen].join(', ')}`);
    }
  });
});

test('a report is found and read by keyboard alone', async () => {
  await withPage(browser, collector, '', async (page) => {
    await page.keyboard.press('Tab');
    assert.equal((await focused(page)).name, 'Skip to the content');
    await tabTo(page, 'Reports');
    await page.keyboard.press('Enter');
    await page.locator('#list .row').nth(2).waitFor();
    await tabTo(page, 'list');
    await page.keyboard.press('ArrowDown');
    await page.keyboard.press('ArrowDown');
    const active = await page.locator('#list').getAttribute('aria-activedescendant');
    assert.equal(active, await page.locator('#list [aria-posinset="3"]').getAttribute('id'));

    await page.keyboard.press('Enter');
    await page.locator('#detail .detail-title').waitFor();
    await until(async () => (await focused(page)).tag === 'H2', 'the focus on the report');
    await page.keyboard.press('Escape');
    await page.locator('#detail').waitFor({ state: 'hidden' });

    assert.equal((await focused(page)).name, 'list');
    await page.goBack();
    await page.locator('#detail').waitFor();
  });
});

test('the skip link leads past the navigation', async () => {
  await withPage(browser, collector, '#faults', async (page) => {
    await page.keyboard.press('Tab');
    await page.keyboard.press('Enter');

    assert.equal((await focused(page)).name, 'content');
    assert.ok(await page.locator('#view-faults').isVisible());
  });
});

test('the timeline moves and zooms by keyboard, and its table opens sessions', async () => {
  await withPage(browser, collector, '#timeline', async (page) => {
    const bar = page.locator('.vis-range.session');
    await bar.waitFor();
    const place = () => bar.boundingBox();
    await tabTo(page, 'chart');
    const before = await place();

    await page.keyboard.press('ArrowRight');
    await until(async () => (await place()).x < before.x - 50, 'the bar moves left');
    await page.keyboard.press('Home');
    await page.keyboard.press('-');
    await until(async () => (await place()).width < before.width * 0.9, 'the bar is shorter');
    const session = await page.locator('#sessions tbody button').first().innerText();
    await tabTo(page, session);
    await page.keyboard.press('Enter');

    await page.locator('#picked', { hasText: `Session ${session}` }).waitFor();
    await until(
      async () => (await focused(page)).name === 'picked',
      'the focus on what was chosen',
    );
  });
});

test('a fault is set and a setting switched by keyboard alone', async () => {
  await withPage(browser, collector, '#faults', async (page) => {
    const before = (await collector.ask('GET', '/api/faults')).faults.length;
    await tabTo(page, 'effect');
    await page.keyboard.type('Em');
    await page.keyboard.press('Enter');
    const effect = await page.locator('#fault-form [name=effect]').inputValue();
    assert.equal(effect, 'empty');
    await tabTo(page, 'Put in force');
    await page.keyboard.press('Enter');
    await until(
      async () => (await collector.ask('GET', '/api/faults')).faults.length === before + 1,
      'the fault',
    );

    await go(page, 'settings');
    const group = page.getByRole('radiogroup', { name: 'SendStopSessionReports' });
    await until(() => group.locator('input[value=false]').isChecked(), 'the switch as it was set');
    await group.locator('input[value=false]').focus();
    await page.keyboard.press('ArrowLeft');
    assert.ok(await group.locator('input[value=true]').isChecked());
  });
});

test('nothing is wider than a phone', async () => {
  await withPage(
    browser,
    collector,
    '',
    async (page) => {
      for (const hash of [...kViews, 'reports/1', 'reports/4']) {
        await show(page, collector, hash);
        const width = await page.evaluate(() => document.documentElement.scrollWidth);
        assert.ok(width <= kPhone.width, `${hash} is ${width} wide`);
      }
    },
    { size: kPhone },
  );
});

// The lowest contrast of a text with what lies under it. Texts in the chart lie on bars and are left out.
const lowestContrast = (page) =>
  page.evaluate(() => {
    const channels = (color) => color.match(/[\d.]+/g).map(Number);
    const luminance = (color) => {
      const [r, g, b] = channels(color)
        .slice(0, 3)
        .map((value) => value / 255)
        .map((value) => (value <= 0.04045 ? value / 12.92 : ((value + 0.055) / 1.055) ** 2.4));
      return 0.2126 * r + 0.7152 * g + 0.0722 * b;
    };
    const ground = (element) => {
      for (let at = element; at; at = at.parentElement) {
        const color = getComputedStyle(at).backgroundColor;
        if ((channels(color)[3] ?? 1) > 0.99) return color;
      }
      return 'rgb(255, 255, 255)';
    };
    let lowest = { contrast: 21 };
    const texts = document.createTreeWalker(document.body, NodeFilter.SHOW_TEXT);
    for (let text; (text = texts.nextNode());) {
      const element = text.parentElement;
      if (!text.textContent.trim() || !element.checkVisibility()) continue;
      if (element.closest('#chart, :disabled, td.none, option, .skip, .hidden')) continue;
      const [a, b] = [luminance(getComputedStyle(element).color), luminance(ground(element))];
      const contrast = (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
      if (contrast < lowest.contrast) lowest = { contrast, text: text.textContent.slice(0, 40) };
    }
    return lowest;
  });

for (const scheme of ['light', 'dark']) {
  test(`every text is readable in ${scheme}`, async () => {
    await withPage(
      browser,
      collector,
      '',
      async (page) => {
        const grounds = [];
        for (const hash of [...kViews, 'reports/1']) {
          await show(page, collector, hash);
          const { contrast, text } = await lowestContrast(page);
          assert.ok(
            contrast >= kLeastContrast,
            `${hash}: “${text}” has a contrast of ${contrast.toFixed(2)}`,
          );
          grounds.push(await page.evaluate(() => getComputedStyle(document.body).backgroundColor));
        }
        const [red] = grounds[0].match(/\d+/g).map(Number);
        assert.ok(scheme === 'dark' ? red < 60 : red > 200, `the ground is ${grounds[0]}`);
      },
      { scheme },
    );
  });
}

test('the focus stays on its link when a report arrives', async () => {
  await withPage(browser, collector, '', async (page) => {
    const invalid = page.locator('#tiles a[href="#reports?verdict=invalid"]');
    await invalid.focus();
    const before = Number(await invalid.textContent());

    await collector.report('no JSON');

    await until(async () => Number(await invalid.textContent()) === before + 1, 'the new count');
    assert.equal((await focused(page)).name, String(before + 1));
  });
});
