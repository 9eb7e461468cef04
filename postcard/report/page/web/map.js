// `EntryMap`: the entries as a map of nested boxes: ACLs, classes, protocols, ranges. Relies on the
// model for what a box holds and on `Grid` for the same as a table.
//
// A node has `label`, `kind`, `entries`, `word` (its colour, see `rateWord`), `text` (what is said
// about it), `parent` and `children()`.

class MapNode {
   constructor(parent, fields, makeChildren = () => []) {
      Object.assign(this, fields);
      this.parent = parent;
      this.makeChildren = makeChildren;
      this.made = null;
   }

   children() {
      this.made ??= this.makeChildren(this).filter((child) => child.entries > 0);
      return this.made;
   }
   get path() {
      return this.parent === null ? [this] : [...this.parent.path, this];
   }
}

function rangeNodes(model, each, parent, first, entries) {
   const column = model.rule;
   const groups = new Map();
   for (let rule = first; rule < first + entries; ++rule) {
      const key = `${column.line[rule]}:${column.column[rule]} ${originText(model, rule)}`;
      const group = groups.get(key);
      if (group === undefined) {
         groups.set(key, { rule, entries: 1 });
      } else {
         ++group.entries;
      }
   }
   return [...groups.values()].map(({ rule, entries: size }) => {
      const ranges = originText(model, rule).replace(/^entry \d+ ?/, '') || 'every port';
      return new MapNode(parent, {
         kind: 'range', label: ranges, entries: size, word: rateWord(each.rate),
         text: `${protocolName(column.protocol[rule])}, ${ranges}, line ${placeText(model, rule)}`,
      });
   });
}

function protocolNodes(model, each, parent) {
   const column = model.rule;
   const runs = [];
   for (let rule = each.first; rule < each.first + each.entries; ++rule) {
      const last = runs.at(-1);
      if (last !== undefined && last.protocol === column.protocol[rule]) {
         ++last.entries;
      } else {
         runs.push({ protocol: column.protocol[rule], first: rule, entries: 1 });
      }
   }
   return runs.map(({ protocol, first, entries }) => new MapNode(parent, {
      kind: 'protocol', label: protocolName(protocol), entries, word: rateWord(each.rate),
      text: protocolName(protocol),
   }, (node) => rangeNodes(model, each, node, first, entries)));
}

function classText(each) {
   const parts = [`class ${each.name}`, each.rate.text];
   if (each.totals !== null) {
      parts.push(`${plural(each.totals.matched, 'packet')} matched`);
   }
   if (each.warnings > 0) {
      parts.push(plural(each.warnings, 'warning'));
   }
   return parts.join(', ');
}

function classNodes(model, acl, parent) {
   return acl.classes.map((each) => new MapNode(parent, {
      kind: 'class', label: each.name, entries: each.entries, word: rateWord(each.rate),
      text: classText(each), mark: each.warnings > 0 ? ' \u25b2' : '',
   }, (node) => protocolNodes(model, each, node)));
}

function mapOf(model) {
   return new MapNode(null, {
      kind: 'root', label: 'all ACLs', entries: model.rules, word: null,
      text: plural(model.acls.length, 'ACL'),
   }, (root) => model.acls.map((acl) => new MapNode(root, {
      kind: 'acl', label: acl.key, entries: acl.entries, word: null,
      text: `ACL of policy ${acl.policy}, ${acl.family}`,
   }, (node) => classNodes(model, acl, node))));
}

// Siblings that are too narrow to be seen, as one node.
function lump(nodes) {
   const [first] = nodes;
   const same = nodes.every((node) => node.word === first.word);
   return new MapNode(first.parent, {
      kind: first.kind, isLump: true, label: `${count(nodes.length)} more`, word: same ? first.word : 'mixed',
      entries: nodes.reduce((sum, node) => sum + node.entries, 0),
      text: `${first.label} to ${nodes.at(-1).label}`,
   }, () => nodes);
}

const narrowest = 3;    // pixels of a box that can be seen and hit
const childrenFrom = 14; // pixels of a box whose children are drawn

// The children as boxes of at least `narrowest` pixels.
function withLumps(children, pixelsPerEntry) {
   const nodes = [];
   let narrow = [];
   let width = 0;
   const flush = () => {
      if (narrow.length > 0) {
         nodes.push(narrow.length === 1 ? narrow[0] : lump(narrow));
      }
      narrow = [];
      width = 0;
   };
   for (const child of children) {
      const pixels = child.entries * pixelsPerEntry;
      if (pixels >= narrowest) {
         flush();
         nodes.push(child);
         continue;
      }
      narrow.push(child);
      width += pixels;
      if (width >= narrowest) {
         flush();
      }
   }
   flush();
   return nodes;
}

class EntryMap {
   constructor(model) {
      this.model = model;
      this.root = mapOf(model);
      this.open = this.root;
      this.place = byId('icicle');
      this.place.addEventListener('keydown', (event) => this.key(event));
      byId('map-list').addEventListener('toggle', () => this.list());
      new ResizeObserver(() => this.resized()).observe(this.place);
      this.legend();
   }

   legend() {
      byId('legend').append(...rateWords.map(([word, text]) => {
         const swatch = element('span', { class: `swatch ${word}` });
         return element('li', {}, swatch, text);
      }));
   }

   // Drawing changes the height, which is no reason to draw again: it would take the focus away.
   resized() {
      if (this.place.clientWidth !== this.width) {
         this.draw();
      }
   }

   draw() {
      const width = this.place.clientWidth;
      this.width = width;
      if (width === 0 || this.root.entries === 0) {
         return;
      }
      this.cells = [];
      const own = this.open.kind === 'root' ? null : this.add(this.open, 0, width, 0, null);
      this.addChildren(this.open, 0, width, own === null ? 0 : 1, own);
      const rows = Math.max(...this.cells.map((cell) => cell.row), 0) + 1;
      this.place.style.height = `${rows * 32 + 2}px`;
      this.place.replaceChildren(...this.cells.map((cell) => cell.element));
      this.focusable(this.cells[0] ?? null);
      this.drawTrail();
      this.say(this.open);
      this.list();
   }

   add(node, left, width, row, parent) {
      const cell = { node, row, parent, left, children: [] };
      const names = ['cell', node.kind === 'acl' ? 'acl' : node.word ?? '', width > 24 ? 'wide' : width < 8 ? 'thin' : ''];
      cell.element = element('div', {
         class: names.join(' '), role: 'treeitem', tabindex: '-1', 'aria-level': row + 1,
         'aria-label': this.describe(node), text: width > 24 ? node.label + (node.mark ?? '') : '',
      });
      cell.element.style.left = `${left}px`;
      cell.element.style.width = `${width}px`;
      cell.element.style.top = `${row * 32}px`;
      cell.element.addEventListener('click', () => this.zoom(node));
      cell.element.addEventListener('pointerenter', () => this.say(node));
      cell.element.addEventListener('focus', () => { this.focusable(cell); this.say(node); });
      parent?.children.push(cell);
      this.cells.push(cell);
      return cell;
   }

   addChildren(node, left, width, row, parent) {
      const pixels = width / node.entries;
      for (const child of withLumps(node.children(), pixels)) {
         const childWidth = child.entries * pixels;
         const cell = this.add(child, left, childWidth, row, parent);
         if (childWidth >= childrenFrom && !child.isLump) {
            this.addChildren(child, left, childWidth, row + 1, cell);
         }
         left += childWidth;
      }
   }

   describe(node) {
      return `${node.label}: ${node.text}, ${plural(node.entries, 'entry', 'entries')}, ` +
             percent(node.entries, this.root.entries);
   }

   say(node) {
      const path = node.path.slice(1).map((each) => each.label).join(' \u203a ');
      byId('map-caption').textContent =
            (path === '' ? '' : `${path}: `) + `${plural(node.entries, 'entry', 'entries')}, ` +
            `${percent(node.entries, this.root.entries)}. ${node.text}`;
   }

   drawTrail() {
      const path = this.open.path;
      byId('trail').replaceChildren(...path.flatMap((node, i) => {
         if (i === path.length - 1) {
            return [element('span', { class: 'name', 'aria-current': 'true', text: node.label })];
         }
         const button = element('button', { type: 'button', class: 'name', text: node.label });
         button.addEventListener('click', () => this.zoom(node));
         return [button, element('span', { 'aria-hidden': 'true', text: '\u203a' })];
      }));
   }

   // Opens a node. A range has nothing inside: then what is around it stays.
   zoom(node) {
      if (node.children().length === 0) {
         this.say(node);
         return;
      }
      const hadFocus = this.place.contains(document.activeElement);
      this.open = node;
      this.draw();
      if (hadFocus) {
         this.cells[0]?.element.focus();
      }
   }

   focusable(cell) {
      this.current?.element.setAttribute('tabindex', '-1');
      this.current = cell;
      cell?.element.setAttribute('tabindex', '0');
   }

   key(event) {
      const { current } = this;
      const row = this.cells.filter((cell) => cell.row === current?.row);
      const beside = (step) => row[row.indexOf(current) + step];
      const targets = {
         ArrowRight: () => beside(1), ArrowLeft: () => beside(-1), ArrowUp: () => current.parent,
         ArrowDown: () => current.children[0], Home: () => row[0], End: () => row.at(-1),
      };
      if (current === null || event.ctrlKey || event.metaKey || event.altKey) {
         return;
      }
      if (targets[event.key] !== undefined) {
         event.preventDefault();
         targets[event.key]()?.element.focus();
      } else if (event.key === 'Enter' || event.key === ' ') {
         event.preventDefault();
         this.zoom(current.node);
      } else if ((event.key === 'Escape' || event.key === 'Backspace') && this.open.parent) {
         event.preventDefault();
         this.zoom(this.open.parent);
      }
   }

   // The children of the open node as a table, which says the same to those who cannot see the map.
   list() {
      if (!byId('map-list').open || this.listed === this.open) {
         return;
      }
      this.listed = this.open;
      const nodes = this.open.children();
      const whole = this.root.entries;
      this.table = new Grid(byId('map-table'), {
         label: `Parts of ${this.open.label}`, size: nodes.length, lines: 4,
         columns: [
            { title: 'Part', role: 'first', key: (i) => nodes[i].label,
              fill: nameCell((i) => nodes[i].label) },
            { title: 'What', role: 'line', key: (i) => nodes[i].text,
              fill: nameCell((i) => nodes[i].text) },
            { title: 'Entries', numeric: true, width: '6rem', key: (i) => nodes[i].entries,
              fill: numberCell((i) => nodes[i].entries) },
            { title: 'Share', numeric: true, width: '5rem', key: (i) => nodes[i].entries,
              fill: (cell, i) => { cell.textContent = percent(nodes[i].entries, whole); } },
         ],
      });
   }
}
