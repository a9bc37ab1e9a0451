// keyboard.mjs - the control page without a mouse: where the Tab key leads, that one sees where one is, that every control can be
// worked from there and has a name for who does not see it. And the page on a narrow screen.
import assert from 'node:assert/strict';
import path from 'node:path';

const patience = 60000;
const longUrl = 'data:text/html,' + 'alongaddressthatnothingbreaks'.repeat(13);

// In the order in which the page is read. A control without an id goes by its text.
const order = queue => ['repaint', 'visible', 'url', 'Show now', 'enqueue', 'next', ...queue.map(url => 'Remove ' + url),
  'width', 'height', 'Set size', 'cookies-url', 'Delete cookies', 'script', 'Run', 'events', 'traces'];

const nameOfFocused = page => page.evaluate(() => {
  const at = document.activeElement;
  return at === document.body ? '' : at.id || at.getAttribute('aria-label') || at.textContent;
});

async function expectFocus(page, wanted) {
  const end = Date.now() + patience;
  while (await nameOfFocused(page) !== wanted) {
    assert.ok(Date.now() < end, `the focus is on "${await nameOfFocused(page)}" and not on "${wanted}"`);
  }
}

// The browser's own starting point for the Tab key goes back to the top with a new page only.
async function startAtTheTop(page) {
  await page.reload();
  await page.waitForFunction(() => document.getElementById('picture').dataset.number > 0, null, {timeout: patience});
}

async function tabTo(page, wanted) {
  for (let presses = 0; presses < 60; ++presses) {
    await page.keyboard.press('Tab');
    if (await nameOfFocused(page) === wanted) return;
  }
  assert.fail('the Tab key does not lead to ' + wanted);
}

const state = async child => (await fetch(child.address + 'api/state')).json();

async function expectState(child, what, wanted) {
  const end = Date.now() + patience;
  while (!wanted(await state(child))) assert.ok(Date.now() < end, 'not so: ' + what);
}

async function walk(page, key, wanted) {
  for (const name of wanted) {
    await page.keyboard.press(key);
    assert.equal(await nameOfFocused(page), name, `the ${key} key leads elsewhere`);
    const seen = await page.evaluate(lookOfFocus);
    assert.ok(seen.inside, name + ' has the focus and is out of sight');
    assert.ok(seen.width >= 2 && seen.contrast >= 3, `the focus on ${name} is not seen: ${JSON.stringify(seen)}`);
  }
}

// Runs in the page: the outline of what has the focus, beside what is behind it.
function lookOfFocus() {
  const numbers = colour => (colour.match(/[\d.]+/g) || []).map(Number);
  const luminance = colour => numbers(colour).slice(0, 3).map(part => part / 255)
    .map(part => part <= 0.04045 ? part / 12.92 : ((part + 0.055) / 1.055) ** 2.4)
    .reduce((sum, part, index) => sum + part * [0.2126, 0.7152, 0.0722][index], 0);
  const isClear = colour => numbers(colour)[3] === 0;
  let behind = document.activeElement.parentElement;
  while (isClear(getComputedStyle(behind).backgroundColor)) behind = behind.parentElement;
  const style = getComputedStyle(document.activeElement);
  const [low, high] = [luminance(getComputedStyle(behind).backgroundColor), luminance(style.outlineColor)].sort((a, b) => a - b);
  const box = document.activeElement.getBoundingClientRect();
  return {
    width: style.outlineStyle === 'none' ? 0 : parseFloat(style.outlineWidth),
    contrast: (high + 0.05) / (low + 0.05),
    inside: box.width > 0 && box.height > 0 && box.top < innerHeight && box.bottom > 0 && box.left >= 0 && box.right <= innerWidth,
  };
}

// Runs in the page: pairs of neighbours in the order of the Tab key where the second stands in front of the first.
function backwards() {
  const place = element => { const box = element.getBoundingClientRect(); return {top: box.top, bottom: box.bottom, left: box.left}; };
  const isBefore = (a, b) => b.top >= a.bottom - 1 || (b.left > a.left && b.bottom > a.top);
  const names = [];
  for (const kind of ['section', 'button, input, textarea, .log']) {
    const all = [...document.querySelectorAll(kind)].filter(element => !element.hidden);
    for (let i = 1; i < all.length; ++i) {
      const together = kind === 'section' || all[i].closest('section') === all[i - 1].closest('section');
      if (together && !isBefore(place(all[i - 1]), place(all[i]))) names.push(all[i].id || all[i].textContent);
    }
  }
  return names;
}

export async function testTabOrder(page, child) {
  const queue = ['about:blank', longUrl];
  for (const url of queue) {
    await fetch(child.address + 'api/load', {method: 'POST', body: JSON.stringify({url, now: false})});
  }
  // The display before it has one more page waiting than these.
  await expectState(child, 'pages wait', s => s.queue.length >= queue.length);
  const waiting = (await state(child)).queue;
  await page.waitForFunction(n => document.querySelectorAll('#queue li').length === n, waiting.length, {timeout: patience});
  await startAtTheTop(page);
  await page.waitForFunction(n => document.querySelectorAll('#queue li').length === n, waiting.length, {timeout: patience});
  const all = order(waiting);
  const focusable = await page.evaluate(() => [...document.querySelectorAll('button, input, select, textarea, a[href], [tabindex]')].filter(control => !control.hidden).length);
  assert.equal(focusable, all.length, 'the page has other controls than this test knows');
  await walk(page, 'Tab', all);
  assert.deepEqual(await page.evaluate(backwards), [], 'the Tab key goes against the order on the screen');
  // Past the last the focus leaves the page's controls, or begins anew; nothing holds it.
  await page.keyboard.press('Tab');
  assert.ok(['', all[0]].includes(await nameOfFocused(page)), 'the focus does not get past the last control');
  await tabTo(page, all.at(-1));
  await walk(page, 'Shift+Tab', all.slice(0, -1).reverse());
}

// As the browser tells them to a screen reader.
export async function testNames(page) {
  const session = await page.context().newCDPSession(page);
  const {nodes} = await session.send('Accessibility.getFullAXTree');
  await session.detach();
  const value = (node, name) => (node.properties || []).find(p => p.name === name)?.value.value;
  const controls = nodes.filter(node => !node.ignored && value(node, 'focusable') && node.role.value !== 'RootWebArea');
  const names = controls.map(node => node.role.value + ': ' + (node.name?.value || '').trim());
  assert.equal(names.length, order((await page.locator('#queue li').all())).length, 'some control is hidden: ' + names);
  assert.deepEqual(names.filter(name => /: $/.test(name)), [], 'controls without a name');
  assert.equal(new Set(names).size, names.length, 'two controls of one name: ' + names);
  // An example in the box is a name to the browser, but is gone as soon as one types.
  const unlabelled = await page.evaluate(() => [...document.querySelectorAll('input, textarea')]
    .filter(box => box.labels.length === 0).map(box => box.id));
  assert.deepEqual(unlabelled, [], 'boxes without a label');
}

async function type(page, control, text) {
  await tabTo(page, control);
  await page.keyboard.press('Control+A');
  await page.keyboard.type(text);
}

export async function testKeyboardOnly(page, child, movingPage) {
  await startAtTheTop(page);
  await type(page, 'url', 'data:text/html,<title>typed</title>');
  await page.keyboard.press('Enter');
  await expectState(child, 'Enter shows the page', s => s.url.includes('typed'));
  for (const [control, width, height] of [['width', 800, 720], ['height', 800, 450]]) {
    await type(page, control, String(control === 'width' ? width : height));
    await page.keyboard.press('Enter');
    await expectState(child, `Enter in ${control} sets the size`, s => s.width === width && s.height === height);
  }
  await type(page, 'script', '"by the keyboard:');
  await page.keyboard.press('Enter');
  assert.match(await page.inputValue('#script'), /\n$/, 'Enter begins a line in the script');
  await type(page, 'script', '"by the " + "keyboard"');
  await page.keyboard.press('Control+Enter');
  await page.waitForFunction(() => document.getElementById('result').textContent === 'by the keyboard', null, {timeout: patience});
  await type(page, 'script', '"by the " + "button"');
  await tabTo(page, 'Run');
  await page.keyboard.press('Enter');
  await page.waitForFunction(() => document.getElementById('result').textContent === 'by the button', null, {timeout: patience});
  await type(page, 'cookies-url', 'http://elsewhere.invalid/');
  await page.keyboard.press('Enter');
  await page.waitForFunction(() => document.getElementById('status').textContent === 'done', null, {timeout: patience});
  await removeAll(page, child);
  await tabTo(page, 'repaint');
  await page.keyboard.press('Enter');
  await type(page, 'width', '1280');
  await type(page, 'height', '720');
  await page.keyboard.press('Enter');
  await type(page, 'url', movingPage);
  await page.keyboard.press('Enter');
  await expectState(child, 'the moving page is back', s => s.url === movingPage && s.width === 1280);
}

// Whoever takes pages out of the queue one by one does not begin at the top of the page each time.
async function removeAll(page, child) {
  const {queue} = await state(child);
  assert.ok(queue.length >= 2);
  await tabTo(page, 'Remove ' + queue[0]);
  for (let left = queue.slice(1); left.length > 0; left = left.slice(1)) {
    await page.keyboard.press('Enter');
    await expectState(child, 'a page goes', s => s.queue.length === left.length);
    await expectFocus(page, 'Remove ' + left[0]);
  }
  await page.keyboard.press('Space');
  await expectState(child, 'the last page goes', s => s.queue.length === 0);
  await expectFocus(page, 'next');
}

// Runs in the page: what stands out at the side, and what is too small to be read.
function unreadable() {
  const wide = document.documentElement.scrollWidth - innerWidth;
  const bad = wide > 0 ? ['the page is too wide by ' + wide] : [];
  for (const element of document.querySelectorAll('body *')) {
    if (element.hidden) continue;
    const box = element.getBoundingClientRect();
    const name = element.id || element.textContent.slice(0, 30);
    if (box.width > 0 && (box.left < 0 || box.right > innerWidth)) bad.push(name + ' stands out');
    if (element.childElementCount === 0 && parseFloat(getComputedStyle(element).fontSize) < 14) bad.push(name + ' is too small');
    if (element.matches('button, input, textarea') && (box.height < 18 || box.width < 18)) bad.push(name + ' is hard to hit');
  }
  return bad;
}

// A portable telephone's width, with an address that nothing breaks in the queue, and one on the screen.
export async function testNarrow(page, child, pictures) {
  for (const now of [true, false]) {
    await fetch(child.address + 'api/load', {method: 'POST', body: JSON.stringify({url: longUrl, now})});
  }
  await page.waitForFunction(() => document.getElementById('page-url').textContent.length > 300 &&
    document.querySelectorAll('#queue li').length > 0, null, {timeout: patience});
  for (const width of [320, 360, 390]) {
    await page.setViewportSize({width, height: 844});
    assert.deepEqual(await page.evaluate(unreadable), [], `at a width of ${width}`);
    assert.deepEqual(await page.evaluate(backwards), [], `the order at a width of ${width}`);
  }
  if (pictures) {
    await expectState(child, 'it is on air', s => s.phase === 'on_air');
    await page.screenshot({path: path.join(pictures, 'live-phone.png'), fullPage: true, timeout: patience});
  }
  await page.setViewportSize({width: 1280, height: 900});
}
