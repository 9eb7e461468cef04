// The page follows packets as `postcard explain` does: the same answers to random packets, and the
// same words about texts that are no packets.
import assert from 'node:assert/strict';
import { after, test } from 'node:test';

import { Random, endBrowser, example, follow, json, makePage, openPage, postcard, write } from './support.mjs';

after(endBrowser);

// Few values, so that packets and filters meet.
const ipv4 = ['10.0.0.1', '10.1.2.3', '10.0.4.7', '10.255.255.255', '192.0.2.0', '192.0.2.17',
              '192.0.2.129', '192.0.2.254', '172.16.0.1', '0.0.0.0', '255.255.255.255', '10.0.12.9'];
const ipv6 = ['2001:db8::1', '2001:db8:80::1', '2001:db8:0:100::5', '2001:db8:0:c00::1', '::',
              '::ffff:1.2.3.4', 'fe80::1:0:0:1', '2001:DB8:0:0:1:0:0:1', 'ff02::1', '::1'];
const ports = [0, 22, 53, 80, 81, 179, 443, 1023, 1024, 1025, 3306, 4789, 5672, 8000, 8080, 8443,
               8999, 9000, 16384, 32767, 49152, 65535];
const words = [0, 1, 2, 0x12, 0xff, 0x100, 0x321, 0x800, 0x8000, 0x8001, 0xffff];
const flags = ['none', 'syn', 'syn,ack', 'fin,ack', 'rst', 'ack', 'fin,syn,rst,psh,ack,urg,ece,cwr', '0x11'];

function randomPacket(random, interfaces) {
   const protocol = random.of(['tcp', 'tcp', 'tcp', 'udp', 'udp', 'icmp', 'icmpv6', '89', '0x11', '6']);
   const six = random.once(3);
   const hasPorts = ['tcp', 'udp', '0x11', '6'].includes(protocol);
   const isTcp = ['tcp', '6'].includes(protocol);
   const form = hasPorts && random.once(8) ? random.of(['fragment', 'cut']) : random.once(20) ? 'fragment' : '';
   const end = (withPort) => {
      const address = six ? `[${random.of(ipv6)}]` : random.of(ipv4);
      return withPort ? `${address}:${random.of(ports)}` : address;
   };
   const source = hasPorts && (form === '' || (form === 'cut' && random.once(2)));
   const destination = hasPorts && (form === '' || (form === 'cut' && source && random.once(2)));
   const parts = [protocol, end(source), '>', end(destination)];
   const perhaps = (is, text) => {
      if (is && random.once(2)) {
         parts.push(text());
      }
   };
   perhaps(isTcp && (form === '' || destination) && form !== 'fragment', () => `flags=${random.of(flags)}`);
   perhaps(hasPorts && form === '', () => `checksum=${random.of(words)}`);
   perhaps(!six, () => `id=0x${random.of(words).toString(16)}`);
   perhaps(random.once(2), () => `dscp=${random.of([0, 34, 46, 63])}`);
   perhaps(random.once(2), () => `interface=${random.of(interfaces)}`);
   return [...parts, form].filter((part) => part !== '').join(random.of([' ', ' ', '  ', '\t']));
}

// An address in the prefix, 32 bits of it at random where they are free.
function addressIn(random, prefix, six) {
   const [address, length] = prefix.split('/');
   if (prefix === '0.0.0.0/0' || Number(length) < 8) {
      return random.of(six ? ipv6 : ipv4);
   }
   if (six) {
      return address.endsWith('::') ? `${address}${random.below(65536).toString(16)}` : address;
   }
   const free = 32 - Number(length);
   const bits = address.split('.').reduce((all, byte) => all * 256 + Number(byte), 0) +
                random.below(2 ** free);
   return [24, 16, 8, 0].map((shift) => Math.floor(bits / 2 ** shift) % 256).join('.');
}

// A packet that the rule matches, but perhaps for one field.
function nearPacket(random, rule) {
   const { source, destination, proto, sampleDataAndMask: sample, tcpFlagAndMask: flag } = rule.ruleFilter;
   const six = rule.family === 'ipv6';
   const wrong = random.below(10);
   const port = (valid, block, place) => {
      const free = 0xffff & ~block.l4PortMask;
      return valid && wrong !== place ? block.l4PortData | (random.below(65536) & free) : random.of(ports);
   };
   const end = (prefix, number, place) => {
      const address = addressIn(random, wrong === place ? '0.0.0.0/0' : prefix, six);
      return six ? `[${address}]:${number}` : `${address}:${number}`;
   };
   const { sportDataMaskValid, sportDataMask, dportDataMaskValid, dportDataMask } = rule.ruleFilter;
   let text = `${proto === 6 ? 'tcp' : 'udp'} ${end(source, port(sportDataMaskValid, sportDataMask, 0), 1)} > ` +
              end(destination, port(dportDataMaskValid, dportDataMask, 2), 3);
   if (proto === 6) {
      text += ` flags=${wrong === 4 ? 8 : flag.tcpFlag}`;
   }
   if (sample !== null && wrong !== 5) {
      const free = random.below(65536) & ~sample.mask & 0xffff;
      text += ` ${sample.version === 0 ? 'checksum' : 'id'}=${sample.data | free}`;
   }
   return text;
}

// Right names, wrong ones, and one that is nearly right.
const interfaces = ['Ethernet1', 'Ethernet1', 'Ethernet49/1', 'Ethernt1', 'nowhere', 'Vlan100', 'Ethernet3', '\u00fcber'];

for (const [name, seed] of [['web-tier', 1], ['all-features', 2], ['twenty-services', 3],
                            ['flags-and-ranges', 4], ['large-datacenter', 5]]) {
   test(`200 random packets through ${name}`, async () => {
      const random = new Random(7919 * seed);
      const rules = json('compile', example(name)).acls.flatMap((acl) => Object.values(acl.ruleByName));
      const texts = Array.from({ length: 200 }, (_, i) => (i % 2 ? randomPacket(random, interfaces)
                                                                 : nearPacket(random, random.of(rules))));
      const wanted = json('explain', example(name), ...texts.flatMap((text) => ['--packet', text]));
      const page = await openPage(makePage(name, example(name)));
      let matched = 0;
      for (const [i, text] of texts.entries()) {
         const answer = await follow(page, text);
         assert.deepEqual(answer, { ...wanted, packets: [wanted.packets[i]] }, text);
         matched += wanted.packets[i].acls.some((acl) => acl.rule !== null) ? 1 : 0;
      }
      assert.ok(matched > 50 && matched < 200, `${matched} of 200 meet a rule`);
      assert.deepEqual(page.troubles, []);
      await page.close();
   });
}

test('one family, and hardware without TCP flags', async () => {
   const policy = write('no-flags.yaml', `hardware: { tcp-flags: false }
policies:
  - name: p
    interfaces: { ipv4: [Ethernet1] }
    classes:
      - { name: a, actions: [sample], ipv4: { protocols: [{ protocol: tcp,
          tcp-flags: [{ flags: [syn], mask: [syn] }], ports: [{ source: [1-5, 7], destination: [80-83] }] }] } }
      - { name: nothing, actions: [sample], ipv4: { protocols: [{ protocol: udp, ports: [{ }] }] } }
      - { name: b, actions: [sample-all], ipv4: { source: [10.0.0.0/8] } }
  - { name: six, interfaces: { ipv6: [Ethernet2] }, classes: [{ name: all, actions: [], ipv6: {} }] }
`);
   const texts = ['tcp 10.0.0.1:7 > 1.2.3.4:82', 'tcp 11.0.0.1:7 > 1.2.3.4:84', 'udp 10.0.0.1:7 > 1.2.3.4:82',
                  'udp 11.0.0.1:7 > 1.2.3.4:82', 'icmp 10.0.0.1 > 1.2.3.4', 'tcp [::1]:1 > [::2]:2',
                  'tcp [::1]:1 > [::2]:2 interface=Ethernet1', 'tcp 1.2.3.4:1 > 1.2.3.4:2 interface=Ethernet2',
                  'tcp 1.2.3.4:1 > 1.2.3.4:2 interface=Ethernet11', 'tcp 1.2.3.4 > 1.2.3.4 fragment'];
   for (const choice of [[], ['--family', 'ipv4'], ['--policy', 'six']]) {
      const wanted = json('explain', policy, ...choice, ...texts.flatMap((text) => ['--packet', text]));
      const page = await openPage(makePage('choice', policy, ...choice));
      for (const [i, text] of texts.entries()) {
         assert.deepEqual((await follow(page, text)).packets, [wanted.packets[i]], `${choice} ${text}`);
      }
      await page.close();
   }
});

const mistakes = [
   '', ' ', 'tpc 1.2.3.4:1 > 1.2.3.4:2', 'tcp', 'tcp 1.2.3.4:1', 'tcp 1.2.3.4:1 > 1.2.3.4',
   'tcp 1.2.3.4:1 > [::1]:2', 'tcp [1.2.3.4]:1 > 1.2.3.4:2', 'tcp ::1:1 > ::2:2', 'tcp 01.2.3.4:1 > 1.2.3.4:2',
   'tcp 1.2.3.256:1 > 1.2.3.4:2', 'tcp 1.2.3:1 > 1.2.3.4:2', 'tcp 1.2.3.4:65536 > 1.2.3.4:2',
   'tcp 1.2.3.4:0x10000 > 1.2.3.4:2', 'tcp 1.2.3.4:0x > 1.2.3.4:2', '300 1.2.3.4 > 1.2.3.4',
   'tcp [1::2::3]:1 > [::1]:2', 'tcp [1:2:3]:1 > [::1]:2', 'tcp [12345::]:1 > [::1]:2', 'tcp [::1]x:1 > [::1]:2',
   'tcp 1.2.3.4:1 > 1.2.3.4:2 flags=syn,foo', 'udp 1.2.3.4:1 > 1.2.3.4:2 flags=syn',
   'icmp 1.2.3.4 > 1.2.3.4 checksum=1', 'icmpv6 [::1] > [::1] id=1', 'tcp 1.2.3.4:1 > 1.2.3.4:2 dscp=64',
   'tcp 1.2.3.4:1 > 1.2.3.4:2 dscp=1 dscp=1', 'tcp 1.2.3.4:1 > 1.2.3.4:2 interface=',
   'tcp 1.2.3.4:1 > 1.2.3.4:2 fragment', 'icmp 1.2.3.4 > 1.2.3.4 cut', 'tcp 1.2.3.4 > 1.2.3.4:2 cut',
   'tcp 1.2.3.4:1 > 1.2.3.4:2 cut checksum=1', 'tcp 1.2.3.4:1 > 1.2.3.4:2 interface=\u00fc\u00fc what',
   'tcp 1.2.3.4:1>1.2.3.4:2x', 'tcp 1.2.3.4:1 1.2.3.4:2', 'icmpv 1.2.3.4 > 1.2.3.4',
   'tcp 1.2.3.4:1 > 1.2.3.4:2 interface=a\u202eb what',
];

// Compares what page and command say about a text that may be no packet. Returns whether it is one.
async function sameWords(page, text) {
   const { stdout, stderr, status } = postcard('explain', example('web-tier'), '--format', 'json', '--packet', text);
   const answer = await follow(page, text);
   if (status === 0) {
      assert.deepEqual(answer, JSON.parse(stdout), text);
      return true;
   }
   assert.equal(status, 2, text);
   assert.equal(typeof answer, 'string', text);
   const [first, shown, mark] = stderr.split('\n');
   const [pageShown, pageMark] = answer.split('\n');
   assert.equal(pageShown, shown.slice(3), text);
   assert.equal(pageMark.trim(), `^ ${first.replace('--packet: ', '')}`, text);
   // The command counts bytes, and so errs where a character takes several.
   if (/^[\x00-\x7f]*$/.test(text)) {
      assert.equal(pageMark.indexOf('^'), mark.indexOf('^') - 3, text);
   }
   return false;
}

test('texts that are no packets get the same words', async () => {
   const page = await openPage(makePage('web-tier', example('web-tier')));
   for (const text of mistakes) {
      assert.equal(await sameWords(page, text), false, text);
   }
   await page.close();
});

// One or two characters of a packet are taken away, doubled or replaced.
function damaged(random, text) {
   let result = text;
   for (let i = random.below(2); i >= 0; --i) {
      const at = random.below(result.length);
      const put = random.of(['', '', result[at] + result[at], random.of([...' :.[]>=,0159afxgt-'])]);
      result = result.slice(0, at) + put + result.slice(at + 1);
   }
   return result;
}

test('300 texts that are nearly packets', async () => {
   const random = new Random(271828);
   const page = await openPage(makePage('web-tier', example('web-tier')));
   let packets = 0;
   for (let i = 0; i < 300; ++i) {
      const text = damaged(random, randomPacket(random, interfaces));
      packets += (await sameWords(page, text)) ? 1 : 0;
   }
   assert.ok(packets > 30 && packets < 270, `${packets} of 300 are packets`);
   await page.close();
});

test('a file without policies', async () => {
   const policy = write('empty.yaml', 'policies: []\n');
   const text = 'tcp 1.2.3.4:1 > 1.2.3.4:2';
   const page = await openPage(makePage('empty', policy));
   assert.deepEqual(await follow(page, text), json('explain', policy, '--packet', text));
   assert.equal(await page.textContent('#rule-count'), '0 entries');
   assert.deepEqual(page.troubles, []);
   await page.close();
});
