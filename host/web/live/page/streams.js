// The two connections of a page: events and pictures. Both are opened again when they break.

import { get } from "./api.js";

const retryMs = [500, 1000, 2000, 5000];

/** Reads `path` for ever: `reader()` makes what takes the bytes, `onState` gets whether the connection stands. */
async function readForEver(path, reader, onState) {
  for (let failures = 0; ; ) {
    try {
      const response = await get(path);
      onState(true);
      failures = 0;
      const take = reader();
      const body = response.body.getReader();
      for (let part = await body.read(); !part.done; part = await body.read()) {
        await take(part.value); // until then nothing more is read, so that the server sends no more
      }
      onState(false, "the server ended the connection");
    } catch (error) {
      onState(false, error.message);
    }
    await new Promise((resume) => setTimeout(resume, retryMs[Math.min(failures++, retryMs.length - 1)]));
  }
}

/** Server-sent events: `onEvent(name, data)` for each. */
export function openEvents(viewer, onEvent, onState) {
  readForEver(`/api/v1/events?viewer=${viewer}`, () => eventReader(onEvent), onState);
}

/** Pictures: `onPicture(head, blob)` for each, once the promise of the one before is fulfilled. */
export function openPictures(viewer, onPicture, onState) {
  readForEver(`/api/v1/pictures?viewer=${viewer}`, () => pictureReader(onPicture), onState);
}

export function eventReader(onEvent) {
  const decoder = new TextDecoder();
  let text = "";
  return (bytes) => {
    text += decoder.decode(bytes, { stream: true });
    for (let end = text.indexOf("\n\n"); end >= 0; end = text.indexOf("\n\n")) {
      const [, name, data] = /^event: (.*)\ndata: (.*)$/.exec(text.slice(0, end));
      text = text.slice(end + 2);
      onEvent(name, JSON.parse(data));
    }
  };
}

/** A picture is a line of JSON, whose "bytes" is the length of the JPEG behind it. */
export function pictureReader(onPicture) {
  let waiting = new Uint8Array(0);
  let head = null;
  return async (bytes) => {
    const joined = new Uint8Array(waiting.length + bytes.length);
    joined.set(waiting);
    joined.set(bytes, waiting.length);
    waiting = joined;
    for (;;) {
      if (!head) {
        const end = waiting.indexOf(10);
        if (end < 0) {
          return;
        }
        head = JSON.parse(new TextDecoder().decode(waiting.subarray(0, end)));
        waiting = waiting.slice(end + 1);
      }
      if (waiting.length < head.bytes) {
        return;
      }
      await onPicture(head, new Blob([waiting.subarray(0, head.bytes)], { type: "image/jpeg" }));
      waiting = waiting.slice(head.bytes);
      head = null;
    }
  };
}
