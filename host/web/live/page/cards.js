// One card for each camera.

import { fixed, milliseconds, short } from "./format.js";

const figures = [
  ["Rate", (camera) => fixed(camera.rate_hz, 1, " /s")],
  ["Missed", (camera) => String(camera.missed)],
  ["Longest gap", (camera) => milliseconds(camera.longest_gap_us)],
  ["Temperature", (camera) => fixed(camera.temperature_c, 1, " °C")],
  ["Exposure", (camera) => (camera.exposure_us === null ? "-" : `${short(camera.exposure_us)} µs`)],
  ["Gain", (camera) => fixed(camera.gain_db, 1, " dB")],
  ["IR", (camera) => infrared(camera)],
  ["Recorded", (camera) => (camera.recorded === null ? "off" : String(camera.recorded))],
  ["Dropped", (camera) => (camera.dropped === null ? "-" : String(camera.dropped))],
];

function infrared(camera) {
  const level = camera.controls.find((control) => control.key === "ir_level");
  return level ? (level.in_force > 0 ? `on (${level.in_force})` : "off") : "none";
}

export class Cards {
  #place;
  #open;
  #onVisible;
  #cards = new Map();
  #visible = new Set();
  #observer;

  /** `open(serial)` is called for the card that was chosen, `onVisible()` when others came into view. */
  constructor(place, open, onVisible) {
    this.#place = place;
    this.#open = open;
    this.#onVisible = onVisible;
    this.#observer = new IntersectionObserver((entries) => {
      for (const entry of entries) {
        this.#visible[entry.isIntersecting ? "add" : "delete"](entry.target.dataset.camera);
      }
      this.#onVisible();
    });
  }

  update(cameras) {
    for (const camera of cameras) {
      const card = this.#cards.get(camera.camera) ?? this.#add(camera.camera);
      card.words.textContent = camera.words;
      card.words.className = `words ${camera.state}`;
      figures.forEach(([, text], at) => (card.values[at].textContent = text(camera)));
    }
    for (const [serial, card] of this.#cards) {
      if (!cameras.some((camera) => camera.camera === serial)) {
        this.#observer.unobserve(card.element);
        card.element.remove();
        this.#cards.delete(serial);
        this.#visible.delete(serial);
      }
    }
  }

  draw(head, bitmap) {
    const canvas = this.#cards.get(head.camera)?.canvas;
    if (canvas) {
      canvas.width = bitmap.width;
      canvas.height = bitmap.height;
      canvas.getContext("2d").drawImage(bitmap, 0, 0);
      canvas.dataset.frame = head.frame;
    }
  }

  /** What the server is to send for the cards in view. */
  views() {
    return [...this.#visible]
      .filter((serial) => this.#cards.has(serial))
      .map((serial) => {
        const width = this.#cards.get(serial).canvas.clientWidth * Math.min(devicePixelRatio, 2);
        return { camera: serial, width: Math.max(64, Math.round(width)) };
      });
  }

  focus(serial) {
    this.#cards.get(serial)?.button.focus();
  }

  #add(serial) {
    const element = document.createElement("article");
    element.className = "card";
    element.dataset.camera = serial;
    const button = document.createElement("button");
    button.type = "button";
    button.textContent = serial;
    button.setAttribute("aria-label", `Open camera ${serial}`);
    button.addEventListener("click", () => this.#open(serial));
    const title = document.createElement("h2");
    title.append(button);
    const canvas = document.createElement("canvas");
    canvas.width = 320;
    canvas.height = 240;
    canvas.setAttribute("role", "img");
    canvas.setAttribute("aria-label", `Live picture of camera ${serial}`);
    canvas.addEventListener("click", () => this.#open(serial));
    const words = document.createElement("p");
    const list = document.createElement("dl");
    list.className = "figures";
    const values = figures.map(([name]) => {
      const pair = document.createElement("div");
      const term = document.createElement("dt");
      term.textContent = name;
      const value = document.createElement("dd");
      pair.append(term, value);
      list.append(pair);
      return value;
    });
    element.append(title, canvas, words, list);
    this.#place.append(element);
    const card = { element, button, canvas, words, values };
    this.#cards.set(serial, card);
    this.#observer.observe(element);
    return card;
  }
}
