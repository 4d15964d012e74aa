// The last log lines, newest first, filtered by camera and level.

const kept = 500;

export class Log {
  #list;
  #camera;
  #level;
  #lines = [];

  constructor(list, camera, level) {
    this.#list = list;
    this.#camera = camera;
    this.#level = level;
    camera.addEventListener("change", () => this.#show());
    level.addEventListener("change", () => this.#show());
  }

  add(lines) {
    const known = new Set(this.#lines.map((line) => line.number));
    this.#lines = [...this.#lines, ...lines.filter((line) => !known.has(line.number))].slice(-kept);
    this.#show();
  }

  setCameras(serials) {
    const known = [...this.#camera.options].map((option) => option.value);
    for (const serial of serials.filter((each) => !known.includes(each))) {
      this.#camera.append(new Option(serial, serial));
    }
  }

  #show() {
    const chosen = this.#lines.filter(
      (line) => line.level <= Number(this.#level.value) &&
        (this.#camera.value === "" || line.camera === this.#camera.value));
    this.#list.replaceChildren(...chosen.reverse().map((line) => this.#item(line)));
  }

  #item(line) {
    const item = document.createElement("li");
    item.className = `level${line.level}`;
    const time = document.createElement("time");
    const when = new Date(line.time_us / 1000);
    time.dateTime = when.toISOString();
    time.textContent = when.toLocaleTimeString();
    item.append(time, ` ${line.camera ? `[${line.camera}] ` : ""}${line.text}`);
    return item;
  }
}
