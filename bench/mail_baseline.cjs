// Times mailparser's simpleParser on a folder of .eml files, files already in
// memory, one mail at a time. MAILPARSER_DIR is the folder mailparser was
// installed into. Times are CPU time of the process, as the C++ side reports.
// Prints {"name", "median_s", "messages", "bytes"} as JSON.
//
//     MAILPARSER_DIR=... node mail_baseline.cjs CORPUS_DIR [RUNS]
const fs = require('fs');
const path = require('path');
const { simpleParser } = require(path.join(process.env.MAILPARSER_DIR, 'node_modules', 'mailparser'));

async function main() {
  const folder = process.argv[2];
  const runs = Number(process.argv[3] || 5);
  const names = fs.readdirSync(folder).filter((n) => n.endsWith('.eml')).sort();
  const files = names.map((n) => fs.readFileSync(path.join(folder, n)));
  const total = files.reduce((sum, f) => sum + f.length, 0);
  const times = [];
  for (let run = 0; run < runs; run++) {
    const start = process.cpuUsage();
    for (const data of files) {
      const parsed = await simpleParser(data, { skipImageLinks: true, skipTextToHtml: true });
      if (parsed.text === undefined && parsed.html === undefined) continue;
    }
    const used = process.cpuUsage(start);
    times.push((used.user + used.system) / 1e6);
  }
  times.sort((a, b) => a - b);
  const median = times.length % 2 ? times[(times.length - 1) / 2]
                                  : (times[times.length / 2 - 1] + times[times.length / 2]) / 2;
  const version = require(path.join(process.env.MAILPARSER_DIR, 'node_modules', 'mailparser', 'package.json')).version;
  console.log(JSON.stringify({ name: `mailparser ${version} (npm)`, median_s: median, messages: files.length, bytes: total }));
}

main().catch((e) => { console.error(e); process.exit(1); });
