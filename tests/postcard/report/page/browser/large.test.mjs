// A page of 100,000 rules is small, is drawn within a second, and stays responsive.
import assert from 'node:assert/strict';
import { statSync } from 'node:fs';
import { after, test } from 'node:test';

import { Random, endBrowser, follow, json, makePage, openPage, write } from './support.mjs';

after(endBrowser);

const mostBytes = 3e6;
const mostMilliseconds = 100;

// Ranges of ports of about 13 blocks each, so that 250 classes make some 100,000 rules.
function largePolicy() {
   const random = new Random(4711);
   const range = () => {
      const low = 1 + random.below(30000);
      return `${low}-${low + 5000 + random.below(30000)}`;
   };
   const classes = Array.from({ length: 250 }, (_, i) => `
      - name: service-${i}
        actions: [${i % 3 === 0 ? 'sample-all' : 'sample'}]
        ipv4:
          destination: [10.${Math.floor(i / 16)}.${(i % 16) * 16}.0/20]
          sample: { rate: ${2 ** (1 + (i % 16))} }
          protocols:
            - { protocol: ${i % 2 ? 'tcp' : 'udp'}, ports: [{ source: [${range()}, ${range()}],
                destination: [${range()}] }] }`);
   return `policies:\n  - name: large\n    interfaces: { ipv4: [Ethernet1] }\n    classes:${classes.join('')}\n`;
}

const policy = write('large.yaml', largePolicy());
const file = makePage('large', policy);

function median(numbers) {
   return [...numbers].sort((a, b) => a - b)[Math.floor(numbers.length / 2)];
}

test('100,000 rules take at most 3 MB', (context) => {
   const { totals } = json('check', policy);
   const { size } = statSync(file);
   context.diagnostic(`${totals.entries} entries in ${size} bytes`);
   assert.ok(totals.entries >= 100000, String(totals.entries));
   assert.ok(size <= mostBytes, String(size));
});

test('the first picture comes within a second', async (context) => {
   const times = [];
   for (let i = 0; i < 3; ++i) {
      const page = await openPage(file);
      times.push(await page.evaluate(() => {
         const [paint] = performance.getEntriesByName('first-contentful-paint');
         const [drawn] = performance.getEntriesByName('drawn');
         return { paint: paint.startTime, drawn: drawn.startTime };
      }));
      assert.deepEqual(page.troubles, []);
      await page.close();
   }
   context.diagnostic(JSON.stringify(times));
   assert.ok(median(times.map(({ drawn }) => drawn)) < 1000, JSON.stringify(times));
   assert.ok(median(times.map(({ paint }) => paint)) < 1000, JSON.stringify(times));
});

test('searching, sorting and scrolling take less than a tenth of a second', async (context) => {
   const page = await openPage(file);
   await page.waitForTimeout(1000); // texts are prepared while nothing else is to be done
   const times = await page.evaluate(async () => {
      const grid = document.querySelector('#rule-table [role=grid]');
      const search = document.querySelector('#rule-search');
      const frame = () => new Promise((done) => { requestAnimationFrame(done); });
      // From the event to the end of the layout that it causes, without waiting for a frame.
      const timed = async (work) => {
         const all = [];
         for (let i = 0; i < 5; ++i) {
            await frame();
            const begin = performance.now();
            work(i);
            grid.getBoundingClientRect();
            all.push(performance.now() - begin);
         }
         return all;
      };
      const find = (text) => () => {
         search.value = text;
         search.dispatchEvent(new Event('input'));
      };
      const result = {};
      for (const text of ['service-77', 'sport 1024', 'tcp 10.3', 'nothing of the kind', '1', '']) {
         result[`search '${text}'`] = await timed(find(text));
      }
      for (const [i, button] of [...grid.querySelectorAll('.head button')].entries()) {
         result[`sort ${i}`] = await timed(() => button.click());
      }
      result.scroll = await timed((i) => {
         grid.scrollTop = (grid.scrollHeight * (i + 1)) / 7;
         grid.dispatchEvent(new Event('scroll'));
      });
      return result;
   });
   await page.close();
   for (const [what, all] of Object.entries(times)) {
      context.diagnostic(`${what}: ${all.map((time) => time.toFixed(1)).join(' ')} ms`);
      assert.ok(median(all) < mostMilliseconds, `${what}: ${all}`);
   }
});

test('packets are followed among 100,000 rules as explain does', async () => {
   const random = new Random(99);
   const texts = Array.from({ length: 60 }, () =>
      `${random.of(['tcp', 'udp'])} 1.2.3.4:${random.below(65536)} > ` +
      `10.${random.below(16)}.${random.below(256)}.1:${random.below(65536)} checksum=${random.of([1, 3, 0xffff])}`);
   const wanted = json('explain', policy, ...texts.flatMap((text) => ['--packet', text]));
   const page = await openPage(file);
   for (const [i, text] of texts.entries()) {
      assert.deepEqual((await follow(page, text)).packets, [wanted.packets[i]], text);
   }
   await page.close();
});
