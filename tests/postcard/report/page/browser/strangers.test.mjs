// What stands in a policy is text, whatever it looks like, and a damaged page says so.
import assert from 'node:assert/strict';
import { readFileSync } from 'node:fs';
import { after, test } from 'node:test';

import { endBrowser, follow, makePage, openPage, rowsOf, write } from './support.mjs';

after(endBrowser);

const nasty = ['<script>window.owned = 1</script>', '<img src=x onerror=alert(1)>', '</script><b>x',
               '"\'>&amp;&lt;', '\u05d0\u05d1 <i>', '-ipv4-', '__proto__', '${1}', '@DATA@'];
const policy = `policies:
  - name: ${JSON.stringify(nasty[0])}
    interfaces: { ipv4: [${JSON.stringify(nasty[1])}, ${JSON.stringify(nasty[2])}] }
    classes:
${nasty.map((name) => `      - { name: ${JSON.stringify(name)}, actions: [sample],
          ipv4: { sample: { rate: 4 }, protocols: [{ protocol: udp }, { protocol: tcp }] } }`).join('\n')}
`;

test('names with markup stay text', async () => {
   const file = makePage('strangers', write('strangers.yaml', policy));
   const page = await openPage(file);
   const classes = await rowsOf(page, '#class-table');
   assert.deepEqual(classes.map((row) => row.Class.replace(/\u25b2 \d+$/, '')), nasty);
   const rules = await rowsOf(page, '#rule-table');
   assert.deepEqual(rules.map((row) => row.Class), nasty.flatMap((name) => [name, name]));
   const answer = await follow(page, 'tcp 1.2.3.4:1 > 1.2.3.4:2 checksum=1');
   assert.equal(answer.packets[0].acls[0].class, nasty[0]);
   assert.equal(answer.packets[0].acls[0].rule.name, `${nasty[0]}-ipv4-tcp`);
   await page.fill('#packet-text', `${nasty[1]}`);
   await page.press('#packet-text', 'Enter');
   await page.fill('#rule-search', '<script>');
   await page.focus('#rule-table [role=grid]');
   await page.keyboard.press('End');
   assert.equal(await page.evaluate(() => window.owned), undefined);
   assert.equal(await page.$$eval('img, i > *, b > script, main script', (all) => all.length), 0);
   assert.deepEqual(page.troubles, []);
   await page.close();
});

test('names do not stand in the file in the clear', () => {
   const text = readFileSync(makePage('strangers', write('strangers.yaml', policy)), 'utf8');
   nasty.slice(0, 3).forEach((name) => assert.ok(!text.includes(name), name));
});

test('a script that is not the own one does not run', async () => {
   const text = readFileSync(makePage('strangers', write('strangers.yaml', policy)), 'utf8');
   const file = write('injected.html', text.replace('<main', '<script>window.owned = 1</script><main'));
   const page = await openPage(file);
   assert.equal(await page.evaluate(() => window.owned), undefined);
   assert.match(page.troubles.join(' '), /Content Security Policy/);
   await page.close();
});

test('a page without its data says that it cannot be drawn', async () => {
   const text = readFileSync(makePage('strangers', write('strangers.yaml', policy)), 'utf8');
   const file = write('damaged.html', text.replace(/(id="data">.{400}).*</, '$1<'));
   const page = await openPage(file, { drawn: '#failure:not([hidden])' });
   assert.match(await page.textContent('#failure'), /cannot be drawn: .* Was the file cut off\?/);
   await page.close();
});
