// SPDX-License-Identifier: Apache-2.0
// An hour of the service with two viewers, shared memory and a ring of recordings: whether memory stays flat and no frame is
// lost.
//
//   node tests/program/view/endurance.mjs [--program FILE] [--minutes N] [--folder FOLDER]
//
// Prints a line a minute. Exits with 1 if the capture worker lost a frame, or if memory, descriptors or threads were higher in
// the second half of the time than ever in the first: frames wait in memory while a disk stands still, and memory stays at what
// the longest such time took; what leaks goes on rising. A process of its own that only wakes up 30 times a second counts what it misses itself: where
// that is something, the machine stood still, and the camera may have lost no more.
import { spawn } from "node:child_process";
import { mkdirSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import { join, resolve } from "node:path";
import { setTimeout as sleep } from "node:timers/promises";
import { parseArgs } from "node:util";

import { packages, requireOwnNetwork, root, temporaryFolder } from "./support.mjs";

const { WebSocket } = packages("ws");
const { values } = parseArgs({
  options: {
    program: { type: "string", default: join(root, "build/release/apps/stereo-camera/stereo-camera") },
    minutes: { type: "string", default: "60" },
    folder: { type: "string" },
  },
});
requireOwnNetwork();
const folder = values.folder ?? temporaryFolder();
mkdirSync(folder, { recursive: true });
const position = 600 + (process.pid % 300); // no other camera's
const file = join(folder, "serve.toml");
writeFileSync(
  file,
  `port = 0\n[camera]\nsimulate = true\nsize = "928x400"\nshare = true\nposition = ${position}\n` +
    `ring = "${join(folder, "ring")}"\nring-size = 500\nring-part = 20\nkeep-free = 1000\n`,
);
const program = spawn(resolve(values.program), ["serve", "--config", file], { stdio: ["ignore", "pipe", "inherit"] });
process.on("exit", () => program.kill("SIGKILL"));
let out = "";
program.stdout.on("data", (text) => (out += text));
while (!/127\.0\.0\.1:\d+/.test(out)) {
  await sleep(50);
}
const port = /127\.0\.0\.1:(\d+)/.exec(out)[1];
const { pid } = program;

let status;
const pictures = [0, 0];
["left,range", "raw-left,raw-right"].forEach((views, index) => {
  const socket = new WebSocket(`ws://127.0.0.1:${port}/socket`, ["stereo-camera.1"]);
  socket.on("open", () => socket.send(`watch camera ${views}`));
  socket.on("close", () => ++disconnections);
  socket.on("message", (data, isBinary) => {
    if (isBinary) {
      ++pictures[index];
      socket.send(`ack ${data.readUInt32LE(4)}`);
    } else {
      status = JSON.parse(data);
    }
  });
});
let disconnections = 0;

// In the other process.
function wakeUp() {
  const period = 1000 / 30;
  let due = performance.now() + period;
  let count = 0;
  (function wait() {
    const now = performance.now();
    if (now >= due) {
      const late = Math.floor((now - due) / period);
      due += (late + 1) * period;
      count += late;
      console.log(count);
    }
    setTimeout(wait, due - performance.now());
  })();
}

const look = () => ({
  megabytes: Number(/VmRSS:\s+(\d+)/.exec(readFileSync(`/proc/${pid}/status`, "utf8"))[1]) / 1000,
  descriptors: readdirSync(`/proc/${pid}/fd`).length,
  threads: readdirSync(`/proc/${pid}/task`).length,
});
await sleep(10_000); // the simulated camera renders its frames
const peer = spawn(process.execPath, ["-e", `(${wakeUp})()`], { stdio: ["ignore", "pipe", "inherit"] });
let missed = 0;
peer.stdout.on("data", (text) => (missed = Number(String(text).trim().split("\n").at(-1))));
const lostAtFirst = status.cameras[0].lost;
const minutes = Number(values.minutes);
const looks = [];
for (let minute = 1; minute <= minutes; ++minute) {
  await sleep(60_000);
  const [camera] = status.cameras;
  const now = look();
  looks.push(now);
  console.log(
    `${minute} min: ${camera.frames} frames, ${camera.lost - lostAtFirst} lost (${missed}), ${now.megabytes.toFixed(1)} MB, ` +
      `${now.descriptors} descriptors, ${now.threads} threads, ring ${(camera.ring.bytes / 1e6).toFixed(0)} MB ${camera.ring.state} ` +
      `${camera.ring.error}, pictures ${pictures.join(" + ")}`,
  );
}
peer.kill();
const most = (list, name) => Math.max(...list.map((each) => each[name]));
const early = looks.slice(0, Math.ceil(minutes / 2));
const late = looks.slice(early.length);
const faults = [];
const lost = status.cameras[0].lost - lostAtFirst;
console.log(`${lost} frames lost; a process that only wakes up for each missed ${missed}`);
if (lost > missed) {
  faults.push(`${lost} frames lost`);
}
for (const [name, room] of Object.entries({ megabytes: 10, descriptors: 2, threads: 2 })) {
  if (late.length > 0 && most(late, name) > most(early, name) + room) {
    faults.push(`${name} grew from ${most(early, name)} to ${most(late, name)}`);
  }
}
if (disconnections > 0 || status.cameras[0].restarts > 0) {
  faults.push(`${disconnections} disconnections, ${status.cameras[0].restarts} new cameras`);
}
const begin = performance.now();
const code = await new Promise((ended) => {
  program.on("exit", ended);
  program.kill("SIGTERM");
});
console.log(`ended with ${code} after ${((performance.now() - begin) / 1000).toFixed(2)} s`);
if (code !== 0 || performance.now() - begin > 3000) {
  faults.push("it did not end in time");
}
console.log(faults.length === 0 ? "flat, and nothing lost" : `FAULTS: ${faults.join("; ")}`);
process.exit(faults.length === 0 ? 0 : 1);
