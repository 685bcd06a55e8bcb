// The pictures of the page in the documents, docs/web-equaliser.png and docs/web-head.png, and the one that
// links to the page show, web/preview.png.
import { join } from 'node:path';
import { fileURLToPath } from 'node:url';
import { launch, open, serve } from './browser.mjs';

const root = fileURLToPath(new URL('../../', import.meta.url));
const server = await serve();
const browser = await launch();
const take = async (path, colorScheme, prepare, height = 860, width = 1280) => {
  const { page, close } = await open(browser, server.url, { viewport: { width, height }, colorScheme });
  await page.click('#play');
  await prepare(page);
  await page.waitForTimeout(8000);
  await page.mouse.move(0, 0);
  await page.screenshot({ path: join(root, path) });
  await close();
};
await take('docs/web-equaliser.png', 'dark', async (page) => {
  await page.selectOption('#precision', 'int16');
});
await take('docs/web-head.png', 'light', async (page) => {
  await page.selectOption('#sound', 'guitar');
  await page.click('[data-kind=head]');
  await page.click('#run-checksum');
  await page.waitForSelector('#bits .same');
});
await take('web/preview.png', 'dark', () => {}, 630, 1200);
await browser.close();
server.close();
