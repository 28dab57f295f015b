// SPDX-License-Identifier: Apache-2.0
// The socket to the server. It reconnects by itself and restores what was watched.
import { parseMessage } from "./message.js";

const firstPause_ms = 200;
const longestPause_ms = 3000;
// The server answers at once and sends its status about every second. When nothing comes for so long, the network has lost
// the connection.
const silence_ms = 5000;
// With this code a server that has too many viewers closes a socket.
const tryAgainLater = 1013;
const unauthorized = 401;

export class Connection {
  // connecting, open, lost, full (too many viewers) or refused (the server wants a token); all but open: trying again
  state = "connecting";
  // Whether the server turned the token down, as after it was started again.
  tokenRefused = false;

  #on;
  #token = "";
  #socket = null;
  #wanted = "";
  #pause_ms = firstPause_ms;
  #timer = 0;
  #attempt = null;
  #heard_ms = 0;

  // on: {state() when there is no connection, status(object), picture(message)}. Each picture must be acknowledged.
  constructor(on) {
    this.#on = on;
    setInterval(() => {
      if (this.#socket && performance.now() - this.#heard_ms > silence_ms) {
        this.#lose("lost");
      }
    }, 1000);
  }

  get usableToken() {
    return this.tokenRefused ? "" : this.#token;
  }

  open(token) {
    this.#token = token;
    this.tokenRefused = false;
    this.#drop();
    this.#connect();
  }

  watch(camera, views) {
    const wanted = camera ? `watch ${camera} ${views.join(",")}`.trim() : "";
    if (wanted && wanted !== this.#wanted && this.#socket?.readyState === WebSocket.OPEN) {
      this.#wanted = wanted;
      this.#socket.send(wanted);
    }
  }

  #connect() {
    const address = new URL("socket", location.href);
    address.protocol = address.protocol.replace("http", "ws");
    const token = this.usableToken;
    const socket = new WebSocket(address, ["stereo-camera.1", ...(token ? [`token.${token}`] : [])]);
    socket.binaryType = "arraybuffer";
    this.#socket = socket;
    this.#heard_ms = performance.now();
    socket.onopen = () => {
      this.#wanted = ""; // the first status brings it up again, with the cameras that there are now
    };
    socket.onmessage = ({ data }) => {
      this.#heard_ms = performance.now();
      if (typeof data === "string") {
        this.#pause_ms = firstPause_ms;
        this.state = "open";
        this.#on.status(JSON.parse(data));
      } else {
        const message = parseMessage(data);
        message.socket = socket; // numbers count up on one socket
        message.acknowledge = () => {
          if (socket.readyState === WebSocket.OPEN) {
            socket.send(`ack ${message.number}`);
          }
        };
        this.#on.picture(message);
      }
    };
    socket.onclose = ({ code }) => {
      this.#lose(code === tryAgainLater ? "full" : this.state === "connecting" ? "connecting" : "lost");
    };
  }

  #lose(state) {
    this.#drop();
    this.#become(state);
    this.#again();
  }

  #again() {
    this.#timer = setTimeout(() => this.#retry(), this.#pause_ms);
    this.#pause_ms = Math.min(2 * this.#pause_ms, longestPause_ms);
  }

  // Asks for the status before it opens a socket: scripts are not told why a socket fails, and Firefox waits longer and longer
  // with sockets to a server where some failed.
  async #retry() {
    const attempt = {};
    this.#attempt = attempt;
    let code = await statusCode(this.#token);
    const tokenRefused = code === unauthorized && this.#token !== "";
    if (tokenRefused) {
      code = await statusCode(""); // without it there may be something to see
    }
    if (attempt !== this.#attempt) {
      return; // meanwhile opened with another token
    }
    this.tokenRefused = tokenRefused;
    if (code === 0 || code === unauthorized) {
      this.#become(code === 0 ? "lost" : "refused");
      this.#again();
    } else {
      this.#connect();
    }
  }

  // Leaves a socket without waiting for its end: one that the network has lost ends late.
  #drop() {
    clearTimeout(this.#timer);
    this.#attempt = null;
    if (this.#socket) {
      this.#socket.onopen = this.#socket.onmessage = this.#socket.onclose = null;
      this.#socket.close();
      this.#socket = null;
    }
  }

  #become(state) {
    this.state = state;
    this.#on.state();
  }
}

// Code of the answer to a request for the status; 0: the server is away.
async function statusCode(token) {
  try {
    const headers = token ? { Authorization: `Bearer ${token}` } : {};
    const signal = AbortSignal.timeout(silence_ms);
    return (await fetch("health", { headers, signal, cache: "no-store" })).status;
  } catch {
    return 0;
  }
}
