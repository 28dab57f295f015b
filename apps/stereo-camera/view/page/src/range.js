// SPDX-License-Identifier: Apache-2.0
// The panel of the range picture: its colors, its scale, and the range at the point that is read.
import { colorTable, cssGradient, roundMeters, shareOf } from "./colors.js";
import { firstReason } from "./message.js";
import { fit } from "./pictures.js";
import { metersText } from "./text.js";

// Quiet time after the last key before the reading is announced.
const announcePause_ms = 400;

export class Range {
  // The last range picture: {width, height, range_mm}
  last = null;

  #canvas;
  #context;
  #reading;
  #point;
  #scale;
  #colors = null;
  #limits = { nearest: 0, farthest: 0 };
  #field = { horizontal: 0, vertical: 0 };
  #at = null; // {column, row} of the point that is read; null: the middle
  #announce;
  #announcing = 0;

  constructor(panel, announce) {
    this.#canvas = panel.querySelector("canvas");
    // Pixels come from main memory, so the canvas had better be there, too.
    this.#context = this.#canvas.getContext("2d", { alpha: false, willReadFrequently: true });
    this.#reading = panel.querySelector("#reading");
    this.#point = panel.querySelector("#point");
    this.#scale = panel.querySelector("#scale");
    this.#announce = announce;
    const follow = (event) => this.#pointAt(event);
    this.#canvas.addEventListener("pointerdown", follow);
    this.#canvas.addEventListener("pointermove", follow);
    this.#canvas.addEventListener("keydown", (event) => this.#step(event));
  }

  // wide: from the status
  configure(wide) {
    this.#field = { horizontal: wide.horizontal_field, vertical: wide.vertical_field };
    if (wide.nearest !== this.#limits.nearest || wide.farthest !== this.#limits.farthest) {
      this.#limits = { nearest: wide.nearest, farthest: wide.farthest };
      this.#colors = colorTable(wide.nearest, wide.farthest);
      this.#drawScale();
    }
  }

  // pixels: the left eye's, which are painted over
  draw(message, pixels) {
    const { range_mm } = message;
    const values = new Uint32Array(pixels.data.buffer);
    for (let i = 0; i < values.length; ++i) {
      if (range_mm[i] < firstReason) {
        values[i] = this.#colors[range_mm[i]];
      } else {
        // Gray and half as bright, so that nothing looks like a range.
        const value = values[i];
        const gray = ((value & 255) + 2 * ((value >>> 8) & 255) + ((value >>> 16) & 255)) >>> 3;
        values[i] = (255 << 24) | (gray << 16) | (gray << 8) | gray;
      }
    }
    fit(this.#canvas, pixels);
    this.#context.putImageData(pixels, 0, 0);
    this.last = message;
    this.#read();
  }

  #drawScale() {
    const { nearest, farthest } = this.#limits;
    const bar = document.createElement("i");
    bar.style.background = cssGradient();
    const marks = roundMeters(nearest, farthest).map((meters) => {
      const mark = document.createElement("span");
      mark.textContent = `${meters} m`;
      mark.style.bottom = `${100 * shareOf(meters, nearest, farthest)}%`;
      return mark;
    });
    const needle = document.createElement("b");
    needle.hidden = true;
    this.#scale.replaceChildren(bar, ...marks, needle);
  }

  #pointAt(event) {
    const box = this.#canvas.getBoundingClientRect();
    this.#moveTo(
      ((event.clientX - box.left) / box.width) * this.#canvas.width,
      ((event.clientY - box.top) / box.height) * this.#canvas.height,
    );
  }

  #moveTo(column, row) {
    const within = (value, size) => Math.min(Math.max(Math.floor(value), 0), size - 1);
    this.#at = { column: within(column, this.#canvas.width), row: within(row, this.#canvas.height) };
    this.#read();
  }

  #where() {
    return this.#at ?? { column: this.#canvas.width >> 1, row: this.#canvas.height >> 1 };
  }

  #step(event) {
    const steps = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1], Home: [0, 0] };
    const step = steps[event.key];
    if (!step || event.ctrlKey || event.altKey || event.metaKey) {
      return;
    }
    event.preventDefault();
    if (event.key === "Home") {
      this.#at = null;
      this.#read();
    } else {
      const pixels = event.shiftKey ? 16 : 2;
      const { column, row } = this.#where();
      this.#moveTo(column + pixels * step[0], row + pixels * step[1]);
    }
    clearTimeout(this.#announcing);
    this.#announcing = setTimeout(() => this.#announce(this.#reading.textContent), announcePause_ms);
  }

  // Says what is measured at the point, and shows it on the scale.
  #read() {
    if (!this.last) {
      return;
    }
    const { width, height, range_mm } = this.last;
    const column = Math.min(this.#where().column, width - 1);
    const row = Math.min(this.#where().row, height - 1);
    this.#point.style.left = `${(100 * (column + 0.5)) / width}%`;
    this.#point.style.top = `${(100 * (row + 0.5)) / height}%`;
    const value = range_mm[row * width + column];
    const meters = value / 1000;
    const measured = value < firstReason;
    const longitude = ((column + 0.5 - width / 2) * this.#field.horizontal) / width;
    const latitude = ((row + 0.5 - height / 2) * this.#field.vertical) / height;
    const direction = `${degrees(longitude, "left", "right")}, ${degrees(latitude, "up", "down")}`;
    const [what, whither] = this.#reading.children;
    what.textContent = measured ? metersText(meters) : this.#reason(value - firstReason);
    whither.textContent = direction;
    const needle = this.#scale.querySelector("b");
    needle.hidden = !measured;
    if (measured) {
      const share = shareOf(meters, this.#limits.nearest, this.#limits.farthest);
      needle.style.bottom = `${100 * Math.min(Math.max(share, 0), 1)}%`;
    }
  }

  #reason(state) {
    const { nearest, farthest } = this.#limits;
    const reasons = {
      1: "Not seen by both eyes",
      2: `Too near: less than ${nearest} m`,
      3: "Too plain to measure",
      4: "The eyes disagree",
      5: `Too far: more than ${farthest} m`,
    };
    return reasons[state] ?? "No range";
  }
}

const degrees = (angle, negative, positive) => `${Math.abs(angle).toFixed(1)}° ${angle < 0 ? negative : positive}`;
