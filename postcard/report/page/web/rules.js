// `RuleList`: all rules in a table, searched and sorted; below it, everything about the active one.
// Relies on the model and on `Grid`.

const searchSlice = 5000; // rules whose texts are made at a time, so that the page stays responsive

function ruleColumns(model) {
   const { rule: column } = model;
   const protocolAndPorts = (rule) =>
      ((column.protocol[rule] * 65536 + column.sourceLow[rule]) * 65536 + column.destinationLow[rule]);
   const columns = [
      { title: '#', numeric: true, width: '4.5rem', key: (rule) => rule,
        fill: (cell, rule) => { cell.textContent = String(rule - aclOfRule(model, rule).first); } },
      { title: 'Class', role: 'first', width: 'minmax(6rem, 1fr)',
        key: (rule) => classOfRule(model, rule).name,
        fill: nameCell((rule) => classOfRule(model, rule).name) },
      { title: 'ACL', role: 'minor', width: 'minmax(5rem, 0.7fr)', key: (rule) => aclOfRule(model, rule).number,
        fill: nameCell((rule) => aclOfRule(model, rule).key) },
      { title: 'Match', role: 'line', width: 'minmax(12rem, 3fr)', key: protocolAndPorts,
        fill: textCell((rule) => ruleMatchText(model, rule)) },
      { title: 'Actions', role: 'minor', width: '8rem', key: (rule) => column.actions[rule],
        fill: textCell((rule) => actionText(model, rule)) },
      { title: 'Line', role: 'minor', numeric: true, width: '4rem', key: (rule) => column.line[rule],
        fill: (cell, rule) => { cell.textContent = String(column.line[rule]); } },
   ];
   return model.capture === null ? columns : [
      ...columns, { title: 'Hits', numeric: true, width: '5rem', key: (rule) => column.hits[rule],
                    fill: numberCell((rule) => column.hits[rule]) },
   ];
}

class RuleList {
   constructor(model) {
      this.model = model;
      this.texts = [];
      this.grid = new Grid(byId('rule-table'), {
         label: 'Rules', size: model.rules, columns: ruleColumns(model), empty: 'No rule matches.',
         lines: model.capture === null ? 3 : 4,
         onActive: (rule) => this.detail(rule),
      });
      byId('rule-search').addEventListener('input', (event) => this.search(event.target.value));
      this.say(model.rules);
      this.prepare();
   }

   // Makes the texts that are searched while nothing else is to be done.
   prepare() {
      if (this.texts.length < this.model.rules) {
         this.makeTexts(this.texts.length + searchSlice);
         setTimeout(() => this.prepare());
      }
   }

   makeTexts(most) {
      const { model, texts } = this;
      const last = Math.min(most, model.rules);
      for (let rule = texts.length; rule < last; ++rule) {
         texts.push(`${aclOfRule(model, rule).policy} ${ruleName(model, rule)} ` +
                    `${ruleMatchText(model, rule)} line ${model.rule.line[rule]}`.toLowerCase());
      }
   }

   // Shows the rules whose text has every word of `text` in it.
   search(text) {
      const words = text.toLowerCase().split(/\s+/).filter((word) => word !== '');
      if (words.length === 0) {
         this.grid.filter(null);
         this.say(this.model.rules);
         return;
      }
      this.makeTexts(this.model.rules);
      const chosen = new Uint8Array(this.model.rules);
      let found = 0;
      this.texts.forEach((each, rule) => {
         if (words.every((word) => each.includes(word))) {
            chosen[rule] = 1;
            ++found;
         }
      });
      this.grid.filter(chosen);
      this.say(found);
   }

   say(found) {
      const all = this.model.rules;
      byId('rule-count').textContent = found === all ? plural(all, 'entry', 'entries')
                                                     : `${count(found)} of ${plural(all, 'entry', 'entries')}`;
   }

   detail(rule) {
      const { model } = this;
      const acl = aclOfRule(model, rule);
      const rows = [
         ['Rule', `${rule - acl.first} ${ruleName(model, rule)}`],
         ['ACL', acl.key],
         ['Class', classOfRule(model, rule).name],
         ['Match', ruleMatchText(model, rule)],
         ['Actions', actionText(model, rule)],
         ['From', `${placeText(model, rule)} ${originText(model, rule)}`.trim()],
      ];
      if (model.capture !== null) {
         rows.push(['Hits', count(model.rule.hits[rule])]);
      }
      byId('rule-detail').replaceChildren(element('dl', {}, ...rows.flatMap(
            ([name, text]) => [element('dt', { text: name }), element('dd', { class: 'name', text })])));
   }
}
