// The peer of bench_color_replacement: lottie-colorify parses, walks and re-serialises each
// document.
//
// Usage (with lottie-colorify on NODE_PATH):
//   node lottie_colorify_peer.js --accepted FILE...  prints the files lottie-colorify can process
//                                                    (it throws on some documents, e.g. with nulls)
//   node lottie_colorify_peer.js FILE...             reads the files into memory, times whole
//                                                    rounds over them for about two CPU seconds
//                                                    and prints "lottie-colorify <MB/s>"
'use strict';
const fs = require('fs');
const { colorify } = require('lottie-colorify');

const palette = ['#e6331a', '#1a994d', '#334de6'];
const recolor = (text) => JSON.stringify(colorify(palette, JSON.parse(text)));

if (process.argv[2] === '--accepted') {
  for (const file of process.argv.slice(3)) {
    try {
      recolor(fs.readFileSync(file, 'utf8'));
      console.log(file);
    } catch (error) {
      // Not processable by the peer: left out of the comparison.
    }
  }
  process.exit(0);
}

const texts = process.argv.slice(2).map((file) => fs.readFileSync(file, 'utf8'));
const bytes = texts.reduce((sum, text) => sum + Buffer.byteLength(text), 0);

function round() {
  let written = 0;
  for (const text of texts) {
    written += recolor(text).length;
  }
  return written;
}

round(); // warm-up
// CPU time, as the C++ side reports it: the machine may be shared, and wall time would also
// count the time other processes hold the cores.
const cpuSeconds = (since) => {
  const used = process.cpuUsage(since);
  return (used.user + used.system) / 1e6;
};
let rounds = 0;
const start = process.cpuUsage();
let elapsed = 0;
while (elapsed < 2.0) {
  round();
  rounds += 1;
  elapsed = cpuSeconds(start);
}
console.log(`lottie-colorify ${(bytes * rounds / elapsed / 1e6).toFixed(1)}`);
