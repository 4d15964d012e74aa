// The three plots of an open camera.

const height = 170;
const minuteS = 60;
const meansKept = 3000;

function colour(name) {
  return getComputedStyle(document.documentElement).getPropertyValue(name).trim();
}

function makePlot(place, series, scales, xValues) {
  place.textContent = "";
  const axis = { stroke: colour("--text"), grid: { stroke: colour("--line"), width: 0.5 }, ticks: { show: false } };
  return new uPlot(
    {
      width: place.clientWidth,
      height,
      cursor: { show: false },
      legend: { show: false },
      scales,
      axes: [{ ...axis, values: xValues }, { ...axis, size: 48 }],
      series: [{}, ...series],
    },
    [[], ...series.map(() => [])],
    place,
  );
}

const seconds = (_, values) => values.map((value) => `${value} s`);

export class Plots {
  #places;
  #plots = {};
  #means = new Map(); // by camera: times (s) and values since the page was opened
  #arrivals = new Map(); // by camera: times (us), frames missed before each, number of the next one
  #startS = performance.now() / 1000;

  constructor(places) {
    this.#places = places;
    new ResizeObserver(() => this.#resize()).observe(places.histogram);
  }

  /** Makes them anew, in the colours of the page now. */
  reset() {
    const line = { stroke: colour("--accent"), width: 1.5, points: { show: false } };
    const missed = { stroke: colour("--bad"), width: 0, paths: () => null,
                     points: { show: true, size: 8, fill: colour("--bad") } };
    this.#plots = {
      histogram: makePlot(
        this.#places.histogram,
        [{ ...line, fill: `${colour("--accent")}55`, paths: uPlot.paths.stepped({ align: 1 }) }],
        { x: { time: false, range: [0, 256] }, y: { range: (_, __, most) => [0, Math.max(most ?? 1, 1)] } }),
      means: makePlot(this.#places.means, [line], { x: { time: false }, y: { range: [0, 256] } }, seconds),
      intervals: makePlot(
        this.#places.intervals, [line, missed],
        { x: { time: false, range: [-minuteS, 0] }, y: { range: (_, __, most) => [0, (most ?? 1) * 1.1] } },
        seconds),
    };
  }

  /** Of every picture, of any camera. */
  addMean(head) {
    const kept = this.#means.get(head.camera) ?? { times: [], values: [] };
    kept.times.push(Math.round(performance.now() / 100 - this.#startS * 10) / 10);
    kept.values.push(head.mean);
    if (kept.times.length > meansKept) { // thinned, not cut: the plot goes back to the opening of the page
      kept.times = kept.times.filter((_, at) => at % 2 === 0);
      kept.values = kept.values.filter((_, at) => at % 2 === 0);
    }
    this.#means.set(head.camera, kept);
  }

  showPicture(head) {
    const kept = this.#means.get(head.camera);
    this.#plots.means?.setData([kept.times, kept.values]);
    this.#places.means.setAttribute("aria-label", `Mean grey ${Math.round(kept.values[0])} at first, ${Math.round(head.mean)} now`);
    if (head.histogram) {
      const logarithms = head.histogram.map((count) => Math.log10(count + 1));
      this.#plots.histogram?.setData([head.histogram.map((_, grey) => grey), logarithms]);
    }
  }

  addArrivals(news) {
    let kept = this.#arrivals.get(news.camera);
    if (!kept || kept.next !== news.from) { // the connection was another one meanwhile
      kept = { times: [], missed: [] };
      this.#arrivals.set(news.camera, kept);
    }
    kept.times.push(...news.times_us);
    kept.missed.push(...news.missed);
    const old = kept.times.findIndex((time) => time + minuteS * 1e6 >= news.now_us);
    kept.times.splice(0, old < 0 ? kept.times.length : old);
    kept.missed.splice(0, kept.missed.length - kept.times.length);
    kept.next = news.from + news.times_us.length;
    kept.nowUs = news.now_us;
  }

  showIntervals(serial) {
    const kept = this.#arrivals.get(serial);
    if (!kept || !this.#plots.intervals) {
      return;
    }
    const times = kept.times.slice(1);
    const gaps = times.map((time, at) => (time - kept.times[at]) / 1000);
    const missed = kept.missed.slice(1);
    const marks = gaps.map((gap, at) => (missed[at] > 0 ? gap : null));
    const sum = missed.reduce((all, each) => all + each, 0);
    this.#places.intervals.setAttribute(
      "aria-label", `${gaps.length} frame intervals, longest ${Math.round(Math.max(0, ...gaps))} ms, ${sum} frames missed`);
    this.#plots.intervals.setData([times.map((time) => (time - kept.nowUs) / 1e6), gaps, marks]);
  }

  #resize() {
    for (const [name, plot] of Object.entries(this.#plots)) {
      const width = this.#places[name].clientWidth;
      if (width > 0) {
        plot.setSize({ width, height });
      }
    }
  }
}
