// The live picture of one camera with zoom, pan, a pointer and a region, by mouse, touch and keys.

const keyStep = 0.1; // of what is in view
const zoomStep = 1.5;
const widthMax = 4096; // of a picture that the server sends

export class Viewport {
  #canvas;
  #onChange;
  #size = null; // of the camera's image
  #part = null; // what is in view, in pixels of the image
  #bitmap = null;
  #bitmapPart = null;
  #touches = new Map();
  #drag = null;
  tool = "move";
  pointer = null; // [x, y]
  region = null; // [x, y, width, height]

  /** `onChange()` is called when something else is to be sent. */
  constructor(canvas, onChange) {
    this.#canvas = canvas;
    this.#onChange = onChange;
    canvas.addEventListener("pointerdown", (event) => this.#down(event));
    canvas.addEventListener("pointermove", (event) => this.#move(event));
    for (const name of ["pointerup", "pointercancel"]) {
      canvas.addEventListener(name, (event) => this.#up(event));
    }
    canvas.addEventListener("wheel", (event) => this.#wheel(event), { passive: false });
    canvas.addEventListener("keydown", (event) => this.#key(event));
  }

  reset() {
    this.#size = this.#part = this.#bitmap = this.#bitmapPart = this.pointer = this.region = null;
    this.#canvas.getContext("2d").clearRect(0, 0, this.#canvas.width, this.#canvas.height);
    delete this.#canvas.dataset.frame;
  }

  /** The part of a view that the server needs: never more pixels than the canvas shows. */
  view() {
    const view = { width: this.#screenWidth() };
    if (this.#part && !this.#isWhole()) {
      view.part = this.#roundedPart();
    }
    if (this.pointer) {
      view.pointer = this.pointer;
    }
    if (this.region) {
      view.focus = this.region;
    }
    return view;
  }

  draw(head, bitmap) {
    const isNewSize = !this.#size || this.#size.width !== head.width || this.#size.height !== head.height;
    if (isNewSize) {
      this.#size = { width: head.width, height: head.height };
      this.#part = { x: 0, y: 0, width: head.width, height: head.height };
    }
    this.#bitmap = bitmap;
    this.#bitmapPart = head.part;
    this.#canvas.dataset.frame = head.frame;
    this.#paint();
  }

  zoom(how) {
    if (!this.#size) {
      return;
    }
    const whole = this.#size.width;
    const widths = {
      fit: whole,
      real: this.#screenWidth(),
      in: this.#part.width / zoomStep,
      out: this.#part.width * zoomStep,
    };
    this.#zoomTo(widths[how], this.#part.x + this.#part.width / 2, this.#part.y + this.#part.height / 2);
  }

  // Pixels of the screen across the canvas.
  #screenWidth() {
    return Math.min(Math.max(64, Math.round(this.#canvas.clientWidth * devicePixelRatio)), widthMax);
  }

  // One pixel of the canvas for each of the screen: the browser scales nothing.
  #fitToScreen() {
    const width = this.#screenWidth();
    if (this.#canvas.width !== width) {
      this.#canvas.width = width;
    }
    const height = Math.round((width * this.#size.height) / this.#size.width);
    if (this.#canvas.height !== height) {
      this.#canvas.height = height;
    }
  }

  #isWhole() {
    return this.#part.width >= this.#size.width;
  }

  #roundedPart() {
    const x = Math.floor(this.#part.x);
    const y = Math.floor(this.#part.y);
    return [x, y, Math.min(Math.ceil(this.#part.width) + 1, this.#size.width - x),
            Math.min(Math.ceil(this.#part.height) + 1, this.#size.height - y)];
  }

  // Makes so many pixels of the image fill the width, with this pixel where it is.
  #zoomTo(width, x, y) {
    const wanted = Math.min(Math.max(width, 16), this.#size.width);
    const scale = wanted / this.#part.width;
    this.#part = {
      x: x - (x - this.#part.x) * scale,
      y: y - (y - this.#part.y) * scale,
      width: wanted,
      height: (wanted * this.#size.height) / this.#size.width,
    };
    this.#settle();
  }

  #pan(dx, dy) {
    this.#part.x += dx;
    this.#part.y += dy;
    this.#settle();
  }

  #settle() {
    this.#part.x = Math.min(Math.max(this.#part.x, 0), this.#size.width - this.#part.width);
    this.#part.y = Math.min(Math.max(this.#part.y, 0), this.#size.height - this.#part.height);
    this.#paint();
    this.#onChange();
  }

  #paint() {
    this.#fitToScreen();
    const context = this.#canvas.getContext("2d");
    const scale = this.#canvas.width / this.#part.width;
    const [x, y, width, height] = this.#bitmapPart;
    context.clearRect(0, 0, this.#canvas.width, this.#canvas.height);
    context.imageSmoothingEnabled = scale < 1;
    context.drawImage(this.#bitmap, (x - this.#part.x) * scale, (y - this.#part.y) * scale, width * scale,
                      height * scale);
    if (this.region) {
      this.#frame(context, scale);
    }
    if (this.pointer && this.tool === "point") {
      this.#cross(context, scale);
    }
  }

  #frame(context, scale) {
    const [x, y, width, height] = this.region;
    context.lineWidth = Math.max(2, this.#canvas.width / 400);
    context.strokeStyle = "#ffb000";
    context.strokeRect((x - this.#part.x) * scale, (y - this.#part.y) * scale, width * scale, height * scale);
  }

  #cross(context, scale) {
    const x = (this.pointer[0] + 0.5 - this.#part.x) * scale;
    const y = (this.pointer[1] + 0.5 - this.#part.y) * scale;
    context.lineWidth = Math.max(1, this.#canvas.width / 800);
    context.strokeStyle = "#ffb000";
    context.beginPath();
    context.moveTo(x, 0);
    context.lineTo(x, this.#canvas.height);
    context.moveTo(0, y);
    context.lineTo(this.#canvas.width, y);
    context.stroke();
  }

  // Where an event is, in pixels of the image.
  #place(event) {
    const box = this.#canvas.getBoundingClientRect();
    return {
      x: this.#part.x + ((event.clientX - box.left) / box.width) * this.#part.width,
      y: this.#part.y + ((event.clientY - box.top) / box.height) * this.#part.height,
    };
  }

  #inside(x, y) {
    return [Math.min(Math.max(Math.floor(x), 0), this.#size.width - 1),
            Math.min(Math.max(Math.floor(y), 0), this.#size.height - 1)];
  }

  #down(event) {
    if (!this.#size) {
      return;
    }
    this.#canvas.setPointerCapture(event.pointerId);
    this.#touches.set(event.pointerId, event);
    this.#drag = this.#place(event);
  }

  #move(event) {
    if (!this.#size) {
      return;
    }
    const before = this.#touches.get(event.pointerId);
    const place = this.#place(event);
    this.pointer = this.#inside(place.x, place.y);
    if (before) {
      this.#touches.set(event.pointerId, event);
    }
    if (this.#touches.size === 2) {
      this.#pinch(event, before);
    } else if (before && this.tool === "region") {
      this.#drawRegion(place);
    } else if (before) {
      this.#pan(this.#drag.x - place.x, this.#drag.y - place.y);
    }
    this.#onChange();
  }

  #up(event) {
    this.#touches.delete(event.pointerId);
    this.#drag = null;
  }

  #pinch(event, before) {
    const [other] = [...this.#touches.values()].filter((each) => each.pointerId !== event.pointerId);
    const distance = (one) => Math.hypot(one.clientX - other.clientX, one.clientY - other.clientY);
    const middle = this.#place(other);
    this.#zoomTo((this.#part.width * distance(before)) / Math.max(distance(event), 1), middle.x, middle.y);
  }

  #drawRegion(place) {
    const [x1, y1] = this.#inside(Math.min(this.#drag.x, place.x), Math.min(this.#drag.y, place.y));
    const [x2, y2] = this.#inside(Math.max(this.#drag.x, place.x), Math.max(this.#drag.y, place.y));
    this.region = [x1, y1, x2 - x1 + 1, y2 - y1 + 1];
    this.#paint();
  }

  #wheel(event) {
    if (this.#size) {
      event.preventDefault();
      const place = this.#place(event);
      this.#zoomTo(this.#part.width * (event.deltaY > 0 ? zoomStep : 1 / zoomStep), place.x, place.y);
    }
  }

  #key(event) {
    const zooms = { "+": "in", "=": "in", "-": "out", 0: "fit", 1: "real" };
    const arrows = { ArrowLeft: [-1, 0], ArrowRight: [1, 0], ArrowUp: [0, -1], ArrowDown: [0, 1] };
    if (!this.#size || event.ctrlKey || event.altKey || event.metaKey) {
      return;
    }
    if (zooms[event.key]) {
      this.zoom(zooms[event.key]);
    } else if (arrows[event.key]) {
      this.#arrow(...arrows[event.key], event.shiftKey);
    } else {
      return;
    }
    event.preventDefault();
  }

  #arrow(dx, dy, isShifted) {
    const step = Math.max(1, Math.round(this.#part.width * keyStep * (this.tool === "point" ? 0.1 : 1)));
    if (this.tool === "move") {
      this.#pan(dx * step, dy * step);
      return;
    }
    const middle = [this.#part.x + this.#part.width / 2, this.#part.y + this.#part.height / 2];
    if (this.tool === "point") {
      const [x, y] = this.pointer ?? middle;
      this.pointer = this.#inside(x + dx * step, y + dy * step);
    } else {
      this.#moveRegion(dx * step, dy * step, isShifted, middle);
    }
    this.#paint();
    this.#onChange();
  }

  #moveRegion(dx, dy, isShifted, middle) {
    const side = Math.round(this.#part.width / 4);
    const [x, y, width, height] = this.region ?? [middle[0] - side / 2, middle[1] - side / 2, side, side];
    const [w, h] = isShifted ? [Math.max(8, width + dx), Math.max(8, height + dy)] : [width, height];
    const [left, top] = isShifted ? this.#inside(x, y) : this.#inside(x + dx, y + dy);
    this.region = [left, top, Math.min(w, this.#size.width - left), Math.min(h, this.#size.height - top)];
  }
}
