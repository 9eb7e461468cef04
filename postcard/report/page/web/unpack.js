// `unpack`: the data of the page. Relies on the browser's own decompression.

function bytesOfBase64(text) {
   if (Uint8Array.fromBase64) {
      return Uint8Array.fromBase64(text);
   }
   const binary = atob(text);
   const bytes = new Uint8Array(binary.length);
   for (let i = 0; i < binary.length; ++i) {
      bytes[i] = binary.charCodeAt(i);
   }
   return bytes;
}

async function inflate(bytes) {
   const stream = new Blob([bytes]).stream().pipeThrough(new DecompressionStream('deflate-raw'));
   return new Uint8Array(await new Response(stream).arrayBuffer());
}

// Numbers of a column. Each is stored as its difference to the one before, with the sign in the
// lowest bit, seven bits to a byte, the low ones first; the highest bit says that more follow.
function column(bytes, count) {
   const numbers = new Uint32Array(count);
   let before = 0;
   let at = 0;
   for (let i = 0; i < count; ++i) {
      let folded = 0;
      let scale = 1;
      let byte;
      do {
         byte = bytes[at++];
         folded += (byte & 0x7f) * scale;
         scale *= 128;
      } while (byte & 0x80);
      before += folded % 2 === 0 ? folded / 2 : -(folded + 1) / 2;
      numbers[i] = before;
   }
   return numbers;
}

// The document that the program wrote, with the columns of the rules as `document.rule`.
async function unpack(text) {
   const bytes = await inflate(bytesOfBase64(text.trim()));
   const size = new DataView(bytes.buffer).getUint32(0, true);
   const document = JSON.parse(new TextDecoder().decode(bytes.subarray(4, 4 + size)));
   let at = 4 + size;
   document.rule = {};
   for (const each of document.columns) {
      document.rule[each.name] = column(bytes.subarray(at, at + each.bytes), document.rules);
      at += each.bytes;
   }
   return document;
}
