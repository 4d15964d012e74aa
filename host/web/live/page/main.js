// The page: shows its parts, and passes on what comes over the two connections.

import { getJson, post, setToken, takeTokenFromLink } from "./api.js";
import { Cards } from "./cards.js";
import { Detail } from "./detail.js";
import { Log } from "./log.js";
import { openEvents, openPictures } from "./streams.js";

const byId = (id) => document.getElementById(id);
const viewer = Array.from(crypto.getRandomValues(new Uint8Array(12)), (byte) => byte.toString(16)).join("");

let access = { may_look: false, may_change: false };
let arePicturesOpen = false;
let viewsTimer = null;

const log = new Log(byId("log"), byId("log-camera"), byId("log-level"));
const detail = new Detail(askForPictures, closeDetail);
const cards = new Cards(byId("cards"), openDetail, askForPictures);

// Says what is in view, at most ten times a second.
function askForPictures() {
  viewsTimer ??= setTimeout(async () => {
    viewsTimer = null;
    if (arePicturesOpen) {
      const views = document.hidden ? [] : detail.serial ? detail.views() : cards.views();
      await post(`/api/v1/views?viewer=${viewer}`, views).catch(() => {});
    }
  }, 100);
}

function openDetail(serial) {
  byId("cards").hidden = true;
  detail.open(serial);
  askForPictures();
}

function closeDetail() {
  const { serial } = detail;
  detail.close();
  byId("cards").hidden = false;
  cards.focus(serial);
  askForPictures();
}

// A failure without its countdown, so that a screen reader says it once.
function failureWords(camera) {
  const state = { down: "down", given_up: "given up", silent: "silent" }[camera.state];
  return camera.reason ? `${state}: ${camera.reason}` : state;
}

function showFailures(cameras) {
  const failing = cameras.filter((camera) => ["down", "given_up", "silent"].includes(camera.state));
  const place = byId("failures");
  const texts = failing.map((camera) => [camera.camera, failureWords(camera), camera.advice]);
  if (place.dataset.shown === JSON.stringify(texts)) {
    return;
  }
  place.dataset.shown = JSON.stringify(texts);
  place.replaceChildren(
    ...texts.map(([serial, words, advice]) => {
      const item = document.createElement("div");
      const name = document.createElement("strong");
      name.textContent = serial;
      item.append(name, ` ${words}`);
      if (advice) {
        const what = document.createElement("p");
        what.textContent = advice;
        item.append(what);
      }
      return item;
    }));
}

function onEvent(name, data) {
  if (name === "log") {
    log.add(data);
  } else if (name === "arrivals") {
    detail.addArrivals(data);
  } else if (name === "cameras") {
    showFailures(data);
    cards.update(data);
    log.setCameras(data.map((camera) => camera.camera));
    const open = data.find((camera) => camera.camera === detail.serial);
    if (open) {
      detail.update(open, access.may_change);
    }
  }
}

async function onPicture(head, blob) {
  const bitmap = await createImageBitmap(blob);
  detail.addMean(head);
  if (!detail.serial) {
    cards.draw(head, bitmap);
  } else if (head.camera === detail.serial && head.histogram) {
    detail.draw(head, bitmap);
  }
}

function onEventState(isUp, why) {
  byId("connection").textContent = isUp ? "live" : `connection lost: ${why}`;
  byId("connection").classList.toggle("lost", !isUp);
}

function onPictureState(isUp) {
  arePicturesOpen = isUp;
  askForPictures();
}

function setTheme(theme) {
  document.documentElement.dataset.theme = theme;
  byId("theme").setAttribute("aria-pressed", String(theme === "dark"));
  detail.repaint();
}

async function start() {
  access = await getJson("/api/v1/access");
  byId("sign-in").hidden = access.may_look;
  byId("main").hidden = !access.may_look;
  if (!access.may_look) {
    byId("connection").textContent = "no access";
    byId("token").focus();
    return;
  }
  byId("look-only").hidden = access.may_change;
  byId("look-only").textContent = `Only looking: ${access.look_only_reason}`;
  openEvents(viewer, onEvent, onEventState);
  openPictures(viewer, onPicture, onPictureState);
}

takeTokenFromLink();
setTheme(localStorage.getItem("theme") ?? (matchMedia("(prefers-color-scheme: dark)").matches ? "dark" : "light"));
byId("theme").addEventListener("click", () => {
  setTheme(document.documentElement.dataset.theme === "dark" ? "light" : "dark");
  localStorage.setItem("theme", document.documentElement.dataset.theme);
});
byId("name").value = localStorage.getItem("name") ?? "";
byId("name").addEventListener("change", () => localStorage.setItem("name", byId("name").value));
byId("sign-in-form").addEventListener("submit", (event) => {
  event.preventDefault();
  setToken(byId("token").value.trim());
  start();
});
document.addEventListener("visibilitychange", askForPictures);
document.addEventListener("keydown", (event) => {
  if (event.key === "Escape" && detail.serial) {
    closeDetail();
  }
});
start().catch((error) => onEventState(false, error.message));
