// Pictures of the page at work, of files that this makes:
//
//     node tests/browser/picture.mjs FILE.png [--dark] [--phone] [--width W] [--height H] [--search TEXT] COMMAND...
//
// The README's is docs/page.png, without any option.
import { mkdirSync, mkdtempSync, rmSync, writeFileSync } from 'node:fs';
import { tmpdir } from 'node:os';
import { join } from 'node:path';
import { browser_kill, browser_start, browser_stop, page_close, page_goto, page_key, page_open, page_painted, page_phone, page_picture, page_type } from './devtools.mjs';
import { list_until } from './list.mjs';
import { program_kill, program_start, programs_kill } from './program.mjs';

const FILES = [
  ['Annual report 2025.pdf', 'Documents/Board', 2841600, '2026-01-19T09:12'],
  ['Annual report 2025 (draft 3).docx', 'Documents/Board/Drafts', 418304, '2025-12-17T16:40'],
  ['Annual report 2025 - figures.xlsx', 'Documents/Board', 96256, '2026-01-14T11:05'],
  ['board report Q1 2025.pdf', 'Documents/Board', 1204224, '2025-04-08T08:31'],
  ['board report Q2 2025.pdf', 'Documents/Board', 1187840, '2025-07-10T14:02'],
  ['board report Q3 2025.pdf', 'Documents/Board', 1310720, '2025-10-09T10:55'],
  ['expense-report-2025-03.ods', 'Documents/Travel/Lisbon', 22528, '2025-03-30T19:21'],
  ['expense-report-2025-09.ods', 'Documents/Travel/Oslo', 24064, '2025-09-28T20:03'],
  ['field report 2025-06-11.md', 'Notes/River survey', 7331, '2025-06-11T17:48'],
  ['field report 2025-06-12.md', 'Notes/River survey', 9120, '2025-06-12T18:06'],
  ['field report 2025-06-14.md', 'Notes/River survey', 6458, '2025-06-14T17:30'],
  ['Inspection report, roof, 2025.pdf', 'Documents/House', 5402624, '2025-05-22T12:17'],
  ['lab_report_2025_final.tex', 'University/Physics/Lab', 31744, '2025-11-30T23:52'],
  ['lab_report_2025_final2.tex', 'University/Physics/Lab', 31902, '2025-12-01T02:14'],
  ['lab_report_2025_final2.pdf', 'University/Physics/Lab', 684032, '2025-12-01T02:15'],
  ['Medical report 2025-02.pdf', 'Documents/Health', 348160, '2025-02-26T15:33'],
  ['penetration-test-report-2025.pdf.gpg', 'Work/Security', 3145728, '2025-08-19T13:09'],
  ['quarterly_report_2025Q4.ipynb', 'Work/Analysis', 1992294, '2026-01-08T10:26'],
  ['report_2025.py', 'Work/Analysis/tools', 4812, '2025-01-11T09:58'],
  ['report-2025-template.odt', 'Templates', 45056, '2025-01-03T11:44'],
  ['Sustainability Report 2025.pptx', 'Work/Slides', 18874368, '2025-11-12T16:20'],
  ['Übersicht report 2025.txt', 'Notes', 1833, '2025-10-27T07:49'],
  ['weather report 2025.csv', 'Data/Station', 734003, '2026-01-01T00:05'],
];
const FOLDERS = [['Reports 2025', 'Work', '2026-01-16T18:00'], ['report 2025 pictures', 'Pictures', '2025-12-20T12:00']];
const OTHERS = ['Pictures/lake.jpg', 'Music/Reel.flac', 'Documents/Letters/To the landlord.odt', 'Work/plan.txt'];

// A list, as files of these sizes would be many bytes for a picture.
function _list_make(file) {
  const ticks = date => (BigInt(new Date(`${date}:00Z`).getTime()) + 11644473600000n) * 10000n;
  const rows = [
    ...FILES.map(([name, folder, size, date]) => [`/home/ann/${folder}/${name}`, size, ticks(date), 32]),
    ...FOLDERS.map(([name, folder, date]) => [`/home/ann/${folder}/${name}`, '', ticks(date), 16]),
    ...OTHERS.map(path => [`/home/ann/${path}`, 1000, ticks('2025-05-05T05:05'), 32]),
  ];
  writeFileSync(file, ['Filename,Size,Date Modified,Attributes', ...rows.map(([path, ...rest]) => `"${path}",${rest.join(',')}`), ''].join('\n'));
}

function _arguments(words) {
  const options = { file: words.shift(), width: 1200, height: 760, search: 'report 2025' };
  while (words[0]?.startsWith('--')) {
    const key = words.shift().slice(2);
    options[key] = ['dark', 'phone'].includes(key) || words.shift();
  }
  if (!options.file || !words.length)
    throw new Error('usage: picture.mjs FILE.png [--dark] [--phone] [--width W] [--height H] [--search TEXT] COMMAND...');
  return { ...options, width: Number(options.width), height: Number(options.height), command: words };
}

let browser, folder;

async function _main(options) {
  folder = mkdtempSync(join(tmpdir(), 'findwright-picture-'));
  const list = join(folder, 'home.fwl');
  mkdirSync(join(folder, 'server'));
  _list_make(list);
  const server = await program_start({ command: options.command, windows: false }, join(folder, 'server'), { lists: [list] });
  browser = await browser_start();
  const page = await page_open(browser, server.origin, options);
  if (options.phone)
    await page_phone(page);
  await page_goto(page, '/');
  await page_type(page, options.search);
  await list_until(page, 'there are rows', rows => rows.state === 'ready' && rows.rows.length > 0 && page.requests.every(each => page.ended.has(each.id)));
  for (let i = 0; i < 2; i++)
    await page_key(page, 'ArrowDown');
  await list_until(page, 'a row is selected', rows => rows.rows.some(row => row.selected));
  await page_painted(page);
  writeFileSync(options.file, await page_picture(page));
  await page_close(page);
  await program_kill(server);
  await browser_stop(browser);
  browser = undefined;
}

process.on('exit', () => {
  programs_kill();
  if (browser)
    browser_kill(browser);
  if (folder)
    rmSync(folder, { recursive: true, force: true });
});
process.on('SIGINT', () => process.exit(1));
_main(_arguments(process.argv.slice(2))).then(() => process.exit(0), error => {
  console.error(`picture.mjs: ${error.stack}`);
  process.exit(1);
});
