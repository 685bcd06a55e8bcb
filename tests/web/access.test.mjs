// Every kind of filter in every view, for people who see less or hear a page read: no finding of axe.
import assert from 'node:assert/strict';
import { createRequire } from 'node:module';
import { test } from 'node:test';
import { browser, open, says, serveAndLaunch, server, upload } from './browser.mjs';

const axe = createRequire(new URL('../../bindings/web/package.json', import.meta.url)).resolve('axe-core');
serveAndLaunch();

for (const [name, options] of [['a phone in light', { viewport: { width: 390, height: 844 }, colorScheme: 'light', hasTouch: true, isMobile: true }],
                               ['a desktop in dark', { viewport: { width: 1280, height: 860 }, colorScheme: 'dark' }]])
  test(`no finding of axe in any tab on ${name}`, async () => {
    const { page, errors, close } = await open(browser, server.url, { ...options, bypassCSP: true });
    await page.addScriptTag({ path: axe });
    const check = async (where) => {
      const found = await page.evaluate(async () =>
        (await axe.run()).violations.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html).join(' ')}`));
      assert.deepEqual(found, [], where);
      const { wide, room } = await page.evaluate(() => ({ wide: document.documentElement.scrollWidth, room: innerWidth }));
      assert.ok(wide <= room, `${where} is ${wide} wide, the window ${room}`);
    };
    const kinds = await page.locator('[data-kind]').evaluateAll((tabs) => tabs.map((tab) => tab.dataset.kind));
    assert.deepEqual(kinds, ['eq', 'design', 'file', 'room', 'head', 'mean']);
    for (const kind of kinds) {
      await page.click(`[data-kind=${kind}]`);
      if (kind === 'file') await page.selectOption('#example', 'dark.txt');
      await page.waitForFunction(() => !document.getElementById('save-wav').disabled);
      await check(kind);
    }
    // The views have no colours of their own.
    for (const view of options.isMobile ? ['phase', 'delay', 'roots', 'impulse', 'step'] : []) {
      await page.click(`[data-view=${view}]`);
      await check(view);
    }
    await page.click('[data-kind=design]');
    await page.selectOption('#design-family', 'fitted');
    const bump = Array.from({ length: 60 }, (_, i) => `${20 * 1.12 ** i} ${70 + 6 * Math.sin(i / 6)}`).join('\n');
    await page.setInputFiles('#measurement', upload('m.txt', bump));
    await says(page, 'design-summary', 'bands;');
    await page.click('[data-view=magnitude]');
    await check('a fitted equaliser');
    assert.deepEqual(errors, []);
    await close();
  });
