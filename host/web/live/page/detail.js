// One camera in the whole width: picture, figures, settings, plots.

import { cameraPath, get, post } from "./api.js";
import { Controls, showEntries } from "./controls.js";
import { fixed, percent } from "./format.js";
import { Plots } from "./plots.js";
import { Viewport } from "./viewport.js";

const byId = (id) => document.getElementById(id);

function download(blob, name) {
  const link = document.createElement("a");
  link.href = URL.createObjectURL(blob);
  link.download = name;
  link.click();
  setTimeout(() => URL.revokeObjectURL(link.href), 10000);
}

export class Detail {
  serial = null;
  #viewport;
  #controls;
  #plots;
  #onChange;
  #mayChange = false;
  #camera = null;
  #sharpest = null; // { region, value }

  /** `onChange()` when other pictures are wanted, `onClose()` for the way back. */
  constructor(onChange, onClose) {
    this.#onChange = onChange;
    this.#viewport = new Viewport(byId("picture"), onChange);
    this.#controls = new Controls(byId("controls"), () => this.#enable());
    this.#plots = new Plots({ histogram: byId("histogram"), means: byId("means"), intervals: byId("intervals") });
    byId("close").addEventListener("click", onClose);
    for (const button of document.querySelectorAll("[data-zoom]")) {
      button.addEventListener("click", () => this.#viewport.zoom(button.dataset.zoom));
    }
    for (const radio of document.querySelectorAll("[name=tool]")) {
      radio.addEventListener("change", () => (this.#viewport.tool = radio.value));
    }
    byId("clipping").addEventListener("change", onChange);
    byId("sharpest-again").addEventListener("click", () => (this.#sharpest = null));
    byId("take").addEventListener("click", () => this.#try(() => this.#take()));
    byId("keep").addEventListener("click", () => this.#try(() => this.#keep()));
    byId("controls").addEventListener("submit", (event) => {
      event.preventDefault();
      this.#try(() => this.#apply());
    });
    for (const command of ["undo", "configuration", "resume"]) {
      byId(command).addEventListener("click", () => this.#try(() => this.#post(`/${command}`, {})));
    }
  }

  open(serial) {
    this.serial = serial;
    this.#sharpest = null;
    this.#viewport.reset();
    this.#controls.clear();
    byId("detail").hidden = false;
    byId("kept").hidden = true;
    byId("refusal").textContent = "";
    byId("detail-title").textContent = serial;
    byId("detail-title").focus();
    this.#plots.reset();
  }

  close() {
    this.serial = null;
    byId("detail").hidden = true;
  }

  /** After the colours changed. */
  repaint() {
    if (this.serial) {
      this.#plots.reset();
    }
  }

  views() {
    return [{ camera: this.serial, details: true, clipping: byId("clipping").checked, ...this.#viewport.view() }];
  }

  update(camera, mayChange) {
    this.#camera = camera;
    this.#mayChange = mayChange;
    byId("detail-words").textContent =
      `${camera.words}; ${fixed(camera.rate_hz, 1)} frames/s, ${camera.missed} missed, ` +
      `${fixed(camera.temperature_c, 1)} °C`;
    byId("detail-words").className = `words ${camera.state}`;
    this.#controls.update(camera.controls, mayChange);
    byId("held").hidden = !camera.sweeps_held;
    showEntries(byId("entries"), camera.entries);
    this.#plots.showIntervals(camera.camera);
    this.#enable();
  }

  addMean(head) {
    this.#plots.addMean(head);
  }

  addArrivals(news) {
    this.#plots.addArrivals(news);
  }

  draw(head, bitmap) {
    this.#viewport.draw(head, bitmap);
    this.#plots.showPicture(head);
    byId("frame").textContent = head.frame;
    byId("mean").textContent = fixed(head.mean, 1);
    byId("black").textContent = percent(head.black);
    byId("white").textContent = percent(head.white);
    byId("pointer").textContent = head.pointer ? `(${head.pointer[0]}, ${head.pointer[1]}): ${head.pointer[2]}` : "-";
    this.#showSharpness(head);
  }

  #showSharpness(head) {
    byId("sharpest-again").hidden = head.sharpness === undefined;
    if (head.sharpness === undefined) {
      return;
    }
    const region = head.focus.join();
    if (this.#sharpest?.region !== region) {
      this.#sharpest = { region, value: 0 };
    }
    this.#sharpest.value = Math.max(this.#sharpest.value, head.sharpness);
    byId("sharpness").textContent = head.sharpness.toPrecision(3);
    byId("sharpest").textContent = this.#sharpest.value.toPrecision(3);
  }

  #enable() {
    const isEdited = Object.keys(this.#controls.edited()).length > 0;
    byId("apply").disabled = !this.#mayChange || !isEdited;
    byId("undo").disabled = !this.#mayChange || !this.#camera?.can_undo;
    byId("configuration").disabled = byId("resume").disabled = !this.#mayChange;
  }

  async #try(action) {
    byId("refusal").textContent = "";
    try {
      await action();
    } catch (error) {
      byId("refusal").textContent = error.message;
    }
  }

  async #apply() {
    await this.#post("/settings", this.#controls.edited());
    this.#controls.accept();
  }

  #post(what, body) {
    return post(cameraPath(this.serial, what), { ...body, by: byId("name").value });
  }

  async #take() {
    const response = await get(cameraPath(this.serial, "/picture"));
    const [, name] = /filename="(.*)"/.exec(response.headers.get("Content-Disposition"));
    download(await response.blob(), name);
  }

  async #keep() {
    const text = await (await get(cameraPath(this.serial, "/keep"))).text();
    byId("kept").hidden = false;
    byId("kept-text").value = text;
    byId("kept-link").href = URL.createObjectURL(new Blob([text], { type: "application/toml" }));
    byId("kept-link").download = `${this.serial.replace(/[^\w-]/g, "_")}.toml`;
    byId("kept-text").focus();
    byId("kept-text").select();
  }
}
