// SPDX-License-Identifier: Apache-2.0
// The panel of controls. Each says beneath itself what came of it.
import { bytesText, countText, setText } from "./text.js";

export class Controls {
  #panel;
  #token;
  #camera = null;
  #mayChange = false;
  #edited = false; // the range's limits are being typed
  #asked = new Set(); // actions that the server has not answered
  #said = new Map(); // by action: what the server answered

  // token: a function that returns it
  constructor(panel, token) {
    this.#panel = panel;
    this.#token = token;
    for (const form of panel.querySelectorAll("form")) {
      form.addEventListener("submit", (event) => {
        event.preventDefault();
        this.#act(form, this.#fields(form));
      });
    }
    const wide = this.#form("wide");
    wide.addEventListener("input", ({ target }) => (this.#edited ||= target.type === "number"));
    wide.addEventListener("change", ({ target }) => {
      if (target.type === "checkbox") {
        this.#act(wide, { [target.name]: target.checked ? 1 : 0 });
      }
    });
  }

  // reason: why nothing may be changed, or empty
  show(camera, reason) {
    if (camera.name !== this.#camera?.name) {
      this.#edited = false;
      for (const answer of this.#panel.querySelectorAll(".answer")) {
        answer.textContent = "";
      }
    }
    this.#camera = camera;
    this.#mayChange = !reason;
    const locked = this.#panel.querySelector("#locked");
    locked.hidden = !reason;
    locked.textContent = reason;
    this.#showRange(camera.wide);
    this.#showStates(camera);
    this.#enable();
  }

  #showRange(wide) {
    const { elements } = this.#form("wide");
    this.#form("wide").hidden = !wide;
    if (!wide || this.#asked.has("wide")) {
      return;
    }
    elements.fuse.checked = wide.fuse;
    elements.selfCalibrate.checked = wide.self_calibrate;
    if (!this.#edited) {
      elements.nearest.value = wide.nearest;
      elements.farthest.value = wide.farthest;
    }
  }

  #showStates({ recording, snapshot, check, calibrated }) {
    this.#form("record").querySelector("button").textContent = recording.on ? "Stop recording" : "Start recording";
    const dropped = recording.dropped ? `, ${recording.dropped} dropped` : "";
    const written = `${countText(recording.frames, "frame")}, ${bytesText(recording.bytes)}${dropped}`;
    this.#state("wide", "");
    this.#state("record", recording.folder ? `${written} in ${recording.folder}` : "Nothing recorded.", recording.error);
    this.#state("snapshot", snapshot.folder || "None taken.", snapshot.error);
    const result = check.state === "running" ? `${check.frames} of ${countText(check.of, "frame")}` : check.text;
    const text = calibrated ? result || "Not checked." : "Needs a calibration.";
    this.#state("check", text, check.fits === false ? check.text : "");
  }

  // Shows what the status says. What the server just answered stays for a moment, until the status says something else.
  #state(action, text, error) {
    const shown = error || text;
    const said = this.#said.get(action);
    const stays = said && performance.now() < said.until_ms && (said.over ?? shown) === shown;
    if (stays) {
      said.over = shown;
    } else {
      this.#said.delete(action);
    }
    const state = this.#form(action).querySelector(".state");
    setText(state, stays ? said.text : shown);
    state.classList.toggle("fault", !stays && !!error);
  }

  #enable() {
    const { check, calibrated } = this.#camera;
    const possible = { wide: true, check: calibrated && check.state !== "running", record: true, snapshot: true };
    for (const form of this.#panel.querySelectorAll("form")) {
      const { action } = form.dataset;
      const enabled = this.#mayChange && possible[action] && !this.#asked.has(action);
      for (const element of form.querySelectorAll("button, input")) {
        // A focused control that is switched off for a moment would lose the keyboard's place.
        if (element === document.activeElement && this.#asked.has(action)) {
          continue;
        }
        element.disabled = !enabled;
      }
    }
  }

  #form(action) {
    return this.#panel.querySelector(`form[data-action="${action}"]`);
  }

  #fields(form) {
    const { action } = form.dataset;
    if (action === "record") {
      return { on: this.#camera.recording.on ? 0 : 1 };
    }
    if (action === "wide") {
      const { nearest, farthest } = form.elements;
      return { nearest: nearest.valueAsNumber, farthest: farthest.valueAsNumber };
    }
    return {};
  }

  async #act(form, fields) {
    const { action } = form.dataset;
    if (this.#asked.has(action)) {
      return;
    }
    const problem = "nearest" in fields ? limitsProblem(fields) : "";
    if (problem) {
      answer(form, problem);
      return;
    }
    this.#asked.add(action);
    answer(form, "");
    this.#enable();
    const { ok, message } = await post(this.#token(), { camera: this.#camera.name, action, ...fields });
    this.#asked.delete(action);
    if (ok) {
      this.#said.set(action, { text: message, until_ms: performance.now() + 3000 });
      this.#edited &&= !("nearest" in fields);
    } else {
      answer(form, message);
      this.#showRange(this.#camera.wide);
    }
    this.#showStates(this.#camera);
    this.#enable();
  }
}

function limitsProblem({ nearest, farthest }) {
  if (!(nearest > 0) || !(farthest > 0)) {
    return "Type both limits in meters, more than 0.";
  }
  return nearest < farthest ? "" : "Nearest must be less than farthest.";
}

// Says why an action was refused, until the next try.
function answer(form, text) {
  form.querySelector(".answer").textContent = text;
}

async function post(token, fields) {
  let response;
  try {
    response = await fetch("control", {
      method: "POST",
      headers: { Authorization: `Bearer ${token}` },
      body: new URLSearchParams(fields),
    });
  } catch {
    return { ok: false, message: "The server cannot be reached." };
  }
  try {
    return await response.json();
  } catch {
    return { ok: false, message: `The server answered ${response.status}.` };
  }
}
