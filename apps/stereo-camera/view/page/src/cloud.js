// SPDX-License-Identifier: Apache-2.0
// The panel of the cloud: a range picture's points in the colors of the left eye, to be turned by mouse, touch and keys.
import {
  AxesHelper,
  BufferAttribute,
  BufferGeometry,
  ColorManagement,
  Group,
  LineBasicMaterial,
  LineLoop,
  LinearSRGBColorSpace,
  PerspectiveCamera,
  Points,
  PointsMaterial,
  Scene,
  Vector3,
  WebGLRenderer,
} from "three";
import { OrbitControls } from "three/addons/controls/OrbitControls.js";
import { firstReason } from "./message.js";

// Where the view starts: behind and above the camera, looking ahead. Meters; x right, y up, z back.
const start = new Vector3(0, 0.9, 1.3);
const ahead = new Vector3(0, -0.1, -1.2);
const rings_m = [0.5, 1, 2, 5];
// Direction in which the rings are labeled: away from the middle, where one looks.
const labelAngle = Math.PI / 5;
const turn = Math.PI / 36;

export class Cloud {
  count = 0;

  #panel;
  #canvas;
  #isStarted = false;
  #labels;
  #renderer = null;
  #scene;
  #camera;
  #orbit;
  #geometry;
  #rays = null;
  #raysOf = "";
  #due = false;

  constructor(panel) {
    this.#panel = panel;
    this.#canvas = panel.querySelector("canvas");
    panel.querySelector("#reset").addEventListener("click", () => this.#reset());
  }

  // With the first points, since it takes a moment that the first pictures need not wait for.
  #start() {
    this.#isStarted = true;
    const context = this.#canvas.getContext("webgl2", { alpha: false, antialias: false });
    if (!context) {
      this.#panel.querySelector("#no-webgl").hidden = false;
      return;
    }
    ColorManagement.enabled = false; // the picture's colors are shown as they are
    this.#renderer = new WebGLRenderer({ canvas: this.#canvas, context });
    this.#renderer.outputColorSpace = LinearSRGBColorSpace;
    this.#renderer.setClearColor(0x101418);
    this.#camera = new PerspectiveCamera(60, 1, 0.02, 60);
    this.#build();
    this.#orbit = new OrbitControls(this.#camera, this.#canvas);
    this.#orbit.minDistance = 0.05;
    this.#orbit.maxDistance = 25;
    this.#orbit.addEventListener("change", () => this.#ask());
    // The wheel scrolls the page until the cloud is clicked or focused.
    this.#orbit.enableZoom = false;
    const zoom = (on) => () => (this.#orbit.enableZoom = on);
    this.#canvas.addEventListener("pointerdown", zoom(true), { capture: true });
    this.#canvas.addEventListener("focus", zoom(true));
    this.#canvas.addEventListener("blur", zoom(false));
    this.#canvas.addEventListener("keydown", (event) => this.#key(event));
    this.#labels = rings_m.map((meters) => {
      const label = document.createElement("span");
      label.textContent = `${meters} m`;
      label.setAttribute("aria-hidden", "true");
      this.#canvas.after(label);
      return label;
    });
    new ResizeObserver(() => this.#resize()).observe(this.#canvas.parentElement);
    this.#resize();
    this.#reset();
  }

  #build() {
    // The rays' frame has y down and z forward; half a turn about x makes y up and z back.
    const eye = new Group();
    eye.rotation.x = Math.PI;
    this.#geometry = new BufferGeometry();
    const material = new PointsMaterial({ size: 2, sizeAttenuation: false, vertexColors: true });
    const points = new Points(this.#geometry, material);
    points.frustumCulled = false; // spares the search for the points' bounds
    points.visible = false;
    eye.add(points, new AxesHelper(0.15));
    const line = new LineBasicMaterial({ color: 0x5c6b7a, transparent: true, opacity: 0.7 });
    for (const meters of rings_m) {
      const corners = Array.from({ length: 128 }, (_, i) => {
        const angle = (i / 64) * Math.PI;
        return new Vector3(meters * Math.sin(angle), 0, meters * Math.cos(angle));
      });
      eye.add(new LineLoop(new BufferGeometry().setFromPoints(corners), line));
    }
    this.#scene = new Scene();
    this.#scene.add(eye);
  }

  // pixels: the left eye's, red in the lowest byte. wide: from the status.
  update(message, pixels, wide) {
    if (!this.#isStarted) {
      this.#start();
    }
    if (!this.#renderer) {
      return;
    }
    const { range_mm, width, height } = message;
    this.#prepare(width, height, wide);
    const places = this.#geometry.getAttribute("position").array;
    const colors = this.#geometry.getAttribute("color").array;
    const values = new Uint32Array(pixels.data.buffer);
    let count = 0;
    for (let i = 0; i < range_mm.length; ++i) {
      if (range_mm[i] < firstReason) {
        const meters = range_mm[i] / 1000;
        const value = values[i];
        for (let k = 0; k < 3; ++k) {
          places[3 * count + k] = meters * this.#rays[3 * i + k];
          colors[3 * count + k] = value >>> (8 * k);
        }
        ++count;
      }
    }
    for (const name of ["position", "color"]) {
      const attribute = this.#geometry.getAttribute(name);
      attribute.clearUpdateRanges();
      attribute.addUpdateRange(0, 3 * count);
      attribute.needsUpdate = true;
    }
    this.#geometry.setDrawRange(0, count);
    this.#scene.children[0].children[0].visible = count > 0;
    this.count = count;
    this.#ask();
  }

  // Unit rays of all pixels, and room for as many points.
  #prepare(width, height, { horizontal_field, vertical_field }) {
    const geometry = [width, height, horizontal_field, vertical_field].join();
    if (geometry === this.#raysOf) {
      return;
    }
    this.#raysOf = geometry;
    this.#rays = new Float32Array(3 * width * height);
    const radians = Math.PI / 180;
    for (let row = 0, at = 0; row < height; ++row) {
      const latitude = (((row + 0.5 - height / 2) * vertical_field) / height) * radians;
      for (let column = 0; column < width; ++column) {
        const longitude = (((column + 0.5 - width / 2) * horizontal_field) / width) * radians;
        this.#rays[at++] = Math.sin(longitude);
        this.#rays[at++] = Math.cos(longitude) * Math.sin(latitude);
        this.#rays[at++] = Math.cos(longitude) * Math.cos(latitude);
      }
    }
    this.#geometry.dispose();
    this.#geometry.setAttribute("position", new BufferAttribute(new Float32Array(3 * width * height), 3));
    this.#geometry.setAttribute("color", new BufferAttribute(new Uint8Array(3 * width * height), 3, true));
  }

  #reset() {
    if (this.#renderer) {
      this.#camera.position.copy(start);
      this.#orbit.target.copy(ahead);
      this.#orbit.update();
      this.#ask();
    }
  }

  #key(event) {
    const turns = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
    const zooms = { "+": 1 / 1.15, "=": 1 / 1.15, "-": 1.15 };
    if (event.ctrlKey || event.altKey || event.metaKey) {
      return;
    }
    const offset = this.#camera.position.clone().sub(this.#orbit.target);
    if (turns[event.key]) {
      const [across, up] = turns[event.key];
      const side = new Vector3().crossVectors(this.#camera.up, offset).normalize();
      const risen = offset.clone().applyAxisAngle(side, up * turn);
      if (risen.angleTo(this.#camera.up) > turn && risen.angleTo(this.#camera.up) < Math.PI - turn) {
        offset.copy(risen);
      }
      offset.applyAxisAngle(this.#camera.up, across * turn);
    } else if (zooms[event.key]) {
      offset.multiplyScalar(zooms[event.key]);
    } else if (event.key === "Home") {
      event.preventDefault();
      this.#reset();
      return;
    } else {
      return;
    }
    event.preventDefault();
    this.#camera.position.copy(this.#orbit.target).add(offset);
    this.#orbit.update();
  }

  #resize() {
    const { clientWidth: width, clientHeight: height } = this.#canvas.parentElement;
    if (width && height) {
      this.#renderer.setPixelRatio(Math.min(devicePixelRatio, 2));
      this.#renderer.setSize(width, height, false);
      this.#camera.aspect = width / height;
      this.#camera.updateProjectionMatrix();
      this.#ask();
    }
  }

  // Renders once with the next frame of the screen, however often it is asked.
  #ask() {
    if (!this.#due) {
      this.#due = true;
      requestAnimationFrame(() => {
        this.#due = false;
        this.#renderer.render(this.#scene, this.#camera);
        this.#placeLabels();
      });
    }
  }

  #placeLabels() {
    rings_m.forEach((meters, i) => {
      const place = new Vector3(meters * Math.sin(labelAngle), 0, -meters * Math.cos(labelAngle)).project(this.#camera);
      const label = this.#labels[i];
      label.hidden = place.z > 1 || Math.abs(place.x) > 0.95 || Math.abs(place.y) > 0.95;
      label.style.left = `${50 + 50 * place.x}%`;
      label.style.top = `${50 - 50 * place.y}%`;
    });
  }
}
