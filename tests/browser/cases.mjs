// What must hold of the pages. Each case has a page of its own; see run.mjs.
import { deepStrictEqual as equal, ok } from 'node:assert/strict';
import { mkdirSync, readdirSync, readFileSync } from 'node:fs';
import { basename, join } from 'node:path';
import {
  page_allow, page_call, page_click, page_goto, page_intercept, page_key, page_loaded, page_login, page_mouse, page_open,
  page_close, page_painted, page_phone, page_picture, page_place, page_send, page_take_downloads, page_type, page_until,
  page_wheel, until,
} from './devtools.mjs';
import { list_read, list_search, list_until, list_until_count, list_until_names } from './list.mjs';
import { program_kill, program_path, program_start, program_stop } from './program.mjs';
import { DOWNLOAD, HOSTILE_PATH, HOSTILE_POSIX, LIST_ROWS, SORTED } from './sample.mjs';

const ALPHA = ['alpha one.dat', 'alpha three.dat', 'alpha two.dat', 'alphabet.txt'];
const item = i => `item ${String(i).padStart(5, '0')}.dat`;

// --- Searching --------------------------------------------------------------------------------------------------------

async function typing(page) {
  await page_goto(page, '/');
  await page_type(page, 'alpha'); // the box has the focus from the start
  let list = await list_until_names(page, ALPHA);
  equal(list.count, '4 results');
  ok(list.rows.every(row => row.marks.join() === 'alpha'), 'what was typed is marked');
  equal(await page_call(page, () => location.search), '?search=alpha');
  await page_type(page, 'b');
  list = await list_until_names(page, ['alphabet.txt']);
  equal(list.count, '1 result');
  // Places of marks count what the browser counts, behind a character of two units as well.
  await list_search(page, 'fé alph');
  await list_until(page, 'its parts are marked', list =>
    list.rows.length === 1 && list.rows[0].name === 'café 😀 alphorn.txt' && list.rows[0].marks.join() === 'fé,alph');
  await list_search(page, 'there is nothing like this');
  await list_until(page, 'nothing is found', list => list.count === '0 results' && list.rows.length === 0);
}

async function latest_text_wins(page) {
  await page_goto(page, '/');
  await page_type(page, 'alpine');
  await list_until_names(page, ['alpine.txt']);
  const held = new Map();
  let release;
  const hold = new Promise(resolve => (release = resolve));
  await page_intercept(page, async url => {
    const text = url.searchParams.get('search');
    if (text === 'alpha') {
      held.set(text, true);
      await hold;
    }
  });
  await list_search(page, 'alpha');
  await until('the older request is under way', () => held.size);
  ok((await list_read(page)).rows.some(row => row.name), 'the old rows stay until there are new ones');
  await page_type(page, 'bet');
  await list_until_names(page, ['alphabet.txt']);
  release();
  const older = page.requests.filter(request => new URL(request.url).searchParams.get('search') === 'alpha');
  await until('the older request ends', () => older.length && older.every(request => page.ended.has(request.id)));
  await page_painted(page);
  equal((await list_read(page)).rows.map(row => row.name), ['alphabet.txt']);
}

async function sorting(page) {
  await page_goto(page, '/?search=alpha+ext:dat');
  const order = (key, sign) => [...SORTED].sort((a, b) => sign * (a[key] < b[key] ? -1 : 1)).map(each => each.name);
  await list_until_names(page, order('name', 1));
  for (const [column, key] of [['size', 'size'], ['date_modified', 'day'], ['name', 'name']]) {
    for (const [state, sign] of [['ascending', 1], ['descending', -1]]) {
      await page_click(page, `.livecolumn[data-sort=${column}]`);
      await list_until_names(page, order(key, sign));
      equal(await page_call(page, () => [...document.querySelectorAll('[aria-sort]')].map(each => [each.dataset.sort, each.getAttribute('aria-sort')])),
        [[column, state]]);
    }
  }
  ok(await page_call(page, () => location.search.includes('sort=name&ascending=0')), 'the address has the order');
  const before = await page_call(page, () => history.length);
  await page_loaded(page, () => page_send(page, 'Page.reload'));
  await list_until_names(page, order('name', -1));
  equal(await page_call(page, () => history.length), before);
}

async function options(page) {
  await page_goto(page, '/?search=ALPHA');
  await list_until_names(page, ALPHA);
  await page_click(page, '.liveoption[data-option=case]');
  await list_until_count(page, '0 results');
  ok(await page_call(page, () => /[?&]case=1/.test(location.search) && document.querySelector('[data-option=case]').getAttribute('aria-pressed') === 'true'));
  await page_click(page, '.liveoption[data-option=case]');
  await list_until_names(page, ALPHA);
  await page_click(page, '.liveoption[data-option=regex]');
  await list_search(page, '^alp.n');
  await list_until_names(page, ['alpine.txt']);
}

async function keys(page) {
  await page_goto(page, '/?search=alpha');
  await list_until_names(page, ALPHA);
  await page_call(page, () => document.activeElement.blur());
  await page_key(page, '/');
  equal(await page_call(page, () => document.activeElement.id), 'search');
  equal(await page_call(page, () => document.getElementById('search').value), 'alpha');
  const selected = index => list_until(page, `row ${index} is selected`, list =>
    list.rows.filter(row => row.selected).map(row => row.index).join() === String(index));
  await page_key(page, 'ArrowDown');
  await selected(0);
  await page_key(page, 'ArrowDown');
  await page_key(page, 'ArrowDown');
  await selected(2);
  await page_key(page, 'ArrowUp');
  await selected(1);
  await page_key(page, 'Escape');
  await list_until(page, 'nothing is selected', list => !list.rows.some(row => row.selected));
  await page_key(page, 'Escape');
  await page_until(page, 'the box is empty', () => document.getElementById('search').value === '');
  await page_type(page, 'inner');
  await list_until_names(page, ['inner']);
  await page_key(page, 'ArrowDown');
  await selected(0);
  await page_loaded(page, () => page_key(page, 'Enter'));
  await page_until(page, 'the folder is open', () => document.querySelector('.indexof')?.textContent.includes('inner'));
}

async function back_button(page) {
  await page_goto(page, '/');
  const steps = await page_call(page, () => history.length);
  await page_type(page, 'alp');
  await page_type(page, 'ha');
  await list_until_names(page, ALPHA);
  equal(await page_call(page, () => history.length), steps + 1, 'a word is one step, not one for each letter');
  await page_key(page, 'Enter');
  await list_search(page, 'alpine');
  await page_key(page, 'Enter');
  await list_until_names(page, ['alpine.txt']);
  const [up, down] = [-1, 1].map(way => () => page_call(page, way => history.go(way), way));
  const boxed = text => page_until(page, `the box has ${text}`, text => document.getElementById('search').value === text, text);
  await up();
  await list_until_names(page, ALPHA);
  await boxed('alpha');
  await down();
  await list_until_names(page, ['alpine.txt']);
  await boxed('alpine');
  await up();
  await list_until_names(page, ALPHA);
  await page_loaded(page, () => page_click(page, '.liverow .livepath', 'tree')); // another page of the server
  await page_until(page, 'the folder is open', () => document.querySelector('.indexof') !== null);
  await up();
  await list_until_names(page, ALPHA);
  await boxed('alpha');
  await up();
  await page_until(page, 'the first page has its own content again', () =>
    !document.body.classList.contains('live') && document.querySelector('.indexof')?.getClientRects().length > 0);
  await boxed('');
  // Loaded anew in between, the page has no content of the address that its steps began with.
  await down();
  await list_until_names(page, ALPHA);
  await page_loaded(page, () => page_send(page, 'Page.reload'));
  await list_until_names(page, ALPHA);
  await up();
  await page_until(page, 'the first page is there, and not the search without its script', () =>
    !document.body.classList.contains('live') && document.querySelector('.indexof')?.getClientRects().length > 0);
  await boxed('');
}

// --- Long lists -------------------------------------------------------------------------------------------------------

// Presses the scroll bar's thumb where it is, and lets it go at `to` of the bar.
async function _drag_bar(page, to) {
  const place = await page_call(page, () => {
    const view = document.getElementById('live-view');
    const box = view.getBoundingClientRect();
    return {
      x: box.left + view.clientLeft + view.clientWidth + (view.offsetWidth - view.clientWidth) / 2, top: box.top, height: box.height,
      bar: view.offsetWidth - view.clientWidth, from: view.scrollTop / (view.scrollHeight - view.clientHeight),
    };
  });
  const { from } = place;
  ok(place.bar > 4, 'there is a scroll bar');
  const edge = 25; // an arrow and half of a short thumb
  const at = part => place.top + edge + part * (place.height - 2 * edge);
  await page_mouse(page, 'mouseMoved', place.x, at(from));
  await page_mouse(page, 'mousePressed', place.x, at(from), { buttons: 1 });
  for (let i = 1; i <= 8; i++)
    await page_mouse(page, 'mouseMoved', place.x, at(from + (to - from) * i / 8), { button: 'left', buttons: 1 });
  await page_mouse(page, 'mouseReleased', place.x, at(to));
}

// Rows follow each other without a gap, fill the view, and each one has what belongs to its number.
function _check_rows(list, name) {
  list.rows.forEach((row, i) => {
    equal(row.name, name(row.index));
    if (i)
      equal([row.index, Math.round(row.top - list.rows[i - 1].top) > 10], [list.rows[i - 1].index + 1, true]);
  });
}

async function _scroll_long(page, total, name) {
  const first = list => list.rows[0]?.index, last = list => list.rows.at(-1)?.index;
  const rows = (what, test) => list_until(page, what, list => list.rows.length > 5 && test(list)).then(list => (_check_rows(list, name), list));
  let list = await rows('the list begins', list => first(list) === 0 && list.count === `${total.toLocaleString('en-US')} results`);
  const shown = list.rows.length;
  const view = await page_place(page, '#live-view');
  // By the wheel, row by row in sight.
  for (let i = 0; i < 5; i++) {
    const before = first(list);
    await page_wheel(page, view.x, view.y, 120);
    list = await rows('the wheel moves the list', list => first(list) > before);
    ok(first(list) <= before + shown, `the wheel leaves no row out: ${before}, ${first(list)}`);
  }
  // By the bar: to the middle, by the wheel from there, to the end and back.
  await _drag_bar(page, 0.5);
  list = await rows('the bar leads to the middle', list => first(list) > total * 0.35 && last(list) < total * 0.65);
  for (const delta of [120, 120, 120, -120, -120, -120, 120, 120]) {
    const before = first(list), end = last(list);
    await page_wheel(page, view.x, view.y, delta);
    list = await rows('the wheel moves the list in its middle', list => (first(list) - before) * delta > 0);
    ok(Math.abs(first(list) - before) < shown && first(list) <= end, `the wheel goes by rows in the middle too: ${before}, ${first(list)}`);
  }
  await _drag_bar(page, 1.1);
  list = await rows('the bar leads to the end', list => last(list) === total - 1);
  await page_wheel(page, view.x, view.y, -240);
  list = await rows('the wheel leads away from the end', list => last(list) < total - 1 && last(list) > total - 1 - 2 * shown);
  await page_wheel(page, view.x, view.y, 2400);
  await rows('and to it again', list => last(list) === total - 1);
  // By keys.
  await page_call(page, () => document.getElementById('live-view').focus());
  const selected = async index => {
    const list = await rows(`row ${index} is selected`, list => list.rows.some(row => row.selected && row.index === index));
    const row = list.rows.find(row => row.selected);
    const height = await page_call(page, () => document.getElementById('live-view').clientHeight);
    ok(row.top > -2 && row.top < height - 10, 'the selected row is in sight');
  };
  await page_key(page, 'Home');
  await selected(0);
  await page_key(page, 'ArrowDown');
  await selected(1);
  await page_key(page, 'End');
  await selected(total - 1);
  for (let i = 0; i < shown + 3; i++)
    await page_key(page, 'ArrowUp');
  await selected(total - 1 - shown - 3);
  ok(await page_call(page, () => document.querySelectorAll('.liverow').length) < 5 * shown, 'the page has few more rows than are in sight');
}

async function deep_scrolling(page) {
  await page_goto(page, '/?search=item+ext:dat');
  await _scroll_long(page, LIST_ROWS, item);
  // On paper it is what is in sight, and not a thousand pages.
  const { data } = await page_send(page, 'Page.printToPDF', {});
  const papers = Buffer.from(data, 'base64').toString('latin1').match(/\/Type \/Page\b/g).length;
  ok(papers <= 2, `printed on ${papers} pages`);
}

// More rows than a browser's element can be high in pixels.
async function millions_of_rows(page) {
  const TOTAL = 30000000;
  const name = index => `row ${index} of many.txt`;
  let asked = 0;
  await page_intercept(page, url => {
    const offset = Number(url.searchParams.get('offset') ?? 0), count = Number(url.searchParams.get('count'));
    asked = Math.max(asked, count);
    const results = Array.from({ length: Math.max(0, Math.min(count, TOTAL - offset)) }, (_, i) => ({
      type: 'file', name: name(offset + i), path: '/many', size: '1', date_modified: '133500000000000000',
      url: `/many/${offset + i}`, path_url: '/many/', name_marks: '0,3', path_marks: '',
    }));
    return JSON.stringify({ totalResults: TOTAL, results });
  });
  await page_goto(page, '/?search=row');
  await _scroll_long(page, TOTAL, name);
  ok(asked > 0 && asked <= 1000, `windows of rows are asked for, not all: ${asked}`);
}

// Rows that come and go while the list is open: what is in sight is of one state of the index, also where it came in
// two answers. And the same rows stay in sight where theirs have another height.
async function changing_list(page) {
  let total = 300, name = 'old';
  await page_intercept(page, url => {
    const offset = Number(url.searchParams.get('offset'));
    const results = Array.from({ length: Math.max(0, Math.min(100, total - offset)) }, (_, i) => ({
      type: 'file', name: `${name} ${offset + i}`, path: '/many', size: '1', date_modified: '133500000000000000',
      url: `/many/${offset + i}`, path_url: '/many/', name_marks: '', path_marks: '',
    }));
    return JSON.stringify({ totalResults: total, results });
  });
  await page_goto(page, '/?search=row');
  await list_until_count(page, '300 results');
  await page_painted(page); // and what is beside
  const requests = () => page.requests.filter(request => request.url.includes('json=1'));
  await until('no request is under way', () => requests().length > 1 && requests().every(request => page.ended.has(request.id)));
  [total, name] = [301, 'new'];
  await page_call(page, () => (document.getElementById('live-view').scrollTop = 190 * 32)); // of the second and the third answer
  let list = await list_until(page, 'all rows in sight are new', list =>
    list.count === '301 results' && list.rows[0]?.index === 190 && list.rows.length > 12 && list.rows.every(row => row.name === `new ${row.index}`));
  await page_send(page, 'Emulation.setDeviceMetricsOverride', { width: 600, height: 600, deviceScaleFactor: 2, mobile: false });
  list = await list_until(page, 'rows are high', list => list.rows[1]?.top - list.rows[0]?.top > 40);
  equal(list.rows[0].index, 190);
  // Elements follow each other as rows do, for who has them read out.
  await page_call(page, () => {
    [...document.querySelectorAll('.livename')].at(-1).focus(); // it goes out of sight, and the keys stay with the list
    document.getElementById('live-view').scrollTop = 185 * 58;
  });
  await list_until(page, 'the list is scrolled', list => list.rows[0]?.index === 185);
  const order = await page_call(page, () => [...document.querySelectorAll('.liverow')].map(row => Number(row.dataset.index)));
  equal(order, order.map((_, i) => 185 + i));
  await page_key(page, 'ArrowDown'); // from what is in sight, and not from the list's begin
  await list_until(page, 'a row in sight is selected', list => list.rows.some(row => row.selected && row.index === 185));
}

// --- The server's own pages -------------------------------------------------------------------------------------------

async function folder_pages(page, { sample, server }) {
  await page_goto(page, '/');
  const open = async name => {
    await page_loaded(page, () => page_click(page, 'td.folder a', name));
    return page_call(page, () => [...document.querySelectorAll('td.folder, td.file')].map(cell => cell.textContent.trim()));
  };
  equal((await open(basename(sample.tree))).sort(), ['alphabet.txt', 'alpine.txt', 'café 😀 alphorn.txt', 'data', 'hostile', 'pages', 'sorted'].sort());
  equal((await open('data')).sort(), ['download.bin', 'inner'].sort());
  equal(await open('inner'), ['deep.txt']);
  // Typing covers the page, and an empty box brings it back.
  await page_type(page, 'alpine');
  await list_until_names(page, ['alpine.txt']);
  await page_call(page, () => document.getElementById('search').focus());
  await page_key(page, 'Escape');
  await page_until(page, 'the folder is there again', () =>
    !document.body.classList.contains('live') && document.querySelector('td.file')?.getClientRects().length > 0);
  await page_loaded(page, () => page_click(page, '.updir a'));
  ok(await page_call(page, () => document.querySelector('.indexof').textContent.trim().endsWith('data')), 'up leads to the folder above');
  equal(await page_call(page, url => fetch(url).then(response => response.status), `${server.origin}/no/such/thing`), 404);
  page_allow(page, /404/);
}

async function download_and_range(page, { folder }) {
  const target = join(folder, 'downloads');
  mkdirSync(target);
  await page_take_downloads(page, target);
  await page_goto(page, '/?search=download.bin');
  const list = await list_until_names(page, ['download.bin']);
  await page_click(page, '.livename span', 'download.bin');
  await until('the download ends', () => [...page.downloads.values()].some(download => download.state === 'completed'));
  const [file] = readdirSync(target);
  equal(file, 'download.bin');
  ok(readFileSync(join(target, file)).equals(DOWNLOAD), 'what was fetched is what there is');
  for (const [range, start, end] of [['bytes=10-19', 10, 20], [`bytes=${DOWNLOAD.length - 5}-`, DOWNLOAD.length - 5, DOWNLOAD.length]]) {
    const answer = await page_call(page, async (url, range) => {
      const response = await fetch(url, { headers: { Range: range }, cache: 'no-store' });
      return { status: response.status, range: response.headers.get('Content-Range'), bytes: [...new Uint8Array(await response.arrayBuffer())] };
    }, list.rows[0].href, range);
    equal(answer, { status: 206, range: `bytes ${start}-${end - 1}/${DOWNLOAD.length}`, bytes: [...DOWNLOAD.subarray(start, end)] });
  }
}

async function without_script(page) {
  await page_goto(page, '/');
  await page_click(page, '#search');
  await page_type(page, 'leaf');
  await page_loaded(page, () => page_key(page, 'Enter'));
  const names = () => page_call(page, () => [...document.querySelectorAll('td.file')].map(cell => cell.textContent.trim()));
  const leaf = i => `leaf ${String(i).padStart(2, '0')}.txt`;
  const leaves = (from, to) => Array.from({ length: to - from }, (_, i) => leaf(from + i));
  equal(await names(), leaves(0, 32));
  ok((await page_call(page, () => document.querySelector('.numresults').textContent)).includes('80'));
  equal(await page_call(page, () => [document.getElementById('search').value, document.getElementById('live')]), ['leaf', null]);
  await page_loaded(page, () => page_click(page, 'a.num', '3'));
  equal(await names(), leaves(64, 80));
  await page_loaded(page, () => page_click(page, '.prevnext a')); // there is no next one any more
  equal(await names(), leaves(32, 64));
  await page_loaded(page, () => page_click(page, '.nameheader a'));
  equal(await names(), leaves(48, 80).reverse());
  await page_loaded(page, () => page_click(page, '.pathdata a', 'pages'));
  equal((await names()).length, 80);
  const hostile = '"><script>alert(6)</script>';
  await page_goto(page, `/?search=${encodeURIComponent(hostile)}`);
  equal(await page_call(page, () => document.getElementById('search').value), hostile);
}

async function login(page, { machine, folder, sample }) {
  const server = await program_start(machine, join(folder, 'login'), {
    folders: [sample.tree], settings: ['http_server_username=ann', 'http_server_password=pass:word é'],
  });
  page.origin = server.origin;
  page_allow(page, /401/);
  await page_send(page, 'Fetch.enable', { handleAuthRequests: true });
  await page_goto(page, '/?search=alpha');
  equal(page.status, 401);
  equal(await page_call(page, () => document.getElementById('search')), null);
  await page_login(page, 'ann', 'pass:word é');
  await page_goto(page, '/?search=alpha');
  equal(page.status, 200);
  await list_until_names(page, ALPHA); // the script's requests log in as well
  await program_stop(server);
}

// --- Hostile names ----------------------------------------------------------------------------------------------------

// Moves over all that is there, so that handlers of a name would run.
const _touch_all = page => page_call(page, () => {
  for (const element of document.querySelectorAll('*')) {
    for (const type of ['mouseover', 'mouseenter', 'focus', 'load'])
      element.dispatchEvent(new Event(type, { bubbles: type === 'mouseover' }));
  }
  return [document.scripts.length, document.querySelectorAll('svg, iframe, object, [onmouseover], [onerror], [onload]').length];
});

async function hostile_names(page, { machine, sample }) {
  const files = new Map(sample.hostile.map(name => [name, `this is ${name}`]));
  if (!machine.windows)
    files.set('bad\ufffd\ufffd.txt', 'this is no text');
  const listed = machine.windows ? HOSTILE_POSIX.filter(name => !/[\n\\]/.test(name)) : [];
  const contents = hrefs => page_call(page, hrefs => Promise.all(hrefs.map(href => fetch(href).then(response => response.text()))), hrefs);
  const check = async (where, rows) => {
    const texts = await contents(rows.filter(row => files.has(row.name)).map(row => row.href));
    equal(new Map(rows.filter(row => files.has(row.name)).map((row, i) => [row.name, texts[i]])), files, where);
    equal(await _touch_all(page), [1, 0], 'there is the page\'s own script alone, and no element of a name');
  };
  const sorted = names => [...names].sort();
  await page_goto(page, '/');
  await list_search(page, machine.windows ? 'file: \\hostile\\' : 'file: /hostile/');
  const list = await list_until_count(page, `${files.size + listed.length} results`);
  // A line end is shown by its sign.
  const listRows = list.rows.map(row => ({ ...row, name: row.name.replace('\u240a', '\n') }));
  ok(list.rows.every(row => !row.name.includes('\n')));
  equal(sorted(listRows.map(row => row.name)), sorted([...files.keys(), ...listed]));
  await check('in the list', listRows);
  // The same in the page of the folder, which the server writes.
  const [folder] = [...new Set(listRows.filter(row => files.has(row.name)).map(row => row.path))];
  equal(folder, program_path(machine, join(sample.tree, 'hostile')));
  await page_loaded(page, () => page_click(page, '.livepath', folder));
  const rows = await page_call(page, () => [...document.querySelectorAll('td.file')].map(cell => ({
    name: cell.textContent, href: cell.querySelector('a').getAttribute('href') })));
  equal(sorted(rows.map(row => row.name)), sorted(files.keys()));
  await check('in the page', rows);
  if (!machine.windows) {
    await page_goto(page, '/?search=script%3e.txt+path:sorted');
    const { rows } = await list_until_names(page, ['script>.txt']);
    equal(rows[0].path, join(sample.tree, HOSTILE_PATH, '..'));
    equal(await contents(rows.map(row => row.href)), ['this is a path']);
    equal(await _touch_all(page), [1, 0]);
  }
  // Texts that are searched for reach the page too.
  for (const text of ['<img src=x onerror=alert(7)>', '"><script>alert(8)</script>', '</title><script>alert(9)</script>']) {
    await page_goto(page, `/?search=${encodeURIComponent(text)}`);
    await list_until(page, 'the search is answered', list => list.state === 'ready');
    equal(await page_call(page, () => document.getElementById('search').value), text);
    equal(await _touch_all(page), [1, 0]);
  }
}

// --- Looks ------------------------------------------------------------------------------------------------------------

// The contrast of texts with what is behind them, by the measure of WCAG; the least of what a selector finds.
const _contrast = (page, selector) => page_call(page, selector => {
  const parse = text => (text.match(/[\d.]+/g) ?? []).map(Number);
  const light = colour => {
    const [r, g, b] = colour.slice(0, 3).map(value => (value / 255 <= 0.03928 ? value / 255 / 12.92 : ((value / 255 + 0.055) / 1.055) ** 2.4));
    return 0.2126 * r + 0.7152 * g + 0.0722 * b;
  };
  const behind = element => {
    for (let each = element; each; each = each.parentElement) {
      const colour = parse(getComputedStyle(each).backgroundColor);
      if (colour.length === 3 || colour[3] === 1)
        return colour;
    }
    return [255, 255, 255];
  };
  const values = [...document.querySelectorAll(selector)].filter(each => each.getClientRects().length).map(each => {
    const [a, b] = [light(parse(getComputedStyle(each).color)), light(behind(each))];
    return (Math.max(a, b) + 0.05) / (Math.min(a, b) + 0.05);
  });
  return values.length ? Math.min(...values) : 0;
}, selector);

// The mean brightness of a picture, 0 to 255, as another page sees it.
async function _brightness(page, picture) {
  const looker = await page_open(page.browser, page.origin);
  const value = await page_call(looker, async data => {
    const image = await createImageBitmap(await (await fetch(`data:image/png;base64,${data}`)).blob());
    const canvas = new OffscreenCanvas(image.width, image.height);
    const context = canvas.getContext('2d');
    context.drawImage(image, 0, 0);
    const { data: pixels } = context.getImageData(0, 0, image.width, image.height);
    let sum = 0;
    for (let i = 0; i < pixels.length; i += 4)
      sum += (pixels[i] + pixels[i + 1] + pixels[i + 2]) / 3;
    return sum / (pixels.length / 4);
  }, picture.toString('base64'));
  await page_close(looker);
  return value;
}

async function _check_looks(page, isDark) {
  for (const [address, selectors] of [
    ['/?search=alpha', ['.livename', '.livename mark', '.livepath', '.livesize', '.livecolumn', '#live-count', '.liveoption', '#search']],
    ['/', ['td.folder a', '.indexof', '.nameheader a', '#search']],
  ]) {
    await page_goto(page, address);
    if (address !== '/') {
      await list_until_names(page, ALPHA);
      await page_click(page, '.liveoption[data-option=diacritics]'); // one that is on
      await list_until(page, 'the list is there', list => list.state === 'ready' && list.rows.length === 4);
      await page_key(page, 'ArrowDown'); // a row that is selected
      await list_until(page, 'a row is selected', list => list.rows.some(row => row.selected));
    }
    await page_painted(page);
    for (const selector of selectors) {
      const contrast = await _contrast(page, selector);
      ok(contrast >= 4.5, `${selector} can be read: contrast ${contrast.toFixed(2)}${isDark ? ' in the dark' : ''}`);
    }
    const brightness = await _brightness(page, await page_picture(page));
    ok(isDark ? brightness < 70 : brightness > 200, `brightness ${brightness}`);
  }
}

const light_looks = page => _check_looks(page, false);
const dark_looks = page => _check_looks(page, true);

async function telephone(page) {
  await page_phone(page);
  await page_send(page, 'Emulation.setTouchEmulationEnabled', { enabled: true });
  for (const address of ['/', '/?search=alpha', '/?search=leaf']) {
    await page_goto(page, address);
    if (address !== '/')
      await list_until(page, 'there are rows', list => list.state === 'ready' && list.rows.length > 3);
    const room = await page_call(page, () => ({
      wide: document.scrollingElement.scrollWidth, room: document.documentElement.clientWidth,
      out: [...document.querySelectorAll('#search, .liveoption, .livecolumn, .livename, .livesize, .livedate, td a')].filter(each => {
        const box = each.getBoundingClientRect();
        return box.width > 0 && (box.left < 0 || box.right > document.documentElement.clientWidth + 1);
      }).map(each => each.className || each.id),
    }));
    ok(room.wide <= room.room, `${address} does not scroll sideways: ${room.wide} of ${room.room}`);
    equal(room.out, [], 'nothing stands out of the page');
  }
  // Where the box has the focus, a keyboard covers the rows: it has it for typing alone.
  const isInBox = () => page_call(page, () => document.activeElement.id === 'search');
  ok(!await isInBox());
  await page_click(page, '.liveoption[data-option=case]');
  await page_until(page, 'the option is on', () => location.search.includes('case=1'));
  ok(!await isInBox());
  await page_click(page, '#search');
  ok(await isInBox());
  await page_key(page, 'Enter');
  ok(!await isInBox());
}

// --- A server that goes and comes ---------------------------------------------------------------------------------------

async function server_goes_and_comes(page, { machine, folder, sample }) {
  const start = port => program_start(machine, join(folder, 'coming'), { port, folders: [sample.tree] });
  let server = await start();
  page.origin = server.origin;
  page_allow(page, /ERR_CONNECTION_(REFUSED|RESET)|ERR_EMPTY_RESPONSE/);
  await page_goto(page, '/');
  await page_type(page, 'alph');
  await list_until(page, 'there are rows', list => list.state === 'ready' && list.rows.length > 0);
  await program_kill(server);
  await page_type(page, 'a');
  const list = await list_until(page, 'the list says that the server is away', list => list.state === 'error');
  ok(list.status.length > 10 && list.rows.length > 0, 'it says so, and keeps what there was');
  server = await start(server.port);
  await list_until_names(page, ALPHA); // by itself
  await program_stop(server);
}

// ----------------------------------------------------------------------------------------------------------------------

export const CASES = [
  typing, latest_text_wins, sorting, options, keys, back_button, deep_scrolling, millions_of_rows, changing_list, folder_pages,
  download_and_range, hostile_names, login, light_looks, telephone, server_goes_and_comes,
].map(run => ({ name: run.name.replaceAll('_', ' '), run })).concat([
  { name: 'dark looks', run: dark_looks, page: { dark: true } },
  { name: 'without script', run: without_script, page: { script: false } },
]);
