// The page of a collector in the system's Chromium.

import assert from 'node:assert/strict';
import { chromium } from 'playwright-core';
import { until } from './collector.js';

const kPatience = Number(process.env.ZLN_PAGE_PATIENCE ?? 30000);
const kLaptop = { width: 1280, height: 800 };
export const kPhone = { width: 360, height: 780 };

// What a browser says by itself when a server is away.
const kAway = /net::ERR_|Failed to load resource/;

export function startBrowser() {
  return chromium.launch({
    executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
    args: process.getuid() === 0 ? ['--no-sandbox'] : [],
  });
}

// Opens a view, calls `act` with the page, and sees to it that nothing went wrong behind the scenes:
// no error or warning in the console, no request to anybody else.
export async function withPage(browser, collector, hash, act, options = {}) {
  const { size = kLaptop, scheme = 'light', mayBeAway = false } = options;
  const context = await browser.newContext({
    viewport: size,
    colorScheme: scheme,
    reducedMotion: 'reduce',
    acceptDownloads: true,
  });
  try {
    context.setDefaultTimeout(kPatience);
    const page = await context.newPage();
    const troubles = watch(page, collector, mayBeAway);
    countRequests(page);
    await page.goto(`${collector.page}${hash}`);
    await page.locator('#connection[data-state=live]').waitFor();
    await act(page);
    assert.deepEqual(troubles, []);
  } finally {
    await context.close();
  }
}

function watch(page, collector, mayBeAway) {
  const troubles = [];
  page.on('console', (message) => {
    if (!['error', 'warning'].includes(message.type())) return;
    if (!mayBeAway || !kAway.test(message.text())) troubles.push(`console: ${message.text()}`);
  });
  page.on('pageerror', (failure) => {
    if (!mayBeAway) troubles.push(`error: ${failure.stack}`);
  });
  page.on('request', (request) => {
    const url = request.url();
    if (!url.startsWith(collector.page) && !url.startsWith('data:'))
      troubles.push(`request: ${url}`);
  });
  return troubles;
}

const kPending = new WeakMap();

function countRequests(page) {
  const pending = new Set();
  kPending.set(page, pending);
  page.on('request', (request) => {
    if (request.resourceType() !== 'eventsource') pending.add(request);
  });
  page.on('requestfinished', (request) => pending.delete(request));
  page.on('requestfailed', (request) => pending.delete(request));
}

// Waits until all that was asked for has come and been drawn: nothing is on its way, and the
// document has not changed for some frames.
export async function settled(page) {
  const pending = kPending.get(page);
  do {
    await until(() => pending.size === 0, 'all requests are answered');
    await page.evaluate(async () => {
      await document.fonts.ready;
      let quietFrames = 0;
      const observer = new MutationObserver(() => (quietFrames = 0));
      observer.observe(document, {
        subtree: true,
        childList: true,
        attributeFilter: ['class', 'hidden'],
      });
      for (; quietFrames < 5; ++quietFrames) await new Promise(requestAnimationFrame);
      observer.disconnect();
    });
  } while (pending.size > 0);
}

// Whether something comes to be seen within a moment.
export const appears = (locator) =>
  locator.waitFor({ timeout: 2000 }).then(
    () => true,
    () => false,
  );

// Shows a view by its address, and waits until it is drawn.
export async function show(page, collector, hash) {
  await page.goto(`${collector.page}#${hash}`);
  await settled(page);
}

export async function go(page, view) {
  await page.locator(`nav a[href="#${view}"]`).click();
  await page.locator(`#view-${view}`).waitFor();
}
