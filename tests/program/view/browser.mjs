// SPDX-License-Identifier: Apache-2.0
// The live view in a browser, as its users see it.
//
//   node tests/program/view/browser.mjs --program PROGRAM --browser chromium|firefox --output FOLDER
//
// Prints a line for each check and, as comments, what it measured; writes screenshots to the folder. Needs the page's
// packages: npm ci in apps/stereo-camera/view/page.
import { existsSync, mkdirSync, readFileSync, readdirSync, writeFileSync } from "node:fs";
import { join, resolve } from "node:path";
import { parseArgs } from "node:util";
import {
  Checks,
  Program,
  launchBrowser,
  packages,
  require,
  requireOwnNetwork,
  screenshot,
  temporaryFolder,
  until,
} from "./support.mjs";

const { values: options } = parseArgs({
  options: {
    program: { type: "string" },
    browser: { type: "string", default: "chromium" },
    output: { type: "string", default: "view-screenshots" },
  },
});
if (!options.program || !["chromium", "firefox"].includes(options.browser)) {
  console.error("browser.mjs --program PROGRAM --browser chromium|firefox --output FOLDER");
  process.exit(2);
}
requireOwnNetwork();

const isChromium = options.browser === "chromium";
mkdirSync(options.output, { recursive: true });
const checks = new Checks();
const folder = temporaryFolder();
const firstReason = 65530;
const mostTries = 100; // of what succeeds at once or after a few pictures
const reasons = [/Not seen by both eyes/, /Too near/, /Too plain/, /eyes disagree/, /Too far/];

// Errors that pages report. Failed connections are expected of pages whose server goes away, or that are closed while they
// are connected; browsers tell them late.
const errors = [];
const losing = new WeakSet();
async function newPage(browser) {
  const page = await browser.newPage();
  await page.setViewport({ width: 1280, height: 800 });
  const report = (text) => {
    if (!(losing.has(page) && /WebSocket|ERR_|Failed to load|NetworkError|connection to /.test(text))) {
      errors.push(text);
    }
  };
  page.on("console", (message) => message.type() === "error" && report(message.text()));
  page.on("pageerror", ({ message }) => report(message));
  await page.evaluateOnNewDocument(() => {
    window.violations = [];
    addEventListener("securitypolicyviolation", ({ violatedDirective, blockedURI }) =>
      window.violations.push(`${violatedDirective}: ${blockedURI}`),
    );
  });
  return page;
}

const drawnAtLeast = (page, view, count) =>
  until(page, `${count} pictures of ${view}`, (v, n) => window.stereoCamera?.drawn[v]?.count >= n, view, count);
const status = (page) => page.evaluate(() => window.stereoCamera.status.cameras[0]);

// The last picture's number and a digest of what a canvas shows.
const shown = (page, view, selector) =>
  page.evaluate(
    (v, s) => {
      const small = document.createElement("canvas");
      small.width = small.height = 64;
      const context = small.getContext("2d");
      context.drawImage(document.querySelector(s), 0, 0, 64, 64);
      const { data } = context.getImageData(0, 0, 64, 64);
      const digest = data.reduce((sum, value, i) => (Math.imul(sum, 31) + value * (i + 1)) | 0, 0);
      return { number: window.stereoCamera.drawn[v].number, digest, levels: new Set(data).size };
    },
    view,
    selector,
  );

async function requireMotion(page, view, selector) {
  await drawnAtLeast(page, view, (await page.evaluate((v) => window.stereoCamera.drawn[v]?.count ?? 0, view)) + 1);
  const before = await shown(page, view, selector);
  require(before.levels > 32, `the picture of ${view} is empty`);
  for (let digest = before.digest, tries = 0; digest === before.digest; ++tries) {
    require(tries < mostTries, `the picture of ${view} does not change`);
    const last = (await shown(page, view, selector)).number;
    await until(page, `a later picture of ${view}`, (v, n) => window.stereoCamera.drawn[v].number > n, view, last);
    ({ digest } = await shown(page, view, selector));
  }
}

// Moves the pointer to whole pixels of the range picture and returns what the page says there, with the value that it got.
async function readRangeAt(page, x, y) {
  await page.mouse.move(x, y);
  return page.evaluate(
    (px, py) => {
      const canvas = document.querySelector("#range canvas");
      const box = canvas.getBoundingClientRect();
      const { width, height, millimeters } = window.stereoCamera.range;
      const column = Math.floor(((px - box.left) / box.width) * width);
      const row = Math.floor(((py - box.top) / box.height) * height);
      const { wide } = window.stereoCamera.status.cameras[0];
      return {
        text: document.querySelector("#reading").textContent,
        value: millimeters[row * width + column],
        longitude: ((column + 0.5 - width / 2) * wide.horizontal_field) / width,
        latitude: ((row + 0.5 - height / 2) * wide.vertical_field) / height,
      };
    },
    x,
    y,
  );
}

function requireReading({ text, value, longitude, latitude }) {
  const direction = /([\d.]+)° (left|right), ([\d.]+)° (up|down)/.exec(text);
  require(direction, `no direction in "${text}"`);
  const across = direction[2] === "left" ? -direction[1] : +direction[1];
  const down = direction[4] === "up" ? -direction[3] : +direction[3];
  require(
    Math.abs(across - longitude) < 0.06 && Math.abs(down - latitude) < 0.06,
    `"${text}" is not ${longitude.toFixed(2)}, ${latitude.toFixed(2)} degrees`,
  );
  if (value >= firstReason) {
    require(reasons[value - firstReason - 1].test(text), `"${text}" is not the reason ${value - firstReason}`);
    return false;
  }
  const meters = Number(/^([\d.]+) m\b/.exec(text)?.[1]);
  const precision = value < 1000 ? 0.00051 : 0.0051;
  require(Math.abs(meters - value / 1000) < precision, `"${text}" is not ${value} mm`);
  return true;
}

// In the page: a pixel that has no range, as those around it.
function findGap(first) {
  const { width, height, millimeters } = window.stereoCamera.range;
  for (let row = 4; row < height - 4; ++row) {
    for (let column = 4; column < width - 4; ++column) {
      const around = [-2, 0, 2].flatMap((dy) => [-2, 0, 2].map((dx) => millimeters[(row + dy) * width + column + dx]));
      if (around.every((value) => value >= first)) {
        return { column, row, width, height };
      }
    }
  }
  return null;
}

async function checkReadings(page) {
  await page.evaluate(() => document.querySelector("#range canvas").scrollIntoView({ block: "center" }));
  const box = await page.evaluate(() => document.querySelector("#range canvas").getBoundingClientRect().toJSON());
  let measured = 0;
  let missing = 0;
  for (let row = 1; row < 6; ++row) {
    for (let column = 1; column < 6; ++column) {
      const at = await readRangeAt(
        page,
        Math.round(box.x + (box.width * column) / 6),
        Math.round(box.y + (box.height * row) / 6),
      );
      requireReading(at) ? ++measured : ++missing;
    }
  }
  require(measured > 5, `only ${measured} points have a range`);
  // Where there is none: the scene has some such pixels, such as those at the edge of near things. They move.
  for (let tries = 0; missing === 0; ++tries) {
    require(tries < mostTries, "no point without range was met");
    const { column, row, width, height } = await until(page, "a pixel without range", findGap, firstReason);
    const x = Math.round(box.x + ((column + 0.5) / width) * box.width);
    const y = Math.round(box.y + ((row + 0.5) / height) * box.height);
    requireReading(await readRangeAt(page, x, y)) || ++missing;
  }
  console.log(`# readings compared: ${measured} with a range, ${missing} without`);
}

// A row of the health panel that vanishes must not move the page, even where it is scrolled to its end.
async function checkStillness(page) {
  const stage = "longitude-latitude";
  const lists = (name, so) => so === [...document.querySelectorAll("#health th")].some((head) => head.textContent === name);
  await click(page, '#eyes input[value="lonlat"]');
  await until(page, "the time of a stage", lists, stage, true);
  await click(page, '#eyes input[value="raw"]');
  const top = () => page.$eval("#range canvas", (canvas) => canvas.getBoundingClientRect().top);
  await page.evaluate(() => scrollTo(0, document.documentElement.scrollHeight));
  require(
    await page.evaluate(() => {
      const bottom = (id) => document.getElementById(id).getBoundingClientRect().bottom;
      return scrollY > 0 && bottom("health") > bottom("pictures");
    }),
    "the page does not end with the health panel",
  );
  const before = await top();
  await until(page, "the end of that time", lists, stage, false);
  const after = await top();
  require(after === before, `the range picture moved from ${before} to ${after}`);
}

// Colors of the nearest and of the farthest range in one picture: near is bluer, far is redder.
async function checkColors(page) {
  const { near, far } = await page.evaluate((first) => {
    const canvas = document.querySelector("#range canvas");
    const { width, millimeters } = window.stereoCamera.range;
    const { data } = canvas.getContext("2d").getImageData(0, 0, canvas.width, canvas.height);
    let nearest = -1;
    let farthest = -1;
    millimeters.forEach((value, i) => {
      if (value < first) {
        nearest = nearest < 0 || value < millimeters[nearest] ? i : nearest;
        farthest = farthest < 0 || value > millimeters[farthest] ? i : farthest;
      }
    });
    const at = (i) => ({ mm: millimeters[i], warmth: data[4 * i] - data[4 * i + 2] });
    return { near: at(nearest), far: at(farthest), width };
  }, firstReason);
  require(far.mm > 2 * near.mm, `the scene is too flat: ${near.mm} to ${far.mm} mm`);
  require(far.warmth > near.warmth + 60, `near ${JSON.stringify(near)}, far ${JSON.stringify(far)}`);
}

async function checkKeys(page) {
  await page.focus("#range canvas");
  const direction = () => page.$eval("#reading span", (element) => element.textContent);
  await page.keyboard.press("Home");
  const middle = await direction();
  for (const key of ["ArrowRight", "ArrowDown"]) {
    const before = await direction();
    await page.keyboard.press(key);
    require((await direction()) !== before, `${key} does not move the point`);
  }
  await until(page, "an announcement", () => /°/.test(document.querySelector("#announcements").textContent));
  await page.keyboard.press("Home");
  require((await direction()) === middle, "Home does not move the point to the middle");
}

async function checkCloud(page) {
  await drawnAtLeast(page, "range", (await page.evaluate(() => window.stereoCamera.drawn.range.count)) + 1);
  await until(page, "a cloud", () => window.stereoCamera.cloudPoints > 1000);
  const { points, measured } = await page.evaluate(
    (first) => ({
      points: window.stereoCamera.cloudPoints,
      measured: window.stereoCamera.range.millimeters.reduce((sum, value) => sum + (value < first), 0),
    }),
    firstReason,
  );
  require(points === measured, `${points} points, but ${measured} ranges`);
  const canvas = await page.$("#cloud canvas");
  const picture = await screenshot(canvas, options.output, `${options.browser}-cloud`);
  const { covered, colors } = await page.evaluate(async (text) => {
    const bytes = Uint8Array.from(atob(text), (c) => c.charCodeAt(0));
    const bitmap = await createImageBitmap(new Blob([bytes], { type: "image/png" }));
    const context = new OffscreenCanvas(bitmap.width, bitmap.height).getContext("2d");
    context.drawImage(bitmap, 0, 0);
    const { data } = context.getImageData(0, 0, bitmap.width, bitmap.height);
    const found = new Set();
    let count = 0;
    for (let i = 0; i < data.length; i += 4) {
      const differs = Math.abs(data[i] - 0x10) + Math.abs(data[i + 1] - 0x14) + Math.abs(data[i + 2] - 0x18) > 60;
      if (differs) {
        ++count;
        found.add((data[i] >> 3) | ((data[i + 1] >> 3) << 5) | ((data[i + 2] >> 3) << 10));
      }
    }
    return { covered: (4 * count) / data.length, colors: found.size };
  }, Buffer.from(picture).toString("base64"));
  require(covered > 0.1 && colors > 100, `${(100 * covered).toFixed(1)} % of the cloud is drawn, in ${colors} colors`);
  console.log(`# cloud: ${points} points, ${(100 * covered).toFixed(0)} % of its picture`);
}

async function checkTurning(page) {
  // Labels of the rings stand where their points are on the screen.
  const places = () =>
    page.$$eval("#cloud .space span", (labels) => labels.map(({ style }) => `${style.left} ${style.top}`).join("; "));
  const moved = (before) =>
    until(
      page,
      "the cloud turns",
      (text) =>
        [...document.querySelectorAll("#cloud .space span")]
          .map(({ style }) => `${style.left} ${style.top}`)
          .join("; ") !== text,
      before,
    );
  const start = await places();
  const box = await page.$eval("#cloud canvas", (canvas) => {
    canvas.scrollIntoView({ block: "center" });
    return canvas.getBoundingClientRect().toJSON();
  });
  await page.mouse.move(box.x + box.width / 2, box.y + box.height / 2);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width / 2 + 40, box.y + box.height / 2 + 20);
  await page.mouse.up();
  await moved(start);
  for (const key of ["ArrowLeft", "ArrowUp", "+"]) {
    const before = await places();
    await page.focus("#cloud canvas");
    await page.keyboard.press(key);
    await moved(before);
  }
  await page.click("#reset");
  await until(
    page,
    "the view is reset",
    (text) =>
      [...document.querySelectorAll("#cloud .space span")]
        .map(({ style }) => `${style.left} ${style.top}`)
        .join("; ") === text,
    start,
  );
}

// The controls take nothing while an answer is awaited.
const enabled = (page, selector) =>
  until(page, `${selector} enabled`, (s) => !document.querySelector(s).disabled, selector);

async function type(page, selector, text) {
  await enabled(page, selector);
  await page.$eval(selector, (input) => {
    input.scrollIntoView({ block: "center" });
    input.select();
  });
  await page.type(selector, text);
}

async function click(page, selector) {
  await enabled(page, selector);
  await page.$eval(selector, (element) => element.scrollIntoView({ block: "center" }));
  await page.click(selector);
}

async function checkRangeControls(page) {
  const form = 'form[data-action="wide"]';
  await type(page, `${form} [name="nearest"]`, "0.2");
  await click(page, `${form} button`);
  await until(page, "nearest in the status", () => window.stereoCamera.status.cameras[0].wide.nearest === 0.2);
  for (const [name, key] of [
    ["fuse", "fuse"],
    ["selfCalibrate", "self_calibrate"],
  ]) {
    const before = (await status(page)).wide[key];
    await click(page, `${form} [name="${name}"]`);
    await until(page, `${key} in the status`, (k, b) => window.stereoCamera.status.cameras[0].wide[k] === !b, key, before);
  }
  await type(page, `${form} [name="nearest"]`, "20");
  await click(page, `${form} button`);
  await until(page, "an error beneath the limits", () =>
    /less than/.test(document.querySelector('form[data-action="wide"] .answer')?.textContent),
  );
  require((await status(page)).wide.nearest === 0.2, "an impossible limit was set");
  await type(page, `${form} [name="nearest"]`, "0.15");
  await click(page, `${form} button`);
  await until(page, "nearest in the status", () => window.stereoCamera.status.cameras[0].wide.nearest === 0.15);
}

async function checkRecording(page) {
  const button = 'form[data-action="record"] button';
  await click(page, button);
  const recording = await outcome(
    page,
    "record",
    "recorded frames",
    ({ recording: found }) => found.on && found.frames > 5 && found,
  );
  await until(page, "Stop recording", (s) => document.querySelector(s).textContent === "Stop recording", button);
  await click(page, button);
  await until(page, "the end of the recording", () => !window.stereoCamera.status.cameras[0].recording.on);
  const after = (await status(page)).recording;
  require(!after.error && after.bytes > 0, JSON.stringify(after));
  const written = resolve(folder, recording.folder);
  require(existsSync(written) && readdirSync(written).length > 0, `nothing in ${written}`);
}

// Waits for what an action brings about, or for the refusal that shows beneath its button.
async function outcome(page, action, what, find) {
  const refusal = `form[data-action="${action}"] .answer`;
  const text = `(() => {
    const refused = document.querySelector('${refusal}')?.textContent;
    return refused ? { refused } : (${find})(window.stereoCamera.status.cameras[0]);
  })()`;
  const found = await until(page, what, text);
  require(!found.refused, `refused: ${found.refused}`);
  return found;
}

async function checkSnapshot(page) {
  await click(page, 'form[data-action="snapshot"] button');
  const snapshot = await outcome(
    page,
    "snapshot",
    "a snapshot",
    ({ snapshot: found }) => (found.folder || found.error) && found,
  );
  require(!snapshot.error, snapshot.error);
  const written = resolve(folder, snapshot.folder);
  require(existsSync(written) && readdirSync(written).length > 0, `nothing in ${written}`);
  await until(
    page,
    "the folder beneath the button",
    (name) => document.querySelector('form[data-action="snapshot"] .state').textContent.includes(name),
    snapshot.folder,
  );
}

async function checkCalibrationCheck(page) {
  await click(page, 'form[data-action="check"] button');
  const check = await outcome(page, "check", "the check's end", ({ check: found }) => found.state === "done" && found);
  require(check.fits === true && check.median_px < 1, JSON.stringify(check));
  await until(page, "the result", () =>
    [...document.querySelectorAll("#health dd")].some(({ textContent }) => /^fits/.test(textContent)),
  );
}

async function checkPanels(page) {
  const numberOf = () => page.evaluate(() => window.stereoCamera.drawn["raw-left"].number);
  await click(page, '#shown [name="eyes"]');
  require(await page.$eval("#eyes", (panel) => panel.hidden), "the panel still shows");
  // What was on its way may still come; then two range pictures in a row come without one of the eyes.
  for (let eyes = -1, tries = 0; eyes !== (await numberOf()); ++tries) {
    require(tries < mostTries, "the pictures still come");
    eyes = await numberOf();
    const count = await page.evaluate(() => window.stereoCamera.drawn.range.count);
    await drawnAtLeast(page, "range", count + 2);
  }
  const before = await page.evaluate(() => window.stereoCamera.drawn["raw-left"].count);
  await click(page, '#shown [name="eyes"]');
  await drawnAtLeast(page, "raw-left", before + 1);
}

async function checkAccess(page, name) {
  await page.evaluate(readFileSync(packages.resolve("axe-core/axe.min.js"), "utf8"));
  const { violations } = await page.evaluate(() => window.axe.run());
  const bad = violations.filter(({ impact }) => ["serious", "critical"].includes(impact));
  for (const { id, impact } of violations.filter((each) => !bad.includes(each))) {
    console.log(`# axe, ${name}: ${impact} ${id}`);
  }
  require(
    bad.length === 0,
    bad.map(({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html).join(" ")}`).join("\n"),
  );
}

async function checkWidths(page) {
  for (const [width, height] of [
    [390, 844],
    [360, 740],
  ]) {
    await page.setViewport(isChromium ? { width, height, isMobile: true, hasTouch: true } : { width, height });
    const count = await page.evaluate(() => window.stereoCamera.drawn.range?.count ?? 0);
    await drawnAtLeast(page, "range", count + 1);
    await screenshot(page, options.output, `${options.browser}-phone-${width}`, { fullPage: true });
    const wide = await page.evaluate(() => ({
      content: document.documentElement.scrollWidth,
      window: document.documentElement.clientWidth,
    }));
    require(wide.content <= wide.window && wide.window <= width, `${width}: ${JSON.stringify(wide)}`);
  }
}

// Kills the server and starts another on its port, which prints another token.
async function checkReconnect(page, program) {
  losing.add(page);
  await program.end("SIGKILL");
  await until(page, "word of it", () => /Connection lost/.test(document.querySelector("#connection").textContent));
  const before = await page.evaluate(() => window.stereoCamera.drawn.range.count);
  const again = await Program.start(options.program, ["--port", program.port], folder);
  await until(page, "the connection", () => window.stereoCamera.connection === "open");
  await drawnAtLeast(page, "range", before + 2);
  const took = (await page.evaluate(() => window.stereoCamera.drawn.range.drawnTime_ms)) - again.startedAt_ms;
  console.log(`# pictures again ${Math.round(took)} ms after the program was started again`);
  await until(page, "live pictures", () => document.querySelector("#connection").dataset.state === "live");
  // The old token is worth nothing now; the new link makes all right, in the same tab.
  await until(page, "why controls are locked", () => /out of date/.test(document.querySelector("#locked").textContent));
  await page.evaluate((token) => (location.hash = token), again.link.split("#")[1]);
  await until(page, "unlocked controls", () => !document.querySelector('form[data-action="record"] button').disabled);
  require(!(await page.evaluate(() => location.href)).includes("token"), "the token stays in the address bar");
  return again;
}

// A page without the token, which may look only.
async function checkLooking(browser, program) {
  const context = await browser.createBrowserContext();
  const page = await newPage(context);
  await page.goto(program.address);
  await drawnAtLeast(page, "raw-left", 2);
  const enabled = await page.$$eval("#controls button, #controls input", (all) => all.filter((each) => !each.disabled));
  require(enabled.length === 0, `${enabled.length} controls are enabled`);
  require(/open the link/.test(await page.$eval("#locked", (note) => note.textContent)), "no reason is given");
  losing.add(page);
  await context.close();
}

async function checkMissingFrames(browser) {
  writeFileSync(join(folder, "faults.txt"), "unplug 150 ever\n");
  const parameters = ["--port", "0", "--patience", "8", "--faults", "faults.txt"];
  const program = await Program.start(options.program, parameters, folder);
  const page = await newPage(browser);
  await page.goto(program.link);
  await drawnAtLeast(page, "raw-left", 1);
  const first = await until(page, "word of it", () =>
    Number(/^No frames for (\d+) s/.exec(document.querySelector("#connection").textContent)?.[1]),
  );
  require(await page.evaluate(() => document.body.classList.contains("stale")), "old pictures look like new ones");
  await until(
    page,
    "the time counts up, with the reason",
    (before) => Number(/^No frames for (\d+) s: ./.exec(document.querySelector("#connection").textContent)?.[1]) > before,
    first,
  );
  await screenshot(page, options.output, `${options.browser}-no-frames`);
  losing.add(page);
  await page.close();
  await program.end("SIGTERM");
}

async function checkScreens(page) {
  for (const scheme of isChromium ? ["light", "dark"] : ["default"]) {
    if (isChromium) {
      await page.emulateMediaFeatures([{ name: "prefers-color-scheme", value: scheme }]);
    }
    await page.evaluate(() => scrollTo(0, 0));
    await screenshot(page, options.output, `${options.browser}-${scheme}`);
    await checkAccess(page, scheme);
  }
}

async function main() {
  const browser = await launchBrowser(options.browser);
  try {
    const page = await newPage(browser);
    let program = await Program.start(options.program, ["--port", "0"], folder);
    await page.goto(program.link);
    await checks.run("a first picture is drawn, and the token leaves the address bar", async () => {
      await drawnAtLeast(page, "raw-left", 1);
      const first = await page.evaluate(() => window.stereoCamera.drawn["raw-left"]);
      console.log(`# link ${program.printedAt_ms - program.startedAt_ms} ms after the start of the program`);
      console.log(`# first picture seen ${Math.round(first.drawnTime_ms - program.startedAt_ms)} ms after the start`);
      require((await page.evaluate(() => location.href)) === program.address, "the token stays in the address bar");
    });
    // Without a graphics card the cloud takes most of the time.
    await click(page, '#shown [name="cloud"]');
    for (const [kind, views] of [
      ["lonlat", ["lonlat-left", "lonlat-right"]],
      ["rectified", ["left", "right"]],
      ["raw", ["raw-left", "raw-right"]],
    ]) {
      await checks.run(`pictures move: ${kind}`, async () => {
        await click(page, `#eyes input[value="${kind}"]`);
        await requireMotion(page, views[0], "#eyes figure:nth-child(1) canvas");
        await requireMotion(page, views[1], "#eyes figure:nth-child(2) canvas");
      });
    }
    await checks.run("the range picture moves", () => requireMotion(page, "range", "#range canvas"));
    await checks.run("meters and degrees under the pointer are those of the picture", () => checkReadings(page));
    await checks.run("a row that vanishes moves nothing", () => checkStillness(page));
    await checks.run("near is bluer and far is redder", () => checkColors(page));
    await checks.run("keys move the point that is read", () => checkKeys(page));
    await click(page, '#shown [name="cloud"]');
    if (await page.evaluate(() => !!document.createElement("canvas").getContext("webgl2"))) {
      await checks.run("the cloud shows the measured points", () => checkCloud(page));
      await checks.run("the cloud turns by mouse and keys, and back", () => checkTurning(page));
    } else {
      console.log("# this browser has no WebGL here; with Xvfb installed, Firefox has");
      await checks.run("the page says that there is no cloud", () =>
        until(page, "a note", () => !document.querySelector("#no-webgl").hidden),
      );
    }
    await checks.run("range limits, fusing and self-calibration change", () => checkRangeControls(page));
    await checks.run("recording starts, writes and stops", () => checkRecording(page));
    await checks.run("a snapshot is written", () => checkSnapshot(page));
    await checks.run("the calibration check runs to its end", () => checkCalibrationCheck(page));
    await checks.run("a panel that is switched off is not sent", () => checkPanels(page));
    await checks.run("axe finds nothing serious", () => checkScreens(page));
    await checks.run("the page reconnects to a server that was killed and started again", async () => {
      program = await checkReconnect(page, program);
    });
    await checks.run("nothing overflows a phone's width", () => checkWidths(page));
    await checks.run("nothing violates the page's security policy", async () => {
      const violations = await page.evaluate(() => window.violations);
      require(violations.length === 0, violations.join("\n"));
    });
    await page.close();
    await checks.run("without the token one may look only", () => checkLooking(browser, program));
    await checks.run("Ctrl-C ends the program", async () => {
      const code = await program.end("SIGINT");
      require(code === 0, `it ended with ${code}`);
    });
    await checks.run("missing frames are told, with the time since", () => checkMissingFrames(browser));
    await checks.run("no page reported an error", () => require(errors.length === 0, errors.join("\n")));
  } finally {
    Program.killAll();
    await browser.close();
  }
}

// Whatever may hang, this ends.
setTimeout(() => {
  console.error("the tests take too long");
  Program.killAll();
  process.exit(1);
}, 14 * 60_000).unref();
main().then(
  () => process.exit(checks.finish() ? 0 : 1),
  (error) => {
    console.error(error);
    process.exit(1);
  },
);
