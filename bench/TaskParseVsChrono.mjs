// Runs chrono-node over the same typed tasks as TaskParseBench, the same way
// (each task timed on its own for a short while, then the median across tasks;
// and the whole list in a loop), and prints both sides with the ratios, in wall
// time and in CPU time (steadier when the machine is shared).
//
//   node TaskParseVsChrono.mjs <node_modules folder> <typed-tasks.txt> <TaskParseBench JSON>
import { readFileSync } from "node:fs";
import { createRequire } from "node:module";
import path from "node:path";

const [modules, phrasesPath, quiblyJsonPath] = process.argv.slice(2);
const require = createRequire(path.join(modules, "noop.js"));
const chrono = require("chrono-node");
const chronoVersion = JSON.parse(readFileSync(path.join(modules, "chrono-node", "package.json"), "utf8")).version;
const tasks = readFileSync(phrasesPath, "utf8").split("\n").filter((line) => line.length > 0);
const reference = new Date("2026-11-21T10:00:00Z");

const median = (values) => {
  const sorted = [...values].sort((a, b) => a - b);
  const mid = Math.floor(sorted.length / 2);
  return sorted.length % 2 ? sorted[mid] : (sorted[mid - 1] + sorted[mid]) / 2;
};

// Wall and CPU nanoseconds per call of fn, run for at least minMs after a warm-up.
const timePerCall = (fn, minMs) => {
  for (let i = 0; i < 200; i++) fn();
  let calls = 0;
  const cpuStart = process.cpuUsage();
  const start = process.hrtime.bigint();
  let elapsed = 0n;
  while (elapsed < BigInt(minMs * 1e6)) {
    for (let i = 0; i < 50; i++) fn();
    calls += 50;
    elapsed = process.hrtime.bigint() - start;
  }
  const cpu = process.cpuUsage(cpuStart);
  return { wall: Number(elapsed) / calls, cpu: ((cpu.user + cpu.system) * 1000) / calls };
};

let sink = 0;
const parseOne = (task) => () => { sink += chrono.parse(task, reference).length; };
const chronoEach = tasks.map((task) => timePerCall(parseOne(task), 50));
const chronoAllRun = timePerCall(() => tasks.forEach((task) => parseOne(task)()), 1000);

const quibly = JSON.parse(readFileSync(quiblyJsonPath, "utf8")).benchmarks;
const scale = (b) => ({ ns: 1, us: 1e3, ms: 1e6, s: 1e9 })[b.time_unit];
const quiblyEach = quibly.filter((b) => b.name.startsWith("ParseOne/"));
const quiblyAll = quibly.find((b) => b.name === "ParseAll");

const rows = [];
for (const clock of ["wall", "cpu"]) {
  const q = clock === "wall" ? "real_time" : "cpu_time";
  rows.push([`median per task (${clock})`, median(quiblyEach.map((b) => b[q] * scale(b))),
             median(chronoEach.map((t) => t[clock]))]);
  rows.push([`mean per task, whole list (${clock})`, (quiblyAll[q] * scale(quiblyAll)) / tasks.length,
             chronoAllRun[clock] / tasks.length]);
}
console.log(`${tasks.length} typed tasks, one run on this machine; chrono-node ${chronoVersion}, node ${process.version}`);
console.log(`${"".padEnd(36)} ${"quibly".padStart(11)} ${"chrono-node".padStart(11)} ${"ratio".padStart(8)}`);
for (const [label, q, c] of rows) {
  console.log(`${label.padEnd(36)} ${(q / 1000).toFixed(2).padStart(8)} us ${(c / 1000).toFixed(2).padStart(8)} us ${(c / q).toFixed(1).padStart(7)}x`);
}
if (sink < 0) console.log(sink);
