// The settings of an open camera, a slider and an exact entry each, and the entries that were applied.

import { milliseconds, short } from "./format.js";

const sliderSteps = 1000;
const names = { exposure_us: "Exposure", gain_db: "Gain", gamma: "Gamma", ir_level: "IR level" };

/** Where a slider stands for a value, and back: 0 to 1000 between the limits. Exposure is logarithmic; IR is off or on. */
export function scaleOf(control) {
  if (control.key === "ir_level") {
    return { steps: 1, at: (value) => (value > 0 ? 1 : 0), value: (at) => at };
  }
  const { min, max } = control;
  if (control.key === "exposure_us" && min > 0) {
    const ratio = Math.log(max / min);
    return {
      steps: sliderSteps,
      at: (value) => (Math.log(Math.max(value, min) / min) / ratio) * sliderSteps,
      value: (at) => roundedWithin(control, min * Math.exp((at / sliderSteps) * ratio)),
    };
  }
  return {
    steps: sliderSteps,
    at: (value) => ((value - min) / (max - min)) * sliderSteps,
    value: (at) => roundedWithin(control, min + (at / sliderSteps) * (max - min)),
  };
}

function unitOf(control) {
  return control.unit.replace("us", "µs");
}

// Three digits: a slider can't be set more exactly. A limit of 24.08 is not rounded to 24.1, which would be refused.
function roundedWithin({ min, max }, value) {
  return Math.min(max, Math.max(min, Number(value.toPrecision(3))));
}

export class Controls {
  #form;
  #onEdit;
  #rows = new Map();

  constructor(form, onEdit) {
    this.#form = form;
    this.#onEdit = onEdit;
  }

  clear() {
    this.#form.textContent = "";
    this.#rows.clear();
  }

  /** Shows the values in force, except where an edit is not applied yet. */
  update(controls, mayChange) {
    for (const control of controls) {
      const row = this.#rows.get(control.key) ?? this.#add(control);
      if (row.limits.dataset.limits !== `${control.min} ${control.max}`) {
        this.#setLimits(row, control);
      }
      for (const input of [row.slider, row.entry]) {
        input.disabled = !mayChange;
      }
      const configured = control.configured === null ? "left out" : short(control.configured);
      row.limits.textContent =
        `now ${short(control.in_force)}, configured ${configured}; ${control.limits} limits ` +
        `${short(control.min)} to ${short(control.max)} ${unitOf(control)}`;
      if (!row.isEdited && control.in_force !== null) {
        row.entry.value = short(control.in_force);
        row.slider.value = row.scale.at(control.in_force);
      }
    }
  }

  /** What was edited, by key. */
  edited() {
    return Object.fromEntries(
      [...this.#rows].filter(([, row]) => row.isEdited && row.entry.value !== "")
        .map(([key, row]) => [key, Number(row.entry.value)]));
  }

  accept() {
    for (const row of this.#rows.values()) {
      this.#mark(row, false);
    }
  }

  #mark(row, isEdited) {
    row.isEdited = isEdited;
    row.element.classList.toggle("edited", isEdited);
    this.#onEdit();
  }

  #setLimits(row, control) {
    row.scale = scaleOf(control);
    row.slider.max = row.scale.steps;
    row.limits.dataset.limits = `${control.min} ${control.max}`;
  }

  #add(control) {
    const element = document.createElement("div");
    element.className = "control";
    const label = document.createElement("label");
    label.textContent = names[control.key] + (control.unit ? `, ${unitOf(control)}` : "");
    label.htmlFor = `entry-${control.key}`;
    const slider = document.createElement("input");
    slider.type = "range";
    slider.min = 0;
    slider.step = 1;
    slider.id = `slider-${control.key}`;
    slider.setAttribute("aria-label", `${names[control.key]}, slider`);
    const entry = document.createElement("input");
    entry.type = "number";
    entry.step = "any";
    entry.id = `entry-${control.key}`;
    const limits = document.createElement("span");
    limits.className = "limits";
    limits.id = `limits-${control.key}`;
    entry.setAttribute("aria-describedby", limits.id);
    element.append(label, entry, slider, limits);
    slider.style.gridColumn = "1 / -1";
    const row = { element, slider, entry, limits, isEdited: false, scale: null };
    this.#setLimits(row, control);
    slider.addEventListener("input", () => {
      entry.value = row.scale.value(Number(slider.value));
      slider.setAttribute("aria-valuetext", `${entry.value} ${control.unit}`);
      this.#mark(row, true);
    });
    entry.addEventListener("input", () => {
      slider.value = row.scale.at(Number(entry.value));
      this.#mark(row, true);
    });
    this.#rows.set(control.key, row);
    this.#form.append(element);
    return row;
  }
}

/** What became of an entry of the queue, in words. */
export function entryWords(entry) {
  const parts = [];
  if (entry.state === "waiting") {
    parts.push("waiting for the next frame");
  }
  if (entry.before_frame !== null) {
    parts.push(`applied before frame ${entry.before_frame}`);
  }
  if (entry.read_back_frame !== null) {
    parts.push(`read back with frame ${entry.read_back_frame}`);
  }
  if (entry.gap_us !== null) {
    parts.push(`longest gap ${milliseconds(entry.gap_us)}`);
  }
  if (entry.refusal) {
    parts.push(`refused: ${entry.refusal}`);
  }
  return `${entry.settings}, by ${entry.by}: ${parts.join(", ")}`;
}

/** The list of entries, newest first. It is only touched where it differs, for those who hear it read. */
export function showEntries(list, entries) {
  const wanted = [...entries].reverse().map((entry) => ({ words: entryWords(entry), state: entry.state }));
  while (list.children.length > wanted.length) {
    list.lastChild.remove();
  }
  wanted.forEach(({ words, state }, at) => {
    const item = list.children[at] ?? list.appendChild(document.createElement("li"));
    if (item.textContent !== words) {
      item.textContent = words;
      item.className = state;
    }
  });
}
