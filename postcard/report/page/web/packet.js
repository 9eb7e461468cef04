// `parsePacket` and `printPacket`: the text of a packet, as `postcard explain --packet` takes and
// prints it. Relies on `readAddress`. A field that a packet does not have is null.

const protocolWords = new Map([['icmp', 1], ['tcp', 6], ['udp', 17], ['icmpv6', 58]]);
const flagWords = ['fin', 'syn', 'rst', 'psh', 'ack', 'urg', 'ece', 'cwr'];
const protocolTcp = 6;
const protocolUdp = 17;

function protocolName(number) {
   for (const [word, each] of protocolWords) {
      if (each === number) {
         return word;
      }
   }
   return String(number);
}

function flagNames(flags) {
   return flagWords.filter((_, bit) => flags >> bit & 1).join(',') || 'none';
}

function isTcpOrUdp(packet) {
   return packet.protocol === protocolTcp || packet.protocol === protocolUdp;
}

// Whether the TCP or UDP header is cut off before the end of its checksum.
function headerIsCut(packet) {
   return isTcpOrUdp(packet) && !packet.laterFragment && packet.checksum === null;
}

// One character for each byte of the text in UTF-8, so that positions count bytes.
function bytesText(text) {
   return Array.from(new TextEncoder().encode(text), (byte) => String.fromCharCode(byte)).join('');
}

function textOfBytes(text) {
   return new TextDecoder().decode(Uint8Array.from(text, (character) => character.charCodeAt(0)));
}

// The protocol and the addresses come first, because they decide which other fields may stand.
class PacketParser {
   constructor(text) {
      this.reader = new TextReader(bytesText(text));
      this.seen = new Set(); // keys of the options read so far
      this.cut = false;      // the word `cut` stands in the text
      this.zeros = [];       // keys of fields that are 0 because the text leaves them out
      this.packet = {
         family: null, source: null, destination: null, protocol: 0, sourcePort: null,
         destinationPort: null, tcpFlags: null, checksum: null, identification: null, dscp: 0,
         intf: '', laterFragment: false,
      };
   }

   parse() {
      const { reader, packet } = this;
      this.skipBlanks();
      packet.protocol = this.protocol();
      this.needBlank();
      this.end('source', 'sourcePort');
      this.skipBlanks();
      reader.expect('>');
      this.skipBlanks();
      this.end('destination', 'destinationPort');
      this.options();
      this.complete();
      return { packet, zeros: this.zeros };
   }

   skipBlanks() {
      while (this.reader.accept(' ') || this.reader.accept('\t')) {
      }
   }
   needBlank() {
      if (!this.reader.next(' ') && !this.reader.next('\t')) {
         this.reader.fail('expected a blank');
      }
      this.skipBlanks();
   }

   // A number from 0 to `most`, decimal, or hexadecimal with 0x.
   number(most) {
      const { reader } = this;
      if (!reader.accept('0x')) {
         const digits = reader.piece(decimalDigits);
         if (digits === '') {
            reader.fail('expected a number');
         }
         if (Number(digits) > most) {
            reader.fail(`expected a number from 0 to ${most}`);
         }
         reader.position += digits.length;
         return Number(digits);
      }
      let value = 0;
      const digits = reader.piece(hexDigits);
      for (const digit of digits) {
         value = value * 16 + parseInt(digit, 16);
         if (value > most) {
            reader.fail(`expected a number up to 0x${most.toString(16)}`);
         }
         ++reader.position;
      }
      if (digits === '') {
         reader.fail('expected a hexadecimal digit');
      }
      return value;
   }

   // The longest word that fits, because "icmp" is also the beginning of "icmpv6".
   protocol() {
      const { reader } = this;
      const words = [...protocolWords.keys()].filter((word) => reader.next(word));
      if (words.length > 0) {
         const longest = words.reduce((a, b) => (b.length > a.length ? b : a));
         reader.expect(longest);
         return protocolWords.get(longest);
      }
      if (reader.piece(decimalDigits) === '') {
         reader.fail('expected a protocol: tcp, udp, icmp, icmpv6 or a number');
      }
      return this.number(255);
   }

   // A colon after an IPv4 address begins the port. So a text with a single colon and without
   // brackets ends before the colon.
   address(bracket) {
      const { reader } = this;
      let text = reader.piece(/[0-9a-fA-F.:]+/y);
      if (!bracket && text.indexOf(':') === text.lastIndexOf(':')) {
         text = text.split(':')[0];
      }
      const part = new TextReader(text);
      try {
         const bytes = readAddress(part);
         reader.expect(text.slice(0, part.position));
         return bytes;
      } catch (error) {
         if (error instanceof ReadError) {
            reader.fail(error.message, reader.position + error.position);
         }
         throw error;
      }
   }

   // One end of the packet: the address, and the port where the protocol has ports.
   end(side, port) {
      const { reader, packet } = this;
      const bracket = reader.accept('[');
      const at = reader.position; // errors about the whole address name the place where it begins
      const bytes = this.address(bracket);
      const family = bytes.length === 16 ? 'ipv6' : 'ipv4';
      if (bracket !== (family === 'ipv6')) {
         reader.fail(bracket ? 'expected an IPv6 address in the brackets'
                             : 'expected brackets around an IPv6 address', at);
      }
      if (side === 'destination' && family !== packet.family) {
         reader.fail('expected an address of the same family as the source', at);
      }
      packet.family = family;
      packet[side] = bytes;
      if (bracket) {
         reader.expect(']');
      }
      if (isTcpOrUdp(packet) && reader.accept(':')) {
         packet[port] = this.number(65535);
      }
   }

   // A blank stands before each option, and may stand at the end.
   options() {
      while (!this.reader.atEnd) {
         this.needBlank();
         if (!this.reader.atEnd) {
            this.option();
         }
      }
   }

   option() {
      const at = this.reader.position; // errors about the option name the place where it begins
      const readers = {
         'flags=': () => this.flags(at),
         'checksum=': () => this.checksum(at),
         'id=': () => this.identification(at),
         'dscp=': () => { this.packet.dscp = this.number(63); },
         'interface=': () => this.intf(),
         'fragment': () => { this.packet.laterFragment = true; },
         'cut': () => this.cutHeader(at),
      };
      for (const [key, read] of Object.entries(readers)) {
         if (this.reader.accept(key)) {
            if (this.seen.has(key)) {
               this.reader.fail(`'${key}' stands here for the second time`, at);
            }
            this.seen.add(key);
            read();
            return;
         }
      }
      this.reader.fail('expected flags=, checksum=, id=, dscp=, interface=, fragment or cut');
   }

   flags(at) {
      const { reader, packet } = this;
      if (packet.protocol !== protocolTcp) {
         reader.fail('only TCP has flags', at);
      }
      if (reader.piece(decimalDigits) !== '') {
         packet.tcpFlags = this.number(255);
         return;
      }
      packet.tcpFlags = 0;
      if (!reader.accept('none')) {
         do {
            packet.tcpFlags |= this.flag();
         } while (reader.accept(','));
      }
   }
   flag() {
      const bit = flagWords.findIndex((word) => this.reader.accept(word));
      if (bit < 0) {
         this.reader.fail('expected fin, syn, rst, psh, ack, urg, ece, cwr, none or a number');
      }
      return 1 << bit;
   }
   checksum(at) {
      if (!isTcpOrUdp(this.packet)) {
         this.reader.fail('only TCP and UDP have a checksum to match', at);
      }
      this.packet.checksum = this.number(65535);
   }
   identification(at) {
      if (this.packet.family !== 'ipv4') {
         this.reader.fail('only IPv4 has an identification', at);
      }
      this.packet.identification = this.number(65535);
   }
   intf() {
      const name = this.reader.piece(/[^ \t]+/y);
      if (name === '') {
         this.reader.fail('expected the name of an interface');
      }
      this.packet.intf = textOfBytes(name);
      this.reader.position += name.length;
   }
   cutHeader(at) {
      if (!isTcpOrUdp(this.packet)) {
         this.reader.fail('only the header of TCP or UDP can be cut', at);
      }
      this.cut = true;
   }

   // Checks that the fields fit together, and sets those that were left out to 0. Comes last,
   // because `fragment` and `cut` may stand behind what they exclude.
   complete() {
      const { packet } = this;
      if (packet.laterFragment) {
         this.requireNoHeader();
      } else if (this.cut) {
         this.requireBeginningOfHeader();
      } else if (isTcpOrUdp(packet)) {
         this.completeHeader();
      }
      if (packet.family === 'ipv4') {
         this.zeroUnlessGiven('identification', 'id');
      }
      if (!this.seen.has('dscp=')) {
         this.zeros.push('dscp');
      }
   }
   requireNoHeader() {
      const { sourcePort, destinationPort, tcpFlags, checksum } = this.packet;
      if (this.cut || [sourcePort, destinationPort, tcpFlags, checksum].some((f) => f !== null)) {
         this.reader.fail('a later fragment has neither ports nor flags nor checksum');
      }
   }
   requireBeginningOfHeader() {
      const { sourcePort, destinationPort, tcpFlags, checksum } = this.packet;
      if (checksum !== null || (destinationPort !== null && sourcePort === null) ||
          (tcpFlags !== null && destinationPort === null)) {
         this.reader.fail('a header that is cut has no checksum, and no field behind one that it ' +
                          'lacks: source port, destination port, flags');
      }
   }
   completeHeader() {
      if (this.packet.sourcePort === null || this.packet.destinationPort === null) {
         this.reader.fail("expected ADDRESS:PORT on both sides; only a later 'fragment' or a header " +
                          "that is 'cut' has no port");
      }
      if (this.packet.protocol === protocolTcp) {
         this.zeroUnlessGiven('tcpFlags', 'flags');
      }
      this.zeroUnlessGiven('checksum', 'checksum');
   }
   zeroUnlessGiven(field, key) {
      if (this.packet[field] === null) {
         this.packet[field] = 0;
         this.zeros.push(key);
      }
   }
}

// {packet, zeros}; `zeros` has the keys of fields that the text leaves out. Throws ReadError.
function parsePacket(text) {
   return new PacketParser(text).parse();
}

function endText(address, port) {
   const text = address.length === 4 ? printAddress(address) : `[${printAddress(address)}]`;
   return port === null ? text : `${text}:${port}`;
}

function printPacket(packet) {
   const cut = headerIsCut(packet);
   const parts = [
      `${protocolName(packet.protocol)} ${endText(packet.source, packet.sourcePort)} > ` +
            endText(packet.destination, packet.destinationPort),
   ];
   if (packet.tcpFlags !== null && (cut || packet.tcpFlags !== 0)) {
      parts.push(`flags=${flagNames(packet.tcpFlags)}`);
   }
   if (packet.checksum) {
      parts.push(`checksum=${hex(packet.checksum, 4)}`);
   }
   if (packet.identification) {
      parts.push(`id=${hex(packet.identification, 4)}`);
   }
   if (packet.dscp !== 0) {
      parts.push(`dscp=${packet.dscp}`);
   }
   if (packet.intf !== '') {
      parts.push(`interface=${packet.intf}`);
   }
   if (packet.laterFragment || cut) {
      parts.push(packet.laterFragment ? 'fragment' : 'cut');
   }
   return parts.join(' ');
}
