// SPDX-License-Identifier: Apache-2.0
// The panel of the camera's and the board's health.
import { bytesText, countText, durationText, setText } from "./text.js";

export class Health {
  #panel;
  #list;
  #stages;
  #width;

  constructor(panel) {
    this.#panel = panel;
    this.#list = panel.querySelector("dl");
    this.#stages = panel.querySelector("tbody");
  }

  // drawn: pictures a second that this page draws
  show(status, camera, drawn) {
    fill(this.#list, rows(status, camera, drawn));
    const most = Math.max(...camera.stages.map(({ ms }) => ms), 1e-9);
    this.#stages.parentElement.hidden = camera.stages.length === 0;
    this.#stages.replaceChildren(
      ...camera.stages.map(({ name, ms }) => {
        const row = document.createElement("tr");
        const head = document.createElement("th");
        head.scope = "row";
        head.textContent = name;
        const time = document.createElement("td");
        time.textContent = `${ms.toFixed(1)} ms`;
        const bar = document.createElement("i");
        bar.style.width = `${(100 * ms) / most}%`;
        const graph = document.createElement("td");
        graph.setAttribute("aria-hidden", "true");
        graph.append(bar);
        row.append(head, graph, time);
        return row;
      }),
    );
    this.#keepHeight();
  }

  // Rows come and go with what is watched. A page that gets shorter while it is scrolled to its end moves under the pointer, so
  // the panel only grows, until its width changes.
  #keepHeight() {
    const { offsetWidth, style } = this.#panel;
    if (this.#width !== offsetWidth) {
      this.#width = offsetWidth;
      style.minHeight = "";
    }
    style.minHeight = `${Math.ceil(this.#panel.getBoundingClientRect().height)}px`;
  }
}

// [label, text, fault?] of what is known
function rows(status, camera, drawn) {
  const { board } = status;
  const rate = `${camera.fps.toFixed(1)} a second`;
  const list = [
    ["Frames", camera.state === "running" ? rate : `none (${camera.state})`, camera.state !== "running"],
    ["Lost", `${camera.lost} of ${countText(camera.frames + camera.lost, "frame")}`, false],
    ["Age of the picture", camera.age_ms === null ? "unknown" : `${camera.age_ms.toFixed(0)} ms`],
    ["Drawn here", `${drawn.toFixed(1)} a second`],
  ];
  if (camera.wide && camera.wide.measured_percent !== null) {
    list.push(["Range measured", `${camera.wide.measured_percent.toFixed(0)} % of the view`]);
  }
  if (camera.wide && camera.wide.row_correction !== null) {
    list.push(["Row correction", `${camera.wide.row_correction.toFixed(2)} px`]);
  }
  list.push(["Calibration", calibration(camera), camera.check.fits === false]);
  if (camera.view_error) {
    list.push(["Pictures", camera.view_error, true]);
  }
  if (camera.restarts) {
    list.push(["Restarts", `${camera.restarts}`]);
  }
  if (camera.share) {
    list.push(["Shared memory", camera.share.error || `key ${camera.share.key}`, !!camera.share.error]);
  }
  if (camera.stream) {
    const { mode, receiver, error } = camera.stream;
    list.push(["Network stream", error || `mode ${mode} to receiver ${receiver}`, !!error]);
  }
  if (camera.ring) {
    const { state, bytes, most_bytes, folder, error } = camera.ring;
    const text = `${state}, ${bytesText(bytes)} of ${bytesText(most_bytes)} in ${folder}`;
    list.push(["Ring", error || text, !!error]);
  }
  if (board.temperature_c !== null) {
    list.push(["Temperature", `${board.temperature_c.toFixed(0)} °C`]);
  }
  if (board.load_percent !== null) {
    list.push(["Load", `${board.load_percent.toFixed(0)} % of ${countText(board.processors, "processor")}`]);
  }
  list.push(
    ["Memory", `${board.memory_mb.toFixed(0)} MB`],
    ["Viewers", `${status.viewers}`],
    ["Running for", durationText(status.uptime_s)],
    ["Version", status.version],
  );
  return list;
}

function calibration(camera) {
  if (!camera.calibrated) {
    return "none";
  }
  const { state, fits, median_px } = camera.check;
  if (state !== "done" || fits === null) {
    return state === "running" ? "being checked" : "not checked";
  }
  return `${fits ? "fits" : "does not fit"}${median_px === null ? "" : `, rows ${median_px.toFixed(2)} px apart`}`;
}

function fill(list, rows) {
  while (list.children.length > rows.length) {
    list.lastElementChild.remove();
  }
  rows.forEach(([label, text, fault], i) => {
    let row = list.children[i];
    if (!row) {
      row = document.createElement("div");
      row.append(document.createElement("dt"), document.createElement("dd"));
      list.append(row);
    }
    const [term, value] = row.children;
    setText(term, label);
    setText(value, text);
    value.classList.toggle("fault", !!fault);
  });
}
