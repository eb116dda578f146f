// A folder's timeline: sessions and moments newest first, read page by page
// as the reader scrolls (never the whole history at once), with a calendar to
// jump to a day, the named-moments filter, and per moment: name, rewind,
// export, its files, a comparison. Captures show up live.
import { call, onChange } from '../api.js';
import { el, showBanner, timeCell } from '../dom.js';
import { formatAbsolute, formatBytes, formatSignedBytes, localDay } from '../format.js';
import { bindKey } from '../keys.js';
import { navigate } from '../router.js';
import { count, t } from '../strings.js';
import { appendPage, calendarMonths, changeKey, emptyTimeline, momentForDay, momentMarks, namedOnly,
  reachesDay, refreshNewest, step } from '../timelineModel.js';
import { openExportSheet } from '../sheets/export.js';
import { openNameSheet } from '../sheets/name.js';
import { openRewindSheet } from '../sheets/rewind.js';
import { folderHeader, folderInfo, keptMark } from './folderTabs.js';

// Changes shown per moment before "and N more".
const changesShown = 8;

export async function render(main, params) {
  const folderID = params.id;
  const folder = await folderInfo(folderID);
  const base = `#/folder/${encodeURIComponent(folderID)}`;
  let state = emptyTimeline();
  let namedFilter = false;
  let loading = null;
  let refreshing = null;
  let refreshAgain = false;
  let refreshTimer = null;
  const expanded = new Set();
  const momentNodes = new Map();
  const sessionNodes = new Map();

  const status = el('p', { class: 'muted timeline-status', role: 'status', 'aria-live': 'polite' });
  const list = el('div', { class: 'timeline' });
  const olderButton = el('button', { type: 'button', class: 'load-older', onclick: () => loadMore() }, t('window.timeline.older'));
  const sentinel = el('div', { class: 'sentinel' }, olderButton);
  const calendar = el('nav', { class: 'calendar', 'aria-label': t('window.timeline.calendar') });
  const filterID = `named-only-${folderID}`;
  const filter = el('input', { type: 'checkbox', id: filterID, onchange: () => { namedFilter = filter.checked; renderList({ keepPlace: true }); } });
  const dateID = `go-to-date-${folderID}`;
  const dateField = el('input', { type: 'date', id: dateID });
  const dateForm = el('form', { class: 'go-to-date' },
    el('label', { for: dateID }, t('window.timeline.goToDate')), dateField,
    el('button', { type: 'submit' }, t('window.timeline.go')));
  dateForm.addEventListener('submit', (event) => {
    event.preventDefault();
    if (dateField.value) jumpTo(dateField.value);
  });

  main.replaceChildren(
    folderHeader(folder, 'timeline', t('window.timeline.title %@', folder.name)),
    el('div', { class: 'timeline-tools' },
      el('div', { class: 'filter' }, filter, el('label', { for: filterID }, t('window.timeline.namedOnly'))),
      dateForm),
    calendar, status, list, sentinel);

  // --- loading -------------------------------------------------------------

  async function loadMore() {
    if (loading) return loading;
    if (state.loaded && state.next === null) return undefined;
    loading = (async () => {
      status.textContent = t('window.timeline.loading');
      try {
        const body = { folder: folderID };
        if (state.next) body.before = state.next;
        const page = await call('history', body);
        state = appendPage(state, page);
        renderList();
        status.textContent = '';
      } catch (error) {
        status.textContent = error.message;
        throw error;
      } finally {
        loading = null;
      }
    })();
    return loading;
  }

  async function refresh() {
    if (refreshing) {
      refreshAgain = true;
      return refreshing;
    }
    refreshing = (async () => {
      try {
        if (loading) await loading.catch(() => {});
        const page = await call('history', { folder: folderID });
        state = refreshNewest(state, page);
        renderList({ keepPlace: true });
      } catch (error) {
        status.textContent = error.message;
      } finally {
        refreshing = null;
        if (refreshAgain) {
          refreshAgain = false;
          refresh();
        }
      }
    })();
    return refreshing;
  }

  async function loadCalendar() {
    try {
      const answer = await call('calendar', { folder: folderID });
      renderCalendar(answer.days || []);
    } catch {
      calendar.replaceChildren();
    }
  }

  // --- rendering -----------------------------------------------------------

  function changeRow(change) {
    const text = change.kind === 'renamed' && change.previousPath
      ? t('rewind.change.renamed %@ %@', change.previousPath, change.relativePath)
      : change.relativePath;
    const delta = change.byteDelta !== null && change.byteDelta !== undefined && change.byteDelta !== 0
      ? el('span', { class: 'delta' }, formatSignedBytes(change.byteDelta)) : '';
    return el('li', {}, el('a', { class: 'change', href: `#/file/${encodeURIComponent(change.fileID)}` },
      el('span', { class: `kind kind-${change.kind}` }, t(changeKey(change.kind))), ' ',
      el('span', { class: 'path' }, text), ' ',
      change.kind === 'deleted' ? '' : el('span', { class: 'size' }, formatBytes(change.bytes)), ' ', delta));
  }

  function momentNode(moment, isCurrent) {
    const marks = momentMarks(moment);
    const headingID = `moment-${moment.at}`;
    const changes = moment.changes || [];
    // A page lists the first changes of a very large moment; the files tab has them all.
    const total = moment.changeCount ?? changes.length;
    const showAll = expanded.has(moment.at) || total <= changesShown + 1;
    const shown = showAll ? changes : changes.slice(0, changesShown);
    const markList = [];
    if (isCurrent) markList.push(el('span', { class: 'mark mark-current' }, t('rewind.moment.current.help')));
    if (marks.named && moment.headline !== marks.name) markList.push(el('span', { class: 'mark mark-name' }, marks.name));
    if (marks.kept) markList.push(keptMark(t('window.timeline.kept'), t('window.timeline.keptHelp')));
    if (marks.rewind) markList.push(el('span', { class: 'mark mark-rewind' }, t('window.timeline.rewindMark')));
    if (marks.beforeRewind) markList.push(el('span', { class: 'mark mark-before-rewind' }, t('window.timeline.beforeRewindMark')));
    const unlisted = showAll && total > changes.length
      ? el('a', { href: `${base}/files?at=${encodeURIComponent(moment.at)}` }, count('rewind.moment.more %lld', total - changes.length))
      : '';
    const more = showAll ? unlisted : el('button', {
      type: 'button', class: 'quiet more-changes',
      onclick: () => { expanded.add(moment.at); renderList({ keepPlace: true }); focusChange(moment.at, shown.length); },
    }, count('rewind.moment.more %lld', total - shown.length));
    const actions = el('div', { class: 'moment-actions', role: 'group', 'aria-label': t('window.timeline.actions') },
      el('button', { type: 'button', onclick: () => openNameSheet({ folderID, moment, currentName: marks.name || '', onDone: refresh }) },
        marks.named ? t('window.timeline.rename') : t('window.timeline.name')),
      marks.named ? el('button', { type: 'button', onclick: () => unname(moment) }, t('window.timeline.unname')) : '',
      isCurrent ? '' : el('button', { type: 'button', onclick: () => openRewindSheet({ folderID, folderName: folder.name, target: moment.at, onDone: refresh }) },
        t('window.timeline.rewind')),
      el('button', { type: 'button', onclick: () => openExportSheet({ folderID, folderName: folder.name, moment }) }, t('window.timeline.export')),
      el('a', { href: `${base}/files?at=${encodeURIComponent(moment.at)}` }, t('window.timeline.filesAt')),
      el('a', { href: `${base}/compare?from=${encodeURIComponent(moment.at)}` }, t('window.timeline.compare')));
    return el('article', { class: `moment${marks.named ? ' named' : ''}`, tabindex: '-1', 'aria-labelledby': headingID, dataset: { at: moment.at } },
      el('div', { class: 'moment-head' }, el('h3', { id: headingID }, moment.headline), timeCell(moment.at), ...markList),
      el('ul', { class: 'changes', 'aria-label': t('window.timeline.changes') }, shown.map(changeRow), more ? el('li', {}, more) : ''),
      actions);
  }

  // Nodes are kept per moment and only rebuilt when the moment changed, so a
  // live refresh leaves focus and scroll where they were, and a new page only
  // builds its own moments.
  function cachedMoment(moment, isCurrent) {
    const flags = `${isCurrent}|${expanded.has(moment.at)}`;
    const known = momentNodes.get(moment.at);
    if (known && known.flags === flags && known.moment === moment) return known.node;
    const signature = JSON.stringify(moment);
    if (known && known.flags === flags && known.signature === signature) {
      known.moment = moment;
      return known.node;
    }
    const node = momentNode(moment, isCurrent);
    momentNodes.set(moment.at, { flags, signature, moment, node });
    return node;
  }

  function sessionNode(session) {
    let known = sessionNodes.get(session.start);
    if (!known) {
      const heading = el('h2', {});
      const body = el('div', { class: 'moments' });
      known = { node: el('section', { class: 'session' }, heading, body), heading, body };
      sessionNodes.set(session.start, known);
    }
    known.heading.textContent = t('window.timeline.session %@ %@', formatAbsolute(session.start), formatAbsolute(session.end));
    return known;
  }

  // Puts `wanted` into `parent` in order, moving as few nodes as it can.
  function reconcile(parent, wanted) {
    wanted.forEach((node, i) => {
      if (parent.children[i] !== node) parent.insertBefore(node, parent.children[i] || null);
    });
    while (parent.children.length > wanted.length) parent.lastElementChild.remove();
  }

  function visibleAnchor() {
    for (const node of list.querySelectorAll('article.moment')) {
      const top = node.getBoundingClientRect().top;
      if (top >= 0) return { node, top };
    }
    return null;
  }

  // `keepPlace`: newer moments may arrive above; the first one in view stays where it is.
  function renderList({ keepPlace = false } = {}) {
    const anchor = keepPlace ? visibleAnchor() : null;
    const view = namedFilter ? namedOnly(state) : state;
    const newest = state.sessions[0] && state.sessions[0].moments[0];
    const sections = view.sessions.map((session) => {
      const known = sessionNode(session);
      reconcile(known.body, session.moments.map((moment) => cachedMoment(moment, newest && moment.at === newest.at)));
      return known.node;
    });
    reconcile(list, sections);
    if (!view.sessions.length && state.loaded) {
      list.replaceChildren(el('p', { class: 'empty' }, namedFilter && state.next === null ? t('window.timeline.noNamed')
        : namedFilter ? t('window.timeline.noNamedYet') : t('window.timeline.empty')));
    }
    olderButton.hidden = state.loaded && state.next === null;
    if (anchor && anchor.node.isConnected) window.scrollBy(0, anchor.node.getBoundingClientRect().top - anchor.top);
    // A filter can leave the end in view: keep loading until it is not.
    if (namedFilter && state.next) requestAnimationFrame(() => { if (inView(sentinel)) loadMore().catch(() => {}); });
  }

  function inView(node) {
    const box = node.getBoundingClientRect();
    return box.top < window.innerHeight && box.bottom >= 0;
  }

  function renderCalendar(days) {
    if (!days.length) {
      calendar.replaceChildren();
      return;
    }
    const monthFormat = new Intl.DateTimeFormat(undefined, { month: 'long', year: 'numeric' });
    const dayFormat = new Intl.DateTimeFormat(undefined, { dateStyle: 'medium' });
    const asDate = (text) => new Date(`${text}T12:00:00`);
    // One stop in the tab order: the arrow keys move between the days.
    let first = true;
    const dayButton = (day) => {
      const button = el('button', {
        type: 'button',
        class: `day level-${Math.ceil(day.weight * 4)}`,
        tabindex: first ? '0' : '-1',
        'aria-label': count('window.timeline.day %lld %@', day.changes, dayFormat.format(asDate(day.date))),
        onclick: () => jumpTo(day.date),
      }, String(Number(day.date.slice(8))));
      first = false;
      return button;
    };
    calendar.replaceChildren(el('h2', { class: 'visually-hidden' }, t('window.timeline.calendar')),
      el('ol', { class: 'months' }, calendarMonths(days).map((month) => el('li', { class: 'month' },
        el('span', { class: 'month-label' }, monthFormat.format(asDate(`${month.month}-01`))),
        el('ol', { class: 'days' }, month.days.map((day) => el('li', {}, dayButton(day))))))));
  }

  calendar.addEventListener('keydown', (event) => {
    const moves = { ArrowLeft: -1, ArrowRight: 1, Home: -Infinity, End: Infinity };
    if (!(event.key in moves) || !event.target.matches('button.day')) return;
    event.preventDefault();
    const days = [...calendar.querySelectorAll('button.day')];
    const index = days.indexOf(event.target);
    const delta = moves[event.key];
    const next = days[Number.isFinite(delta) ? step(index, delta, days.length) : delta < 0 ? 0 : days.length - 1];
    for (const day of days) day.tabIndex = day === next ? 0 : -1;
    next.focus();
  });

  // --- actions -------------------------------------------------------------

  async function unname(moment) {
    try {
      await call('unname', { folder: folderID, moment: moment.at });
      await refresh();
    } catch (error) {
      showBanner(error.message, { kind: 'error' });
    }
  }

  async function jumpTo(date) {
    try {
      while (!reachesDay(state, date) && state.next) await loadMore();
    } catch {
      return;
    }
    const target = momentForDay(namedFilter ? namedOnly(state) : state, date);
    if (!target) {
      status.textContent = t('window.timeline.nothingThatDay');
      return;
    }
    status.textContent = localDay(target.at) === date ? '' : t('window.timeline.nothingThatDay');
    focusMoment(target.at);
  }

  function momentElements() {
    return [...list.querySelectorAll('article.moment')];
  }

  function focusMoment(at, inside = null) {
    const node = momentElements().find((each) => each.dataset.at === at);
    if (!node) return;
    const target = (inside && node.querySelector(inside)) || node;
    target.focus();
    target.scrollIntoView({ block: 'nearest' });
  }

  function focusChange(at, index) {
    const node = momentElements().find((each) => each.dataset.at === at);
    const link = node && node.querySelectorAll('a.change')[index];
    if (link) link.focus();
  }

  function currentMoment() {
    const active = document.activeElement;
    return active && active.closest ? active.closest('article.moment') : null;
  }

  async function moveMoment(delta) {
    let nodes = momentElements();
    const index = nodes.indexOf(currentMoment());
    if (delta > 0 && index === nodes.length - 1 && state.next) {
      await loadMore().catch(() => {});
      nodes = momentElements();
    }
    const next = nodes[step(index, delta, nodes.length)];
    if (next) {
      next.focus();
      next.scrollIntoView({ block: 'nearest' });
    }
  }

  function moveChange(delta) {
    const moment = currentMoment() || momentElements()[0];
    if (!moment) return;
    const changes = [...moment.querySelectorAll('a.change, button.more-changes')];
    const next = changes[step(changes.indexOf(document.activeElement), delta, changes.length)];
    if (next) next.focus();
  }

  list.addEventListener('keydown', (event) => {
    if (event.key !== 'Enter' || !event.target.matches('article.moment')) return;
    const first = event.target.querySelector('a.change');
    if (first) {
      event.preventDefault();
      navigate(first.getAttribute('href'));
    }
  });

  const unbind = [
    bindKey('j', () => moveMoment(1), t('window.timeline.keys.nextMoment')),
    bindKey('k', () => moveMoment(-1), t('window.timeline.keys.previousMoment')),
    bindKey('n', () => moveChange(1), t('window.timeline.keys.nextChange')),
    bindKey('p', () => moveChange(-1), t('window.timeline.keys.previousChange')),
  ];

  const observer = typeof IntersectionObserver === 'undefined' ? null : new IntersectionObserver((entries) => {
    if (entries.some((entry) => entry.isIntersecting) && state.loaded && state.next) loadMore().catch(() => {});
  }, { rootMargin: '600px 0px' });

  const stopListening = onChange((change) => {
    if (change.folderID && String(change.folderID) !== String(folderID)) return;
    if (change.what !== 'captured' && change.what !== 'history') return;
    clearTimeout(refreshTimer);
    refreshTimer = setTimeout(() => {
      refresh();
      loadCalendar();
    }, 250);
  });

  await loadMore().catch(() => {});
  loadCalendar();
  if (observer) observer.observe(sentinel);

  return () => {
    stopListening();
    if (observer) observer.disconnect();
    clearTimeout(refreshTimer);
    for (const each of unbind) each();
  };
}
