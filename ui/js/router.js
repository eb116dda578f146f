// Hash routes: "#/folder/<id>/files?at=..." → a view's render(main, params).
// A view returns a cleanup function, run before the next view renders.

const routes = [];
let cleanup = null;
let rendering = 0;

// `pattern` like "/folder/:id/files"; `load` returns a module (or promise of one) with render().
export function route(pattern, load) {
  const names = [];
  const source = pattern.replace(/:([a-zA-Z]+)/g, (_, name) => {
    names.push(name);
    return '([^/]+)';
  });
  routes.push({ regex: new RegExp(`^${source}$`), names, load });
}

// Splits "#/a/b?x=1" into a path and its query parameters.
export function parseHash(hash) {
  const text = (hash || '').replace(/^#/, '') || '/';
  const [path, query = ''] = text.split('?');
  return { path: path || '/', query: new URLSearchParams(query) };
}

export function match(hash) {
  const { path, query } = parseHash(hash);
  for (const entry of routes) {
    const found = entry.regex.exec(path);
    if (!found) continue;
    const params = Object.fromEntries(query.entries());
    entry.names.forEach((name, i) => {
      params[name] = decodeURIComponent(found[i + 1]);
    });
    return { entry, params };
  }
  return null;
}

export function navigate(hash) {
  if (location.hash === hash) render();
  else location.hash = hash;
}

export async function render() {
  const main = document.getElementById('main');
  const ticket = ++rendering;
  if (cleanup) {
    try {
      cleanup();
    } catch {
      // a view that failed to clean up must not stop the next one
    }
    cleanup = null;
  }
  const found = match(location.hash) || match('#/');
  main.replaceChildren();
  main.removeAttribute('aria-busy');
  try {
    const view = await found.entry.load();
    if (ticket !== rendering) return;
    const result = await view.render(main, found.params);
    if (ticket !== rendering) {
      if (typeof result === 'function') result();
      return;
    }
    cleanup = typeof result === 'function' ? result : null;
  } catch (error) {
    if (ticket !== rendering) return;
    const { showError } = await import('./dom.js');
    showError(main, error);
  }
}

export function start() {
  window.addEventListener('hashchange', render);
  return render();
}
