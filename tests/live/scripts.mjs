// scripts.mjs - what comes of a script that is not plain sailing: the page forbids eval, is left, hangs, dies, or the program ends.
import assert from 'node:assert/strict';
import {readdirSync, readFileSync} from 'node:fs';

const patience = 60000;

export const get = async (child, what) => (await fetch(child.address + 'api/' + what)).json();

export async function post(child, what, body) {
  const answer = await fetch(child.address + 'api/' + what, {method: 'POST', body: JSON.stringify(body)});
  assert.equal(answer.status, 200, what);
  return answer.json();
}

export async function until(what, holds) {
  const end = Date.now() + patience;
  while (!await holds()) assert.ok(Date.now() < end, 'not so: ' + what);
}

export async function load(child, url) {
  await post(child, 'load', {url});
  await until('it shows ' + url, async () => {
    const state = await get(child, 'state');
    return state.url === url && state.phase === 'on_air';
  });
}

async function answerOf(child, id) {
  let answer;
  await until('script ' + id + ' is not waited for without end', async () => {
    answer = await get(child, 'result?id=' + id);
    return answer.state !== 'waiting';
  });
  return [answer.state, answer.result];
}

export const begin = async (child, script) => (await post(child, 'script', {script})).id;
export const run = async (child, script) => answerOf(child, await begin(child, script));

// The processes that have come of `id`, with what they were started by.
function processesBelow(id) {
  const parents = new Map();
  for (const name of readdirSync('/proc').filter(name => /^\d+$/.test(name))) {
    try {
      const stat = readFileSync(`/proc/${name}/stat`, 'latin1');
      parents.set(Number(name), Number(stat.slice(stat.lastIndexOf(')') + 2).split(' ')[1]));
    } catch {
      // It has ended in the meantime.
    }
  }
  const isBelow = name => { while (name && name !== id) name = parents.get(name); return name === id; };
  return [...parents.keys()].filter(name => name !== id && isBelow(name));
}

export function renderersOf(child) {
  return processesBelow(child.pid).filter(id => {
    try {
      return readFileSync(`/proc/${id}/cmdline`, 'latin1').includes('--type=renderer');
    } catch {
      return false;
    }
  });
}

// `strictPage` forbids eval by its Content-Security-Policy, `trustedPage` by asking for trusted types.
export async function testBarredEval(page, child, strictPage, trustedPage) {
  for (const url of [strictPage, trustedPage]) {
    await load(child, url);
    assert.deepEqual(await run(child, 'try { eval("1") } catch (e) { return e.name }'), ['fine', 'EvalError'], 'the page allows eval');
    assert.deepEqual(await run(child, 'document.title'), ['fine', 'A moving page']);
    assert.deepEqual(await run(child, ' [6 * 7, "a"]; \n'), ['fine', '[42,"a"]']);
    assert.deepEqual(await run(child, 'nobody.there'), ['thrown', 'ReferenceError: nobody is not defined']);
    assert.deepEqual(await run(child, 'let sum = 0; for (const n of [1, 2]) sum += n; return sum'), ['fine', '3']);
    assert.deepEqual(await run(child, 'globalThis.kept = 5; globalThis.runs = (globalThis.runs || 0) + 1;'), ['fine', 'undefined']);
    assert.deepEqual(await run(child, '[kept, runs]'), ['fine', '[5,1]'], 'a script runs once');
    const [kind, told] = await run(child, 'this is no script');
    assert.equal(kind, 'thrown');
    assert.match(told, /no JavaScript.*EvalError/);
  }
  await page.fill('#script', '"in the box: " + document.title');
  await page.press('#script', 'Control+Enter');
  await page.waitForFunction(() => document.getElementById('result').textContent === 'in the box: A moving page', null, {timeout: patience});
}

// On a program of its own, which `start` starts; `browser` shows its control page.
export async function testLostAnswers(browser, start, url) {
  const child = await start();
  await load(child, url + '?left');
  assert.deepEqual(await run(child, 'throw Object.create(null)'), ['thrown', 'what was thrown has no text']);
  // Without its bridge a page answers nothing; it is left before that is noticed.
  assert.deepEqual(await run(child, 'window.hostApp = undefined; 1'), ['fine', '1']);
  const left = await begin(child, '1');
  await load(child, url + '?next');
  assert.deepEqual(await answerOf(child, left), ['lost', undefined], 'the page was left');
  assert.deepEqual(await run(child, '6 * 7'), ['fine', '42'], 'the next page answers');

  const page = await browser.newPage();
  await page.goto(child.address);
  const endless = await begin(child, 'for (;;);');
  await page.fill('#script', '"behind it"');
  const asked = page.waitForResponse(answer => answer.url().endsWith('/api/script'));
  await page.press('#script', 'Control+Enter');
  await asked;
  const renderers = renderersOf(child);
  assert.notEqual(renderers.length, 0, 'the page has a process');
  for (const id of renderers) process.kill(id, 'SIGKILL');
  await page.waitForFunction(() => document.getElementById('result').textContent.startsWith('no answer'), null, {timeout: patience});
  assert.deepEqual(await answerOf(child, endless), ['lost', undefined], 'the page\'s process was killed');
  await until('the loss is told', async () => (await get(child, 'events')).lines.some(
    line => line.kind === 'failed' && line.text === url + '?next: the page\'s process has ended'));
  await page.close();
  await load(child, url + '?again');
  assert.deepEqual(await run(child, '6 * 7'), ['fine', '42'], 'a page that is loaded afterwards answers');
  child.kill('SIGINT');
  assert.equal(await child.ended, 0);
}

// Every page may close itself; the display stays for those that come after it, as visible as it was.
export async function testPagesThatCloseThemselves(start, url) {
  const child = await start();
  let told = 0;
  const closing = async command => {
    await command();
    told++;
    await until('the end of the page is told', async () => {
      const {lines} = await get(child, 'events');
      return lines.filter(line => line.text.endsWith('the page has closed itself')).length === told;
    });
  };
  await load(child, url + '?closing');
  await closing(() => begin(child, 'window.close()'));
  await load(child, url + '?first');
  assert.deepEqual(await run(child, 'document.visibilityState'), ['fine', 'visible']);
  await closing(() => post(child, 'load', {url: 'data:text/html,<script>window.close()</script>'}));
  await load(child, url + '?second');
  await post(child, 'visibility', {visible: false});
  await closing(() => begin(child, 'window.close()'));
  await load(child, url + '?hidden');
  await until('it is hidden again', async () => (await run(child, 'document.visibilityState'))[1] === 'hidden');
  child.kill('SIGINT');
  assert.equal(await child.ended, 0);
}

export async function testEndWhileAScriptRuns(start, url) {
  const child = await start();
  await load(child, url + '?end');
  const id = await begin(child, 'for (;;);');
  assert.equal((await get(child, 'result?id=' + id)).state, 'waiting');
  child.kill('SIGINT');
  assert.equal(await child.ended, 0, 'the program ends although its page hangs');
  await assert.rejects(get(child, 'result?id=' + id), 'nobody answers any more');
}
