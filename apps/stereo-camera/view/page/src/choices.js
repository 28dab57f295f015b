// SPDX-License-Identifier: Apache-2.0
// What the user chose to see, kept between visits.

const key = "stereo-camera.choices";

export function loadChoices() {
  try {
    return JSON.parse(localStorage.getItem(key)) ?? {};
  } catch {
    return {}; // storage is switched off, or holds something else
  }
}

export function saveChoices(choices) {
  try {
    localStorage.setItem(key, JSON.stringify(choices));
  } catch {
    // The choices last as long as the page.
  }
}
