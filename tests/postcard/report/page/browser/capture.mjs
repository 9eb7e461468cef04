// `captureBytes`: a capture file of some thousand packets towards the example web-tier.

function little(value, size) {
   return Array.from({ length: size }, (_, i) => (value >>> (8 * i)) & 0xff);
}

function big(value) {
   return [value >> 8, value & 0xff];
}

// A raw IPv4 packet of TCP or UDP.
function packet({ protocol, source, destination, sourcePort, destinationPort, checksum, flags = 0 }) {
   const header = protocol === 6
                        ? [...big(sourcePort), ...big(destinationPort), 0, 0, 0, 0, 0, 0, 0, 0, 0x50,
                           flags, 0, 0, ...big(checksum), 0, 0]
                        : [...big(sourcePort), ...big(destinationPort), 0, 8, ...big(checksum)];
   const length = 20 + header.length;
   return [0x45, 0, ...big(length), 0, 0, 0, 0, 64, protocol, 0, 0, ...source, ...destination,
           ...header];
}

export function captureBytes() {
   const bytes = [...little(0xa1b2c3d4, 4), 2, 0, 4, 0, ...little(0, 8), ...little(65535, 4),
                  ...little(101, 4)];
   const add = (frame) => bytes.push(...little(0, 8), ...little(frame.length, 4),
                                     ...little(frame.length, 4), ...frame);
   const client = [10, 1, 2, 3];
   const server = [192, 0, 2, 17];
   for (let i = 0; i < 3000; ++i) {
      add(packet({ protocol: 6, source: client, destination: server, sourcePort: 1024 + 17 * i,
                   destinationPort: [80, 443, 8443, 22][i % 4], checksum: (i * 7919) & 0xffff,
                   flags: i % 5 === 0 ? 2 : 16 }));
      add(packet({ protocol: 17, source: i % 2 ? client : server, destination: i % 2 ? server : client,
                   sourcePort: 443, destinationPort: 443, checksum: (i * 104729) & 0xffff }));
   }
   add([0x45, 0, 0, 40]);
   add([0x99, 1, 2, 3]);
   return Uint8Array.from(bytes);
}
