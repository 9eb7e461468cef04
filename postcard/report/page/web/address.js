// `readAddress` and `printAddress`: the text of IP addresses; `inPrefix`. A text is read by a
// `TextReader`, which stands at a place in it and fails there.

class ReadError extends Error {
   constructor(reason, position) {
      super(reason);
      this.position = position; // in bytes of the text
   }
}

// Reads from left to right. `text` has one character for each byte (see `bytesText`), so that
// positions count bytes, as those of the command do.
class TextReader {
   constructor(text) {
      this.text = text;
      this.position = 0;
   }

   get rest() { return this.text.slice(this.position); }
   get atEnd() { return this.position >= this.text.length; }
   next(token) { return this.text.startsWith(token, this.position); }
   accept(token) {
      const found = this.next(token);
      this.position += found ? token.length : 0;
      return found;
   }
   expect(token) {
      if (!this.accept(token)) {
         this.fail(`expected "${token}"`);
      }
   }
   // The longest piece that the pattern, which must be sticky, matches here; '' when none.
   piece(pattern) {
      pattern.lastIndex = this.position;
      return pattern.exec(this.text)?.[0] ?? '';
   }
   fail(reason, position = this.position) {
      throw new ReadError(reason, position);
   }
}

const decimalDigits = /[0-9]+/y;
const hexDigits = /[0-9a-fA-F]+/y;

function readOctet(reader, bytes) {
   const digits = reader.piece(decimalDigits);
   if (digits.length > 1 && digits[0] === '0') {
      reader.fail('expected a number without leading zeros');
   }
   if (digits === '') {
      reader.fail('expected a number');
   }
   if (Number(digits) > 255) {
      reader.fail('expected a number from 0 to 255');
   }
   reader.position += digits.length;
   bytes.push(Number(digits));
}

function readDottedQuad(reader, bytes) {
   for (let i = 0; i < 4; ++i) {
      if (i > 0 && !reader.accept('.')) {
         reader.fail('expected "."');
      }
      readOctet(reader, bytes);
   }
}

// Reads the groups of an IPv6 address. How many groups "::" stands for is known at the end only.
class GroupReader {
   constructor(reader) {
      this.reader = reader;
      this.bytes = [];  // of the groups as written
      this.gap = null;  // how many groups stand before "::"
   }

   get count() { return this.bytes.length / 2; }
   // "::" stands for at least one group.
   get limit() { return this.gap === null ? 8 : 7; }

   read() {
      const { reader } = this;
      this.acceptGap();
      while (this.count < this.limit && !this.endsAfterGap()) {
         if (this.isDottedQuad()) {
            readDottedQuad(reader, this.bytes);
            break;
         }
         this.readGroup();
         if (this.count === this.limit || !(this.acceptGap() || reader.accept(':'))) {
            break;
         }
      }
      if (this.gap === null && this.count < 8) {
         reader.fail('expected eight groups or "::"');
      }
      const before = this.gap === null ? this.bytes.length : 2 * this.gap;
      const zeros = new Array(16 - this.bytes.length).fill(0);
      return [...this.bytes.slice(0, before), ...zeros, ...this.bytes.slice(before)];
   }

   acceptGap() {
      if (!this.reader.next('::')) {
         return false;
      }
      if (this.gap !== null) {
         this.reader.fail('expected no second "::"');
      }
      this.reader.accept('::');
      this.gap = this.count;
      return true;
   }
   endsAfterGap() {
      return this.gap === this.count && (this.reader.atEnd || this.reader.next('/'));
   }
   isDottedQuad() {
      const digits = this.reader.piece(hexDigits);
      return digits !== '' && this.count + 2 <= this.limit &&
             this.reader.text[this.reader.position + digits.length] === '.';
   }
   readGroup() {
      const digits = this.reader.piece(hexDigits);
      if (digits.length < 1 || digits.length > 4) {
         this.reader.fail('expected 1 to 4 hexadecimal digits');
      }
      const group = parseInt(digits, 16);
      this.bytes.push(group >> 8, group & 0xff);
      this.reader.position += digits.length;
   }
}

// Reads an address and returns its 4 or 16 bytes.
function readAddress(reader) {
   if (!reader.rest.split('/')[0].includes(':')) {
      const bytes = [];
      readDottedQuad(reader, bytes);
      return bytes;
   }
   return new GroupReader(reader).read();
}

function groupsOf(bytes) {
   return Array.from({ length: 8 }, (_, i) => bytes[2 * i] * 256 + bytes[2 * i + 1]);
}

// The first of the longest runs of zeros, of two groups at least (RFC 5952, section 4.2).
function longestZeros(groups) {
   let best = { begin: 0, size: 0 };
   let begin = 0;
   for (let i = 0; i <= groups.length; ++i) {
      if (i === groups.length || groups[i] !== 0) {
         best = i - begin > best.size ? { begin, size: i - begin } : best;
         begin = i + 1;
      }
   }
   return best.size >= 2 ? best : { begin: 8, size: 0 };
}

function printAddress(bytes) {
   if (bytes.length === 4) {
      return bytes.join('.');
   }
   const groups = groupsOf(bytes);
   if (groups.slice(0, 5).every((group) => group === 0) && groups[5] === 0xffff) {
      return '::ffff:' + bytes.slice(12).join('.');
   }
   const texts = groups.map((group) => group.toString(16));
   const zeros = longestZeros(groups);
   return zeros.size === 0 ? texts.join(':')
                           : texts.slice(0, zeros.begin).join(':') + '::' +
                                   texts.slice(zeros.begin + zeros.size).join(':');
}

// "192.0.2.0/24" as {bytes, length}.
function parsePrefix(text) {
   const [address, length] = text.split('/');
   return { bytes: readAddress(new TextReader(address)), length: Number(length) };
}

function inPrefix(prefix, address) {
   for (let i = 0, left = prefix.length; left > 0; ++i, left -= 8) {
      const mask = left >= 8 ? 0xff : 0xff & (0xff << (8 - left));
      if ((prefix.bytes[i] ^ address[i]) & mask) {
         return false;
      }
   }
   return true;
}
