// The files that the browser tests search: made anew for each run in a temporary folder.
import { mkdirSync, utimesSync, writeFileSync } from 'node:fs';
import { join } from 'node:path';

// Names that would do harm where a page took them for markup, for a script, for an address or for a format. Windows
// has no files of the first ones.
export const HOSTILE_POSIX = [
  `<script>alert(1)<script>.txt`,
  `<img src=x onerror=alert(2)>.txt`,
  `"onmouseover="alert(3)" x="`,
  `<svg onload=alert(4)>.txt`,
  'two\nlines.txt',
  'a?search=b#c.txt',
  'javascript:alert(5)',
  'back\\slash.txt',
  '*.txt',
];
export const HOSTILE = [`'; drop`, '&amp;.txt', '&lt;b&gt;', '%41.txt', '%00%zz%', '100% {{x}} ${x}.txt', '+plus and blank .txt', 'naïve 😀 名前.txt'];
// Neither is this one text: bytes that are no UTF-8.
export const NO_TEXT = Buffer.from([0x62, 0x61, 0x64, 0xff, 0xfe, 0x2e, 0x74, 0x78, 0x74]);

// The end of an element is a folder's separator.
export const HOSTILE_PATH = 'sorted/<script>alert(10)</script>.txt';

export const LIST_ROWS = 20000;
export const DOWNLOAD = Buffer.from(Array.from({ length: 300000 }, (_, i) => (i * 7 + (i >> 8)) & 255));
// Sizes and dates that have orders of their own, and another one than the names.
export const SORTED = [
  { name: 'alpha one.dat', size: 500, day: 3 },
  { name: 'alpha three.dat', size: 2000, day: 1 },
  { name: 'alpha two.dat', size: 30, day: 2 },
];

export function sample_make(folder, { windows }) {
  const tree = join(folder, 'tree');
  const write = (path, content, day = 1) => {
    mkdirSync(join(tree, path, '..'), { recursive: true });
    writeFileSync(join(tree, path), content);
    utimesSync(join(tree, path), new Date(2025, 0, day), new Date(2025, 0, day));
  };
  for (const { name, size, day } of SORTED)
    write(`sorted/${name}`, 'x'.repeat(size), day);
  write('alphabet.txt', 'abc');
  write('alpine.txt', 'a mountain');
  write('café 😀 alphorn.txt', 'a horn');
  write('data/download.bin', DOWNLOAD);
  write('data/inner/deep.txt', 'deep');
  for (let i = 0; i < 80; i++)
    write(`pages/leaf ${String(i).padStart(2, '0')}.txt`, `leaf ${i}`);
  const hostile = [...HOSTILE, ...(windows ? [] : HOSTILE_POSIX)];
  for (const name of hostile) {
    mkdirSync(join(tree, 'hostile'), { recursive: true });
    writeFileSync(`${tree}/hostile/${name}`, `this is ${name}`);
  }
  if (!windows) {
    writeFileSync(Buffer.concat([Buffer.from(`${tree}/hostile/`), NO_TEXT]), 'this is no text');
    write(HOSTILE_PATH, 'this is a path');
  }

  // Files that are in a list alone: many, and on Windows those that it cannot have.
  const root = windows ? 'X:\\' : '/listed/';
  const separator = windows ? '\\' : '/';
  const lines = ['Filename,Size'];
  for (let i = 0; i < LIST_ROWS; i++)
    lines.push(`"${root}many${separator}item ${String(i).padStart(5, '0')}.dat",${i}`);
  if (windows)
    HOSTILE_POSIX.filter(name => !/[\n\\]/.test(name)).forEach(name => lines.push(`"${root}hostile\\${name.replaceAll('"', '""')}",1`));
  const list = join(folder, 'many.fwl');
  writeFileSync(list, lines.join('\r\n') + '\r\n');
  return { tree, list, hostile };
}
