// How long it takes from a key to the rows that it finds, as the user of a browser sees it:
//
//     node tests/browser/keystroke.mjs http://127.0.0.1:8080/
//
// 50 keys, one after the other, each once the rows of the one before are there. A key counts from its event in the page to
// the end of the frame in which the first row or the count is another one. Prints the median and the 95th percentile.
import { browser_kill, browser_start, browser_stop, page_call, page_close, page_goto, page_key, page_open, page_type, page_until, until } from './devtools.mjs';

const WORDS = ['readme', 'python3', 'config', 'library', 'changelog', 'license', 'manual', 'icons'];
const KEYS = 50;

// Runs in the page. `window.keystroke` is what the last key took, or nothing yet.
function _watch() {
  const sight = () => `${document.querySelector('#live-count')?.textContent}|${document.querySelector('.liverow[data-index="0"] .livename')?.textContent}`;
  let start, before;
  addEventListener('keydown', event => {
    window.keystroke = undefined;
    before = sight();
    start = event.timeStamp;
  }, true);
  new MutationObserver(() => {
    if (start === undefined || sight() === before || document.querySelector('#live').dataset.state !== 'ready')
      return;
    const begun = start;
    start = undefined;
    requestAnimationFrame(() => {
      const channel = new MessageChannel(); // its message comes when the frame is done
      channel.port1.onmessage = () => (window.keystroke = performance.now() - begun);
      channel.port2.postMessage(0);
    });
  }).observe(document.body, { subtree: true, childList: true, characterData: true, attributes: true, attributeFilter: ['data-index', 'data-state'] });
}

async function _main(address) {
  const url = new URL(address);
  const page = await page_open(browser, url.origin);
  await page_goto(page, '/?search=');
  await page_until(page, 'there are rows', () => document.querySelector('.liverow:not(.loading)') !== null);
  await page_call(page, _watch);
  const times = [];
  let same = 0;
  for (const word of Array(10).fill(WORDS).flat()) {
    await page_key(page, 'a', 2);
    let typed = '';
    for (const letter of word) {
      if (times.length === KEYS)
        break;
      typed += letter;
      await page_type(page, letter);
      const time = await until(`there are rows of ${typed}`, () => page_call(page, () => window.keystroke), 5000).catch(() => void same++);
      if (time)
        times.push(time);
    }
  }
  const total = await page_call(page, () => document.querySelector('#live-count').textContent);
  await page_close(page);
  await browser_stop(browser);
  browser = undefined;
  times.sort((a, b) => a - b);
  const at = part => times[Math.min(times.length - 1, Math.floor(part * times.length))].toFixed(1);
  console.log(`from a key to its painted rows: median ${at(0.5)} ms, 95 % ${at(0.95)} ms, of ${times.length} keys` +
    `${same ? `; ${same} keys changed nothing in sight` : ''} (the last search: ${total})`);
}

let browser;
process.on('exit', () => browser && browser_kill(browser));
process.on('SIGINT', () => process.exit(1));
const address = process.argv[2];
if (!address) {
  console.error('usage: keystroke.mjs ADDRESS');
  process.exit(2);
}
browser = await browser_start();
await _main(address).then(() => process.exit(0), error => {
  console.error(`keystroke.mjs: ${error.stack}`);
  process.exit(1);
});
