// SPDX-License-Identifier: Apache-2.0
// Numbers as people read them, and putting text in its place.

export const metersText = (meters) => `${meters.toFixed(meters < 1 ? 3 : 2)} m`;

export function bytesText(bytes) {
  const [unit, divisor] = bytes < 1e9 ? ["MB", 1e6] : ["GB", 1e9];
  const value = bytes / divisor;
  return `${value.toFixed(value < 10 ? 1 : 0)} ${unit}`;
}

export function durationText(seconds) {
  const whole = Math.max(0, Math.floor(seconds));
  if (whole < 60) {
    return `${whole} s`;
  }
  return whole < 3600
    ? `${Math.floor(whole / 60)} min ${whole % 60} s`
    : `${Math.floor(whole / 3600)} h ${Math.floor((whole % 3600) / 60)} min`;
}

export const countText = (count, singular) => `${count.toLocaleString("en-US")} ${singular}${count === 1 ? "" : "s"}`;

// Changes only what differs, so that selected text stays selected.
export function setText(place, text) {
  if (place.textContent !== text) {
    place.textContent = text;
  }
}
