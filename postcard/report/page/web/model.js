// `makeModel`: the data of the page as objects that refer to each other; `ruleMatchText`,
// `ruleName`: a rule in words. Relies on the document that `unpack` returns.
//
// The rules of all ACLs stand one behind the other, in the order of matching. A rule is its number
// in this order; its fields are in the columns. The rules of an ACL, and those of a class of it, are
// a run of numbers: `first` and `entries`.

// How much of its traffic a class samples, as one of five words, which are CSS classes as well.
function rateWord(rate) {
   if (rate.oneIn === 0) {
      return 'never';
   }
   return rate.oneIn === 1 ? 'every' : rate.oneIn <= 64 ? 'often' : rate.oneIn <= 1024 ? 'some' : 'rare';
}

const rateWords = [
   ['every', 'every packet'], ['often', '1 in 2 to 64'], ['some', '1 in 128 to 1,024'],
   ['rare', 'fewer'], ['never', 'not sampled'],
];

function rateText(rate) {
   return rate.oneIn <= 1 ? (rate.oneIn === 0 ? 'not sampled' : 'every packet')
                          : `1 in ${count(rate.oneIn)}`;
}

// A share of packets, as N in "1 in N"; null: no packet at all.
function shareText(oneIn) {
   if (oneIn === null || oneIn === 1) {
      return oneIn === null ? 'none' : 'every packet';
   }
   return `1 in ${Number.isInteger(oneIn) ? count(oneIn) : oneIn.toFixed(1)}`;
}

function makeClasses(acl, cost, totals) {
   let first = acl.first;
   return acl.classes.map((each, number) => {
      const made = {
         ...each, acl, number, first, entries: cost.classes[number].entries,
         rate: cost.classes[number].rate, totals: totals?.classes[number] ?? null, warnings: 0,
         sourcePrefix: each.source === null ? null : parsePrefix(each.source),
         destinationPrefix: each.destination === null ? null : parsePrefix(each.destination),
      };
      first += made.entries;
      return made;
   });
}

// The class that a warning is about, in each ACL of its policy; a warning may be about both
// families.
function countWarnings(model) {
   const classes = new Map(model.classes.map(
         (each) => [JSON.stringify([each.acl.policy, each.acl.family, each.name]), each]));
   for (const warning of model.warnings) {
      for (const family of warning.family === null ? ['ipv4', 'ipv6'] : [warning.family]) {
         const each = classes.get(JSON.stringify([warning.policy, family, warning.class]));
         if (each !== undefined) {
            ++each.warnings;
         }
      }
   }
}

function makeModel(document) {
   let first = 0;
   document.acls.forEach((acl, number) => {
      const cost = document.cost.acls[number];
      Object.assign(acl, { number, first, entries: cost.entries,
                           totals: document.capture?.acls[number] ?? null });
      first += acl.entries;
      acl.classes = makeClasses(acl, cost, acl.totals);
   });
   const model = { ...document, classes: document.acls.flatMap((acl) => acl.classes) };
   countWarnings(model);
   return model;
}

function aclOfRule(model, rule) {
   let low = 0;
   let high = model.acls.length - 1;
   while (low < high) {
      const middle = (low + high + 1) >> 1;
      [low, high] = model.acls[middle].first <= rule ? [middle, high] : [low, middle - 1];
   }
   return model.acls[low];
}

function classOfRule(model, rule) {
   return aclOfRule(model, rule).classes[model.rule.class[rule]];
}

const sourceCompared = 1;
const destinationCompared = 2;
const samples = 1;

// The helper's name of the rule. The few that are not made of the fields are listed by number.
function ruleName(model, rule) {
   const acl = aclOfRule(model, rule);
   const odd = acl.names[rule - acl.first];
   if (odd !== undefined) {
      return odd;
   }
   const column = model.rule;
   let name = `${acl.classes[column.class[rule]].name}-${acl.family}-` +
              protocolName(column.protocol[rule]);
   if (column.ports[rule] & sourceCompared) {
      name += `-SportData-${column.sourceData[rule]}-SportMask-${column.sourceMask[rule]}`;
   }
   if (column.ports[rule] & destinationCompared) {
      name += `-DportData-${column.destinationData[rule]}-DportMask-${column.destinationMask[rule]}`;
   }
   if (column.flagsMask[rule] !== 0) {
      name += `-tcpFlag-${column.flagsData[rule]}-tcpFlagMask-${column.flagsMask[rule]}`;
   }
   return name;
}

// A block of ports as a range. Its mask is ones followed by zeros, else data and mask are written.
function blockText(data, mask) {
   const free = ~mask & 0xffff;
   if ((free & (free + 1)) !== 0 || (data & free) !== 0) {
      return `${hex(data, 1)}/${hex(mask, 1)}`;
   }
   return free === 0 ? String(data) : `${data}-${data | free}`;
}

function rangeText(low, high) {
   return low === high ? String(low) : `${low}-${high}`;
}

function prefixText(prefix) {
   return prefix === null || prefix.endsWith('/0') ? 'any' : prefix;
}

// What the rule matches, as `postcard compile --format list` writes it.
function ruleMatchText(model, rule) {
   const column = model.rule;
   const each = classOfRule(model, rule);
   let text = `${protocolName(column.protocol[rule])} ${prefixText(each.source)} > ` +
              prefixText(each.destination);
   if (column.ports[rule] & sourceCompared) {
      text += ` sport ${blockText(column.sourceData[rule], column.sourceMask[rule])}`;
   }
   if (column.ports[rule] & destinationCompared) {
      text += ` dport ${blockText(column.destinationData[rule], column.destinationMask[rule])}`;
   }
   if (column.flagsMask[rule] !== 0) {
      text += ` flags ${hex(column.flagsData[rule], 1)}/${hex(column.flagsMask[rule], 1)}`;
   }
   if (each.sample !== null) {
      text += ` ${each.sample.field} ${hex(each.sample.data, 1)}/${hex(each.sample.mask, 1)}`;
   }
   return text;
}

// The part of the file that the rule was made from, without the class.
function originText(model, rule) {
   const column = model.rule;
   const parts = [];
   if (column.entry[rule] !== 0) {
      parts.push(`entry ${column.entry[rule]}`);
   }
   if (column.ports[rule] & sourceCompared) {
      parts.push(`sport ${rangeText(column.sourceLow[rule], column.sourceHigh[rule])}`);
   }
   if (column.ports[rule] & destinationCompared) {
      parts.push(`dport ${rangeText(column.destinationLow[rule], column.destinationHigh[rule])}`);
   }
   return parts.join(' ');
}

function placeText(model, rule) {
   return `${model.rule.line[rule]}:${model.rule.column[rule]}`;
}

function actionText(model, rule) {
   const actions = model.rule.actions[rule];
   return ['none', 'sample', 'set-dscp', 'sample, set-dscp'][actions];
}
