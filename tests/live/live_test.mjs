// live_test.mjs - the control page in a real browser: every control of it, with the keyboard too.
// usage: node live_test.mjs PROGRAM [PICTURE-FOLDER]
// The last argument has screenshots kept there.
import assert from 'node:assert/strict';
import {spawn} from 'node:child_process';
import {openSync} from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import path from 'node:path';
import {createInterface} from 'node:readline';
import {testKeyboardOnly, testNames, testNarrow, testTabOrder} from './keyboard.mjs';
import {endAll, launch, movingPage, ownHome, pageCalled, start, started} from './program.mjs';
import {testBarredEval, testEndWhileAScriptRuns, testLostAnswers, testPagesThatCloseThemselves} from './scripts.mjs';

const [program, pictures] = process.argv.slice(2);
const patience = 60000;

// node's own fetch does not let a caller choose its Host.
function status(address, options) {
  return new Promise((resolve, reject) => {
    http.get(address, options, answer => { answer.resume(); resolve(answer.statusCode); }).on('error', reject);
  });
}

const expectText = (page, id, part) =>
  page.waitForFunction(([i, p]) => document.getElementById(i).textContent.includes(p), [id, part], {timeout: patience});

async function testPictures(page) {
  const number = () => page.evaluate(() => Number(document.getElementById('picture').dataset.number || 0));
  await page.waitForFunction(() => document.getElementById('picture').dataset.number > 0, null, {timeout: patience});
  const first = await number();
  await page.waitForFunction(n => document.getElementById('picture').dataset.number > n + 20, first, {timeout: patience});
  const colours = await page.evaluate(() => {
    const data = document.getElementById('picture').getContext('2d').getImageData(0, 0, 8, 8).data;
    return [data[0], data[1], data[2]];
  });
  assert.deepEqual(colours, [0x14, 0x30, 0x4a], 'the canvas shows the page, not a blank');
}

async function testScript(page) {
  await page.fill('#script', 'document.title + " " + (6 * 7)');
  await page.press('#script', 'Control+Enter');
  await expectText(page, 'result', 'A moving page 42');
  for (const [script, told] of [['nobody.there', 'ReferenceError'], ['this is no script', 'SyntaxError']]) {
    await page.fill('#script', script);
    await page.click('#script-form button');
    await expectText(page, 'result', told);
  }
}

async function testSize(page) {
  await page.fill('#width', '640');
  await page.fill('#height', '360');
  await page.press('#height', 'Enter');
  await page.waitForFunction(() => document.getElementById('picture').width === 640, null, {timeout: patience});
  await expectText(page, 'size-now', '640 x 360');
  await page.evaluate(() => {
    document.activeElement.blur();
    return fetch('api/size', {method: 'POST', body: JSON.stringify({width: 800, height: 450})});
  });
  await page.waitForFunction(() => ['width', 'height'].map(id => document.getElementById(id).value).join() === '800,450',
    null, {timeout: patience});
  await page.fill('#width', '1280');
  await page.fill('#height', '720');
  await page.click('#size-form button');
  await page.waitForFunction(() => document.getElementById('picture').width === 1280, null, {timeout: patience});
}

async function testQueue(page) {
  await page.fill('#url', 'no-such-file.html');
  await page.press('#url', 'Enter');
  await expectText(page, 'status', 'no-such-file.html');
  await page.fill('#url', 'data:text/html,<title>second</title><body style="background:%23208040">');
  await page.click('#enqueue');
  await expectText(page, 'queue', 'second');
  await page.fill('#url', 'about:blank');
  await page.click('#enqueue');
  await page.getByRole('button', {name: 'Remove about:blank'}).click();
  await page.waitForFunction(() => document.querySelectorAll('#queue li').length === 1, null, {timeout: patience});
  await page.focus('#next');
  await page.keyboard.press('Space');
  await expectText(page, 'page-url', 'second');
  await expectText(page, 'events', 'loaded: data:');
  await page.fill('#url', 'http://does-not-exist.invalid/');
  await page.press('#url', 'Enter');
  await expectText(page, 'events', 'failed: http://does-not-exist.invalid/');
  await page.fill('#url', movingPage);
  await page.press('#url', 'Enter');
  await expectText(page, 'page-url', 'page.html');
}

async function testVisibility(page, child) {
  const state = async () => (await fetch(child.address + 'api/state')).json();
  const until = async wanted => {
    const end = Date.now() + patience;
    while ((await state()).visible !== wanted) assert.ok(Date.now() < end, 'visibility does not become ' + wanted);
  };
  await page.focus('#visible');
  await page.keyboard.press('Space');
  await until(false);
  await page.keyboard.press('Space');
  await until(true);
  await page.click('#repaint');
  await expectText(page, 'status', 'done');
}

async function cookiesOf(page) {
  await page.fill('#script', '"cookies: " + document.cookie');
  await page.press('#script', 'Control+Enter');
  await expectText(page, 'result', 'cookies: ');
  return page.textContent('#result');
}

async function testCookies(page) {
  assert.equal(await cookiesOf(page), 'cookies: seen=yes');
  await page.fill('#cookies-url', 'http://elsewhere.invalid/');
  await page.press('#cookies-url', 'Enter');
  await expectText(page, 'status', 'done');
  assert.equal(await cookiesOf(page), 'cookies: seen=yes');
  await page.fill('#cookies-url', movingPage);
  await page.press('#cookies-url', 'Enter');
  const end = Date.now() + patience;
  while (await cookiesOf(page) !== 'cookies: ') assert.ok(Date.now() < end, 'the cookie stays');
}

// A client that asks for the picture and takes nothing: the page goes on.
async function testStall(page, child) {
  const {hostname, port} = new URL(child.address);
  const stalled = net.connect(Number(port), hostname).pause();
  stalled.write(`GET /api/picture HTTP/1.1\r\nHost: ${hostname}:${port}\r\n\r\n`);
  await testPictures(page);
  stalled.destroy();
}

async function testForeigners(child) {
  const foreign = {headers: {Origin: 'http://evil.example'}};
  assert.equal(await status(child.address + 'api/state', foreign), 403);
  assert.equal(await status(child.address, {headers: {Host: 'evil.example'}}), 403);
}

async function testTraces(page) {
  await page.waitForFunction(() => document.querySelectorAll('#traces div').length > 0, null, {timeout: patience});
}

// A program that hangs keeps its connections: only that no answer comes tells.
async function testSilence(page, child) {
  child.kill('SIGSTOP');
  await page.fill('#script', '1 + 1');
  await page.press('#script', 'Control+Enter');
  await expectText(page, 'result', 'no answer');
  await expectText(page, 'status', 'no answer');
  child.kill('SIGCONT');
  await expectText(page, 'status', 'connected');
}

async function testEnd(page, child) {
  child.kill('SIGINT');
  assert.equal(await child.ended, 0);
  await expectText(page, 'status', 'no answer');
  await page.evaluate(() => document.getElementById('result').replaceChildren());
  await page.press('#script', 'Control+Enter');
  await expectText(page, 'result', 'no answer');
}

// Meanwhile another program may have been given the port, for a while.
async function startAgainOn(port) {
  for (const end = Date.now() + patience; ;) {
    try {
      return await start('--port', port);
    } catch (fault) {
      if (Date.now() > end) throw fault;
    }
  }
}

// The program that comes back on its port counts from 1 again; the page that stayed open goes on.
async function testReturn(page, child) {
  const shownOf = () => page.evaluate(() => Number(document.getElementById('picture').dataset.number));
  const before = await shownOf();
  const again = await startAgainOn(new URL(child.address).port);
  await page.waitForFunction(n => document.getElementById('picture').dataset.number < n, before, {timeout: patience});
  await testPictures(page);
  await expectText(page, 'status', 'connected');
  await page.waitForFunction(() => document.querySelectorAll('#events div').length === 1, null, {timeout: patience});
  await expectText(page, 'events', 'loaded: ' + movingPage);
  again.kill('SIGINT');
  assert.equal(await again.ended, 0);
}

async function testToken(browser) {
  const child = await start('--listen', '0.0.0.0');
  const page = await browser.newPage();
  const address = new URL(child.address);
  assert.match(address.search, /^\?token=[0-9a-f]{32}$/);
  assert.equal(await status(address.origin + '/'), 401);
  await page.goto(child.address);
  await testPictures(page);
  await page.close();
  child.kill('SIGTERM');
  assert.equal(await child.ended, 0);
}

// The address is not lost where standard output takes nothing.
async function testFullOutput() {
  const full = openSync('/dev/full', 'w');
  const child = spawn(program, ['live', movingPage, '--port', '0'], {stdio: ['ignore', full, 'pipe'], env: ownHome()});
  started.push(child);
  const ended = new Promise(resolve => child.on('exit', (code, signal) => resolve(signal || code)));
  const lines = createInterface({input: child.stderr});
  const address = new Promise(resolve => lines.on('line', line => {
    const told = /standard output takes nothing; the control page is at (http:.*)/.exec(line);
    if (told) resolve(told[1]);
  }));
  assert.equal(await status(await Promise.race([address, ended])), 200);
  child.kill('SIGINT');
  assert.equal(await ended, 0);
}

const child = await start();
const browser = await launch();
try {
  const page = await browser.newPage({viewport: {width: 1280, height: 900}});
  const faults = [];
  page.on('pageerror', fault => faults.push(String(fault)));
  page.on('console', line => { if (/Content Security Policy/.test(line.text())) faults.push(line.text()); });
  await page.goto(child.address);
  for (const test of [testPictures, testScript, testSize, testQueue, testVisibility, testCookies, testStall, testTraces,
    testTabOrder, testNames, testKeyboardOnly]) {
    await test(page, child, movingPage);
    console.log('passed: ' + test.name);
  }
  await testForeigners(child);
  await page.waitForFunction(() => parseFloat(document.getElementById('rate').textContent) > 0, null, {timeout: patience});
  console.log(await page.textContent('#rate'));
  await expectText(page, 'phase', 'On air');
  if (pictures) await page.screenshot({path: path.join(pictures, 'live.png'), fullPage: true});
  await testNarrow(page, child, pictures);
  await testBarredEval(page, child, pageCalled('strict'), pageCalled('trusted'));
  await testSilence(page, child);
  await testEnd(page, child);
  await testReturn(page, child);
  assert.deepEqual(faults, []);
  await testToken(browser);
  await testFullOutput();
  await testLostAnswers(browser, start, movingPage);
  await testEndWhileAScriptRuns(start, movingPage);
  await testPagesThatCloseThemselves(start, movingPage);
  console.log('all passed');
} finally {
  await browser.close();
  endAll();
}
