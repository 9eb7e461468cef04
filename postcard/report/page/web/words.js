// Texts for people: `escaped`, `inQuotes`, `closest`, `didYouMean`, as the command writes them, and
// numbers with separators.

const invisible = /[\p{Cc}\p{Cf}\p{Zl}\p{Zp}\p{Cs}\p{Co}\p{DI}\p{NChar}]|(?! )\p{Zs}/gu;

function escapedCharacter(character) {
   const named = { '\n': '\\n', '\t': '\\t' }[character];
   const digits = character.codePointAt(0).toString(16);
   return named ?? (digits.length > 4 ? '\\U' + digits.padStart(8, '0')
                                      : '\\u' + digits.padStart(4, '0'));
}

// `text` with escapes in place of characters that no reader sees.
function escaped(text) {
   return text.replace(invisible, escapedCharacter);
}

function inQuotes(text) {
   const characters = Array.from(text);
   const most = 60;
   return `'${escaped(characters.slice(0, most).join(''))}${characters.length > most ? '\u2026' : ''}'`;
}

// Levenshtein's distance of two lists of bytes.
function distance(left, right) {
   const row = Array.from({ length: right.length + 1 }, (_, i) => i);
   left.forEach((byte, i) => {
      let diagonal = row[0];
      row[0] = i + 1;
      right.forEach((other, j) => {
         const replaced = diagonal + (byte === other ? 0 : 1);
         diagonal = row[j + 1];
         row[j + 1] = Math.min(replaced, diagonal + 1, row[j] + 1);
      });
   });
   return row[right.length];
}

// The word that `text` most likely misspells, or ''. At most two bytes may differ, and fewer than
// half of those of the word.
function closest(text, words) {
   const longest = 32;
   const encoder = new TextEncoder();
   const left = encoder.encode(text);
   let best = '';
   let bestDistance = 3;
   for (const word of words) {
      const right = encoder.encode(word);
      if (left.length > longest || right.length > longest ||
          Math.abs(left.length - right.length) > 2) {
         continue;
      }
      const bytes = distance(left, right);
      if (bytes < bestDistance && 2 * bytes < right.length) {
         best = word;
         bestDistance = bytes;
      }
   }
   return best;
}

function didYouMean(guess) {
   return guess === '' ? '' : `; did you mean '${guess}'?`;
}

function hex(number, digits) {
   return '0x' + number.toString(16).padStart(digits, '0');
}

const separated = new Intl.NumberFormat('en-US');

function count(number) {
   return separated.format(number);
}

function plural(number, word, words = word + 's') {
   return `${count(number)} ${number === 1 ? word : words}`;
}

// A share of a whole, with as many digits as tell small ones from nothing.
function percent(part, whole) {
   const share = whole === 0 ? 0 : (100 * part) / whole;
   return share === 0 || share === 100 ? `${share} %`
                                       : share < 0.1 ? '< 0.1 %' : `${share.toFixed(1)} %`;
}
