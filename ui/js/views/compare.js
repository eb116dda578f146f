// Two versions of a file (or a version and the file as it is now), compared
// the way their kind allows: text line by line, images in four ways computed
// here in the page, PDF pages rendered by the daemon, anything else byte by
// byte. SVG is only ever shown through <img> (its scripts never run) and HTML
// only as text.
import { call, liveUrl, payloadUrl, pdfPageUrl } from '../api.js';
import { el, timeCell } from '../dom.js';
import { baseName, formatAbsolute, formatBytes } from '../format.js';
import { compareKind, counts, fold, sideBySide, unified, withoutFinalNewline } from '../diffView.js';
import { hexRows, pixelDifference } from '../hexView.js';
import { count, t } from '../strings.js';

// --- which two things --------------------------------------------------------

async function describe(params) {
  let file = null;
  let path = '';
  let versions = [];
  if (params.file) {
    try {
      const answer = await call('versions', { file: params.file, limit: 500 });
      file = answer.file;
      path = answer.path || answer.file.relativePath;
      versions = answer.versions || [];
    } catch {
      // Compared by id alone: as text, then bytes.
    }
  }
  const side = (id) => {
    if (id === 'live') return { id, live: true, label: t('window.compare.live'), url: liveUrl(params.file), pdf: { live: params.file } };
    const version = versions.find((v) => String(v.id) === String(id));
    return {
      id,
      live: false,
      version,
      label: version ? t('window.compare.version %@', formatAbsolute(version.capturedAt)) : t('window.compare.versionNumber %@', id),
      url: payloadUrl(id),
      pdf: id,
    };
  };
  return { file, path, older: side(params.old), newer: side(params.new) };
}

function sideHeading(side) {
  return el('span', { class: 'side-label' }, side.version ? [t('window.compare.versionShort'), ' ', timeCell(side.version.capturedAt)] : side.label);
}

function toggleGroup(label, options, selected, onPick) {
  const buttons = options.map(([value, text]) => el('button', {
    type: 'button', 'aria-pressed': value === selected ? 'true' : 'false',
    onclick: () => {
      for (const each of buttons) each.setAttribute('aria-pressed', each === buttonFor(value) ? 'true' : 'false');
      onPick(value);
    },
  }, text));
  const buttonFor = (value) => buttons[options.findIndex(([v]) => v === value)];
  return el('div', { class: 'toggle-group', role: 'group', 'aria-label': label }, buttons);
}

// --- text --------------------------------------------------------------------

function lineNumber(n) {
  return el('td', { class: 'line-number' }, n === null || n === undefined ? '' : String(n));
}

function codeCell(line, side) {
  if (!line) return el('td', { class: 'code empty-side' });
  return el('td', { class: `code ${line.kind}`, dataset: { side } }, line.text);
}

function markerCell(kind) {
  const marker = kind === 'added' ? '+' : kind === 'removed' ? '−' : '';
  return el('td', { class: `marker ${kind}`, title: kind === 'context' ? '' : t(`window.compare.text.${kind}`) }, marker,
    kind === 'context' ? '' : el('span', { class: 'visually-hidden' }, t(`window.compare.text.${kind}`)));
}

function foldRow(item, columns, onUnfold) {
  return el('tr', { class: 'fold' }, el('td', { colspan: String(columns) },
    el('button', { type: 'button', class: 'quiet unfold', onclick: () => onUnfold(item.start) }, count('window.compare.text.unfold %lld', item.count))));
}

function textTable(lines, mode, unfolded, onUnfold) {
  if (mode === 'split') {
    const rows = fold(sideBySide(lines), { unfolded });
    return el('table', { class: 'diff split' },
      el('caption', { class: 'visually-hidden' }, t('window.compare.text.split')),
      el('thead', {}, el('tr', {},
        el('th', { scope: 'col', class: 'line-number' }, t('window.compare.text.oldLine')), el('th', { scope: 'col' }, t('window.compare.older')),
        el('th', { scope: 'col', class: 'line-number' }, t('window.compare.text.newLine')), el('th', { scope: 'col' }, t('window.compare.newer')))),
      el('tbody', {}, rows.map((row) => (row.fold ? foldRow(row, 4, onUnfold) : el('tr', {},
        lineNumber(row.left && row.left.oldNumber), codeCell(row.left, 'old'),
        lineNumber(row.right && row.right.newNumber), codeCell(row.right, 'new'))))));
  }
  const rows = fold(unified(lines), { unfolded });
  return el('table', { class: 'diff unified' },
    el('caption', { class: 'visually-hidden' }, t('window.compare.text.unified')),
    el('thead', {}, el('tr', {},
      el('th', { scope: 'col', class: 'line-number' }, t('window.compare.text.oldLine')),
      el('th', { scope: 'col', class: 'line-number' }, t('window.compare.text.newLine')),
      el('th', { scope: 'col', class: 'marker' }, el('span', { class: 'visually-hidden' }, t('window.compare.text.change'))),
      el('th', { scope: 'col' }, t('window.compare.text.line')))),
    el('tbody', {}, rows.map((row) => (row.fold ? foldRow(row, 4, onUnfold) : el('tr', {},
      lineNumber(row.line.oldNumber), lineNumber(row.line.newNumber), markerCell(row.line.kind), codeCell(row.line, 'both'))))));
}

async function showText(host, pair) {
  const result = await call('diff', { old: pair.older.id, new: pair.newer.id });
  if (result.kind === 'notText') {
    host.append(el('p', { class: 'not-text' }, t('compare.text.notText')));
    await showBinary(host, pair);
    return;
  }
  if (result.kind === 'summary') {
    const regions = result.regions || [];
    host.append(el('section', { class: 'diff-summary', 'aria-labelledby': 'diff-summary-title' },
      el('h2', { id: 'diff-summary-title' }, t('compare.text.tooLarge')),
      el('p', {}, t('compare.text.summary %lld %lld', result.newerDiffering, result.olderDiffering)),
      el('p', {}, count('compare.text.regions %lld', regions.length)),
      el('ul', {}, regions.map((region) => el('li', {}, t('window.compare.text.region %lld %lld', region.startLine, region.startLine + region.length - 1))))));
    return;
  }
  const lines = withoutFinalNewline(result.lines || []);
  const tally = counts(lines);
  if (tally.identical) {
    host.append(el('p', { class: 'identical' }, t('compare.text.identical')));
    return;
  }
  let mode = window.matchMedia && window.matchMedia('(max-width: 50rem)').matches ? 'unified' : 'split';
  const unfolded = new Set();
  const holder = el('div', { class: 'diff-holder' });
  const draw = () => holder.replaceChildren(textTable(lines, mode, unfolded, (start) => {
    unfolded.add(start);
    draw();
  }));
  host.append(
    el('div', { class: 'compare-tools' },
      toggleGroup(t('window.compare.text.layout'), [['split', t('window.compare.text.split')], ['unified', t('window.compare.text.unified')]], mode,
        (value) => { mode = value; draw(); }),
      el('p', { class: 'muted' }, t('window.compare.text.counts %lld %lld', tally.added, tally.removed))),
    holder);
  draw();
}

// --- images ------------------------------------------------------------------

function loadImage(url) {
  return new Promise((resolve, reject) => {
    const image = new Image();
    image.onload = () => resolve(image);
    image.onerror = () => reject(new Error(t('window.compare.image.unreadable')));
    image.src = url;
  });
}

function pixelsOf(image, width, height) {
  const canvas = document.createElement('canvas');
  canvas.width = width;
  canvas.height = height;
  const context = canvas.getContext('2d', { willReadFrequently: true });
  context.drawImage(image, 0, 0);
  return context.getImageData(0, 0, width, height).data;
}

async function differenceCanvas(pair) {
  const [a, b] = await Promise.all([loadImage(pair.older.url), loadImage(pair.newer.url)]);
  const width = Math.max(a.naturalWidth, b.naturalWidth, 1);
  const height = Math.max(a.naturalHeight, b.naturalHeight, 1);
  const { pixels, differing } = pixelDifference(pixelsOf(a, width, height), pixelsOf(b, width, height));
  const canvas = el('canvas', { class: 'difference', role: 'img', 'aria-label': t('window.compare.image.difference') });
  canvas.width = width;
  canvas.height = height;
  canvas.getContext('2d').putImageData(new ImageData(pixels, width, height), 0, 0);
  const sizes = a.naturalWidth !== b.naturalWidth || a.naturalHeight !== b.naturalHeight
    ? t('window.compare.image.sizes %@ %@', `${a.naturalWidth} × ${a.naturalHeight}`, `${b.naturalWidth} × ${b.naturalHeight}`) : '';
  return el('figure', { class: 'image-figure' }, canvas,
    el('figcaption', {}, differing ? count('window.compare.image.differing %lld', differing) : t('window.compare.image.same'), sizes ? ` ${sizes}` : ''));
}

function slider(id, label, value, onInput) {
  const input = el('input', { type: 'range', id, min: '0', max: '100', value: String(value) });
  input.addEventListener('input', () => onInput(Number(input.value)));
  onInput(value);
  return el('div', { class: 'field slider' }, el('label', { for: id }, label), input);
}

function showImages(host, pair) {
  const figure = (side, which) => el('figure', { class: `image-figure ${which}` },
    el('img', { src: side.url, alt: side.label }), el('figcaption', {}, sideHeading(side)));
  const stage = el('div', { class: 'image-stage' });
  const modes = {
    side: () => el('div', { class: 'image-pair' }, figure(pair.older, 'older'), figure(pair.newer, 'newer')),
    swipe: () => {
      const top = el('img', { src: pair.newer.url, alt: pair.newer.label, class: 'top' });
      return el('div', {}, slider('swipe-position', t('window.compare.image.swipePosition'), 50, (v) => { top.style.clipPath = `inset(0 0 0 ${v}%)`; }),
        el('div', { class: 'image-stack' }, el('img', { src: pair.older.url, alt: pair.older.label }), top));
    },
    onion: () => {
      const top = el('img', { src: pair.newer.url, alt: pair.newer.label, class: 'top' });
      return el('div', {}, slider('onion-opacity', t('window.compare.image.opacity'), 50, (v) => { top.style.opacity = String(v / 100); }),
        el('div', { class: 'image-stack' }, el('img', { src: pair.older.url, alt: pair.older.label }), top));
    },
    difference: () => {
      const holder = el('div', { 'aria-live': 'polite' }, el('p', { class: 'muted' }, t('window.compare.image.computing')));
      differenceCanvas(pair).then((node) => holder.replaceChildren(node), (error) => holder.replaceChildren(el('p', { class: 'error' }, error.message)));
      return holder;
    },
  };
  const pick = (mode) => stage.replaceChildren(modes[mode]());
  host.append(el('div', { class: 'compare-tools' }, toggleGroup(t('window.compare.image.mode'), [
    ['side', t('window.compare.image.side')], ['swipe', t('window.compare.image.swipe')],
    ['onion', t('window.compare.image.onion')], ['difference', t('window.compare.image.difference')]], 'side', pick)), stage);
  pick('side');
}

// --- PDF ---------------------------------------------------------------------

async function pageCount(side, fileID) {
  const body = side.live ? { file: fileID, live: true } : { version: side.id };
  return (await call('pdfinfo', body)).pageCount || 0;
}

async function showPdf(host, pair, fileID) {
  let counts_;
  try {
    counts_ = await Promise.all([pageCount(pair.older, fileID), pageCount(pair.newer, fileID)]);
  } catch (error) {
    host.append(el('p', { class: 'error' }, error.message));
    await showBinary(host, pair);
    return;
  }
  const pages = Math.max(...counts_, 1);
  let page = 1;
  const label = el('p', { class: 'page-label', 'aria-live': 'polite' });
  const spread = el('div', { class: 'pdf-pair' });
  const previous = el('button', { type: 'button', onclick: () => go(page - 1) }, t('window.compare.pdf.previous'));
  const next = el('button', { type: 'button', onclick: () => go(page + 1) }, t('window.compare.pdf.next'));
  const pageImage = (side, total) => el('figure', { class: 'pdf-page' },
    page <= total
      ? el('img', { src: pdfPageUrl(side.pdf, page, 800), alt: t('window.compare.pdf.pageOf %lld %@', page, side.label) })
      : el('p', { class: 'muted' }, t('window.compare.pdf.noPage')),
    el('figcaption', {}, sideHeading(side), ' ', count('window.compare.pdf.pages %lld', total)));
  function go(to) {
    page = Math.min(pages, Math.max(1, to));
    label.textContent = t('window.compare.pdf.page %lld %lld', page, pages);
    previous.disabled = page === 1;
    next.disabled = page === pages;
    spread.replaceChildren(pageImage(pair.older, counts_[0]), pageImage(pair.newer, counts_[1]));
  }
  host.append(el('div', { class: 'compare-tools pdf-tools' }, previous, label, next), spread);
  go(1);
}

// --- bytes -------------------------------------------------------------------

function hexTable(rows, side, caption) {
  return el('table', { class: 'hex' },
    el('caption', {}, caption),
    el('tbody', {}, rows.map((row) => el('tr', {},
      el('th', { scope: 'row', class: 'offset' }, row.label),
      el('td', { class: 'bytes' }, row[side].map((cell) => (cell ? (cell.differs ? el('mark', {}, cell.hex) : el('span', {}, cell.hex)) : el('span', { class: 'none' }, '  ')))
        .flatMap((node, i) => (i ? [' ', node] : [node]))),
      el('td', { class: 'chars' }, row[side].map((cell) => (cell ? (cell.differs ? el('mark', {}, cell.char) : cell.char) : ' ')))))));
}

async function showBinary(host, pair) {
  const result = await call('bincompare', { old: pair.older.id, new: pair.newer.id });
  const offset = result.firstDifference;
  const section = el('section', { class: 'binary', 'aria-labelledby': 'binary-title' },
    el('h2', { id: 'binary-title' }, t('window.compare.binary.title')),
    el('table', { class: 'binary-facts' },
      el('thead', {}, el('tr', {}, el('td', {}), el('th', { scope: 'col' }, t('window.compare.older')), el('th', { scope: 'col' }, t('window.compare.newer')))),
      el('tbody', {},
        el('tr', {}, el('th', { scope: 'row' }, t('window.compare.binary.size')),
          el('td', {}, formatBytes(result.old.logicalBytes)), el('td', {}, formatBytes(result.new.logicalBytes))),
        el('tr', {}, el('th', { scope: 'row' }, t('window.compare.binary.digest')),
          el('td', { class: 'digest' }, result.old.digest || ''), el('td', { class: 'digest' }, result.new.digest || '')))),
    el('p', {}, offset === null || offset === undefined ? t('window.compare.binary.identical')
      : t('window.compare.binary.firstDifference %@ %@', String(offset), `0x${offset.toString(16)}`)));
  if (result.window && offset !== null && offset !== undefined) {
    const rows = hexRows(result.window.old, result.window.new, result.window.offset);
    section.append(el('div', { class: 'hex-pair' },
      hexTable(rows, 'old', t('window.compare.older')), hexTable(rows, 'new', t('window.compare.newer'))));
  }
  host.append(section);
}

// --- the screen ----------------------------------------------------------------

export async function render(main, params) {
  if (!params.old || !params.new) {
    main.replaceChildren(el('h1', {}, t('window.compare.titlePlain')), el('p', {}, t('window.compare.choose')));
    return undefined;
  }
  const pair = await describe(params);
  const name = pair.path ? baseName(pair.path) : '';
  const body = el('div', { class: 'compare-body', 'aria-busy': 'true' });
  main.replaceChildren(
    el('header', { class: 'view-header' },
      el('h1', {}, name ? t('window.compare.title %@', name) : t('window.compare.titlePlain')),
      pair.path ? el('p', { class: 'muted path' }, pair.path) : '',
      el('p', { class: 'compare-sides' }, t('window.compare.older'), ': ', sideHeading(pair.older), ' → ', t('window.compare.newer'), ': ', sideHeading(pair.newer)),
      pair.file ? el('a', { href: `#/file/${encodeURIComponent(pair.file.id)}` }, t('window.compare.backToVersions')) : ''),
    body);
  const kind = pair.file ? compareKind(pair.path) : 'text';
  try {
    if (kind === 'image') showImages(body, pair);
    else if (kind === 'pdf') await showPdf(body, pair, params.file);
    else await showText(body, pair);
  } catch (error) {
    body.append(el('p', { class: 'error', role: 'alert' }, error.message));
  } finally {
    body.removeAttribute('aria-busy');
  }
  return undefined;
}
