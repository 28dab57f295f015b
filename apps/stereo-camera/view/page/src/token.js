// SPDX-License-Identifier: Apache-2.0
// The token of the link that the program printed. It is kept for this tab only and leaves the address bar at once.

const key = "stereo-camera.token";

export function takeToken() {
  const found = /[#&]token=([\w.~-]+)/.exec(location.hash);
  try {
    if (found) {
      sessionStorage.setItem(key, found[1]);
    }
    return found ? found[1] : (sessionStorage.getItem(key) ?? "");
  } catch {
    return found ? found[1] : ""; // storage is switched off
  } finally {
    if (found) {
      history.replaceState(null, "", location.pathname + location.search);
    }
  }
}
