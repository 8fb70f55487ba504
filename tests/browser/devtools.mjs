// Chromium by the protocol of its developer tools, over a pipe: no driver, no package and no port are needed.
//
// A browser has pages, each with cookies, cache and history of its own. A page keeps what must never happen in it, and
// page_close tells of it: an error in the console, an exception, a dialog, a request to another origin than its own.
import { spawn } from 'node:child_process';
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';

// Far beyond what anything here takes, also on a machine that has other work.
const LIMIT = 20000;
const FLAGS = [
  '--headless=new', '--remote-debugging-pipe', '--no-sandbox', '--disable-gpu', '--disable-dev-shm-usage', '--mute-audio',
  '--no-first-run', '--no-default-browser-check', '--no-proxy-server', '--disable-extensions', '--disable-sync',
  '--disable-background-networking', '--disable-component-update', '--disable-default-apps',
  '--disable-background-timer-throttling', '--disable-renderer-backgrounding', '--disable-backgrounding-occluded-windows',
  '--disable-features=Translate,MediaRouter,OptimizationHints,HttpsUpgrades', '--force-color-profile=srgb', '--lang=en-US',
];

export const sleep = milliseconds => new Promise(resolve => setTimeout(resolve, milliseconds));

// Waits until `ask` gives something true, and returns it.
export async function until(what, ask, limit = LIMIT) {
  for (const end = Date.now() + limit; ;) {
    const answer = await ask();
    if (answer)
      return answer;
    if (Date.now() > end)
      throw new Error(`this did not come about: ${what}`);
    await sleep(15);
  }
}

// --- The browser ------------------------------------------------------------------------------------------------------

export async function browser_start() {
  const folder = mkdtempSync(join(tmpdir(), 'findwright-chromium-'));
  const child = spawn('chromium', [...FLAGS, `--user-data-dir=${folder}`, 'about:blank'], {
    stdio: ['ignore', 'ignore', 'ignore', 'pipe', 'pipe'],
    env: { ...process.env, LANG: 'en_US.UTF-8', TZ: 'UTC' },
  });
  const browser = { child, folder, calls: new Map(), pages: new Map(), last: 0, ended: false, text: [] };
  child.on('error', error => _browser_end(browser, `chromium does not start: ${error.message}`));
  child.on('exit', () => _browser_end(browser, 'chromium has ended'));
  child.stdio[3].on('error', () => {});
  child.stdio[4].on('data', data => _browser_receive(browser, data));
  await browser_send(browser, 'Browser.getVersion');
  return browser;
}

export async function browser_stop(browser) {
  if (!browser.ended) {
    browser_send(browser, 'Browser.close').catch(() => {});
    await until('chromium ends', () => browser.ended);
  }
  rmSync(browser.folder, { recursive: true, force: true, maxRetries: 10, retryDelay: 100 });
}

// At once, of a run that ends early.
export function browser_kill(browser) {
  browser.child.kill('SIGKILL');
  try {
    rmSync(browser.folder, { recursive: true, force: true, maxRetries: 10, retryDelay: 100 });
  } catch { /* its processes are still on their way out */ }
}

export function browser_send(browser, method, params = {}, sessionId = undefined) {
  if (browser.ended)
    return Promise.reject(new Error(`${method}: chromium has ended`));
  const id = ++browser.last;
  browser.child.stdio[3].write(JSON.stringify({ id, method, params, sessionId }) + '\0');
  return new Promise((resolve, reject) => browser.calls.set(id, { resolve, reject, method }));
}

function _browser_end(browser, why) {
  browser.ended = true;
  for (const call of browser.calls.values())
    call.reject(new Error(`${call.method}: ${why}`));
  browser.calls.clear();
}

// Messages end with a zero byte and may come in pieces.
function _browser_receive(browser, data) {
  for (let at; (at = data.indexOf(0)) >= 0; data = data.subarray(at + 1)) {
    const text = Buffer.concat([...browser.text, data.subarray(0, at)]).toString();
    browser.text = [];
    _browser_message(browser, JSON.parse(text));
  }
  browser.text.push(data);
}

function _browser_message(browser, message) {
  const call = browser.calls.get(message.id);
  if (call) {
    browser.calls.delete(message.id);
    if (message.error)
      call.reject(new Error(`${call.method}: ${message.error.message}`));
    else
      call.resolve(message.result);
    return;
  }
  const page = browser.pages.get(message.sessionId);
  if (page)
    _page_event(page, message.method, message.params);
  else if (message.method?.startsWith('Browser.download'))
    browser.pages.forEach(each => _page_event(each, message.method, message.params));
}

// --- Pages ------------------------------------------------------------------------------------------------------------

// `origin`: the one that it may send requests to.
export async function page_open(browser, origin, { width = 1200, height = 760, dark = false, script = true } = {}) {
  const { browserContextId: context } = await browser_send(browser, 'Target.createBrowserContext');
  const { targetId } = await browser_send(browser, 'Target.createTarget', { url: 'about:blank', browserContextId: context, width, height });
  const { sessionId } = await browser_send(browser, 'Target.attachToTarget', { targetId, flatten: true });
  const page = {
    browser, context, sessionId, origin, loads: 0, faults: [], allowed: [], requests: [], ended: new Set(),
    downloads: new Map(), intercept: null, credentials: null,
  };
  browser.pages.set(sessionId, page);
  for (const domain of ['Page', 'Runtime', 'Network', 'Log'])
    await page_send(page, `${domain}.enable`);
  await page_media(page, dark);
  await page_send(page, 'Emulation.setDeviceMetricsOverride', { width, height, deviceScaleFactor: 1, mobile: false });
  if (!script)
    await page_send(page, 'Emulation.setScriptExecutionDisabled', { value: true });
  return page;
}

// Throws when anything has happened that must not.
export async function page_close(page) {
  if (page.closed)
    return;
  page.closed = true;
  page.browser.pages.delete(page.sessionId);
  await browser_send(page.browser, 'Target.disposeBrowserContext', { browserContextId: page.context });
  const faults = page.faults.filter(fault => !page.allowed.some(allowed => allowed.test(fault)));
  if (faults.length)
    throw new Error(`in the page: ${faults.join('\n  ')}`);
}

export const page_send = (page, method, params) => browser_send(page.browser, method, params, page.sessionId);

export const page_media = (page, dark) => page_send(page, 'Emulation.setEmulatedMedia', {
  features: [{ name: 'prefers-color-scheme', value: dark ? 'dark' : 'light' }, { name: 'prefers-reduced-motion', value: 'reduce' }],
});

export const page_phone = (page, width = 390, height = 844) =>
  page_send(page, 'Emulation.setDeviceMetricsOverride', { width, height, deviceScaleFactor: 2, mobile: true });

// What the console is told of a failure that the test itself brings about.
export const page_allow = (page, pattern) => page.allowed.push(pattern);

const _page_events = {
  'Page.loadEventFired': page => page.loads++,
  'Page.javascriptDialogOpening': (page, event) => {
    page.faults.push(`a dialog: ${event.message}`);
    page_send(page, 'Page.handleJavaScriptDialog', { accept: false }).catch(() => {});
  },
  'Runtime.exceptionThrown': (page, { exceptionDetails: details }) =>
    page.faults.push(`an exception: ${details.exception?.description ?? details.text}`),
  'Runtime.consoleAPICalled': (page, event) => {
    if (['error', 'warning', 'assert'].includes(event.type))
      page.faults.push(`console.${event.type}: ${event.args.map(arg => arg.value ?? arg.description).join(' ')}`);
  },
  'Log.entryAdded': (page, { entry }) => {
    if (entry.level === 'error')
      page.faults.push(`in the console: ${entry.text} ${entry.url ?? ''}`);
  },
  'Network.requestWillBeSent': (page, event) => {
    page.requests.push({ id: event.requestId, url: event.request.url });
    if (!event.request.url.startsWith(`${page.origin}/`) && !/^(data|about|blob):/.test(event.request.url))
      page.faults.push(`a request to another origin: ${event.request.url}`);
  },
  'Network.responseReceived': (page, event) => (page.status = event.type === 'Document' ? event.response.status : page.status),
  'Network.loadingFinished': (page, event) => page.ended.add(event.requestId),
  'Network.loadingFailed': (page, event) => page.ended.add(event.requestId),
  'Fetch.requestPaused': (page, event) => _page_intercepted(page, event),
  'Fetch.authRequired': (page, event) => page_send(page, 'Fetch.continueWithAuth', {
    requestId: event.requestId,
    authChallengeResponse: page.credentials ? { response: 'ProvideCredentials', ...page.credentials } : { response: 'CancelAuth' },
  }),
  'Browser.downloadWillBegin': (page, event) => page.downloads.set(event.guid, { name: event.suggestedFilename, state: 'inProgress' }),
  'Browser.downloadProgress': (page, event) => Object.assign(page.downloads.get(event.guid) ?? {}, { state: event.state }),
};

function _page_event(page, method, params) {
  _page_events[method]?.(page, params);
}

// --- Requests ---------------------------------------------------------------------------------------------------------

// From here on `handle` has each JSON request and answers it: with nothing it goes on to the server, with a text that
// is its answer. It may take its time.
export async function page_intercept(page, handle) {
  page.intercept = handle;
  await page_send(page, 'Fetch.enable', { patterns: [{ urlPattern: '*json=1*' }] });
}

export async function page_login(page, username, password) {
  page.credentials = { username, password };
  await page_send(page, 'Fetch.enable', { handleAuthRequests: true });
}

async function _page_intercepted(page, { requestId, request }) {
  const answer = page.intercept ? await page.intercept(new URL(request.url)) : undefined;
  const done = answer === undefined ? page_send(page, 'Fetch.continueRequest', { requestId })
    : page_send(page, 'Fetch.fulfillRequest', {
      requestId, responseCode: 200, body: Buffer.from(answer).toString('base64'),
      responseHeaders: [{ name: 'Content-Type', value: 'text/html; charset=UTF-8' }, { name: 'Cache-Control', value: 'no-cache' }],
    });
  await done.catch(() => {}); // the page has given it up meanwhile
}

export async function page_take_downloads(page, folder) {
  await browser_send(page.browser, 'Browser.setDownloadBehavior', {
    behavior: 'allow', browserContextId: page.context, downloadPath: folder, eventsEnabled: true,
  });
}

// --- What a user does and sees ----------------------------------------------------------------------------------------

// Waits until the page and all that belongs to it are there.
export async function page_goto(page, url) {
  await page_loaded(page, () => page_send(page, 'Page.navigate', { url: new URL(url, page.origin).href }));
}

// Does what leads to another page, and waits for that.
export async function page_loaded(page, action) {
  const before = page.loads;
  await action();
  await until('a page loads', () => page.loads > before);
}

// Calls a function in the page; what it gets and returns must be possible in JSON.
export async function page_call(page, call, ...args) {
  const { result, exceptionDetails: details } = await page_send(page, 'Runtime.evaluate', {
    expression: `(${call})(...${JSON.stringify(args)})`, awaitPromise: true, returnByValue: true,
  });
  if (details)
    throw new Error(details.exception?.description ?? details.text);
  return result.value;
}

export const page_until = (page, what, call, ...args) =>
  until(what, () => page_call(page, call, ...args).catch(() => undefined)); // between two pages there is none

// All that was done so far has been painted.
export const page_painted = page => page_call(page, () =>
  new Promise(resolve => requestAnimationFrame(() => requestAnimationFrame(() => resolve(true)))));

const KEYS = {
  Enter: [13, '\r'], Escape: [27], Backspace: [8], Tab: [9], PageUp: [33], PageDown: [34], End: [35], Home: [36],
  ArrowLeft: [37], ArrowUp: [38], ArrowRight: [39], ArrowDown: [40],
};

export async function page_key(page, key, modifiers = 0) {
  // Codes of other characters than these are those of other keys: that of a full stop is Delete.
  const [code, text] = KEYS[key] ?? [/[a-z0-9 ]/i.test(key) ? key.toUpperCase().charCodeAt(0) : 0, modifiers & 2 ? undefined : key];
  const event = { key, modifiers, windowsVirtualKeyCode: code, ...(KEYS[key] && { code: key }) };
  const commands = modifiers & 2 && key === 'a' ? ['selectAll'] : undefined;
  await page_send(page, 'Input.dispatchKeyEvent', { ...event, type: text ? 'keyDown' : 'rawKeyDown', text, commands });
  await page_send(page, 'Input.dispatchKeyEvent', { ...event, type: 'keyUp' });
}

export async function page_type(page, text) {
  for (const letter of text)
    await page_key(page, letter);
}

export const page_mouse = (page, type, x, y, more = {}) =>
  page_send(page, 'Input.dispatchMouseEvent', { type, x, y, button: type === 'mouseMoved' ? 'none' : 'left', clickCount: 1, ...more });

export const page_wheel = (page, x, y, deltaY) => page_mouse(page, 'mouseWheel', x, y, { deltaX: 0, deltaY, button: 'none' });

// The middle of what a selector, or a text in it, finds first.
export async function page_place(page, selector, text = '') {
  return page_until(page, `${selector} ${text} is in sight`, (selector, text) => {
    const found = [...document.querySelectorAll(selector)].find(each => each.textContent.includes(text));
    found?.scrollIntoView({ block: 'nearest' });
    const boxes = found ? [found, ...found.querySelectorAll('*')].flatMap(each => [...each.getClientRects()]) : [];
    const box = boxes.find(box => box.width > 0 && box.height > 0);
    return box && { x: box.x + box.width / 2, y: box.y + box.height / 2 };
  }, selector, text);
}

export async function page_click(page, selector, text) {
  const { x, y } = await page_place(page, selector, text);
  await page_mouse(page, 'mouseMoved', x, y);
  await page_mouse(page, 'mousePressed', x, y);
  await page_mouse(page, 'mouseReleased', x, y);
}

// The bytes of a PNG file.
export async function page_picture(page) {
  const { data } = await page_send(page, 'Page.captureScreenshot', { format: 'png' });
  return Buffer.from(data, 'base64');
}
