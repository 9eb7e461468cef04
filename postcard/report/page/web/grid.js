// `Grid`: a table of any number of rows, of which only the visible ones are in the document. Rows
// can be sorted and filtered; one of them is active, chosen with arrow keys or by clicking. `element`
// makes elements of the page. Texts get into the page as text nodes only, because the names in a
// policy are those of strangers.

// `attributes` are set as attributes, but for `text`, which is the content. Null ones are left out.
function element(tag, attributes = {}, ...children) {
   const made = document.createElement(tag);
   for (const [name, value] of Object.entries(attributes)) {
      if (name === 'text') {
         made.textContent = value;
      } else if (value !== null) {
         made.setAttribute(name, value);
      }
   }
   made.append(...children);
   return made;
}

function byId(id) {
   return document.getElementById(id);
}

// Ascending whole numbers from 0 that stand for the keys: equal for equal keys.
function ranksOf(keys) {
   const compare = typeof keys[0] === 'string' ? (a, b) => (a < b ? -1 : a > b ? 1 : 0)
                                               : (a, b) => a - b;
   const ranks = new Map([...new Set(keys)].sort(compare).map((key, rank) => [key, rank]));
   return keys.map((key) => ranks.get(key));
}

// The numbers 0 to `size` - 1, sorted by `keyOf`, those of equal keys as they were. Keys and places
// are packed into one number each, because numbers are sorted without calling back.
function sortedBy(keyOf, size, descending) {
   let keys = Array.from({ length: size }, (_, i) => keyOf(i));
   if (!keys.every((key) => Number.isInteger(key) && key >= 0 && key < 2 ** 32)) {
      keys = ranksOf(keys);
   }
   const most = keys.reduce((a, b) => Math.max(a, b), 0);
   const packed = Float64Array.from(keys,
                                    (key, i) => (descending ? most - key : key) * size + i);
   return Uint32Array.from(packed.sort(), (each) => each % size);
}

const narrow = matchMedia('(max-width: 700px)'); // as in the style
const tallest = 6e6;     // pixels; browsers lay out no element of much more
const mostPrinted = 500; // rows of a table on paper

let grids = 0;

class Grid {
   // `columns` have `title`; `key`: what a row is sorted by; `fill`: sets the content of a cell; and
   // perhaps `numeric`, `width` (a track of a CSS grid), `role` in narrow windows ('first' stands on
   // the first line, 'line' takes one, 'minor' is left out), `unsorted`. `key` and `fill` are given
   // the number of a row, 0 to `size` - 1. `onActive` is called with the number of the active row.
   // `lines` is how many lines a row has in a narrow window.
   constructor(place, { label, columns, size, onActive = () => {}, empty = 'none', lines = 2 }) {
      this.id = `grid-${++grids}`;
      this.columns = columns;
      this.size = size;
      this.onActive = onActive;
      this.lines = lines;
      this.sorting = null;
      this.order = Uint32Array.from({ length: size }, (_, i) => i);
      this.chosen = null;     // for each row whether it is shown; null: all are
      this.shown = this.order;
      this.active = -1;       // place in `shown`
      this.rows = new Map();  // rendered rows by place in `shown`
      this.spare = [];
      this.printing = false;
      this.head = this.makeHead();
      this.body = element('div', { class: 'body', role: 'presentation' });
      this.nothing = element('p', { class: 'empty', text: empty });
      this.more = element('p', { class: 'empty' });
      this.root = element('div', { class: 'grid', role: 'grid', 'aria-label': label, tabindex: '0' },
                          this.head, this.body);
      place.replaceChildren(this.root, this.nothing, this.more);
      this.tracks = columns.map((each) => each.width ?? 'minmax(0, 1fr)').join(' ');
      this.head.style.gridTemplateColumns = this.tracks;
      this.root.addEventListener('scroll', () => this.draw(), { passive: true });
      this.root.addEventListener('keydown', (event) => this.key(event));
      new ResizeObserver(() => this.printing || this.lay()).observe(this.root);
      this.lay();
   }

   makeHead() {
      const cells = this.columns.map((each, i) => {
         const cell = element('div', { role: 'columnheader', class: each.numeric ? 'number' : 'text' });
         if (each.unsorted) {
            cell.textContent = each.title;
         } else {
            const button = element('button', { type: 'button', text: each.title });
            button.addEventListener('click', () => this.sort(i));
            cell.append(button);
         }
         return cell;
      });
      return element('div', { role: 'row', class: 'row head', 'aria-rowindex': '1' }, ...cells);
   }

   // Sorts by a column; by the same one again in the other direction.
   sort(column) {
      const { numeric, key } = this.columns[column];
      const again = this.sorting?.column === column;
      const descending = again ? !this.sorting.descending : Boolean(numeric);
      this.sorting = { column, descending };
      this.order = sortedBy(key, this.size, descending);
      [...this.head.children].forEach((cell, i) => {
         if (i === column) {
            cell.setAttribute('aria-sort', descending ? 'descending' : 'ascending');
         } else {
            cell.removeAttribute('aria-sort');
         }
      });
      this.show();
      this.root.scrollTop = 0;
   }

   // Shows those rows only whose number in `chosen` is not 0; all of them for null.
   filter(chosen) {
      this.chosen = chosen;
      this.show();
      this.root.scrollTop = 0;
   }

   show() {
      this.shown = this.chosen === null ? this.order
                                        : this.order.filter((row) => this.chosen[row] !== 0);
      this.active = -1;
      this.root.removeAttribute('aria-activedescendant');
      this.lay();
   }

   // What depends on the number of rows and on the window.
   lay() {
      this.height = narrow.matches ? 14 + 19 * this.lines : 30;
      this.root.style.setProperty('--row', `${this.height}px`);
      this.virtual = this.shown.length * this.height;
      this.body.style.height = `${Math.min(this.virtual, tallest)}px`;
      this.root.setAttribute('aria-rowcount', this.shown.length + 1);
      this.root.hidden = this.shown.length === 0;
      this.nothing.hidden = this.shown.length !== 0;
      this.more.hidden = true;
      for (const row of this.rows.values()) {
         row.remove();
      }
      this.spare.push(...this.rows.values());
      this.rows.clear();
      this.draw();
   }

   get room() { return Math.max(this.root.clientHeight - this.head.offsetHeight, this.height); }

   // Where the window begins among all rows, in pixels. Differs from `scrollTop` when there are more
   // rows than a browser can lay out.
   get offset() {
      const real = Math.min(this.virtual, tallest) - this.room;
      const scale = real > 0 ? (this.virtual - this.room) / real : 1;
      return this.root.scrollTop * scale;
   }
   set offset(offset) {
      const real = Math.min(this.virtual, tallest) - this.room;
      const scale = real > 0 ? (this.virtual - this.room) / real : 1;
      this.root.scrollTop = offset / scale;
   }

   draw(printed = 0) {
      const { offset } = this;
      const first = printed ? 0 : Math.max(Math.floor(offset / this.height) - 2, 0);
      const last = printed || Math.min(Math.ceil((offset + this.room) / this.height) + 2,
                                       this.shown.length);
      for (const [place, row] of this.rows) {
         if (place < first || place >= last) {
            row.remove();
            this.spare.push(row);
            this.rows.delete(place);
         }
      }
      const shift = this.root.scrollTop - offset;
      for (let place = first; place < last; ++place) {
         const row = this.rows.get(place) ?? this.makeRow(place);
         row.style.transform = `translateY(${place * this.height + shift}px)`;
         row.setAttribute('aria-selected', String(place === this.active));
      }
   }

   makeRow(place) {
      const row = this.spare.pop() ?? this.emptyRow();
      const number = this.shown[place];
      row.id = `${this.id}-${place}`;
      row.setAttribute('aria-rowindex', place + 2);
      this.columns.forEach((each, i) => each.fill(row.children[i], number));
      this.rows.set(place, row);
      this.body.append(row);
      return row;
   }

   emptyRow() {
      const cells = this.columns.map((each) => {
         const names = [each.numeric ? 'number' : 'text', each.role ?? ''].join(' ').trim();
         return element('div', { role: 'gridcell', class: names,
                                 'data-title': each.numeric ? each.title.toLowerCase() : null });
      });
      const row = element('div', { role: 'row', class: 'row' }, ...cells);
      row.style.gridTemplateColumns = this.tracks;
      row.addEventListener('click', () => this.activate(Number(row.id.split('-')[2])));
      return row;
   }

   // Makes the row at a place in `shown` the active one and moves it into the window.
   activate(place) {
      this.active = Math.max(0, Math.min(place, this.shown.length - 1));
      const top = this.active * this.height;
      if (top < this.offset) {
         this.offset = top;
      } else if (top + this.height > this.offset + this.room) {
         this.offset = top + this.height - this.room;
      }
      this.draw();
      this.root.setAttribute('aria-activedescendant', `${this.id}-${this.active}`);
      this.onActive(this.shown[this.active]);
   }

   key(event) {
      const page = Math.max(Math.floor(this.room / this.height) - 1, 1);
      const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page,
                      Home: -Infinity, End: Infinity };
      const step = steps[event.key];
      if (event.target === this.root && step !== undefined && !event.ctrlKey && !event.metaKey) {
         event.preventDefault();
         this.activate(this.active + step);
      }
   }

   // On paper there is no window to scroll: the first rows follow each other, and a line says how
   // many there are besides.
   print() {
      const printed = Math.min(this.shown.length, mostPrinted);
      this.printing = true;
      this.root.classList.add('printed');
      this.body.style.height = 'auto';
      this.lastOffset = this.root.scrollTop;
      this.draw(printed);
      this.body.append(...[...this.rows].sort((a, b) => a[0] - b[0]).map(([, row]) => row));
      this.more.hidden = printed === this.shown.length;
      this.more.textContent = `and ${plural(this.shown.length - printed, 'more row')}`;
   }
   endPrint() {
      this.printing = false;
      this.root.classList.remove('printed');
      this.lay();
      this.root.scrollTop = this.lastOffset;
   }
}

// A cell with a text that may be cut, and then is said whole when pointed at.
function textCell(text) {
   return (cell, row) => {
      const shown = text(row);
      cell.textContent = shown;
      cell.title = shown;
   };
}

function nameCell(text) {
   const fill = textCell(text);
   return (cell, row) => {
      fill(cell, row);
      cell.classList.add('name');
   };
}

function numberCell(number) {
   return (cell, row) => { cell.textContent = count(number(row)); };
}
