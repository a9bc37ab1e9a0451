// program.mjs - the program under test, the pages that it shows, and the browser that shows its control page.
// usage of the tests: node TEST.mjs PROGRAM [PICTURE-FOLDER]
import {spawn} from 'node:child_process';
import {mkdtempSync, readFileSync} from 'node:fs';
import http from 'node:http';
import {tmpdir} from 'node:os';
import path from 'node:path';
import {createInterface} from 'node:readline';
import {fileURLToPath} from 'node:url';
import {chromium} from 'playwright-core';

const program = process.argv[2];
const here = path.dirname(fileURLToPath(import.meta.url));

// Cookies and policies need a server; it has this one page under every name.
const text = readFileSync(path.join(here, 'page.html'));
const policies = {'/strict.html': "default-src 'self'", '/trusted.html': "require-trusted-types-for 'script'"};
const pages = http.createServer((asked, answer) => {
  const policy = policies[asked.url];
  const status = /status-(\d+)/.exec(asked.url);
  if (policy) answer.setHeader('Content-Security-Policy', policy);
  answer.statusCode = status ? Number(status[1]) : 200;
  if (answer.statusCode === 204) return answer.end();
  answer.setHeader('Content-Type', 'text/html').end(status ? '<body style="background:red">' : text);
});
await new Promise(resolve => pages.listen(0, '127.0.0.1', resolve));
export const pageCalled = name => `http://127.0.0.1:${pages.address().port}/${name}.html`;
export const movingPage = pageCalled('page');

// Each program has a home and a profile of its own: what a user or another test has left behind is not seen.
// Whoever runs the tests removes the folder for temporary files in which they lie.
export function ownHome() {
  const home = mkdtempSync(path.join(tmpdir(), 'live-'));
  const inside = name => path.join(home, name);
  return {...process.env, HOME: home, TMPDIR: home, XDG_CACHE_HOME: inside('cache'), XDG_CONFIG_HOME: inside('config'), XDG_DATA_HOME: inside('data')};
}

// The program, and the address that its first line tells.
export const started = [];
export async function start(...more) {
  const port = more.includes('--port') ? [] : ['--port', '0'];
  const first = more.length > 0 && !more[0].startsWith('--') ? [] : [movingPage];
  const child = spawn(program, ['live', ...first, ...port, ...more], {stdio: ['ignore', 'pipe', 'pipe'], env: ownHome()});
  started.push(child);
  child.said = '';
  child.stderr.on('data', text => {
    child.said += text;
    process.stderr.write(text);
  });
  child.ended = new Promise(resolve => child.on('exit', (code, signal) => resolve(signal || code)));
  const lines = createInterface({input: child.stdout});
  const line = new Promise(resolve => lines.once('line', resolve));
  child.address = await Promise.race([line, child.ended.then(code => { throw new Error('ended: ' + code); })]);
  return child;
}

export const launch = () => chromium.launch({
  executablePath: process.env.CHROMIUM || '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run',
    '--disable-background-networking', '--disable-component-update', '--disable-sync'],
});

export function endAll() {
  for (const one of started) one.kill('SIGKILL');
  pages.close();
  pages.closeAllConnections();
}
