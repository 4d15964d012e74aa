// Requests to the server that this page came from. The token comes in the fragment of the link, which no server
// and no log ever sees, and stays in this tab.

const tokenKey = "token";

/** Takes the token out of the address, so that it is neither seen nor copied with it. */
export function takeTokenFromLink() {
  const match = /[#&]token=([^&]+)/.exec(location.hash);
  if (match) {
    setToken(decodeURIComponent(match[1]));
    history.replaceState(null, "", location.pathname);
  }
}

export function setToken(token) {
  sessionStorage.setItem(tokenKey, token);
}

function headers() {
  const token = sessionStorage.getItem(tokenKey);
  return token ? { Authorization: `Bearer ${token}` } : {};
}

/** A response that is no error; raises with the server's reason otherwise. */
export async function get(path, options = {}) {
  const response = await fetch(path, { ...options, headers: headers() });
  if (!response.ok) {
    throw new Error(await reasonOf(response));
  }
  return response;
}

export async function getJson(path) {
  return (await get(path)).json();
}

export async function post(path, body) {
  const response = await fetch(path, {
    method: "POST",
    headers: { ...headers(), "Content-Type": "application/json" },
    body: JSON.stringify(body),
  });
  if (!response.ok) {
    throw new Error(await reasonOf(response));
  }
  return response.json();
}

export function cameraPath(serial, rest = "") {
  return `/api/v1/cameras/${encodeURIComponent(serial)}${rest}`;
}

async function reasonOf(response) {
  try {
    return (await response.json()).error;
  } catch {
    return `the server answered ${response.status}`;
  }
}
