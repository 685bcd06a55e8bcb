// The two pictures of the README: docs/web-equaliser.png and docs/web-head.png.
import { fileURLToPath } from 'node:url';
import { launch, open, serve } from './browser.mjs';

const docs = fileURLToPath(new URL('../../docs/', import.meta.url));
const server = await serve();
const browser = await launch();
const take = async (name, colorScheme, prepare) => {
  const { page, close } = await open(browser, server.url, { viewport: { width: 1280, height: 860 }, colorScheme });
  await page.click('#play');
  await prepare(page);
  await page.waitForTimeout(8000);
  await page.mouse.move(0, 0);
  await page.screenshot({ path: `${docs}${name}.png` });
  await close();
};
await take('web-equaliser', 'dark', async (page) => {
  await page.selectOption('#precision', 'int16');
});
await take('web-head', 'light', async (page) => {
  await page.selectOption('#sound', 'guitar');
  await page.click('[data-kind=head]');
  await page.click('#run-checksum');
  await page.waitForSelector('#bits .same');
});
await browser.close();
server.close();
