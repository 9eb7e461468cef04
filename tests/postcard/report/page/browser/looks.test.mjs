// The page is legible in narrow and wide windows, in light and dark, without a mouse, and to
// assistive programs; and it can be printed.
import assert from 'node:assert/strict';
import { after, test } from 'node:test';

import { captureBytes } from './capture.mjs';
import { axeSource, endBrowser, example, makePage, openPage, picture, write } from './support.mjs';

after(endBrowser);

// Names, addresses and matches of the greatest length.
const longNames = `policies:
  - name: ${'policy-'.repeat(36)}
    interfaces: { ipv6: [${Array.from({ length: 20 }, (_, i) => `TwentyFiveGigabitEthernet1/0/${i}`).join(', ')}] }
    classes:
${['w', 'service'].map((name) => `      - name: ${`${name}-`.repeat(200).slice(0, 255)}
        actions: [sample]
        ipv6:
          source: ["2001:db8:1111:2222:3333:4444:5555:6666/128"]
          destination: ["2001:db8:aaaa:bbbb:cccc:dddd:eeee:ff00/120"]
          sample: { rate: 65536 }
          protocols:
            - protocol: tcp
              ports: [{ source: [10001-60001], destination: [10001-60001] }]
              tcp-flags: [{ flags: 0xff, mask: 0xff }]`).join('\n')}
`;

function pageOf(name) {
   if (name === 'long-names') {
      return makePage('looks-long-names', write('long-names.yaml', longNames));
   }
   return name === 'web-tier'
                ? makePage('looks-web-tier', example(name), '--pcap', write('looks.pcap', captureBytes()))
                : makePage(`looks-${name}`, example(name));
}

for (const name of ['web-tier', 'all-features', 'large-datacenter', 'long-names']) {
   for (const width of [380, 1600]) {
      for (const colours of ['light', 'dark']) {
         test(`${name} at ${width} pixels, ${colours}`, async () => {
            const page = await openPage(pageOf(name), { width, colours });
            await page.click('#map-list summary');
            await picture(page, `${name}-${width}-${colours}`);
            const looks = await page.evaluate(() => {
               const visible = [...document.querySelectorAll('body *')].filter(
                     (each) => each.checkVisibility() && each.childElementCount === 0 &&
                               each.textContent.trim() !== '');
               const sizes = visible.map((each) => parseFloat(getComputedStyle(each).fontSize));
               const wide = visible.filter((each) => each.closest('.grid, .icicle, .json') === null)
                                   .filter((each) => each.getBoundingClientRect().right > innerWidth + 1);
               const rows = [...document.querySelectorAll('.grid .body .row')];
               const cut = rows.filter((row) => [...row.children].some((cell) => {
                  const [outer, inner] = [row.getBoundingClientRect(), cell.getBoundingClientRect()];
                  return inner.height > 0 && (inner.top < outer.top - 1 || inner.bottom > outer.bottom + 1);
               }));
               return {
                  cut: cut.map((row) => row.textContent),
                  scroll: document.documentElement.scrollWidth - document.documentElement.clientWidth,
                  smallest: Math.min(...sizes), wide: wide.map((each) => each.outerHTML.slice(0, 200)),
                  paper: getComputedStyle(document.body).backgroundColor,
               };
            });
            assert.equal(looks.scroll, 0, 'nothing is wider than the window');
            assert.deepEqual(looks.wide, []);
            assert.deepEqual(looks.cut, []);
            assert.ok(looks.smallest >= 11, `the smallest letters have ${looks.smallest} pixels`);
            const [red] = looks.paper.match(/\d+/);
            assert.equal(Number(red) > 128, colours === 'light', looks.paper);

            await page.evaluate(axeSource);
            const { violations } = await page.evaluate(() => globalThis.axe.run());
            assert.deepEqual(violations.map(({ id, impact, nodes }) => ({
               id, impact, at: nodes.map(({ html }) => html).slice(0, 3),
            })), []);
            assert.deepEqual(page.troubles, []);
            await page.close();
         });
      }
   }
}

test('the choice of colours holds', async () => {
   const page = await openPage(pageOf('web-tier'));
   const theme = () => page.$eval('html', (html) => html.dataset.theme);
   assert.equal(await theme(), 'light');
   await page.selectOption('#theme', 'dark');
   assert.equal(await theme(), 'dark');
   await page.selectOption('#theme', '');
   await page.emulateMedia({ colorScheme: 'dark' });
   await page.waitForFunction(() => document.documentElement.dataset.theme === 'dark');
   await page.close();
});

test('everything can be reached without a mouse', async () => {
   const page = await openPage(pageOf('web-tier'));
   const focused = () => page.evaluate(() => {
      const each = document.activeElement;
      return each.id || each.getAttribute('aria-label') || each.textContent;
   });
   const tabTo = async (what) => {
      for (let i = 0; i < 80; ++i) {
         const now = await focused();
         if (now === what || (what.endsWith(':') && now.startsWith(what))) {
            return;
         }
         await page.keyboard.press('Tab');
      }
      assert.fail(`no way to ${what}, the focus is on ${await focused()}`);
   };
   await tabTo('web-tier-ipv4:');
   for (const [key, wanted] of [['ArrowDown', 'checkout:'], ['ArrowRight', 'connections:'],
                                ['ArrowDown', 'tcp:'], ['ArrowDown', 'dport 80:'],
                                ['ArrowUp', 'tcp:'], ['Enter', 'tcp:'], ['Escape', 'connections:'],
                                ['Escape', 'web-tier-ipv4:']]) {
      await page.keyboard.press(key);
      assert.ok((await focused()).startsWith(wanted), `${key}: ${await focused()}`);
   }
   await tabTo('Class');
   await page.keyboard.press('Enter');
   const sorted = await page.$eval('#class-table [aria-sort]', (cell) => cell.getAttribute('aria-sort'));
   assert.equal(sorted, 'ascending');
   const first = '#class-table .body [aria-rowindex="2"] .name';
   assert.equal(await page.textContent(first), 'answers');
   await page.keyboard.press('Enter');
   assert.equal(await page.textContent(first), 'requests');
   await tabTo('packet-text');
   await page.keyboard.press('Control+A');
   await page.keyboard.type('udp 192.0.2.7:9 > 10.0.0.1:9');
   await page.keyboard.press('Enter');
   assert.match(await page.textContent('#packet-result'), /sampled by rule 16/);
   await tabTo('rule-search');
   await page.keyboard.type('answers udp');
   assert.equal(await page.textContent('#rule-count'), '2 of 28 entries');
   await tabTo('Rules');
   await page.keyboard.press('End');
   assert.match(await page.textContent('#rule-detail'), /answers-ipv6-udp/);
   const active = await page.$eval('#rule-table [role=grid]', (grid) =>
      document.getElementById(grid.getAttribute('aria-activedescendant')).textContent);
   assert.match(active, /answers/);
   await page.close();
});

test('a witness of a warning can be followed', async () => {
   const page = await openPage(pageOf('web-tier'));
   const witness = await page.textContent('.warnings code');
   await page.click('.warnings .link');
   assert.equal(await page.inputValue('#packet-text'), witness);
   assert.match(await page.textContent('#packet-result'), /sampled by rule/);
   await page.close();
});

test('paper is light and has the first rows of every table', async () => {
   const page = await openPage(pageOf('large-datacenter'), { colours: 'dark' });
   await page.evaluate(() => dispatchEvent(new Event('beforeprint')));
   const printed = await page.evaluate(() => ({
      theme: document.documentElement.dataset.theme,
      rows: document.querySelectorAll('#rule-table .body [role=row]').length,
      more: document.querySelector('#rule-table .empty:last-child').textContent,
   }));
   assert.deepEqual(printed, { theme: 'light', rows: 500, more: 'and 767 more rows' });
   await page.evaluate(() => dispatchEvent(new Event('afterprint')));
   assert.ok(await page.$$eval('#rule-table .body [role=row]', (rows) => rows.length) < 60);
   const pdf = await page.pdf({ format: 'A4', printBackground: true });
   write('large-datacenter.pdf', pdf);
   assert.ok(pdf.length > 10000);
   await page.close();
});
