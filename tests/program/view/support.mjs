// SPDX-License-Identifier: Apache-2.0
// What the browser tests are made of: checks, waits, the program under test, and browsers that reach nothing but loopback.
import { spawn, spawnSync } from "node:child_process";
import { mkdtempSync, rmSync, writeFileSync } from "node:fs";
import { createRequire } from "node:module";
import { networkInterfaces, tmpdir } from "node:os";
import { dirname, join, resolve } from "node:path";
import { fileURLToPath } from "node:url";

export const root = resolve(dirname(fileURLToPath(import.meta.url)), "../../..");
export const packages = createRequire(join(root, "apps/stereo-camera/view/page/package.json"));

// Generous: a loaded machine may take long. Nothing waits so long when all is well.
const patience_ms = 60_000;

// Runs this process again in a network of its own, if it has any other than loopback. Returns only where there is none.
export function requireOwnNetwork() {
  const outside = Object.values(networkInterfaces()).some((addresses) => addresses.some(({ internal }) => !internal));
  if (outside) {
    const command = [process.execPath, ...process.argv.slice(1)];
    process.exit(spawnSync(join(root, "scripts/in-own-network"), command, { stdio: "inherit" }).status ?? 1);
  }
}

export class Checks {
  #count = 0;
  #failed = 0;

  // Runs a check. One that fails does not keep the next from running.
  async run(name, check) {
    const start = performance.now();
    let fault = "";
    try {
      await check();
    } catch (error) {
      fault = `${error.stack ?? error}`;
      ++this.#failed;
    }
    const took = `${((performance.now() - start) / 1000).toFixed(1)} s`;
    console.log(`${fault ? "not ok" : "ok"} ${++this.#count} - ${name} # ${took}`);
    if (fault) {
      console.log(fault.replace(/^/gm, "#   "));
    }
  }

  // Prints the plan; true if all went well.
  finish() {
    console.log(`1..${this.#count}`);
    return this.#failed === 0 && this.#count > 0;
  }
}

export function require(condition, message) {
  if (!condition) {
    throw new Error(message);
  }
}

// Waits until a function, evaluated in the page, returns something true, and returns that.
export async function until(page, what, condition, ...values) {
  try {
    const handle = await page.waitForFunction(condition, { timeout: patience_ms, polling: 50 }, ...values);
    return await handle.jsonValue();
  } catch (error) {
    throw new Error(`waited in vain: ${what} (${error.message})`);
  }
}

export function temporaryFolder() {
  const folder = mkdtempSync(join(tmpdir(), "stereo-camera-view-"));
  process.on("exit", () => rmSync(folder, { recursive: true, force: true, maxRetries: 5 }));
  return folder;
}

// The program's live view. `start` resolves with the link that it prints.
export class Program {
  static #running = new Set();

  #process;
  #output = "";

  static async start(file, parameters, folder) {
    const program = new Program();
    program.startedAt_ms = Date.now();
    program.#process = spawn(resolve(file), ["view", "--simulate", ...parameters], { cwd: folder });
    Program.#running.add(program);
    const link = new Promise((found, missed) => {
      const read = (text) => {
        program.#output += text;
        const match = /http:\/\/127\.0\.0\.1:(\d+)\/#token=\S+/.exec(program.#output);
        if (match) {
          program.printedAt_ms ??= Date.now();
          found({ link: match[0], port: match[1], address: match[0].split("#")[0] });
        }
      };
      program.#process.stdout.on("data", read);
      program.#process.stderr.on("data", read);
      program.ended = new Promise((ended) => {
        program.#process.on("error", (error) => missed(error));
        program.#process.on("exit", (code, signal) => {
          Program.#running.delete(program);
          missed(new Error(`the program ended (${code ?? signal}):\n${program.#output}`));
          ended(code ?? signal);
        });
      });
      setTimeout(() => missed(new Error(`the program printed no link:\n${program.#output}`)), patience_ms).unref();
    });
    return Object.assign(program, await link);
  }

  async end(signal) {
    this.#process.kill(signal);
    return this.ended;
  }

  static killAll() {
    for (const program of Program.#running) {
      program.#process.kill("SIGKILL");
    }
  }
}

const chromiumFlags = [
  "--no-sandbox",
  "--disable-quic",
  "--no-first-run",
  "--disable-background-networking",
  "--disable-component-update",
  "--disable-sync",
  // WebGL without a graphics card
  "--use-angle=swiftshader",
  "--enable-unsafe-swiftshader",
];

const firefoxPreferences = {
  "app.normandy.enabled": false,
  "app.update.enabled": false,
  "browser.safebrowsing.downloads.enabled": false,
  "browser.safebrowsing.malware.enabled": false,
  "browser.safebrowsing.phishing.enabled": false,
  "datareporting.healthreport.uploadEnabled": false,
  "datareporting.policy.dataSubmissionEnabled": false,
  "network.captive-portal-service.enabled": false,
  "network.connectivity-service.enabled": false,
  "network.prefetch-next": false,
  "services.settings.server": "http://127.0.0.1:9/",
  "toolkit.telemetry.enabled": false,
  "toolkit.telemetry.unified": false,
  // WebGL without a graphics card
  "webgl.force-enabled": true,
};

// A screen without a machine's display: Firefox has no WebGL without one. Empty if Xvfb is not installed.
async function virtualScreen() {
  const parameters = ["-displayfd", "3", "-screen", "0", "1600x1200x24", "-nolisten", "tcp"];
  const server = spawn("Xvfb", parameters, { stdio: ["ignore", "ignore", "ignore", "pipe"] });
  process.on("exit", () => server.kill());
  return new Promise((found) => {
    server.on("error", () => found(""));
    server.on("exit", () => found(""));
    let text = "";
    server.stdio[3]?.on("data", (more) => {
      text += more;
      if (text.endsWith("\n")) {
        found(`:${text.trim()}`);
      }
    });
  });
}

export async function launchBrowser(name) {
  const puppeteer = packages("puppeteer-core");
  const common = { headless: true, timeout: patience_ms, protocolTimeout: 2 * patience_ms };
  const screen = name === "firefox" ? await virtualScreen() : "";
  return name === "firefox"
    ? puppeteer.launch({
        ...common,
        browser: "firefox",
        executablePath: "/usr/bin/firefox-esr",
        userDataDir: temporaryFolder(),
        extraPrefsFirefox: firefoxPreferences,
        headless: !screen,
        env: { ...process.env, ...(screen && { DISPLAY: screen }) },
      })
    : puppeteer.launch({
        ...common,
        executablePath: "/usr/bin/chromium",
        userDataDir: temporaryFolder(),
        args: chromiumFlags,
      });
}

// Writes a screenshot of the page, or of an element on it, and returns its bytes.
export async function screenshot(target, folder, name, options = {}) {
  const bytes = await target.screenshot({ type: "png", ...options });
  writeFileSync(join(folder, `${name}.png`), bytes);
  return bytes;
}
