// `explainPacket`: what happens to a packet and why, as one element of "packets" in the document of
// `postcard explain --format json`. Relies on the model, and on the packet's text.
//
// The rules say what happens: the first one that matches. The classes say why. The two are compared
// for every packet, as the command does.

// ---- What the classes say ----

function absentText(field, packet) {
   return headerIsCut(packet) ? `no ${field}: the header is cut off`
                              : `no ${field} in a later fragment`;
}

// An entry without ranges makes no rule: it matches no packet.
function makesRules(entry) {
   return entry.source.length > 0 || entry.destination.length > 0;
}

// A side without ranges matches every port, and a packet without port.
function sideMatches(ranges, port) {
   return ranges.length === 0 ||
          (port !== null && ranges.some(([low, high]) => port >= low && port <= high));
}

// A packet matches when one entry matches both of its ports. Returns the field that fails, or null.
function missedPort(entries, packet) {
   let missed = 'source port';
   for (const entry of entries) {
      if (makesRules(entry) && sideMatches(entry.source, packet.sourcePort)) {
         if (sideMatches(entry.destination, packet.destinationPort)) {
            return null;
         }
         missed = 'destination port';
      }
   }
   return entries.length === 0 ? null : missed;
}

function portMiss(field, entries, side, port, packet) {
   const texts = new Set();
   for (const entry of entries) {
      const counts = side === 'source' || sideMatches(entry.source, packet.sourcePort);
      if (makesRules(entry) && counts) {
         entry[side].forEach(([low, high]) => texts.add(rangeText(low, high)));
      }
   }
   return {
      field, wanted: texts.size === 0 ? 'one of an empty list of ranges' : [...texts].join(', '),
      found: port === null ? absentText('port', packet) : String(port),
   };
}

// What a class asks of packets of one protocol: ports, then TCP flags.
function protocolMiss(match, tcpFlags, packet) {
   switch (missedPort(match.ports, packet)) {
   case 'source port':
      return portMiss('source port', match.ports, 'source', packet.sourcePort, packet);
   case 'destination port':
      return portMiss('destination port', match.ports, 'destination', packet.destinationPort, packet);
   }
   const wanted = match.flags;
   if (!tcpFlags || wanted.length === 0 ||
       wanted.some(([flags, mask]) => packet.tcpFlags !== null && (packet.tcpFlags & mask) === flags)) {
      return null;
   }
   return {
      field: 'tcp-flags',
      wanted: wanted.map(([flags, mask]) => `${flagNames(flags)} of ${flagNames(mask)}`).join(' or '),
      found: packet.tcpFlags === null ? absentText('flags', packet) : flagNames(packet.tcpFlags),
   };
}

function sampleMiss(sample, packet) {
   const value = sample.field === 'checksum' ? packet.checksum : packet.identification;
   if (value !== null && (value & sample.mask) === sample.data) {
      return null;
   }
   return {
      field: 'sample',
      wanted: `${sample.field} ${hex(sample.data, 4)} under mask ${hex(sample.mask, 4)}`,
      found: value === null ? absentText('checksum', packet) : hex(value, 4),
   };
}

// The first field of the class that the packet does not match, in words; null when it matches.
function firstMiss(each, tcpFlags, packet) {
   for (const side of ['source', 'destination']) {
      const prefix = each[side + 'Prefix'];
      if (prefix !== null && !inPrefix(prefix, packet[side])) {
         return { field: side, wanted: each[side], found: printAddress(packet[side]) };
      }
   }
   const match = each.protocols.find(({ protocol }) => protocol === packet.protocol);
   const missed = match === undefined ? null : protocolMiss(match, tcpFlags, packet);
   if (missed !== null) {
      return missed;
   }
   // A class without protocols gets rules for TCP and UDP.
   if (match === undefined && !(each.protocols.length === 0 && isTcpOrUdp(packet))) {
      const wanted = each.protocols.map(({ protocol }) => protocolName(protocol)).join(' or ');
      return { field: 'protocol', wanted: wanted || 'tcp or udp',
               found: protocolName(packet.protocol) };
   }
   return each.sample === null ? null : sampleMiss(each.sample, packet);
}

// ---- What the rules say ----

// Rules of a class share addresses and sample bits, so these are compared once for each class.
function classesThatMayMatch(acl, packet) {
   return acl.classes.map(
         (each) => (each.sourcePrefix === null || inPrefix(each.sourcePrefix, packet.source)) &&
                   (each.destinationPrefix === null ||
                    inPrefix(each.destinationPrefix, packet.destination)) &&
                   (each.sample === null || sampleMiss(each.sample, packet) === null));
}

function fits(value, data, mask) {
   return value !== null && ((value ^ data) & mask) === 0;
}

// The number of the first rule of the ACL that matches, or null.
function firstRule(model, acl, packet) {
   const column = model.rule;
   const mayMatch = classesThatMayMatch(acl, packet);
   for (let rule = acl.first; rule < acl.first + acl.entries; ++rule) {
      const ports = column.ports[rule];
      if (mayMatch[column.class[rule]] && column.protocol[rule] === packet.protocol &&
          (!(ports & sourceCompared) ||
           fits(packet.sourcePort, column.sourceData[rule], column.sourceMask[rule])) &&
          (!(ports & destinationCompared) ||
           fits(packet.destinationPort, column.destinationData[rule],
                column.destinationMask[rule])) &&
          (column.flagsMask[rule] === 0 ||
           fits(packet.tcpFlags, column.flagsData[rule], column.flagsMask[rule]))) {
         return rule;
      }
   }
   return null;
}

// Where the rule comes from, as the document has it. What the rule does not compare is null.
function originOf(model, rule) {
   const column = model.rule;
   const ports = column.ports[rule];
   const range = (side) => `${column[side + 'Low'][rule]}-${column[side + 'High'][rule]}`;
   return {
      line: column.line[rule],
      column: column.column[rule],
      protocol: protocolName(column.protocol[rule]),
      portEntry: column.entry[rule] || null,
      sourcePorts: ports & sourceCompared ? range('source') : null,
      destinationPorts: ports & destinationCompared ? range('destination') : null,
      tcpFlags: column.flagsMask[rule] === 0
                      ? null
                      : { flags: column.flagsData[rule], mask: column.flagsMask[rule] },
   };
}

function explainIn(model, acl, packet) {
   const rule = firstRule(model, acl, packet);
   const misses = acl.classes.map((each) => firstMiss(each, model.tcpFlags, packet));
   const matched = misses.indexOf(null);
   const classOf = rule === null ? -1 : model.rule.class[rule];
   if (classOf !== matched) {
      throw new Error(`${acl.key} does something else than its classes say with ` +
                      printPacket(packet));
   }
   const mask = rule === null ? 0 : model.rule.dscpMask[rule];
   const result = {
      acl: acl.key, policy: acl.policy, family: acl.family, rule: null, class: null,
      sampled: rule !== null && (model.rule.actions[rule] & samples) !== 0,
      dscp: rule === null ? packet.dscp
                          : (packet.dscp & ~mask) | (model.rule.dscpData[rule] & mask),
      notMatched: [], notReached: [],
   };
   if (rule !== null) {
      result.rule = { index: rule - acl.first, name: ruleName(model, rule), origin: originOf(model, rule) };
      result.class = acl.classes[matched].name;
   }
   misses.forEach((miss, i) => {
      if (miss !== null) {
         result.notMatched.push({ class: acl.classes[i].name, ...miss });
      } else if (i !== matched) {
         result.notReached.push(acl.classes[i].name);
      }
   });
   return result;
}

// ---- Why no ACL is asked ----

function policiesText(policies) {
   const most = 3;
   const names = policies.slice(0, most).map(({ name }) => inQuotes(name)).join(', ');
   const more = policies.length - most;
   return `${policies.length === 1 ? 'policy' : 'policies'} ${names}` +
          (more > 0 ? ` and ${more} more` : '');
}

function nonePhrase(policies, negative, positive) {
   switch (policies.length) {
   case 0:
      return `no policy ${positive}`;
   case 1:
      return `${policiesText(policies)} ${negative}`;
   default:
      return `none of the ${policies.length} policies ${positive}`;
   }
}

function noSuchInterface(policies, family, name) {
   const other = family === 'ipv4' ? 'ipv6' : 'ipv4';
   if (policies.some((policy) => policy[other].includes(name))) {
      return { code: 'other-family',
               text: `interface ${inQuotes(name)} has policies for ${other} only, and the packet is ` +
                     family,
               guess: null };
   }
   const guess = closest(name, policies.flatMap((policy) => policy[family]));
   return { code: 'unknown-interface',
            text: `${nonePhrase(policies, 'is not', 'is')} attached to interface ${inQuotes(name)}`,
            guess: guess === '' ? null : guess };
}

// Tries the causes from the widest to the narrowest.
function whyNoAcl(scope, packet) {
   const { family, intf } = packet;
   if (scope.family !== null && scope.family !== family) {
      return { code: 'family-left-out',
               text: `the packet is ${family}, and only ACLs of ${scope.family} are looked at`,
               guess: null };
   }
   const ofFamily = scope.policies.filter((policy) => policy[family].length > 0);
   if (ofFamily.length === 0) {
      return { code: 'no-interfaces',
               text: `${nonePhrase(scope.policies, 'has no', 'has')} interfaces for ${family}`,
               guess: null };
   }
   const attached = ofFamily.filter((policy) => intf === '' || policy[family].includes(intf));
   if (attached.length === 0) {
      return noSuchInterface(scope.policies, family, intf);
   }
   return { code: 'refused',
            text: `the plug-in refused ${policiesText(attached)} for ${family}`, guess: null };
}

// `parsed` is what `parsePacket` returns.
function explainPacket(model, { packet, zeros }) {
   const acls = model.acls.filter((acl) => acl.family === packet.family &&
                                           (packet.intf === '' || acl.interfaces.includes(packet.intf)));
   return {
      packet: printPacket(packet),
      zeros,
      acls: acls.map((acl) => explainIn(model, acl, packet)),
      noAcl: acls.length === 0 ? whyNoAcl(model.scope, packet) : null,
      asExpected: null,
   };
}
