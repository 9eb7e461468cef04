// What the browser tests share: the program, pages in a headless browser, and what stands in them.
//
// POSTCARD_BIN is the program, POSTCARD_PAGE_MODULES a folder with the packages of package.json,
// POSTCARD_PAGE_OUT a folder for pages and pictures, CHROMIUM the browser.
import { spawnSync } from 'node:child_process';
import { mkdirSync, readFileSync, writeFileSync } from 'node:fs';
import { createRequire } from 'node:module';
import path from 'node:path';
import { fileURLToPath } from 'node:url';

const require = createRequire(path.join(process.env.POSTCARD_PAGE_MODULES, 'package.json'));
const { chromium } = require('playwright-core');

export const root = fileURLToPath(new URL('../../../../../', import.meta.url));
export const examples = path.join(root, 'examples');
const out = process.env.POSTCARD_PAGE_OUT;
mkdirSync(out, { recursive: true });

export const axeSource = readFileSync(require.resolve('axe-core/axe.min.js'), 'utf8');

// Runs the program. Returns what it wrote, and its exit status as `status`.
export function postcard(...args) {
   return spawnSync(process.env.POSTCARD_BIN, args, { encoding: 'utf8', maxBuffer: 2 ** 30 });
}

export function json(...args) {
   const { stdout, stderr, status } = postcard(...args, '--format', 'json');
   if (status > 1) {
      throw new Error(`postcard ${args.join(' ')}: ${status}: ${stderr}`);
   }
   return JSON.parse(stdout);
}

export function write(name, content) {
   const file = path.join(out, name);
   writeFileSync(file, content);
   return file;
}

export function example(name) {
   return path.join(examples, `${name}.yaml`);
}

// Makes a page and returns its file.
export function makePage(name, policy, ...args) {
   const file = path.join(out, `${name}.html`);
   const { status, stderr } = postcard('report', policy, '-o', file, ...args);
   if (status > 1) {
      throw new Error(`postcard report ${policy}: ${status}: ${stderr}`);
   }
   return file;
}

let browser = null;

export async function endBrowser() {
   await browser?.close();
   browser = null;
}

// A page in a window, as soon as it has an element that `drawn` selects. `troubles` fills with errors and requests, of which there should be
// none.
export async function openPage(file, { width = 1280, height = 900, colours = 'light', drawn = 'html[data-drawn]' } = {}) {
   // The sandbox of the browser needs a user that is not root, which a container may not have.
   const args = ['--disable-dev-shm-usage', ...(process.getuid() === 0 ? ['--no-sandbox'] : [])];
   browser ??= await chromium.launch({ executablePath: process.env.CHROMIUM, args });
   const page = await browser.newPage({ viewport: { width, height }, colorScheme: colours });
   const address = `file://${file}`;
   page.troubles = [];
   page.on('console', (message) => page.troubles.push(`${message.type()}: ${message.text()}`));
   page.on('pageerror', (error) => page.troubles.push(`error: ${error.stack}`));
   page.on('request', (request) => {
      if (request.url() !== address) {
         page.troubles.push(`request: ${request.url()}`);
      }
   });
   page.on('dialog', (dialog) => page.troubles.push(`dialog: ${dialog.message()}`));
   await page.goto(address);
   await page.waitForSelector(drawn, { timeout: 30000 });
   return page;
}

export function picture(page, name) {
   return page.screenshot({ path: path.join(out, `${name}.png`), fullPage: true });
}

// All rows of a table as {titles of cells: text}, read by scrolling from its beginning to its end.
export function rowsOf(page, place) {
   return page.$eval(`${place} [role=grid]`, async (grid) => {
      const titles = [...grid.querySelectorAll('[role=columnheader]')].map((cell) => cell.textContent);
      const rows = new Map();
      const total = Number(grid.getAttribute('aria-rowcount')) - 1;
      grid.scrollTop = 0;
      for (let pass = 0; rows.size < total && pass < 10000; ++pass) {
         await new Promise((done) => { requestAnimationFrame(() => setTimeout(done)); });
         for (const row of grid.querySelectorAll('.body [role=row]')) {
            const cells = [...row.children].map((cell, i) => [titles[i], cell.textContent]);
            rows.set(Number(row.getAttribute('aria-rowindex')), Object.fromEntries(cells));
         }
         grid.scrollTop += grid.clientHeight / 2;
      }
      return [...rows].sort((a, b) => a[0] - b[0]).map(([, row]) => row);
   });
}

// What the page answers about a packet: the document that it shows, or the text of the mistake.
export async function follow(page, text) {
   await page.fill('#packet-text', text);
   await page.press('#packet-text', 'Enter');
   const mistake = await page.textContent('#packet-error');
   return mistake === '' ? JSON.parse(await page.textContent('#packet-json')) : mistake;
}

// Random numbers that are the same in every run: xorshift with 32 bits.
export class Random {
   constructor(seed) {
      this.state = seed;
   }
   below(bound) {
      this.state ^= this.state << 13;
      this.state ^= this.state >>> 17;
      this.state ^= this.state << 5;
      this.state >>>= 0;
      return this.state % bound;
   }
   of(list) {
      return list[this.below(list.length)];
   }
   // True once in `many`.
   once(many) {
      return this.below(many) === 0;
   }
}
