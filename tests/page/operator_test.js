// What is set on the page is what games get.

import assert from 'node:assert/strict';
import { mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import os from 'node:os';
import path from 'node:path';
import { after, before, beforeEach, test } from 'node:test';
import { startBrowser, withPage } from './browser.js';
import { Collector, until } from './collector.js';
import { Game } from './game.js';

const kInterval = 'ConfigSerializationKeyConfigUpdateInterval';
const kLimit = 'ConfigSerializationKeyReportTemporaryFailureLimit';
const kStops = 'ConfigSerializationKeySendStopSessionReports';

let collector;
let browser;
let folder;
const game = new Game(1);

before(async () => {
  folder = mkdtempSync(path.join(os.tmpdir(), 'zln-page-'));
  const file = path.join(folder, 'settings.json');
  writeFileSync(file, JSON.stringify({ [kInterval]: 3600 }));
  [collector, browser] = await Promise.all([Collector.start(['--settings', file]), startBrowser()]);
});
after(async () => {
  await browser?.close();
  await collector?.remove();
  rmSync(folder, { recursive: true, force: true });
});
beforeEach(async () => {
  await collector.ask('DELETE', '/api/faults');
  await collector.ask('DELETE', '/api/settings');
});

const send = async (network) =>
  JSON.parse((await collector.report(game.ad(network, 'banner', true))).body);
const faults = (page) => page.locator('#fault-list [data-fault]');

test('a fault made with the form changes the next answers of those it is for', async () => {
  await withPage(browser, collector, '#faults', async (page) => {
    await page.getByLabel('What happens').selectOption('permanent');
    await page.getByLabel('Member').fill('network');
    await page.getByLabel('Value').fill('Grumble');
    await page.getByLabel('Text for the game’s log').fill('reports of Grumble are not wanted');
    await page.getByLabel('How many requests').fill('2');
    await page.getByRole('button', { name: 'Put in force' }).click();
    await faults(page).first().waitFor();
    assert.equal(await page.locator('#fault-count').innerText(), '1');

    const refused = {
      success: false,
      errorIsPermanent: true,
      error: 'reports of Grumble are not wanted',
    };
    assert.deepEqual(await send('Grumble'), refused);
    assert.deepEqual(await send('Sunrise'), { success: true });
    assert.deepEqual(await send('Grumble'), refused);
    assert.deepEqual(await send('Grumble'), { success: true });

    await page.locator('#fault-list', { hasText: '0 of 2 left' }).waitFor();
    await page.locator('#fault-list', { hasText: '2 hits' }).waitFor();
  });
});

test('a preset takes the server away until it is switched off', async () => {
  await withPage(browser, collector, '#faults', async (page) => {
    await page.getByRole('button', { name: 'Server away' }).click();
    await faults(page).first().waitFor();

    await assert.rejects(send('Sunrise'));
    await page.getByRole('button', { name: 'Switch off: Server away' }).click();
    await page.locator('#fault-list', { hasText: 'None' }).waitFor();

    assert.deepEqual(await send('Sunrise'), { success: true });
  });
});

test('every fault of the form and every preset is accepted', async () => {
  await withPage(browser, collector, '#faults', async (page) => {
    const effects = await page
      .locator('#fault-form option')
      .evaluateAll((all) => all.map(({ value }) => value));
    assert.equal(effects.length, 15);
    for (const effect of effects) {
      await page.getByLabel('What happens').selectOption(effect);
      await page.getByRole('button', { name: 'Put in force' }).click();
    }
    for (const preset of await page.locator('#presets button').all()) await preset.click();

    const presets = await page.locator('#presets button').count();
    await until(
      async () => (await faults(page).count()) === effects.length + presets,
      'all are listed',
    );
    const { faults: inForce } = await collector.ask('GET', '/api/faults');
    assert.deepEqual(
      inForce.slice(0, 15).map(({ effect }) => effect),
      effects,
    );
    await page.getByRole('button', { name: 'Switch all off' }).click();
    await until(async () => (await faults(page).count()) === 0, 'none is listed');
    assert.deepEqual((await collector.ask('GET', '/api/faults')).faults, []);
  });
});

test('the form shows only what applies', async () => {
  await withPage(browser, collector, '#faults', async (page) => {
    const shown = () =>
      page
        .locator('#fault-form [data-field]:visible')
        .evaluateAll((all) => all.map((field) => field.dataset.field));
    const effect = page.getByLabel('What happens');

    await effect.selectOption('delay');
    assert.deepEqual(await shown(), ['effect', 'types', 'match', 'seconds', 'extent']);
    await effect.selectOption('redirect');
    assert.deepEqual(await shown(), ['effect', 'types', 'match', 'late', 'to', 'extent']);
    await effect.selectOption('cut-before');
    assert.deepEqual(await shown(), ['effect', 'extent']);
  });
});

test('a share keeps its seed', async () => {
  await withPage(browser, collector, '#faults', async (page) => {
    await page.getByLabel('for a share, in %:').check();
    await page.getByLabel('Share in percent').fill('25');
    await page.getByLabel('seed').fill('11');
    await page.getByRole('checkbox', { name: 'settings' }).uncheck();
    await page.getByRole('button', { name: 'Put in force' }).click();
    await faults(page).first().waitFor();

    const [fault] = (await collector.ask('GET', '/api/faults')).faults;
    assert.equal(fault.share, 0.25);
    assert.equal(fault.seed, 11);
    assert.equal(fault.types.length, 5);
    assert.equal(fault.times, undefined);
  });
});

test('a fault that a program makes appears, and its end too', async () => {
  await withPage(browser, collector, '#faults', async (page) => {
    await collector.ask('POST', '/api/faults', { effect: 'delay', seconds: 0.1 });
    await page.locator('#fault-list', { hasText: 'Late answer' }).waitFor();

    await collector.ask('DELETE', '/api/faults');
    await page.locator('#fault-list', { hasText: 'None' }).waitFor();
  });
});

test('settings saved on the page are what games get', async () => {
  await withPage(browser, collector, '#settings', async (page) => {
    assert.deepEqual(await collector.config(), { [kInterval]: 3600 });
    await until(
      async () => (await page.locator(`#${kInterval}`).inputValue()) === '3600',
      'the file’s values',
    );

    await page.locator(`#${kInterval}`).fill('-1');
    await page.locator(`#lint-${kInterval} li`).waitFor();
    await page.locator(`#${kLimit}`).fill('0');
    await page.locator(`#lint-${kLimit} li`).waitFor();
    await page.getByRole('radiogroup', { name: 'SendStopSessionReports' }).getByText('off').click();
    assert.deepEqual(await collector.config(), { [kInterval]: 3600 });
    await page.getByRole('button', { name: 'Save' }).click();
    await page.locator('#settings-source', { hasText: 'in place of the file' }).waitFor();

    assert.deepEqual(await collector.config(), { [kInterval]: -1, [kLimit]: 0, [kStops]: false });
    await page.getByRole('button', { name: 'Back to the file' }).click();
    await page.locator('#settings-source', { hasText: 'As the file says' }).waitFor();
    assert.deepEqual(await collector.config(), { [kInterval]: 3600 });
    assert.equal(await page.locator(`#${kInterval}`).inputValue(), '3600');
  });
});

test('what is no number is not saved', async () => {
  await withPage(browser, collector, '#settings', async (page) => {
    await until(
      async () => (await page.locator(`#${kInterval}`).inputValue()) === '3600',
      'the file’s values',
    );

    await page.locator(`#${kInterval}`).fill('soon');

    assert.equal(await page.locator(`#${kInterval}`).getAttribute('aria-invalid'), 'true');
    assert.ok(await page.getByRole('button', { name: 'Save' }).isDisabled());
    await page.getByRole('button', { name: 'Undo changes' }).click();
    assert.equal(await page.locator(`#${kInterval}`).inputValue(), '3600');
  });
});

test('what a program sets appears, but never over what is being typed', async () => {
  await withPage(browser, collector, '#settings', async (page) => {
    const field = page.locator(`#${kLimit}`);
    await collector.ask('PUT', '/api/settings', { values: { [kLimit]: 5 } });
    await until(async () => (await field.inputValue()) === '5', 'the new value');

    await field.fill('6');
    await collector.ask('PUT', '/api/settings', { values: { [kLimit]: 7 } });
    await page.locator('#settings-source', { hasText: 'changed elsewhere' }).waitFor();
    assert.equal(await field.inputValue(), '6');
    await page.getByRole('button', { name: 'Undo changes' }).click();
    assert.equal(await field.inputValue(), '7');
  });
});
