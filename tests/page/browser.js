// The page of a collector in the system's Chromium.

import assert from 'node:assert/strict';
import { chromium } from 'playwright-core';

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

export async function go(page, view) {
  await page.locator(`nav a[href="#${view}"]`).click();
  await page.locator(`#view-${view}`).waitFor();
}
