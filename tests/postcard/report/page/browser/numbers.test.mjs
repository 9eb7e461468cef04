// The page shows the numbers of `postcard check --format json` and of `postcard explain --pcap`, and
// the rules of `postcard compile`.
import assert from 'node:assert/strict';
import { after, test } from 'node:test';

import { captureBytes } from './capture.mjs';
import { endBrowser, example, json, makePage, openPage, rowsOf, write } from './support.mjs';

after(endBrowser);

const count = (number) => number.toLocaleString('en-US');
const names = ['web-tier', 'all-features', 'twenty-services', 'flags-and-ranges', 'large-datacenter'];

// As `postcard compile --format list` writes them.
function actionsText(actions) {
   const words = { sampleAction: 'sample', setDscpAction: 'set-dscp' };
   return actions.map((action) => words[action]).join(', ') || 'none';
}

function samplingText({ oneIn, text }) {
   return oneIn > 1 ? `1 in ${count(oneIn)}` : text;
}

for (const name of names) {
   test(`costs, rates, warnings and advice of ${name} are those of check`, async () => {
      const check = json('check', example(name));
      const page = await openPage(makePage(name, example(name)));
      const facts = await page.$$eval('#facts div', (all) => Object.fromEntries(
            all.map((each) => [each.querySelector('dt').textContent, each.querySelector('dd').textContent])));
      assert.equal(facts['TCAM entries'], count(check.totals.entries));
      assert.equal(facts.ACLs, count(check.acls.length));
      assert.equal(facts.warnings ?? facts.warning, count(check.warnings.length));
      assert.equal(facts.refused, check.refused.length === 0 ? undefined : count(check.refused.length));

      const acls = await rowsOf(page, '#acl-table');
      assert.deepEqual(acls.map((row) => [row.Policy, row.Family, row.Classes, row.Entries]),
                       check.acls.map((acl) => [acl.policy, acl.family, count(acl.classes.length),
                                                count(acl.entries)]));
      const classes = await rowsOf(page, '#class-table');
      assert.deepEqual(
            classes.map((row) => [row.Policy, row.Family, row.Class.replace(/\u25b2 \d+$/, ''),
                                  row.Entries, row.Sampling]),
            check.acls.flatMap((acl) => acl.classes.map(
                  (each) => [acl.policy, acl.family, each.class, count(each.entries),
                             samplingText(each.rate)])));

      while (await page.$('.warnings .more button')) {
         await page.click('.warnings .more button');
      }
      const warnings = await page.$$eval('.warnings > li:has(.code)', (all) => all.map(
            (each) => [each.querySelector('.code').textContent,
                       each.querySelector('code')?.textContent ?? null, each.textContent]));
      assert.deepEqual(warnings.map(([code, witness]) => [code, witness]),
                       check.warnings.map(({ code, witness }) => [code, witness]));
      warnings.forEach(([, , text], i) => {
         const { text: wanted, line, column } = check.warnings[i];
         assert.ok(text.includes(wanted) && text.includes(`${line}:${column}`), text);
      });
      if (check.advice.length > 0) {
         const advice = await rowsOf(page, '#advice-table');
         assert.deepEqual(advice.map((row) => [row.Class, row.Policy, row.Family, row.Advice, row.Saves]),
                          check.advice.map((each) => [each.class, each.policy, each.family, each.text,
                                                      count(each.saves)]));
      }
      assert.equal(await page.isVisible('#advice-title'), check.advice.length > 0);
      assert.deepEqual(page.troubles, []);
      await page.close();
   });

   test(`rules of ${name} are those of compile`, async () => {
      const compiled = json('compile', example(name));
      const page = await openPage(makePage(name, example(name)));
      const rows = await rowsOf(page, '#rule-table');
      const wanted = compiled.acls.flatMap((acl) => Object.entries(acl.ruleByIndex)
                                                          .map(([index, rule]) => [acl, index, rule]));
      assert.deepEqual(
            rows.map((row) => [row.ACL, row['#'], row.Class, row.Line, row.Actions]),
            wanted.map(([acl, index, rule]) => {
               const made = acl.ruleByName[rule];
               return [acl.aclConfigKey, index, made.class, String(made.origin.line),
                       actionsText(made.ruleAction.action)];
            }));
      // The detail of some rules has the whole name.
      for (const place of [0, Math.floor(rows.length / 2), rows.length - 1]) {
         await page.focus('#rule-table [role=grid]');
         await page.keyboard.press('Home');
         for (let i = 0; i < Math.min(place, 40); ++i) {
            await page.keyboard.press('ArrowDown');
         }
         const [, index, rule] = wanted[Math.min(place, 40)];
         assert.equal(await page.textContent('#rule-detail dd'), `${index} ${rule}`);
      }
      await page.close();
   });
}

test('hits and observed rates are those of explain', async () => {
   const capture = write('capture.pcap', captureBytes());
   const totals = json('explain', example('web-tier'), '--pcap', capture).capture;
   const page = await openPage(makePage('capture', example('web-tier'), '--pcap', capture));
   const share = (oneIn) => {
      const text = Number.isInteger(oneIn) ? count(oneIn) : oneIn?.toFixed(1);
      return oneIn === null ? 'none' : oneIn === 1 ? 'every packet' : `1 in ${text}`;
   };
   assert.ok(totals.acls[0].matched > 0 && totals.acls[0].sampled > 0);
   const classes = await rowsOf(page, '#class-table');
   assert.deepEqual(
         classes.map((row) => [row.Candidates, row.Sampled, row.Observed, row.Expected]),
         totals.acls.flatMap((acl) => acl.classes.map(
               (each) => [count(each.candidates), count(each.sampled), share(each.observedOneIn),
                          share(each.expectedOneIn)])));
   const rules = await rowsOf(page, '#rule-table');
   const hit = rules.filter((row) => row.Hits !== '0').map((row) => [row.ACL, row['#'], row.Hits]);
   assert.deepEqual(hit, totals.acls.flatMap((acl) => acl.rules.map(
         (rule) => [acl.acl, String(rule.index), count(rule.packets)])));
   const text = await page.textContent('#capture');
   assert.ok(text.includes(`${count(totals.frames)} frames`), text);
   for (const [why, frames] of Object.entries(totals.undecodable)) {
      assert.ok(text.includes(`${why}: ${count(frames)}`), text);
   }
   assert.deepEqual(page.troubles, []);
   await page.close();
});
