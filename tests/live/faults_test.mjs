// faults_test.mjs - what stays on air when a page fails, dies, hangs, floods the host or closes itself, and what the operator is told of it.
// usage: node faults_test.mjs PROGRAM [PICTURE-FOLDER]
import assert from 'node:assert/strict';
import {spawn} from 'node:child_process';
import {readFileSync} from 'node:fs';
import net from 'node:net';
import path from 'node:path';
import {createInterface} from 'node:readline';
import {endAll, launch, movingPage, ownHome, pageCalled, start, started} from './program.mjs';
import {begin, get, load, post, renderersOf, run, until} from './scripts.mjs';

const [program, pictures] = process.argv.slice(2);
const patience = 60000;
const url = movingPage;
const good = '20,48,74';  // the ground of page.html

// Before the first page has painted the picture on air is the display's background.
async function noteWhatFollows(page) {
  await page.waitForFunction(colour => {
    const canvas = document.getElementById('picture');
    return [...canvas.getContext('2d').getImageData(2, 2, 1, 1).data].slice(0, 3).join() === colour;
  }, good, {timeout: patience});
  await page.evaluate(noteColours);
}

// Runs in the page: notes the colour in the corner of every picture that the control page shows.
function noteColours() {
  const canvas = document.getElementById('picture');
  window.colours = [];
  new MutationObserver(() => {
    const [red, green, blue] = canvas.getContext('2d').getImageData(2, 2, 1, 1).data;
    window.colours.push([red, green, blue].join());
  }).observe(canvas, {attributeFilter: ['data-number']});
}

async function openPage(child) {
  const page = await browser.newPage({viewport: {width: 1280, height: 900}});
  await page.goto(child.address);
  await page.waitForFunction(() => document.getElementById('picture').dataset.number > 0, null, {timeout: patience});
  return page;
}

const expectText = (page, id, part) =>
  page.waitForFunction(([i, p]) => document.getElementById(i).textContent.includes(p), [id, part], {timeout: patience});

const inPhase = (child, phase) => until('the phase is ' + phase, async () => (await get(child, 'state')).phase === phase);

async function expectOnlyGood(page) {
  const colours = new Set(await page.evaluate(() => window.colours));
  assert.deepEqual([...colours].filter(colour => colour !== good), [], 'another picture was on air');
}

async function keep(page, name) {
  if (pictures) await page.screenshot({path: path.join(pictures, name), fullPage: true});
}

async function testFailedLoad() {
  const child = await start();
  const page = await openPage(child);
  await noteWhatFollows(page);
  await load(child, url);
  const bad = 'http://does-not-exist.invalid/';
  await post(child, 'load', {url: bad});
  await inPhase(child, 'failed');
  const state = await get(child, 'state');
  assert.equal(state.url, url, 'the page on air is the one before');
  assert.equal(state.wanted, bad);
  assert.match(state.error, /ERR_/);
  await expectText(page, 'phase', 'Failed');
  await expectText(page, 'told', 'The last picture of ' + url + ' stays on air.');
  await post(child, 'repaint', {});
  await until('it stays so', async () => (await get(child, 'state')).since_ms > 2000);
  await expectOnlyGood(page);
  await keep(page, 'live-failed.png');
  await page.click('#again');
  await expectText(page, 'status', 'done');
  await inPhase(child, 'failed');
  await load(child, url + '?next');
  await expectText(page, 'phase', 'On air');
  await until('the page moves', async () => (await page.evaluate(() => window.colours.length)) > 5);
  await expectOnlyGood(page);
  await page.close();
  await end(child);
}

// The server has a page to say so, which the browser would show like any other.
async function testErrorOfTheServer() {
  const child = await start();
  const page = await openPage(child);
  await noteWhatFollows(page);
  await load(child, url);
  for (const status of [404, 503]) {
    const bad = pageCalled('status-' + status);
    await post(child, 'load', {url: bad});
    await until('it is told', async () => (await get(child, 'state')).wanted === bad && (await get(child, 'state')).phase === 'failed');
    const state = await get(child, 'state');
    assert.deepEqual([state.url, state.error], [url, 'the server answered with status ' + status]);
    await expectText(page, 'phase', 'Failed');
    await expectText(page, 'told', 'status ' + status);
    await post(child, 'repaint', {});
    await until('it stays so', async () => (await get(child, 'state')).since_ms > 1000);
  }
  await expectOnlyGood(page);
  await load(child, url + '?next');
  await begin(child, `location.href = '${pageCalled('status-404')}'`);
  await inPhase(child, 'failed');
  await load(child, url + '?last');
  await expectOnlyGood(page);
  await page.close();
  await end(child);
}

// A first page that fails leaves nothing on air, which is said, also to whoever started the program.
async function testFailedStart() {
  const child = await start('http://does-not-exist.invalid/');
  await inPhase(child, 'failed');
  await until('it is on standard error', () => /nothing is on air yet: http:\/\/does-not-exist\.invalid\/: ERR_/.test(child.said));
  assert.equal((await get(child, 'state')).url, '');
  const page = await browser.newPage();
  await page.goto(child.address);
  await expectText(page, 'told', 'Nothing is on air yet.');
  await page.close();
  await end(child);
}

// The browser gives it up, and shows nothing at all.
async function testFirstPageThatIsNone() {
  const child = await start(pageCalled('status-204'));
  await inPhase(child, 'failed');
  const state = await get(child, 'state');
  assert.deepEqual([state.url, state.wanted], ['', pageCalled('status-204')]);
  await until('it is on standard error', () => /nothing is on air yet: .*status-204/.test(child.said));
  await load(child, url);
  await end(child);
}

async function end(child) {
  child.kill('SIGINT');
  assert.equal(await child.ended, 0);
}

function kill(child) {
  const renderers = renderersOf(child);
  assert.notEqual(renderers.length, 0, 'the page has a process');
  for (const id of renderers) process.kill(id, 'SIGKILL');
}

async function testLostPageComesBack() {
  const child = await start();
  const page = await openPage(child);
  await load(child, url);
  await noteWhatFollows(page);
  const most = 5;
  for (let i = 1; i <= most; ++i) {
    const killed = performance.now();
    kill(child);
    await until('it is loaded again', async () => {
      const state = await get(child, 'state');
      return state.reloads === i && state.phase === 'on_air';
    });
    console.log(`a lost page was back after ${Math.round(performance.now() - killed)} ms`);
    const shown = await page.evaluate(() => window.colours.length);
    await until('it moves', async () => (await page.evaluate(() => window.colours.length)) > shown + 3);
  }
  await keep(page, 'live-reloaded.png');
  kill(child);
  await until('it is given up', async () => (await get(child, 'state')).error.includes('not loaded again'));
  const state = await get(child, 'state');
  assert.deepEqual([state.phase, state.url, state.reloads], ['lost', url, most]);
  await expectText(page, 'phase', 'Lost');
  await expectOnlyGood(page);
  await load(child, url + '?operator');
  assert.deepEqual(await run(child, '6 * 7'), ['fine', '42']);
  await expectOnlyGood(page);
  await page.close();
  await end(child);
}

async function testSilentPage() {
  const child = await start();
  const page = await openPage(child);
  await load(child, url);
  assert.equal((await get(child, 'state')).silent, false);
  await begin(child, 'for (;;);');
  await until('the silence is told', async () => (await get(child, 'state')).silent);
  await expectText(page, 'phase', 'No answer');
  await keep(page, 'live-silent.png');
  kill(child);
  await until('it is on air again', async () => {
    const state = await get(child, 'state');
    return state.phase === 'on_air' && !state.silent;
  });
  await testHungPage(child);
  await page.close();
  await end(child);
}

// Whatever is asked for next is of the same site, and would wait for the process that hangs.
async function testHungPage(child) {
  await begin(child, 'for (;;);');
  await until('the page hangs', async () => (await get(child, 'state')).silent);
  await load(child, url + '?after-hanging');
  assert.deepEqual(await run(child, '6 * 7'), ['fine', '42']);
  await begin(child, 'for (;;);');
  await post(child, 'load', {url: url + '?while-hanging'});
  await until('the silence is told though another page is on its way', async () => (await get(child, 'state')).silent);
  await load(child, url + '?another');
  assert.deepEqual(await run(child, '6 * 7'), ['fine', '42']);
}

const memoryOf = child => Number(/VmRSS:\s+(\d+)/.exec(readFileSync(`/proc/${child.pid}/status`, 'latin1'))[1]) / 1024;

async function testFlood() {
  const child = await start();
  const page = await openPage(child);
  await load(child, url);
  const before = memoryOf(child);
  await begin(child, 'setTimeout(() => { for (;;) hostApp.execute("flood", "x".repeat(100)) }, 0)');
  await until('calls are dropped', async () => (await get(child, 'state')).dropped_calls > 200000);
  const asked = performance.now();
  await post(child, 'size', {width: 640, height: 360});
  await until('a command is carried out', async () => (await get(child, 'state')).width === 640);
  const delay = performance.now() - asked;
  const grown = memoryOf(child) - before;
  console.log(`a flood of calls: ${Math.round(grown)} MB more, a command after ${Math.round(delay)} ms`);
  assert.ok(grown < 100, 'the calls fill the memory: ' + grown);
  const lines = (await get(child, 'events')).lines;
  assert.ok(lines.some(line => line.text.startsWith('flood')), 'those that are not dropped arrive');
  await expectText(page, 'told', 'were dropped');
  await keep(page, 'live-flood.png');
  await page.close();
  await end(child);
}

// A page that waits for what it has called loses none of its calls.
async function testManyCalls() {
  const child = await start();
  await load(child, url);
  await run(child, 'let n = 0, done = 0; const some = () => { for (let i = 0; i < 500; ++i) hostApp.execute("call", String(++n)) }; ' +
    'window.hostAppCallback = () => { if (++done === n && n < 20000) some() }; some()');
  await until('the last call has come', async () =>
    (await get(child, 'events')).lines.some(line => line.text === 'call 20000'));
  assert.equal((await get(child, 'state')).dropped_calls, 0);
  await end(child);
}

// The page closes itself and another is asked for before, while and after that is noticed.
async function testLoadsAroundAClose() {
  const child = await start();
  const page = await openPage(child);
  await load(child, url);
  for (let wait = 0; wait <= 60; wait += 4) {
    await begin(child, 'window.close()');
    await new Promise(wake => setTimeout(wake, wait));
    await load(child, url + '?after-' + wait);
  }
  await until('it is on air', async () => (await get(child, 'state')).since_ms > 1000);
  await noteWhatFollows(page);
  await begin(child, 'window.close()');
  await inPhase(child, 'closed');
  await expectText(page, 'phase', 'Closed');
  await until('it stays so', async () => (await get(child, 'state')).since_ms > 1500);
  await expectOnlyGood(page);
  await load(child, url + '?last');
  await page.close();
  await end(child);
}

// The token is neither in the address bar nor needed there.
async function testTokenLeavesTheAddress() {
  const child = await start('--listen', '0.0.0.0');
  const {origin, searchParams} = new URL(child.address);
  const context = await browser.newContext();
  const page = await context.newPage();
  const shows = one => one.waitForFunction(() => document.getElementById('picture').dataset.number > 0, null, {timeout: patience});
  await page.goto(child.address);
  await shows(page);
  assert.equal(page.url(), origin + '/');
  assert.equal(await page.evaluate(() => document.cookie), '', 'scripts see no cookie');
  await page.reload();
  await shows(page);
  const second = await context.newPage();
  await second.goto(origin + '/');
  await shows(second);
  await context.close();
  const stranger = await browser.newPage();
  assert.equal((await stranger.goto(origin + '/')).status(), 401);
  await stranger.close();
  const blunt = await browser.newContext();
  await blunt.addInitScript(() => {});
  await blunt.route('**/*', route => route.continue({headers: {...route.request().headers(), cookie: ''}}));
  const without = await blunt.newPage();
  await without.goto(child.address);
  await shows(without);
  await blunt.close();
  const token = searchParams.get('token');
  assert.equal((await fetch(origin + '/api/state', {headers: {Authorization: 'Bearer ' + token}})).status, 200);
  assert.equal((await fetch(origin + '/api/state?token=' + token)).status, 200);
  await end(child);
}

// Who sends nothing holds a place, and is the first to lose it.
async function testIdleConnections() {
  const child = await start();
  const {hostname, port} = new URL(child.address);
  const idle = [];
  for (let i = 0; i < 64; ++i) {
    const one = net.connect(Number(port), hostname);
    one.on('error', () => {});
    await new Promise(resolve => one.once('connect', resolve));
    idle.push(one);
  }
  const asked = performance.now();
  assert.equal((await get(child, 'state')).phase.length > 0, true);
  console.log(`beside 64 idle connections an answer took ${Math.round(performance.now() - asked)} ms`);
  for (const one of idle) one.destroy();
  await end(child);
}

// Without a standard output nobody could find the page.
async function testClosedOutput() {
  const child = spawn('/bin/sh', ['-c', 'exec "$0" live "$1" --port 0 >&-', program, url], {stdio: ['ignore', 'ignore', 'pipe'], env: ownHome()});
  started.push(child);
  child.ended = new Promise(resolve => child.on('exit', (code, signal) => resolve(signal || code)));
  const lines = createInterface({input: child.stderr});
  child.address = await new Promise((resolve, reject) => {
    lines.on('line', line => {
      const told = /the control page is at (http:.*)/.exec(line);
      if (told) resolve(told[1]);
    });
    child.ended.then(code => reject(new Error('ended: ' + code)));
  });
  assert.equal((await fetch(child.address)).status, 200);
  await end(child);
}

// What the programs that still run have to say, for whoever reads why a test failed.
async function tellWhatIsKnown() {
  for (const child of started.filter(one => one.exitCode === null && one.signalCode === null)) {
    for (const what of ['state', 'events', 'traces']) {
      console.error(what, JSON.stringify(await get(child, what).catch(problem => problem.message)));
    }
    for (const page of browser.contexts().flatMap(context => context.pages())) {
      console.error(page.url(), await page.innerText('body', {timeout: 1000}).catch(problem => problem.message));
    }
  }
}

const browser = await launch();
try {
  for (const test of [testFailedLoad, testErrorOfTheServer, testFailedStart, testFirstPageThatIsNone, testLostPageComesBack, testSilentPage, testFlood, testManyCalls, testLoadsAroundAClose,
    testTokenLeavesTheAddress, testClosedOutput, testIdleConnections]) {
    if (process.env.ONLY && !process.env.ONLY.includes(test.name)) continue;
    await test();
    console.log('passed: ' + test.name);
  }
  console.log('all passed');
} catch (problem) {
  await tellWhatIsKnown();
  throw problem;
} finally {
  await browser.close();
  endAll();
}
