// SPDX-License-Identifier: Apache-2.0
// What the live view costs: processor time of the program without the server, with it, and with viewers of one view.
//
//   node tests/program/view/load.mjs [--program FILE] [--seconds N] [--silent N]
//
// Prints processor time as percent of one core, and memory. `--silent`: how many seconds a client that reads nothing
// stays (60). Judges the ratios, which hold on any machine; exits with 1 if one is missed. Every client acknowledges
// each picture at once.
import { spawn } from "node:child_process";
import { readFileSync, writeFileSync } from "node:fs";
import { join, resolve } from "node:path";
import { setTimeout as sleep } from "node:timers/promises";
import { connect } from "node:net";
import { parseArgs } from "node:util";

import { packages, requireOwnNetwork, root, temporaryFolder } from "./support.mjs";

const { WebSocket } = packages("ws");
const { values } = parseArgs({
  options: {
    program: { type: "string", default: join(root, "build/release/apps/stereo-camera/stereo-camera") },
    seconds: { type: "string", default: "10" },
    silent: { type: "string", default: "60" },
  },
});
requireOwnNetwork();

const folder = temporaryFolder();
const seconds = Number(values.seconds);
const ticks = 100; // of the kernel's counters, a second

// Small frames, so that the camera's own work hides as little as possible.
const camera = "[camera]\nsimulate = true\nsize = \"928x400\"\n";
const running = [];
process.on("exit", () => running.forEach((each) => each.kill("SIGKILL")));

async function start(name, configuration) {
  const file = join(folder, `${name}.toml`);
  writeFileSync(file, configuration + camera);
  const program = spawn(resolve(values.program), ["serve", "--config", file], { cwd: folder, stdio: ["ignore", "pipe", "ignore"] });
  running.push(program);
  let out = "";
  program.stdout.on("data", (text) => (out += text));
  await sleep(8000); // until the simulated camera has rendered its frames: what is measured is playing them
  return { pid: program.pid, port: Number(/127\.0\.0\.1:(\d+)/.exec(out)?.[1] ?? 0) };
}

function used(pid) {
  const fields = readFileSync(`/proc/${pid}/stat`, "utf8").split(") ")[1].split(" ");
  return (Number(fields[11]) + Number(fields[12])) / ticks;
}

function megabytes(pid) {
  return Number(/VmRSS:\s+(\d+)/.exec(readFileSync(`/proc/${pid}/status`, "utf8"))[1]) / 1000;
}

// Percent of a core over the time.
async function measured(pid, time = seconds) {
  const before = used(pid);
  const begin = performance.now();
  await sleep(1000 * time);
  return (100 * (used(pid) - before)) / ((performance.now() - begin) / 1000);
}

async function viewer(port, view) {
  const socket = new WebSocket(`ws://127.0.0.1:${port}/socket`, ["stereo-camera.1"]);
  const state = { socket, pictures: 0 };
  await new Promise((opened, failed) => socket.on("open", opened).on("error", failed));
  socket.on("message", (data, isBinary) => {
    if (isBinary) {
      ++state.pictures;
      socket.send(`ack ${data.readUInt32LE(4)}`);
    }
  });
  socket.send(`watch camera ${view}`);
  return state;
}

async function viewers(program, count, view) {
  const all = await Promise.all(Array.from({ length: count }, () => viewer(program.port, view)));
  await sleep(1000);
  const before = all.map(({ pictures }) => pictures);
  const begin = performance.now();
  const cost = await measured(program.pid);
  const rate = (1000 * (all[0].pictures - before[0])) / (performance.now() - begin);
  all.forEach(({ socket }) => socket.close());
  await sleep(500);
  return { cost, rate };
}

let failures = 0;
function judge(name, value, limit, unit) {
  const isMet = value < limit;
  failures += isMet ? 0 : 1;
  console.log(`${isMet ? "ok    " : "MISSED"} ${name}: ${value.toFixed(2)}${unit}, less than ${limit}${unit} asked`);
}

const bare = await start("bare", "view = false\n");
const served = await start("served", "port = 0\n");
// In turns, since the machine's pace varies.
const idle = { bare: [], served: [] };
for (let turn = 0; turn < 3; ++turn) {
  idle.bare.push(await measured(bare.pid, seconds / 2));
  idle.served.push(await measured(served.pid, seconds / 2));
}
const median = (list) => [...list].sort((a, b) => a - b)[Math.floor(list.length / 2)];
console.log(`camera alone ${median(idle.bare).toFixed(2)} %, with the server and nobody watching ${median(idle.served).toFixed(2)} % of a core`);
judge("the server without viewers", median(idle.served) - median(idle.bare), 1, " % of a core");

for (const view of ["raw-left", "left"]) {
  const none = await measured(served.pid, seconds / 2);
  const one = await viewers(served, 1, view);
  const ten = await viewers(served, 10, view);
  console.log(`${view}: one viewer ${one.cost.toFixed(2)} % at ${one.rate.toFixed(1)} a second, ten ${ten.cost.toFixed(2)} % at ${ten.rate.toFixed(1)}`);
  judge(`one viewer of ${view}`, one.cost - none, 8, " % of a core");
  judge(`ten viewers of ${view} against one`, (ten.cost - none) / (one.cost - none), 2, " times");
}

// A client that asks for everything and reads nothing, beside one that reads. What makes the views is there before.
await viewers(served, 1, "raw-left,raw-right,left,right,range");
const before = { megabytes: megabytes(served.pid), one: await viewers(served, 1, "left") };
const silent = connect(served.port, "127.0.0.1");
silent.pause();
silent.on("error", () => {});
silent.write(
  `GET /socket HTTP/1.1\r\nHost: 127.0.0.1\r\nUpgrade: websocket\r\nConnection: Upgrade\r\nSec-WebSocket-Version: 13\r\n` +
    `Sec-WebSocket-Key: AAAAAAAAAAAAAAAAAAAAAA==\r\nSec-WebSocket-Protocol: stereo-camera.1\r\n\r\n`,
);
const text = Buffer.from("watch camera raw-left,raw-right,left,right,range");
const mask = Buffer.from([1, 2, 3, 4]);
silent.write(Buffer.concat([Buffer.from([0x81, 0x80 | text.length]), mask, text.map((byte, k) => byte ^ mask[k % 4])]));
await sleep(1000 * Number(values.silent));
const after = { megabytes: megabytes(served.pid), one: await viewers(served, 1, "left") };
silent.destroy();
console.log(
  `beside a client that reads nothing: ${before.one.cost.toFixed(2)} -> ${after.one.cost.toFixed(2)} % of a core, ` +
    `${before.one.rate.toFixed(1)} -> ${after.one.rate.toFixed(1)} pictures a second, ${before.megabytes.toFixed(1)} -> ${after.megabytes.toFixed(1)} MB`,
);
judge("cost beside a silent client, against without", after.one.cost / before.one.cost, 1.2, " times");
judge("memory grown meanwhile", after.megabytes - before.megabytes, 5, " MB");
process.exit(failures === 0 ? 0 : 1);
