// `PacketFollower`: a packet that the reader types, and what every class does with it. Relies on
// `explainPacket`.

const foldFrom = 6; // so many classes with the same answer in a row are folded

function resultText(model, acl, result) {
   if (result.rule === null) {
      return 'not sampled: no rule matches';
   }
   const before = acl.packet.dscp;
   const dscp = result.dscp === before ? `stays ${before}` : `${before} becomes ${result.dscp}`;
   const matched = model.acls.find(({ key }) => key === result.acl)
                         .classes.find(({ name }) => name === result.class);
   const wanted = matched.dscp;
   const remark = wanted === null || wanted === result.dscp
                        ? '' : ` (the class sets ${wanted}, but its rules rewrite no bits)`;
   return `${result.sampled ? 'sampled' : 'not sampled'} by rule ${result.rule.index}, DSCP ${dscp}` +
          remark;
}

function stepParts(step) {
   const sign = { hit: '\u2713', miss: '\u2717', late: '\u00b7' }[step.kind];
   return [
      element('span', { class: 'sign', 'aria-hidden': 'true', text: sign }),
      element('span', { class: 'name', text: step.class }),
      element('p', { class: 'name', text: step.text }),
   ];
}

// The classes of the ACL in the order of matching, each with its answer.
function stepsOf(acl, result) {
   const misses = new Map(result.notMatched.map((miss) => [miss.class, miss]));
   return acl.classes.map(({ name }) => {
      const miss = misses.get(name);
      if (miss !== undefined) {
         return { class: name, kind: 'miss', same: miss.field,
                  text: `no, ${miss.field}: wanted ${miss.wanted}, found ${miss.found}` };
      }
      return name === result.class
                   ? { class: name, kind: 'hit', same: null,
                       text: `yes, rule ${result.rule.index} ${result.rule.name}` }
                   : { class: name, kind: 'late', same: 'late',
                       text: 'not reached: an earlier class has the packet' };
   });
}

function runsOf(steps) {
   const runs = [];
   for (const step of steps) {
      const last = runs.at(-1);
      if (last !== undefined && last[0].same !== null && last[0].same === step.same) {
         last.push(step);
      } else {
         runs.push([step]);
      }
   }
   return runs;
}

function fold(steps) {
   const what = steps[0].kind === 'late' ? 'are not reached' : `do not match by ${steps[0].same}`;
   const list = element('ol');
   const details = element('details', {},
                           element('summary', { text: `${count(steps.length)} classes ${what}` }), list);
   details.addEventListener('toggle', () => {
      if (details.open && list.children.length === 0) {
         list.append(...steps.map((step) => element('li', { class: step.kind }, ...stepParts(step))));
      }
   });
   return element('li', { class: 'fold' }, details);
}

function pathOf(acl, result) {
   return element('ol', { class: 'path' }, ...runsOf(stepsOf(acl, result)).flatMap((steps) =>
      steps.length >= foldFrom
            ? [fold(steps)]
            : steps.map((step) => element('li', { class: step.kind }, ...stepParts(step)))));
}

// An address in the prefix; the first one behind the prefix's own where there is room.
function someAddress(prefix, fallback) {
   if (prefix === null) {
      return fallback;
   }
   const bytes = [...prefix.bytes];
   if (prefix.length < 8 * bytes.length) {
      bytes[bytes.length - 1] |= 1;
   }
   return bytes;
}

// A packet that the class matches, unless an earlier one does.
function exampleOf(each) {
   const ipv6 = each.acl.family === 'ipv6';
   const [match] = each.protocols;
   const entry = match?.ports.find(makesRules);
   const documentation = ipv6 ? parsePrefix('2001:db8::1/128').bytes : [192, 0, 2, 1];
   const { field = null, data = 0 } = each.sample ?? {};
   const packet = {
      family: each.acl.family, source: someAddress(each.sourcePrefix, documentation),
      destination: someAddress(each.destinationPrefix, documentation),
      protocol: match?.protocol ?? protocolTcp, sourcePort: entry?.source[0]?.[0] ?? 49152,
      destinationPort: entry?.destination[0]?.[0] ?? 443, tcpFlags: null,
      checksum: field === 'checksum' ? data : 0, identification: field === 'ip-id' ? data : null,
      dscp: 0, intf: '', laterFragment: false,
   };
   if (packet.protocol === protocolTcp) {
      packet.tcpFlags = match?.flags[0]?.[0] ?? 0;
   }
   return printPacket(packet);
}

class PacketFollower {
   constructor(model) {
      this.model = model;
      this.input = byId('packet-text');
      byId('packet-form').addEventListener('submit', (event) => {
         event.preventDefault();
         this.follow();
      });
      const first = model.classes.find((each) => each.entries > 0);
      if (first !== undefined) {
         this.input.value = exampleOf(first);
         this.follow();
      }
   }

   // Follows `text` and shows the answer.
   go(text) {
      this.input.value = text;
      this.follow();
      byId('packet').scrollIntoView();
      this.input.focus({ preventScroll: true });
   }

   follow() {
      const text = this.input.value;
      byId('packet-error').textContent = '';
      byId('packet-result').replaceChildren();
      try {
         this.show(parsePacket(text));
         this.input.removeAttribute('aria-invalid');
      } catch (error) {
         if (!(error instanceof ReadError)) {
            throw error;
         }
         this.input.setAttribute('aria-invalid', 'true');
         const before = escaped(textOfBytes(bytesText(text).slice(0, error.position)));
         byId('packet-error').textContent =
               `${escaped(text)}\n${' '.repeat(Array.from(before).length)}^ ${error.message}`;
      }
   }

   show(parsed) {
      const answer = explainPacket(this.model, parsed);
      const shown = answer.acls.map((result) => this.verdict(parsed.packet, result));
      if (answer.noAcl !== null) {
         shown.push(element('p', { class: 'note plain name',
                                   text: 'No ACL is asked about this packet: ' + answer.noAcl.text +
                                         didYouMean(answer.noAcl.guess ?? '') }));
      }
      const heading = element('p', {}, element('code', { class: 'name', text: escaped(answer.packet) }));
      if (answer.zeros.length > 0) {
         heading.append(element('span', { class: 'place',
                                          text: `  left out and taken for 0: ${answer.zeros.join(', ')}` }));
      }
      byId('packet-result').replaceChildren(heading, ...shown, this.document(answer));
   }

   verdict(packet, result) {
      const acl = this.model.acls.find(({ key }) => key === result.acl);
      return element('div', { class: 'verdict' },
                     element('h3', { class: 'name', text: result.acl }),
                     element('p', { text: resultText(this.model, { packet }, result) }),
                     pathOf(acl, result));
   }

   // The answer as a program gets it from the command.
   document(answer) {
      const refused = this.model.cost.refused;
      const text = JSON.stringify({ schema: this.model.explainSchema, packets: [answer], refused,
                                    expected: null }, null, 2);
      return element('details', { class: 'document' }, element('summary', { text: 'As JSON' }),
                     element('pre', { class: 'json', id: 'packet-json', tabindex: '0', text }));
   }
}
