// The page's own script: it searches while one types, and shows the results as one list that scrolls through
// all of them. The server's pages work without it; with it, their form becomes the box of a live search.
//
//     box --each change--> ask(0) --JSON--> first rows swap the list
//     scrolling ---------> ask(window in sight) --JSON--> rows fill in
//
// At any time at most one request is under way, that of the latest text or of what is in sight; an older one
// is aborted, and the server gives up its search. Texts enter the page as text alone, never as HTML.
'use strict';

(() => {
  const form = document.getElementById('searchform');
  const box = document.getElementById('search');
  if (!form || !box || !window.fetch || !window.AbortController)
    return;

  const CHUNK = 100;             // rows of a request
  const CHUNKS_MAX = 60;         // that are kept
  const HEIGHT_MAX = 12000000;   // pixels: browsers draw no taller element reliably
  const JUMP = 4000;             // pixels: what scrolls farther in one event was dragged
  const WAITING_AFTER = 300;     // milliseconds until waiting shows
  const PATIENCE = 4000;         // until it tells why
  const RETRY_AFTER = 2000;      // after a failure
  const SETTLED_AFTER = 1200;    // without a key: what is there is worth a step of the back button
  const OPTIONS = [
    ['case', 'Aa', 'Match case'],
    ['wholeword', 'ab|', 'Match whole words'],
    ['path', '/', 'Match the path'],
    ['regex', '.*', 'Regular expression'],
    ['diacritics', '\u00e4', 'Match diacritics'],
  ];
  const SHORT_OPTIONS = {case: 'i', wholeword: 'w', path: 'p', regex: 'r', diacritics: 'm'};
  const COLUMNS = [
    ['name', 'Name', 'nameheader'],
    ['path', 'Path', 'pathheader'],
    ['size', 'Size', 'sizeheader'],
    ['date_modified', 'Date Modified', 'modifiedheader'],
  ];

  // --- What is asked for ---------------------------------------------------------------------------------

  const parse = (address) => {
    const keys = new URLSearchParams(address.search);
    const first = (...names) => names.map((name) => keys.get(name)).find((value) => value !== null);
    const search = address.pathname === '/' ? first('search', 's', 'q') : undefined;
    const state = {text: search, sort: 'name', ascending: true, options: {}, row: 0};
    if (COLUMNS.some(([sort]) => sort === keys.get('sort')))
      state.sort = keys.get('sort');
    state.ascending = !(parseInt(keys.get('ascending') ?? '1', 10) === 0);
    for (const [option] of OPTIONS)
      state.options[option] = parseInt(first(option, SHORT_OPTIONS[option]) ?? '0', 10) > 0;
    state.row = Math.max(parseInt(first('offset', 'o') ?? '0', 10) || 0, 0);
    return state;
  };

  const own = parse(location);                       // the page as the server wrote it
  const ownAddress = location.pathname + location.search;
  const ownTitle = document.title;
  const isOwnSearch = own.text !== undefined;
  let wanted = parse(location);                      // what the box, the heads and the toggles say
  let shown = null;                                  // what the rows are of; null: the page's own content

  const addressOf = (state) => {
    const keys = new URLSearchParams();
    keys.set('search', state.text);
    if (state.sort !== 'name' || !state.ascending) {
      keys.set('sort', state.sort);
      keys.set('ascending', state.ascending ? '1' : '0');
    }
    for (const [option] of OPTIONS) {
      if (state.options[option])
        keys.set(option, '1');
    }
    return '/?' + keys;
  };

  // --- The list's elements ---------------------------------------------------------------------------------

  const make = (tag, className, attributes, text) => {
    const element = document.createElement(tag);
    if (className)
      element.className = className;
    for (const [name, value] of Object.entries(attributes || {}))
      element.setAttribute(name, value);
    if (text !== undefined)
      element.textContent = text;
    return element;
  };

  // Where the page has a head in the user's language, it is taken from there.
  const titleOf = (className, english) => {
    const cell = document.querySelector('td.' + className);
    return (cell && cell.textContent.trim()) || english;
  };

  const live = make('div', '', {id: 'live', hidden: ''});
  const bar = make('div', 'livebar');
  const count = make('span', '', {id: 'live-count', 'aria-live': 'polite'});
  const status = make('span', '', {id: 'live-status', role: 'status'});
  const options = make('span', 'liveoptions', {role: 'group', 'aria-label': 'Options'});
  const head = make('div', 'livehead', {id: 'live-head', role: 'row'});
  const view = make('div', '', {id: 'live-view', tabindex: '0', role: 'grid', 'aria-label': 'Results', 'aria-owns': 'live-head'});
  const nothing = make('p', 'livenothing', {hidden: ''}, 'Nothing was found.');
  const space = make('div', '', {id: 'live-space', role: 'presentation'});
  const sheet = make('div', '', {id: 'live-rows', role: 'presentation'});
  for (const [option, label, title] of OPTIONS)
    options.append(make('button', 'liveoption', {type: 'button', 'data-option': option, title, 'aria-label': title}, label));
  for (const [sort, title, className] of COLUMNS)
    head.append(make('button', 'livecolumn', {type: 'button', role: 'columnheader', 'data-sort': sort}, titleOf(className, title)));
  bar.append(count, status, options);
  space.append(sheet);
  view.append(nothing, space);
  live.append(bar, head, view);

  // --- Rows ------------------------------------------------------------------------------------------------

  let total = 0;
  let chunks = new Map();   // number -> rows; in the order of their last use
  const stale = new Set();  // numbers of those that show until they are there anew
  let selected = -1;
  let selectedFor = null;   // what was wanted then: keys may be faster than an answer
  let openFor = null;       // an Enter that waits for its answer
  let rowHeight = 30;
  const pool = new Map();   // row number -> its elements, of the rows in sight
  const spare = [];

  const UNITS = ['KB', 'MB', 'GB', 'TB', 'PB'];
  const sizeText = (size) => {
    if (size === '')
      return '';
    let value = Number(size);
    if (value < 1000)
      return value + ' Bytes';
    let unit = -1;
    do {
      value /= 1024;
      unit++;
    } while (value >= 1000 && unit < UNITS.length - 1);
    const digits = value < 10 ? 2 : value < 100 ? 1 : 0;
    return (Math.floor(value * 10 ** digits) / 10 ** digits).toLocaleString(undefined, {
      minimumFractionDigits: digits, maximumFractionDigits: digits}) + ' ' + UNITS[unit];
  };

  const dateFormat = new Intl.DateTimeFormat(undefined, {
    year: 'numeric', month: '2-digit', day: '2-digit', hour: '2-digit', minute: '2-digit'});
  const dateText = (ticks) => {
    if (!ticks)
      return '';
    const date = new Date(Number(BigInt(ticks) / 10000n - 11644473600000n));
    return isNaN(date) ? '' : dateFormat.format(date);
  };

  // Line ends and the like would break the row, or be nothing to see; each has a sign of one unit.
  const visible = (text) => text.replace(/[\0-\x1f\x7f]/g, (control) =>
    control === '\x7f' ? '\u2421' : String.fromCharCode(0x2400 + control.charCodeAt(0)));

  // A text with what the search matched set off.
  const fillMarked = (element, raw, marks) => {
    const text = visible(raw);
    const places = marks ? marks.split(',').map(Number) : [];
    element.textContent = '';
    let at = 0;
    for (let i = 0; i + 1 < places.length; i += 2) {
      const [start, length] = [places[i], places[i + 1]];
      if (start < at || length < 1 || start + length > text.length)
        break;
      element.append(text.slice(at, start), make('mark', '', null, text.slice(start, start + length)));
      at = start + length;
    }
    element.append(text.slice(at));
  };

  // Only addresses that the server makes: its own, and those of the schemes that pages link to.
  const isLink = (url) => /^(\/(?![\/\\])|(https?|ftp|file):\/\/)/i.test(url || '');
  const setLink = (anchor, url) => {
    if (isLink(url))
      anchor.href = url;
    else
      anchor.removeAttribute('href');
  };

  const makeRow = () => {
    const row = make('div', 'liverow', {role: 'row'});
    const name = make('a', 'livename', {role: 'gridcell', tabindex: '-1'});
    const icon = make('img', 'icon', {alt: ''});
    const text = make('span', '', {dir: 'auto'});
    const path = make('a', 'livepath', {role: 'gridcell', tabindex: '-1'});
    const size = make('span', 'livesize', {role: 'gridcell'});
    const date = make('span', 'livedate', {role: 'gridcell'});
    name.append(icon, text);
    row.append(name, path, size, date);
    return {row, name, icon, text, path, size, date, data: undefined};
  };

  const dataOf = (index) => chunks.get(Math.floor(index / CHUNK))?.[index % CHUNK];

  const fillRow = (parts, index) => {
    const data = dataOf(index) || null;
    parts.row.classList.toggle('selected', index === selected);
    parts.row.setAttribute('aria-selected', index === selected);
    if (index === selected)
      parts.row.id = 'live-selected';
    else
      parts.row.removeAttribute('id');
    if (parts.data === data && parts.index === index)
      return;
    parts.data = data;
    parts.index = index;
    parts.row.dataset.index = index;
    parts.row.setAttribute('aria-rowindex', index + 1);
    parts.row.classList.toggle('loading', !data);
    parts.row.classList.toggle('odd', index % 2 === 1);
    if (data) {
      const icon = data.type === 'folder' ? '/folder.gif' : '/file.gif';
      if (parts.icon.getAttribute('src') !== icon)
        parts.icon.src = icon;
    } else {
      parts.icon.removeAttribute('src');
    }
    fillMarked(parts.text, data ? data.name : '', data && data.name_marks);
    fillMarked(parts.path, data ? data.path : '', data && data.path_marks);
    parts.name.title = data ? data.name : '';
    parts.path.title = data ? data.path : '';
    setLink(parts.name, data && data.url);
    setLink(parts.path, data && data.path && data.path_url);
    parts.size.textContent = data && data.type !== 'folder' ? sizeText(data.size) : '';
    parts.date.textContent = data ? dateText(data.date_modified) : '';
  };

  // --- Scrolling -------------------------------------------------------------------------------------------
  //
  // `top` is where the view stands in the list, in pixels of a list of full height. The scroll box is no
  // taller than HEIGHT_MAX: near its ends a pixel of it is a pixel of the list, in between it stands for more.
  // There, small steps move the list by their own length, so that every row can be reached, and once
  // scrolling rests the box is put where it belongs; large ones, of a dragged bar, go by proportion.

  let top = 0;
  let boxTop = 0;           // the box's position that `top` was last made from
  let restTimer = 0;

  const listHeight = () => total * rowHeight;
  const boxHeight = () => Math.min(listHeight(), HEIGHT_MAX);
  const topMax = () => Math.max(0, listHeight() - view.clientHeight);
  const boxMax = () => Math.max(0, boxHeight() - view.clientHeight);
  const isScaled = () => listHeight() > HEIGHT_MAX;
  const margin = () => 4 * view.clientHeight + JUMP;

  const boxOf = (y) => {
    const m = margin(), end = topMax(), boxEnd = boxMax();
    if (!isScaled() || y <= m)
      return y;
    if (y >= end - m)
      return boxEnd - (end - y);
    return m + (y - m) / (end - 2 * m) * (boxEnd - 2 * m);
  };
  const topOf = (s) => {
    const m = margin(), end = topMax(), boxEnd = boxMax();
    if (!isScaled() || s <= m)
      return s;
    if (s >= boxEnd - m)
      return end - (boxEnd - s);
    return m + (s - m) / (boxEnd - 2 * m) * (end - 2 * m);
  };

  const putBox = () => {
    view.scrollTop = boxOf(top);
    boxTop = view.scrollTop;
  };

  const moveTo = (y) => {
    top = Math.min(Math.max(0, y), topMax());
    putBox();
    paint();
  };

  const onScroll = () => {
    const s = view.scrollTop, moved = s - boxTop;
    if (moved === 0)
      return;
    boxTop = s;
    const atEdge = s <= 0 || s >= boxMax();
    if (isScaled() && Math.abs(moved) <= JUMP && !(atEdge && Math.abs(boxOf(top) - s) < 2 * JUMP))
      top = Math.min(Math.max(0, top + moved), topMax());
    else
      top = Math.min(Math.max(0, topOf(s)), topMax());
    if (isScaled() && (s < view.clientHeight || s > boxMax() - view.clientHeight) && Math.abs(boxOf(top) - s) > 1)
      putBox(); // no room is left in the box, but there is in the list
    clearTimeout(restTimer);
    restTimer = setTimeout(() => {
      putBox();
      saveRow();
    }, 200);
    paint();
  };

  const rowsInSight = () => {
    const first = Math.max(0, Math.floor(top / rowHeight));
    const last = Math.min(total - 1, Math.floor((top + view.clientHeight - 1) / rowHeight));
    return [first, last];
  };

  let isPaintPosted = false;
  const paint = () => {
    if (isPaintPosted)
      return;
    isPaintPosted = true;
    requestAnimationFrame(paintNow);
  };
  const paintNow = () => {
    isPaintPosted = false;
    if (!shown)
      return;
    const [first, last] = rowsInSight();
    for (const [index, parts] of pool) {
      if (index < first || index > last) {
        pool.delete(index);
        spare.push(parts);
        if (parts.row.contains(document.activeElement))
          view.focus({preventScroll: true}); // a link that was opened beside; keys go on in the list
        parts.row.remove();
      }
    }
    let next = sheet.firstElementChild; // readers of screens read rows in the order of their elements
    for (let index = first; index <= last; index++) {
      let parts = pool.get(index);
      if (!parts) {
        parts = spare.pop() || makeRow();
        pool.set(index, parts);
      }
      fillRow(parts, index);
      parts.row.style.transform = `translateY(${Math.round(index * rowHeight - top)}px)`;
      if (parts.row === next)
        next = next.nextElementSibling;
      else
        sheet.insertBefore(parts.row, next);
    }
    askForRows(first, last);
  };

  const layOut = () => {
    const height = parseFloat(getComputedStyle(live).getPropertyValue('--row')) || 30;
    top *= height / rowHeight; // rows of another height: the same ones stay in sight
    rowHeight = height;
    space.style.height = boxHeight() + 'px';
    sheet.style.height = Math.min(view.clientHeight, boxHeight()) + 'px';
    view.setAttribute('aria-rowcount', total);
  };

  // --- Requests --------------------------------------------------------------------------------------------

  let request = null;       // {controller, chunk, state}
  let waitTimer = 0, patienceTimer = 0, retryTimer = 0;

  // Where the list is not shown yet, its bar tells how it goes.
  const setState = (state, text) => {
    live.dataset.state = state;
    if (state !== 'ready')
      live.hidden = false;
    status.textContent = text || '';
  };

  const stop = () => {
    if (request)
      request.controller.abort();
    request = null;
    for (const timer of [waitTimer, patienceTimer, retryTimer])
      clearTimeout(timer);
  };

  const fail = (text, again) => {
    setState('error', text);
    if (again)
      retryTimer = setTimeout(again, RETRY_AFTER);
  };

  // Asks for one chunk of what is wanted; `use` gets the answer, unless something newer has been asked for.
  // Nobody waits for a quiet request.
  const ask = (state, chunk, use, isQuiet = false) => {
    stop();
    const mine = request = {controller: new AbortController(), chunk, state};
    if (!isQuiet) {
      waitTimer = setTimeout(() => setState('waiting', 'Searching\u2026'), WAITING_AFTER);
      patienceTimer = setTimeout(() => setState('waiting', 'Waiting for the index\u2026'), PATIENCE);
    }
    const again = () => ask(state, chunk, use);
    const address = addressOf(state) + '&json=1&live=1&path_column=1&size_column=1&date_modified_column=1' +
      `&offset=${chunk * CHUNK}&count=${CHUNK}`;
    fetch(address, {signal: mine.controller.signal, credentials: 'same-origin'}).then((response) => {
      if (response.status === 401)
        throw new Error('The server asks for a password: load the page again.');
      if (response.status === 431)
        throw new Error('This text is too long.');
      if (!response.ok)
        throw new Error(`The server answered ${response.status}. Trying again\u2026`);
      return response.json();
    }).then((answer) => {
      if (request !== mine)
        return;
      stop();
      setState('ready');
      use(answer);
    }).catch((error) => {
      if (request !== mine)
        return;
      stop();
      if (error instanceof TypeError || error instanceof SyntaxError)
        fail('The server cannot be reached: is Findwright running? Trying again\u2026', again);
      else
        fail(error.message, error.message.includes('again\u2026') ? again : null);
    });
  };

  const keep = (chunk, rows) => {
    chunks.delete(chunk);
    chunks.set(chunk, rows);
    if (chunks.size > CHUNKS_MAX)
      chunks.delete(chunks.keys().next().value);
  };

  const setTotal = (value) => {
    total = value;
    nothing.hidden = total > 0;
    count.textContent = total === 1 ? '1 result' : total.toLocaleString() + ' results';
    layOut();
  };

  // An answer that an index in change has cut short is asked for again.
  const keepAnswer = (chunk, answer) => {
    const rows = answer.results;
    stale.delete(chunk);
    keep(chunk, rows);
    if (rows.length < Math.min(CHUNK, answer.totalResults - chunk * CHUNK)) {
      setTimeout(() => {
        if (chunks.get(chunk) === rows) {
          chunks.delete(chunk);
          paint();
        }
      }, RETRY_AFTER);
    }
  };

  // When rows have come or gone, those of one answer do not follow those of another: all but its own are
  // asked for again, those out of sight as they come in sight.
  const forgetOthers = (own) => {
    const [from, to] = rowsInSight().map((row) => Math.floor(row / CHUNK));
    for (const chunk of [...chunks.keys()]) {
      if (chunk < from || chunk > to)
        chunks.delete(chunk);
      else if (chunk !== own)
        stale.add(chunk);
    }
  };

  const onRows = (chunk, answer) => {
    keepAnswer(chunk, answer);
    if (answer.totalResults !== total) {
      forgetOthers(chunk);
      setTotal(answer.totalResults);
      moveTo(top);
    }
    paint();
  };

  // The first chunk in sight that is missing, or else one beside it. A request for another search, or for a
  // chunk in sight, is not given up for it.
  const askForRows = (first, last) => {
    if (!shown || total === 0 || live.dataset.state === 'error' || (request && request.state !== shown))
      return;
    const from = Math.floor(first / CHUNK), to = Math.floor(last / CHUNK), end = Math.floor((total - 1) / CHUNK);
    if (request && request.chunk >= from && request.chunk <= to)
      return;
    for (const chunk of [from, to, Math.min(to + 1, end), Math.max(from - 1, 0)]) {
      const isBeside = chunk < from || chunk > to, isKept = chunks.has(chunk);
      if (isKept && (isBeside || !stale.has(chunk))) {
        keep(chunk, chunks.get(chunk));
        continue;
      }
      if (request && (request.chunk === chunk || isBeside))
        return;
      ask(shown, chunk, (answer) => onRows(chunk, answer), isBeside || isKept);
      return;
    }
  };

  // --- The list and the page's own content -------------------------------------------------------------

  // What stands behind the form in the page.
  const ownContent = [...document.querySelectorAll('body > center')].flatMap((center) =>
    center.contains(form) ? [...center.children].filter((child) =>
      child !== form && (form.compareDocumentPosition(child) & Node.DOCUMENT_POSITION_FOLLOWING)) : [center]);
  form.after(live);

  const showHead = (state) => {
    for (const button of head.children) {
      const isCurrent = button.dataset.sort === state.sort;
      button.classList.toggle('current', isCurrent);
      button.classList.toggle('descending', isCurrent && !state.ascending);
      if (isCurrent)
        button.setAttribute('aria-sort', state.ascending ? 'ascending' : 'descending');
      else
        button.removeAttribute('aria-sort');
    }
    for (const button of options.children)
      button.setAttribute('aria-pressed', !!state.options[button.dataset.option]);
  };

  // The page's title without its search: the program's name, and that of its instance.
  const baseTitle = !isOwnSearch ? ownTitle :
    own.text && ownTitle.startsWith(own.text + ' - ') ? ownTitle.slice(own.text.length + 3) :
    own.text ? 'Findwright' : ownTitle;
  const setTitle = (state) => {
    document.title = !state || state.text === own.text ? ownTitle :
      state.text ? state.text + ' - ' + baseTitle : baseTitle;
  };

  const showList = () => {
    document.body.classList.add('live');
    box.setAttribute('aria-expanded', 'true');
    live.hidden = false;
    for (const element of ownContent)
      element.hidden = true;
  };

  const showOwn = () => {
    stop();
    shown = null;
    document.body.classList.remove('live');
    box.setAttribute('aria-expanded', 'false');
    unselect();
    live.hidden = true;
    for (const element of ownContent)
      element.hidden = false;
    setTitle(null);
  };

  const onFirstRows = (state, answer) => {
    shown = state;
    chunks = new Map();
    stale.clear();
    if (selectedFor !== state)
      unselect();
    selected = Math.min(selected, answer.totalResults - 1);
    showList();
    setTotal(answer.totalResults);
    keepAnswer(0, answer);
    top = Math.min(state.row * rowHeight, topMax());
    putBox();
    paintNow();
    if (openFor === state)
      open(false);
    openFor = null;
  };

  const search = () => {
    showHead(wanted);
    setTitle(wanted.text === undefined ? null : wanted);
    if (wanted.text === undefined) {
      showOwn();
      return;
    }
    const state = wanted;
    ask(state, 0, (answer) => onFirstRows(state, answer));
  };

  // --- The address -----------------------------------------------------------------------------------------

  let isSettled = true, settleTimer = 0;

  // A browser that gets too many addresses at once refuses one; the last is set again once typing rests.
  const putAddress = (isStep) => {
    const address = wanted.text === undefined ? ownAddress : addressOf(wanted);
    try {
      if (address !== location.pathname + location.search)
        history[isStep || isSettled ? 'pushState' : 'replaceState'](null, '', address);
    } catch { /* later */ }
  };
  const setAddress = (isStep) => {
    putAddress(isStep);
    isSettled = isStep;
    clearTimeout(settleTimer);
    settleTimer = setTimeout(() => {
      putAddress(false);
      isSettled = true;
    }, SETTLED_AFTER);
  };

  // Who leaves the page and comes back finds the list where it was.
  const saveRow = () => {
    const row = Math.round(top / rowHeight);
    try {
      if (shown && shown === wanted && (history.state?.row ?? 0) !== row)
        history.replaceState({row}, '');
    } catch { /* next time */ }
  };

  const change = (changes, isStep) => {
    wanted = {...wanted, row: 0, ...changes};
    setAddress(isStep);
    search();
  };

  const onBox = () => {
    // Where the page has content of its own, an empty box is the way back to it.
    const text = box.value === '' && !isOwnSearch ? undefined : box.value;
    if (text !== wanted.text)
      change({text}, false);
  };

  addEventListener('popstate', () => {
    wanted = parse(location);
    // Loaded anew among its steps, this page has not the content of the one that they began with.
    if (wanted.text === undefined && location.pathname + location.search !== ownAddress) {
      location.reload();
      return;
    }
    wanted.row = history.state?.row ?? wanted.row;
    clearTimeout(settleTimer);
    box.value = wanted.text || '';
    isSettled = true;
    search();
  });

  const isTouched = matchMedia('(pointer: coarse)').matches;

  // --- Keys and clicks -------------------------------------------------------------------------------------

  const select = (index) => {
    if (!shown || total === 0)
      return;
    selected = Math.min(Math.max(index, 0), total - 1);
    selectedFor = wanted;
    const y = selected * rowHeight;
    if (y < top)
      moveTo(y);
    else if (y + rowHeight > top + view.clientHeight)
      moveTo(y + rowHeight - view.clientHeight);
    for (const element of [box, view])
      element.setAttribute('aria-activedescendant', 'live-selected');
    paintNow();
    saveRow();
  };

  const unselect = () => {
    selected = -1;
    openFor = null;
    for (const element of [box, view])
      element.removeAttribute('aria-activedescendant');
    paint();
  };

  const open = (isBeside) => {
    if (shown !== wanted) {
      openFor = wanted; // the row is another one's still
      return;
    }
    const data = dataOf(selected);
    if (!shown || !data || !isLink(data.url))
      return;
    if (isBeside)
      window.open(data.url, '_blank', 'noopener');
    else
      location.href = data.url;
  };

  const onKey = (event) => {
    if (event.defaultPrevented || event.isComposing || event.altKey)
      return;
    const page = Math.max(1, Math.floor(view.clientHeight / rowHeight) - 1);
    // Without a selected row, keys start from what is in sight: it may be far from the list's begin.
    const from = selected >= 0 ? selected : Math.ceil(top / rowHeight);
    const inBox = event.target === box, inList = view.contains(event.target) || inBox;
    if (event.key === '/' && !inBox && !event.ctrlKey && !event.metaKey)
      box.select(), box.focus();
    else if (event.key === 'Escape' && inList && selected >= 0)
      unselect(), box.focus();
    else if (event.key === 'Escape' && inBox && box.value !== '')
      box.value = '', onBox();
    else if (!inList || !shown)
      return;
    else if (event.key === 'ArrowDown')
      select(selected >= 0 ? selected + 1 : from);
    else if (event.key === 'ArrowUp')
      selected <= 0 ? (unselect(), box.focus()) : select(selected - 1);
    else if (event.key === 'PageDown')
      select(from + page);
    else if (event.key === 'PageUp')
      select(from - page);
    else if (event.key === 'Home' && !inBox)
      select(0);
    else if (event.key === 'End' && !inBox)
      select(total - 1);
    else if (event.key === 'Enter' && !event.target.closest('a[href]') && selected >= 0)
      open(event.ctrlKey || event.metaKey);
    else
      return;
    event.preventDefault();
  };

  form.addEventListener('submit', (event) => {
    event.preventDefault();
    const text = box.value === '' && !isOwnSearch ? undefined : box.value;
    change({text}, true);
    if (isTouched)
      box.blur(); // its keyboard goes, and the rows are in sight
  });
  box.addEventListener('input', onBox);
  document.addEventListener('keydown', onKey);
  head.addEventListener('click', (event) => {
    const button = event.target.closest('.livecolumn');
    if (button)
      change({sort: button.dataset.sort, ascending: button.dataset.sort !== wanted.sort || !wanted.ascending}, true);
  });
  options.addEventListener('click', (event) => {
    const button = event.target.closest('.liveoption');
    if (button) {
      const option = button.dataset.option;
      change({options: {...wanted.options, [option]: !wanted.options[option]}}, true);
      if (!isTouched)
        box.focus();
    }
  });
  sheet.addEventListener('mousedown', (event) => {
    const row = event.target.closest('.liverow');
    if (row && !event.target.closest('a[href]'))
      select(Number(row.dataset.index));
  });
  sheet.addEventListener('dblclick', (event) => {
    if (event.target.closest('.liverow') && !event.target.closest('a[href]'))
      open(false);
  });
  view.addEventListener('scroll', onScroll, {passive: true});
  new ResizeObserver(() => {
    if (shown) {
      layOut();
      moveTo(top);
    }
  }).observe(view);
  // Who comes back to the page sees what is there now.
  document.addEventListener('visibilitychange', () => {
    if (!document.hidden && shown && !request && live.dataset.state === 'ready') {
      const chunk = Math.floor(rowsInSight()[0] / CHUNK), state = shown;
      ask(state, chunk, (answer) => {
        forgetOthers(chunk);
        onRows(chunk, answer);
      });
    }
  });

  // --- Start -----------------------------------------------------------------------------------------------

  document.documentElement.classList.add('script');
  box.placeholder = box.title;
  box.setAttribute('role', 'combobox');
  box.setAttribute('aria-controls', 'live-view');
  box.setAttribute('aria-haspopup', 'grid');
  box.setAttribute('aria-expanded', 'false');
  box.setAttribute('autocomplete', 'off');
  box.setAttribute('autocapitalize', 'off');
  box.setAttribute('spellcheck', 'false');
  if (isOwnSearch) {
    box.value = own.text;
    wanted.row = history.state?.row ?? wanted.row;
    search();
  } else {
    showHead(wanted);
  }
  if (!isTouched) {
    box.focus();
    box.setSelectionRange(box.value.length, box.value.length);
  }
  // What was typed before the script came.
  if (box.value !== (own.text || ''))
    onBox();
})();
