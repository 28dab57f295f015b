// SPDX-License-Identifier: Apache-2.0
// The live view: connects the socket with the panels.
import { Cloud } from "./cloud.js";
import { Connection } from "./connection.js";
import { Controls } from "./controls.js";
import { Health } from "./health.js";
import { Eyes, fit } from "./pictures.js";
import { Range } from "./range.js";
import { loadChoices, saveChoices } from "./choices.js";
import { durationText, setText } from "./text.js";
import { takeToken } from "./token.js";

// So long a camera may take for its first frame before that is called trouble.
const startTime_s = 5;
// So long frames may stay away, unless they come more rarely than that.
const longestGap_s = 2;

const element = (id) => document.getElementById(id);

let token = takeToken();
let status = null;
let statusAt_ms = 0; // performance.now() when it came
let announced = "";
const drawn = {}; // by view: facts about the last picture
const shownLast = {}; // by view: the last message that was drawn

const eyes = new Eyes(element("eyes"), changed);
const range = new Range(element("range"), announce);
const cloud = new Cloud(element("cloud"));
const health = new Health(element("health"));
const controls = new Controls(element("controls"), () => connection.usableToken);
const connection = new Connection({ state: changed, status: statusCame, picture: pictureCame });

// Where the left eye's pixels are read from: in main memory, since they are only read.
const scratch = document.createElement("canvas").getContext("2d", { alpha: false, willReadFrequently: true });

const boxes = [...element("shown").querySelectorAll("input")];
const shows = (panel) => boxes.find((box) => box.name === panel).checked;
const camera = () => status?.cameras.find(({ name }) => name === element("camera").value) ?? status?.cameras[0];

function statusCame(news) {
  status = news;
  statusAt_ms = performance.now();
  const names = news.cameras.map(({ name }) => name);
  const select = element("camera");
  if ([...select.options].map(({ value }) => value).join("\n") !== names.join("\n")) {
    const chosen = select.value || choices.camera;
    select.replaceChildren(...names.map((name) => new Option(name, name)));
    select.value = names.includes(chosen) ? chosen : (names[0] ?? "");
  }
  news.cameras.forEach(({ name, state }, i) => {
    const text = state === "running" ? name : `${name} (${state === "ended" ? "ended" : "no frames"})`;
    setText(select.options[i], text);
  });
  element("choice").hidden = names.length < 2;
  changed();
}

async function pictureCame(message) {
  let bitmap = null;
  try {
    if (isWanted(message)) {
      bitmap = await createImageBitmap(message.jpeg);
      if (isWanted(message)) {
        draw(message, bitmap);
      }
    }
  } catch (error) {
    console.warn(`picture ${message.number} of ${message.view}:`, error);
  } finally {
    bitmap?.close();
    message.acknowledge();
  }
}

// Something else may have been chosen meanwhile, or a later picture may have been decoded sooner.
function isWanted({ view, camera: index, socket, number }) {
  const last = shownLast[view];
  const late = last?.socket === socket && number < last.number;
  return !late && wanted().includes(view) && status.cameras[index]?.name === camera().name;
}

function draw(message, bitmap) {
  if (message.hasRange) {
    const { width, height } = message;
    fit(scratch.canvas, message);
    scratch.drawImage(bitmap, 0, 0);
    const pixels = scratch.getImageData(0, 0, width, height);
    if (shows("cloud")) {
      cloud.update(message, pixels, camera().wide);
    }
    range.draw(message, pixels);
  } else {
    eyes.draw(message, bitmap);
  }
  const { number, captureTime_us, width, height, age_ms, view } = message;
  shownLast[view] = message;
  const count = (drawn[view]?.count ?? 0) + 1;
  const drawnTime_ms = performance.timeOrigin + performance.now();
  drawn[view] = { number, captureTime_us, drawnTime_ms, count, width, height, age_ms };
}

// The views that the panels show, of those that the camera has.
function wanted() {
  if (document.hidden || !camera()) {
    return [];
  }
  const views = [...(shows("eyes") ? eyes.views : []), ...(shows("range") || shows("cloud") ? ["range"] : [])];
  return views.filter((view) => camera().views.includes(view));
}

// Brings the page up to date after anything changed.
function changed() {
  for (const { name, checked } of boxes) {
    element(name).hidden = !checked;
  }
  element("side").hidden = !shows("controls") && !shows("health");
  element("pictures").hidden = !["eyes", "range", "cloud"].some(shows);
  showConnection();
  const shown = camera();
  if (!shown) {
    return;
  }
  setText(element("source"), shown.source);
  document.title = `${shown.name} – Stereo camera`;
  eyes.offer(shown.views);
  const hasRange = shown.views.includes("range") && !!shown.wide;
  element("range").classList.toggle("without", !hasRange);
  element("cloud").classList.toggle("without", !hasRange);
  if (hasRange) {
    range.configure(shown.wide);
  }
  controls.show(shown, lockReason());
  health.show(status, shown, rate());
  linkAll(shown);
  connection.watch(shown.name, wanted());
}

function lockReason() {
  if (connection.state !== "open") {
    return "No connection.";
  }
  if (status.may_change) {
    return "";
  }
  return token
    ? "This link is out of date. To change something, open the link that the program printed last."
    : "Here you can only look. To change something, open the link that the program printed.";
}

function linkAll(shown) {
  const query = connection.usableToken ? `?token=${connection.usableToken}` : "";
  const name = encodeURIComponent(shown.name);
  for (const link of document.querySelectorAll("a[data-link]")) {
    const { link: kind, view } = link.dataset;
    const address = {
      snapshot: `snapshot/${name}/${view}.jpg`,
      stream: `stream/${name}/${view}.mjpeg`,
      health: "health",
      metrics: "metrics",
    }[kind];
    link.href = address + query;
    link.target = "_blank";
    link.rel = "noopener";
  }
}

// The line on connection and frames. It is always there, so that nothing moves under the pointer when trouble comes. Runs every
// quarter of a second, too, for the seconds that count up.
function showConnection() {
  const [text, announcement] = trouble(connection.state);
  const isLive = !text && connection.state === "open" && camera()?.state === "running";
  const line = element("connection");
  line.dataset.state = text ? "trouble" : isLive ? "live" : "starting";
  setText(line, text || (isLive ? `Live: ${camera().fps.toFixed(0)} frames a second` : "Starting"));
  document.body.classList.toggle("stale", !!text);
  if (announcement !== announced) {
    announced = announcement;
    announce(announcement || "Pictures are live again.");
  }
}

// What is wrong, and the same without seconds, to be announced once.
function trouble(state) {
  if (state === "refused") {
    const text = "This address needs a token. Open the link that the program printed.";
    return [text, text];
  }
  if (state === "lost" || state === "full") {
    const text = `${state === "lost" ? "Connection lost" : "Too many viewers"}, trying again`;
    return [text, text];
  }
  const shown = camera();
  if (!shown) {
    return ["", ""];
  }
  const reason = shown.reason ? `: ${shown.reason}` : "";
  if (shown.state === "ended") {
    return [`No more frames${reason}`, `No more frames${reason}`];
  }
  const missing_s = missingTime(shown);
  if (missing_s === 0) {
    return ["", ""];
  }
  const seconds = missing_s + (performance.now() - statusAt_ms) / 1000;
  return [`No frames for ${durationText(seconds)}${reason}`, "No frames"];
}

// Seconds without frames when the status came; 0 as long as that is no trouble.
function missingTime({ state, since_us, frames, age_ms, fps }) {
  if (state === "running") {
    // An old picture must not pass for the present one, even if the program still hopes.
    const most_s = Math.max(longestGap_s, fps > 0 ? 3 / fps : 0);
    return age_ms / 1000 > most_s ? age_ms / 1000 : 0;
  }
  const seconds = (status.time_us - since_us) / 1e6;
  return frames === 0 && seconds < startTime_s ? 0 : seconds;
}

function announce(text) {
  element("announcements").textContent = text;
}

// Pictures a second that the page draws, of the view drawn most often, since the last call a second ago or more.
const counted = { at_ms: performance.now(), counts: {}, rate: 0 };
function rate() {
  const now = performance.now();
  if (now - counted.at_ms >= 1000) {
    const counts = Object.fromEntries(Object.entries(drawn).map(([view, { count }]) => [view, count]));
    const most = Math.max(0, ...Object.keys(counts).map((view) => counts[view] - (counted.counts[view] ?? 0)));
    counted.rate = (1000 * most) / (now - counted.at_ms);
    counted.counts = counts;
    counted.at_ms = now;
  }
  return counted.rate;
}

const choices = loadChoices();
for (const box of boxes) {
  box.checked = choices.panels?.[box.name] ?? true;
}
if (choices.eyes) {
  eyes.kind = choices.eyes;
}
document.addEventListener("change", ({ target }) => {
  if (target.closest("#shown, #choice, .segments")) {
    saveChoices({
      panels: Object.fromEntries(boxes.map(({ name, checked }) => [name, checked])),
      eyes: eyes.kind,
      camera: element("camera").value,
    });
    changed();
  }
});
document.addEventListener("visibilitychange", changed);
// Another link of the program, opened in the same tab, does not load the page again.
addEventListener("hashchange", () => {
  const found = takeToken();
  if (found !== token) {
    token = found;
    connection.open(token);
  }
});
setInterval(showConnection, 250);

for (const link of element("range").querySelectorAll("a")) {
  link.dataset.view = "range-color";
}
connection.open(token);

// Facts for tests.
window.stereoCamera = Object.freeze({
  get connection() {
    return connection.state;
  },
  get status() {
    return status;
  },
  get drawn() {
    return drawn;
  },
  get range() {
    const { last } = range;
    return last && { width: last.width, height: last.height, millimeters: last.range_mm };
  },
  get cloudPoints() {
    return cloud.count;
  },
});
