// SPDX-License-Identifier: Apache-2.0
// The panel of both eyes' pictures.

const viewsOfKind = {
  raw: ["raw-left", "raw-right"],
  rectified: ["left", "right"],
  lonlat: ["lonlat-left", "lonlat-right"],
};

export class Eyes {
  #panel;
  #contexts;

  // chosen: called after another kind of picture was chosen
  constructor(panel, chosen) {
    this.#panel = panel;
    // Takes over decoded pictures without a copy.
    this.#contexts = [...panel.querySelectorAll("canvas")].map((canvas) => canvas.getContext("bitmaprenderer"));
    panel.querySelector(".segments").addEventListener("change", () => {
      for (const context of this.#contexts) {
        context.transferFromImageBitmap(null); // clears what is not the chosen kind
      }
      chosen();
    });
  }

  get kind() {
    return this.#panel.querySelector("input:checked").value;
  }

  set kind(kind) {
    this.#panel.querySelector(`input[value="${kind}"]`).checked = true;
  }

  get views() {
    return viewsOfKind[this.kind];
  }

  // Without a calibration there are raw pictures only.
  offer(views) {
    for (const input of this.#panel.querySelectorAll("input")) {
      input.disabled = !views.includes(viewsOfKind[input.value][0]);
    }
    if (this.#panel.querySelector("input:checked").disabled) {
      this.kind = "raw";
    }
    this.#panel.querySelectorAll("figure").forEach((figure, eye) => {
      for (const link of figure.querySelectorAll("a")) {
        link.dataset.view = this.views[eye];
      }
    });
  }

  draw(message, bitmap) {
    const context = this.#contexts[this.views.indexOf(message.view)];
    fit(context.canvas, bitmap);
    context.transferFromImageBitmap(bitmap);
  }
}

// Gives a canvas the size of a picture, and its parent the ratio for the style sheet.
export function fit(canvas, { width, height }) {
  if (canvas.width !== width || canvas.height !== height) {
    canvas.width = width;
    canvas.height = height;
    canvas.parentElement?.style.setProperty("--ratio", width / height);
  }
}
