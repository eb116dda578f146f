// The window's only road to the daemon: every request is a POST of JSON to
// /v1/<name>, answered by the same handlers the command line uses. The session
// cookie travels by itself; the custom header proves the request comes from
// this page's own scripts (a form on another site cannot set it).

export class ApiFailure extends Error {
  constructor(status, message) {
    super(message);
    this.status = status;
  }
}

export async function call(name, body = {}) {
  let response;
  try {
    response = await fetch(`/v1/${name}`, {
      method: 'POST',
      headers: { 'Content-Type': 'application/json', 'X-Vosklin-Request': '1' },
      body: JSON.stringify(body),
      credentials: 'same-origin',
    });
  } catch (error) {
    throw new ApiFailure(0, 'The Vosklin daemon cannot be reached. Is it running?');
  }
  let answer = null;
  try {
    answer = await response.json();
  } catch {
    answer = null;
  }
  if (!response.ok) {
    const message = answer && typeof answer.error === 'string' ? answer.error : `${response.status} ${response.statusText}`;
    throw new ApiFailure(response.status, message);
  }
  return answer;
}

export function payloadUrl(versionID) {
  return `/v1/payload/${encodeURIComponent(versionID)}`;
}

export function liveUrl(fileID) {
  return `/v1/live/${encodeURIComponent(fileID)}`;
}

// `source` is a version id, or {live: fileID} for the file as it is now.
export function pdfPageUrl(source, page, width = 800) {
  const base = typeof source === 'object' && source !== null
    ? `/v1/pdfpage/live/${encodeURIComponent(source.live)}`
    : `/v1/pdfpage/${encodeURIComponent(source)}`;
  return `${base}/${page}?width=${Math.round(width)}`;
}

// One event stream for the whole window; listeners get {folderID, what}. The
// browser retries a dropped stream by itself, but not one the daemon refused
// (all its stream slots taken, or a restart between two tries): that one is
// opened again after a pause; the listeners then hear of a change to every
// folder's history, since anything may have happened while no stream was open.
const listeners = new Set();
let stream = null;
let retry = null;
const retryMs = 5000;

function deliver(change) {
  for (const each of [...listeners]) each(change);
}

function openStream() {
  stream = new EventSource('/v1/events');
  let opened = false;
  stream.addEventListener('open', () => {
    if (opened) return;
    opened = true;
    if (retry !== null) deliver({ folderID: '', what: 'history' });
    retry = null;
  });
  stream.addEventListener('changed', (event) => {
    let change;
    try {
      change = JSON.parse(event.data);
    } catch {
      return;
    }
    deliver(change);
  });
  stream.addEventListener('error', () => {
    if (stream.readyState !== EventSource.CLOSED) return;
    stream = null;
    retry = setTimeout(() => {
      if (listeners.size) openStream();
      else retry = null;
    }, retryMs);
  });
}

export function onChange(listener) {
  listeners.add(listener);
  if (!stream && retry === null && typeof EventSource !== 'undefined') openStream();
  return () => listeners.delete(listener);
}
