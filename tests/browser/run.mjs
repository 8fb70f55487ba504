// The pages of the HTTP server in a browser, against the program as it is built:
//
//     node tests/browser/run.mjs [--windows] [--only TEXT] COMMAND...
//
// COMMAND starts the program; with --windows it is one for Windows, under Wine. --only keeps to the cases whose names
// have the text. Each case has a page of its own, with a history and a cache of its own, and fails as well when the
// console has an error, a dialog opens, or a request goes elsewhere. Nothing here waits for a time: only for what must
// come about.
import { mkdtempSync, rmSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { CASES } from './cases.mjs';
import { browser_kill, browser_start, browser_stop, page_close, page_open } from './devtools.mjs';
import { program_start, program_stop, programs_kill } from './program.mjs';
import { sample_make } from './sample.mjs';

const TIME_LIMIT = 240000; // of the whole run, so that it ends what it has started

let browser, folder;

function _clean_up() {
  programs_kill();
  if (browser)
    browser_kill(browser);
  if (folder)
    rmSync(folder, { recursive: true, force: true, maxRetries: 10, retryDelay: 100 });
}

async function _run_case({ name, run, page: options = {} }, shared) {
  const start = Date.now();
  const page = await page_open(browser, shared.server.origin, options);
  let fault;
  try {
    await run(page, shared);
  } catch (error) {
    fault = error;
  }
  await page_close(page).catch(error => (fault = fault ? new Error(`${fault.stack}\n  ${error.message}`) : error));
  console.log(`${fault ? 'FAILED' : 'ok    '} ${name}, ${Date.now() - start} ms`);
  if (fault)
    console.log(`  ${fault.stack}`);
  return !fault;
}

async function _main(words) {
  const windows = words[0] === '--windows' && Boolean(words.shift());
  const only = words[0] === '--only' ? words.splice(0, 2)[1] : '';
  const cases = CASES.filter(each => each.name.includes(only));
  if (!words.length || !cases.length)
    throw new Error('usage: run.mjs [--windows] [--only TEXT] COMMAND...');
  folder = mkdtempSync(join(tmpdir(), 'findwright-browser-'));
  const machine = { command: words, windows };
  const sample = sample_make(folder, machine);
  const shared = { browser, machine, folder, sample };
  [browser, shared.server] = await Promise.all([
    browser_start(),
    program_start(machine, join(folder, 'server'), { folders: [sample.tree], lists: [sample.list] }),
  ]);
  let failed = 0;
  for (const each of cases)
    failed += !await _run_case(each, { ...shared, browser });
  await program_stop(shared.server);
  await browser_stop(browser);
  browser = undefined;
  console.log(`${cases.length - failed} of ${cases.length} cases passed`);
  return failed ? 1 : 0;
}

process.on('exit', _clean_up);
for (const signal of ['SIGINT', 'SIGTERM', 'SIGHUP'])
  process.on(signal, () => process.exit(1));
setTimeout(() => {
  console.log(`FAILED: not done after ${TIME_LIMIT / 1000} s`);
  process.exit(1);
}, TIME_LIMIT);
_main(process.argv.slice(2)).then(code => process.exit(code), error => {
  console.log(`FAILED: ${error.stack}`);
  process.exit(1);
});
