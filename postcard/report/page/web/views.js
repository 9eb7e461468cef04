// The parts of the page that only show: `showSummary`, `showCosts`, `showAdvice`, `WarningList`. Rely on the
// model and on `Grid`.

function fact(name, value, kind = null) {
   return element('div', { class: kind }, element('dt', { text: name }), element('dd', { text: value }));
}

function showRefused(refused) {
   if (refused.length === 0) {
      return;
   }
   const lines = refused.map((each) => {
      const keys = each.classes.map((key) => element('li', {
         class: 'name', text: `${key.line}:${key.column}: class '${key.class}': ${key.key}`,
      }));
      const text = `${each.policy} ${each.family}: ${each.message}`;
      const places = element('details', {}, element('summary', { text: plural(keys.length, 'place') }),
                             element('ul', {}, ...keys));
      return element('li', {}, element('span', { class: 'name', text }),
                     ...(keys.length === 0 ? [] : [places]));
   });
   byId('refused').append(element('div', { class: 'note' },
                                  `The plug-in refused ${plural(refused.length, 'ACL')}, ` +
                                        'which are not on this page:',
                                  element('ul', {}, ...lines)));
}

function showCapture(capture) {
   if (capture === null) {
      return;
   }
   const lines = Object.entries(capture.undecodable).map(([why, frames]) => `${why}: ${count(frames)}`);
   if (capture.cutHeaders > 0) {
      lines.push(`TCP or UDP header cut off: ${plural(capture.cutHeaders, 'packet')}`);
   }
   for (const each of capture.withoutAclBy) {
      lines.push(`no ACL is asked about ${plural(each.packets, 'packet')} of ${each.family}: ${each.text}`);
   }
   const title = element('span', { class: 'name', text: capture.file });
   const frames = ` holds ${plural(capture.frames, 'frame')}, ${plural(capture.packets, 'packet')}. ` +
                  'Hits and observed rates below are those of this capture.';
   byId('capture').append(element('div', { class: 'note plain' }, 'The capture ', title, frames,
                                  element('ul', {}, ...lines.map((text) => element('li', { text })))));
}

function showSummary(model) {
   const name = model.file.slice(model.file.lastIndexOf('/') + 1);
   if (name !== model.file) {
      byId('folder').textContent = `Policy file in ${model.file.slice(0, -name.length)}`;
   }
   document.title = `${name} \u2013 postcard report`;
   byId('bar-name').textContent = name;
   byId('bar-name').classList.add('name');
   byId('title').textContent = name;
   byId('title').classList.add('name');
   const warnings = model.warnings.length;
   byId('facts').append(
         fact('TCAM entries', count(model.cost.totals.entries)),
         fact('ACLs', count(model.acls.length)),
         fact('classes', count(model.classes.length)),
         fact(warnings === 1 ? 'warning' : 'warnings', count(warnings), warnings > 0 ? 'warn' : null));
   if (model.cost.refused.length > 0) {
      byId('facts').append(fact('refused', count(model.cost.refused.length), 'bad'));
   }
   if (model.capture !== null) {
      const sampled = model.acls.reduce((sum, acl) => sum + acl.totals.sampled, 0);
      byId('facts').append(fact('packets', count(model.capture.packets)),
                           fact('sampled', count(sampled)));
   }
   showRefused(model.cost.refused);
   showCapture(model.capture);
   byId('made').textContent = `Written by ${model.program}. The page holds everything that it shows ` +
                              'and loads nothing.';
}

function shareColumn(entriesOf, whole) {
   const most = whole || 1;
   return {
      title: 'Share', width: 'minmax(7rem, 1fr)', role: 'minor', numeric: false, key: entriesOf,
      fill: (cell, i) => {
         const bar = element('i');
         bar.style.width = `${(100 * entriesOf(i)) / most}%`;
         cell.replaceChildren(element('div', { class: 'share' }, element('b', {}, bar),
                                      element('span', { text: percent(entriesOf(i), whole) })));
      },
   };
}

function totalsColumn(title, items, field) {
   return { title, numeric: true, width: '6.5rem', key: (i) => items[i].totals[field],
            fill: numberCell((i) => items[i].totals[field]) };
}

function rateColumn(title, items, field) {
   return {
      title, numeric: true, width: '7rem', key: (i) => items[i].totals[field] ?? 0,
      fill: (cell, i) => { cell.textContent = shareText(items[i].totals[field]); },
   };
}

function aclColumns(model) {
   const { acls } = model;
   const columns = [
      { title: 'Policy', role: 'first', width: 'minmax(6rem, 1.4fr)', key: (i) => acls[i].policy,
        fill: nameCell((i) => acls[i].policy) },
      { title: 'Family', width: '4rem', key: (i) => acls[i].family,
        fill: textCell((i) => acls[i].family) },
      { title: 'Interfaces', role: 'minor', width: 'minmax(6rem, 1.4fr)',
        key: (i) => acls[i].interfaces.length,
        fill: nameCell((i) => acls[i].interfaces.join(', ')) },
      { title: 'Classes', numeric: true, width: '5rem', key: (i) => acls[i].classes.length,
        fill: numberCell((i) => acls[i].classes.length) },
      { title: 'Entries', numeric: true, width: '6rem', key: (i) => acls[i].entries,
        fill: numberCell((i) => acls[i].entries) },
      shareColumn((i) => acls[i].entries, model.rules),
   ];
   return model.capture === null ? columns : [
      ...columns, totalsColumn('Packets', acls, 'packets'), totalsColumn('Matched', acls, 'matched'),
      totalsColumn('Sampled', acls, 'sampled'),
   ];
}

function classCell(classes) {
   return (cell, i) => {
      const each = classes[i];
      const name = element('span', { class: 'name', text: each.name });
      cell.title = each.name;
      cell.classList.add('marked');
      cell.replaceChildren(name);
      if (each.warnings > 0) {
         cell.append(element('span', { class: 'mark', title: plural(each.warnings, 'warning'),
                                       text: `\u25b2 ${each.warnings}` }));
      }
   };
}

function samplingCell(classes) {
   return (cell, i) => {
      const { rate } = classes[i];
      cell.title = rate.text;
      cell.replaceChildren(element('span', { class: `dot ${rateWord(rate)}` }), rateText(rate));
   };
}

function classColumns(model) {
   const { classes } = model;
   const columns = [
      { title: 'Class', role: 'first', width: 'minmax(8rem, 2fr)', key: (i) => classes[i].name,
        fill: classCell(classes) },
      { title: 'Policy', width: 'minmax(5rem, 1.2fr)', key: (i) => classes[i].acl.policy,
        fill: nameCell((i) => classes[i].acl.policy) },
      { title: 'Family', width: '4rem', key: (i) => classes[i].acl.family,
        fill: textCell((i) => classes[i].acl.family) },
      { title: 'Line', role: 'minor', numeric: true, width: '4.5rem', key: (i) => classes[i].line,
        fill: (cell, i) => { cell.textContent = String(classes[i].line); } },
      { title: 'Entries', numeric: true, width: '6rem', key: (i) => classes[i].entries,
        fill: numberCell((i) => classes[i].entries) },
      shareColumn((i) => classes[i].entries, model.rules),
      { title: 'Sampling', width: 'minmax(8rem, 1fr)', key: (i) => classes[i].rate.oneIn || 2 ** 31,
        fill: samplingCell(classes) },
   ];
   return model.capture === null ? columns : [
      ...columns.filter(({ title }) => title !== 'Share'),
      totalsColumn('Candidates', classes, 'candidates'), totalsColumn('Sampled', classes, 'sampled'),
      rateColumn('Observed', classes, 'observedOneIn'),
      rateColumn('Expected', classes, 'expectedOneIn'),
   ];
}

function showCosts(model) {
   const captured = model.capture !== null;
   return [
      new Grid(byId('acl-table'), { label: 'ACLs', size: model.acls.length,
                                    lines: captured ? 3 : 2, columns: aclColumns(model) }),
      new Grid(byId('class-table'), { label: 'Classes', size: model.classes.length,
                                      lines: captured ? 4 : 2, columns: classColumns(model) }),
   ];
}

// What would make the policies cheaper, as `postcard check` ranks it.
function showAdvice({ advice }) {
   byId('advice-title').hidden = advice.length === 0;
   return advice.length === 0 ? [] : [new Grid(byId('advice-table'), {
      label: 'What would save entries', size: advice.length, lines: 4,
      columns: [
         { title: 'Class', role: 'first', width: 'minmax(6rem, 1fr)', key: (i) => advice[i].class,
           fill: nameCell((i) => advice[i].class) },
         { title: 'Policy', width: 'minmax(5rem, 0.8fr)', key: (i) => advice[i].policy,
           fill: nameCell((i) => advice[i].policy) },
         { title: 'Family', width: '4rem', key: (i) => advice[i].family,
           fill: textCell((i) => advice[i].family) },
         { title: 'Advice', role: 'line', width: 'minmax(12rem, 3fr)', key: (i) => advice[i].kind,
           fill: nameCell((i) => advice[i].text) },
         { title: 'Line', role: 'minor', numeric: true, width: '4.5rem', key: (i) => advice[i].line,
           fill: (cell, i) => { cell.textContent = String(advice[i].line); } },
         { title: 'Saves', numeric: true, width: '5rem', key: (i) => advice[i].saves,
           fill: numberCell((i) => advice[i].saves) },
      ],
   })];
}

function warningItem(warning, follow) {
   const where = [warning.policy, warning.family ?? '',
                  warning.class === null ? '' : `class '${warning.class}'`].filter((part) => part !== '');
   const blamed = warning.blamed.map((each) => `${each.what} (line ${each.line})`);
   const text = element('div', {},
                        element('p', { class: 'name', text: [warning.text, ...blamed].join(', ') }),
                        element('p', { class: 'place name',
                                       text: `${where.join(' ')}, ${warning.line}:${warning.column}` }));
   if (warning.witness !== null) {
      const button = element('button', { type: 'button', class: 'link', text: 'follow' });
      button.addEventListener('click', () => follow(warning.witness));
      text.append(element('p', { class: 'witness' },
                          element('code', { class: 'name', text: warning.witness }), button));
   }
   return element('li', {}, element('p', { class: 'code', text: warning.code }), text);
}

// What limits kept back, in sentences.
function restText(model) {
   const texts = [];
   if (model.moreOverlaps) {
      texts.push('There are more overlaps than are listed here.');
   }
   for (const each of model.notDecided) {
      texts.push(`${each.policy} ${each.family}: class '${each.class}' is not decided, because the ` +
                 'answer needs more memory or time than it may use.');
   }
   return texts.join(' ');
}

// Warnings of the chosen kind, the first ones at once and the others when asked for. `follow` is given the witness to follow.
class WarningList {
   constructor(model, follow) {
      this.model = model;
      this.follow = follow;
      byId('warning-rest').textContent = restText(model);
      const codes = [...new Set(model.warnings.map(({ code }) => code))];
      this.buttons = (codes.length > 1 ? [null, ...codes] : []).map((code) => this.makeButton(code));
      byId('warning-codes').append(...this.buttons);
      this.choose(null);
   }

   makeButton(code) {
      const { warnings } = this.model;
      const number = code === null ? warnings.length
                                   : warnings.filter((each) => each.code === code).length;
      const button = element('button', { type: 'button', text: `${code ?? 'all'} ${count(number)}` });
      button.addEventListener('click', () => this.choose(code));
      button.code = code;
      return button;
   }

   choose(code) {
      this.buttons.forEach((button) => {
         button.setAttribute('aria-pressed', String(button.code === code));
      });
      this.chosen = this.model.warnings.filter((each) => code === null || each.code === code);
      byId('warning-list').replaceChildren();
      if (this.chosen.length === 0 && this.model.notDecided.length === 0) {
         byId('warning-list').append(element('li', { class: 'plain-line', text: 'None.' }));
      }
      this.add(20);
   }

   add(number) {
      const list = byId('warning-list');
      list.querySelector('.more')?.remove();
      const before = list.querySelectorAll('li').length;
      const next = this.chosen.slice(before, before + number);
      list.append(...next.map((each) => warningItem(each, this.follow)));
      const left = this.chosen.length - before - next.length;
      if (left > 0) {
         const button = element('button', { type: 'button', text: `${count(left)} more` });
         button.addEventListener('click', () => this.add(1000));
         list.append(element('li', { class: 'more' }, button));
      }
   }
}
