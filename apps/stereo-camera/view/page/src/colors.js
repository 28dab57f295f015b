// SPDX-License-Identifier: Apache-2.0
// Colors of ranges: equal steps of the range's logarithm, near blue and far red.
import { firstReason } from "./message.js";

// Evenly spaced along the scale; in between they are interpolated.
const stops = [
  [43, 36, 112],
  [62, 96, 226],
  [44, 164, 238],
  [34, 213, 178],
  [112, 238, 96],
  [198, 231, 56],
  [247, 184, 51],
  [240, 108, 30],
  [196, 42, 16],
  [122, 8, 12],
];

// share: 0 nearest, 1 farthest
function color(share) {
  const place = Math.min(Math.max(share, 0), 1) * (stops.length - 1);
  const before = Math.min(Math.floor(place), stops.length - 2);
  return stops[before].map((value, i) => Math.round(value + (stops[before + 1][i] - value) * (place - before)));
}

export const shareOf = (meters, nearest, farthest) => Math.log(meters / nearest) / Math.log(farthest / nearest);

// For each number of millimeters the pixel: red in the lowest byte, opaque.
export function colorTable(nearest, farthest) {
  const steps = Uint32Array.from({ length: 256 }, (_, i) => {
    const [red, green, blue] = color(i / 255);
    return (255 << 24) | (blue << 16) | (green << 8) | red;
  });
  return Uint32Array.from({ length: firstReason }, (_, mm) => {
    const share = mm ? shareOf(mm / 1000, nearest, farthest) : 0;
    return steps[Math.round(255 * Math.min(Math.max(share, 0), 1))];
  });
}

// From the bottom, the nearest, up.
export const cssGradient = () => `linear-gradient(to top, ${stops.map((stop) => `rgb(${stop.join(" ")})`).join(", ")})`;

// Round numbers of meters within the limits: 0.2, 0.5, 1, 2, 5 and so on.
export function roundMeters(nearest, farthest) {
  const found = [];
  for (let decade = Math.floor(Math.log10(nearest)); decade <= Math.log10(farthest); ++decade) {
    for (const digit of [1, 2, 5]) {
      const meters = Number(`${digit}e${decade}`);
      if (meters >= nearest && meters <= farthest) {
        found.push(meters);
      }
    }
  }
  return found;
}
