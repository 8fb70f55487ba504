// The live list as its user sees it.
import { page_call, page_key, page_painted, page_type, page_until } from './devtools.mjs';

// What is in sight: {state, count, rows: [{index, name, path, href, size, marks, selected}]}, from top to bottom.
export const list_read = page => page_call(page, () => {
  const view = document.getElementById('live-view')?.getBoundingClientRect();
  const rows = view ? [...document.querySelectorAll('.liverow')].filter(row => {
    const box = row.getBoundingClientRect();
    return box.height > 0 && box.bottom > view.top + 1 && box.top < view.bottom - 1;
  }) : [];
  return {
    state: document.getElementById('live')?.dataset.state,
    status: document.getElementById('live-status')?.textContent,
    count: document.getElementById('live-count')?.textContent,
    rows: rows.map(row => ({
      index: Number(row.dataset.index),
      top: row.getBoundingClientRect().top - view.top,
      loading: row.classList.contains('loading'),
      selected: row.classList.contains('selected'),
      name: row.querySelector('.livename span').textContent,
      href: row.querySelector('.livename').getAttribute('href'),
      path: row.querySelector('.livepath').textContent,
      size: row.querySelector('.livesize').textContent,
      marks: [...row.querySelectorAll('.livename mark')].map(mark => mark.textContent),
    })).sort((a, b) => a.index - b.index),
  };
});

export async function list_until(page, what, test) {
  let last;
  try {
    for (const end = Date.now() + 20000; Date.now() < end; await page_painted(page).catch(() => {})) {
      last = await list_read(page).catch(() => undefined); // between two pages there is none
      if (last && !last.rows.some(row => row.loading) && test(last))
        return last;
    }
  } catch (error) {
    throw new Error(`${what}: ${error.message}`);
  }
  throw new Error(`this did not come about: ${what}; there is ${JSON.stringify(last)?.slice(0, 700)}`);
}

// Exactly these names, in this order.
export const list_until_names = (page, names) => list_until(page, `the list is ${names.join(', ')}`, list =>
  list.state === 'ready' && list.rows.length === names.length && list.rows.every((row, i) => row.name === names[i]));

export const list_until_count = (page, count) =>
  list_until(page, `the count is ${count}`, list => list.state === 'ready' && list.count === count);

// In place of what the box has.
export async function list_search(page, text) {
  await page_until(page, 'there is a search box with its script', () => document.getElementById('live') !== null);
  await page_call(page, () => document.getElementById('search').focus());
  await page_key(page, 'a', 2);
  if (text === '')
    await page_key(page, 'Backspace');
  else
    await page_type(page, text);
}
