// The control page: asks the JSON interface for what is new, and sends it what the user wants.
'use strict';

const $ = id => document.getElementById(id);

// The server has set a cookie in its place, for reloads and other tabs; here it serves a browser that takes none.
const token = new URLSearchParams(location.search).get('token');
if (token) history.replaceState(null, '', location.pathname);
const headers = token ? {Authorization: 'Bearer ' + token} : {};
const sleep = ms => new Promise(wake => setTimeout(wake, ms));
const longestLog = 500;

// What hangs, or has been cut off, gives no answer and no error either. A picture may be long under way.
const longestAnswer = 10000;
const longestPicture = 60000;
const within = time => ({headers, signal: AbortSignal.timeout(time)});

function say(text, bad) {
  $('status').textContent = text;
  $('status').className = bad ? 'bad' : '';
}

async function get(path) {
  const answer = await fetch('api/' + path, within(longestAnswer));
  const json = await answer.json();
  if (!answer.ok) throw new Error(json.error);
  return json;
}

async function post(path, body) {
  const answer = await fetch('api/' + path, {...within(longestAnswer), method: 'POST', body: JSON.stringify(body)});
  const json = await answer.json();
  if (!answer.ok) throw new Error(json.error);
  return json;
}

// A command's failure is told where the user looks, and never ends the page.
function onCommand(id, event, command) {
  $(id).addEventListener(event, async happened => {
    if (event === 'submit') happened.preventDefault();
    try {
      await command();
      say('done');
    } catch (problem) {
      say(problem.message, true);
    }
  });
}

// Whether the program has answered since it was last silent. The words of the status cannot tell: a command that failed meanwhile has
// put its own there, which would stay when the program is back.
let isConnected = false;

// For ever, one answer after the other; while the program does not answer, once a second.
async function repeat(step, pause) {
  for (;;) {
    try {
      await sleep(await step() || pause);
    } catch (problem) {
      isConnected = false;
      say('no answer: ' + problem.message, true);
      $('phase').textContent = 'Unknown';
      $('phase').className = 'badge unknown';
      await sleep(1000);
    }
  }
}

let shown = 0;
let shownTimes = [];

async function showPicture() {
  const answer = await fetch('api/picture?after=' + shown, within(longestPicture));
  if (answer.status === 204) return 15;
  if (!answer.ok) throw new Error((await answer.json()).error);
  shown = Number(answer.headers.get('X-Picture'));
  const image = await createImageBitmap(await answer.blob());
  const canvas = $('picture');
  if (canvas.width !== image.width || canvas.height !== image.height) {
    canvas.width = image.width;
    canvas.height = image.height;
  }
  canvas.getContext('2d').drawImage(image, 0, 0);
  image.close();
  shownTimes.push(performance.now());
  canvas.dataset.number = shown;
  return 1;
}

function showRate() {
  const now = performance.now();
  shownTimes = shownTimes.filter(time => now - time < 2000);
  $('rate').textContent = (shownTimes.length / 2).toFixed(1) + ' pictures a second';
}

function showQueue(queue) {
  const list = $('queue');
  const text = JSON.stringify(queue);
  if (list.dataset.shown === text) return;
  $('queue-empty').hidden = queue.length > 0;
  const shownBefore = JSON.parse(list.dataset.shown || '[]');
  list.dataset.shown = text;
  const focused = [...list.querySelectorAll('button')].indexOf(document.activeElement);
  list.replaceChildren(...queue.map((url, index) => {
    const item = document.createElement('li');
    const button = document.createElement('button');
    button.type = 'button';
    button.textContent = 'Remove';
    button.setAttribute('aria-label', 'Remove ' + url);
    button.addEventListener('click', () => post('remove', {index}).catch(p => say(p.message, true)));
    item.append(url, button);
    return item;
  }));
  if (focused >= 0) focusInQueue(queue, focused, shownBefore[focused]);
}

// The list has been made anew: the focus stays with its page, or if that has gone with its place, so
// that the keyboard goes on where it was.
function focusInQueue(queue, place, url) {
  const same = queue[place] === url ? place : queue.indexOf(url);
  const buttons = $('queue').querySelectorAll('button');
  (buttons[same >= 0 ? same : Math.min(place, queue.length - 1)] || $('next')).focus();
}

const samples = [];
let before = null;

// Counts per second, from what has been counted in all and the time between two looks.
function sample(state) {
  const now = performance.now();
  if (before && now - before.now < 900) return;
  if (before) {
    const per = count => (state[count] - before[count]) * 1000 / (now - before.now);
    samples.push({painted: per('painted'), dropped: per('dropped')});
    if (samples.length > 60) samples.shift();
    plot();
  }
  before = {now, painted: state.painted, dropped: state.dropped};
}

function plot() {
  const canvas = $('plot');
  const pen = canvas.getContext('2d');
  const top = Math.max(10, ...samples.map(s => s.painted));
  pen.clearRect(0, 0, canvas.width, canvas.height);
  pen.fillStyle = '#b9c6d3';
  pen.font = '14px sans-serif';
  pen.fillText(top.toFixed(0), 2, 14);
  const step = canvas.width / 60;
  samples.forEach((s, index) => {
    const bar = (value, colour, left, width) => {
      const height = value / top * (canvas.height - 20);
      pen.fillStyle = colour;
      pen.fillRect(index * step + left, canvas.height - height, width, height);
    };
    bar(s.painted, '#7cc4ff', 1, step / 2 - 1);
    bar(s.dropped, '#ffb35c', step / 2, step / 2 - 1);
  });
}

const phases = {
  starting: 'Starting', on_air: 'On air', loading: 'Loading', failed: 'Failed', lost: 'Lost', reloading: 'Loading again', closed: 'Closed',
};

// An address may be a page itself.
const short = url => url.length > 120 ? url.slice(0, 117) + '...' : url;
const time = ms => ms < 90000 ? Math.round(ms / 1000) + ' s' : Math.round(ms / 60000) + ' min';
const stays = state => state.url ? 'The last picture of ' + short(state.url) + ' stays on air.' : 'Nothing is on air yet.';

// What the operator has to know beyond that all is well.
const sentences = {
  starting: state => [short(state.wanted) + ' is on its way.', 'Nothing is on air yet.'],
  on_air: () => [],
  loading: state => [(state.wanted ? short(state.wanted) : 'Another page') + ' is on its way.',
    short(state.url) + ' stays on air until it comes.'],
  failed: state => [short(state.wanted) + ' could not be loaded: ' + state.error + '.', stays(state)],
  lost: state => [short(state.wanted) + ' is lost: ' + state.error + '.', stays(state)],
  reloading: state => [short(state.wanted) + ' is loaded again: ' + state.error + '.', stays(state)],
  closed: state => ['The page has closed itself.', stays(state) + ' Show another page.'],
};

function tell(state) {
  const said = sentences[state.phase](state);
  if (state.silent) said.push('The page does not answer: it hangs, or has taken window.hostApp away. Its picture may stand still. Show it anew, or another one.');
  if (!state.visible) said.push('The page is hidden, and paints nothing.');
  if (state.reloads > 0) said.push('Pages whose process ended were loaded again ' + state.reloads + ' times since the start.');
  if (state.dropped_calls > 0) said.push(state.dropped_calls + ' calls of hostApp.execute were dropped: a page may have 1000 that are not done with.');
  const box = $('told');
  box.className = state.silent || ['failed', 'lost', 'closed'].includes(state.phase) ? 'bad' : '';
  if (box.dataset.said === said.join('\n')) return;
  box.dataset.said = said.join('\n');
  box.replaceChildren(...said.map(text => {
    const line = document.createElement('p');
    line.textContent = text;
    return line;
  }));
}

let again = '';

function showPhase(state) {
  const silent = state.silent && ['on_air', 'loading'].includes(state.phase);
  $('phase').textContent = silent ? 'No answer' : phases[state.phase];
  $('phase').className = 'badge ' + (silent ? 'silent' : state.phase);
  $('page-url').textContent = state.url;
  $('since').textContent = 'for ' + time(state.since_ms);
  again = state.wanted || state.url;
  $('again').hidden = !again || !(silent || ['failed', 'lost', 'closed'].includes(state.phase));
  tell(state);
}

// The form has what others have set, too, but nobody's numbers change while they are being typed.
let shownSize = '';

function showSize(state) {
  const size = state.width + ' x ' + state.height;
  if (size === shownSize) return;
  shownSize = size;
  $('size-now').textContent = size;
  if ($('size-form').contains(document.activeElement)) return;
  $('width').value = state.width;
  $('height').value = state.height;
}

async function showState() {
  const state = await get('state');
  showSize(state);
  showPhase(state);
  $('painted').textContent = state.painted;
  $('dropped').textContent = state.dropped;
  if (document.activeElement !== $('visible')) $('visible').checked = state.visible;
  if (!isConnected) say('connected');
  isConnected = true;
  showQueue(state.queue);
  sample(state);
  showRate();
}

// Appends what is new, and stays at the end unless the user has scrolled away from it. When the
// program has not answered, it may be another run of it that does: the log is shown anew then.
function followLog(name) {
  let last = 0;
  const box = $(name);
  return async () => {
    const {lines} = await get(name + '?after=' + last).catch(problem => {
      last = 0;
      throw problem;
    });
    if (lines.length === 0) return;
    if (last === 0) box.replaceChildren();
    last = lines[lines.length - 1].number;
    const atEnd = box.scrollHeight - box.scrollTop - box.clientHeight < 8;
    box.append(...lines.map(line => {
      const row = document.createElement('div');
      row.className = line.kind;
      row.textContent = line.kind === 'trace' ? line.text : line.kind + ': ' + line.text;
      return row;
    }));
    while (box.childElementCount > longestLog) box.firstElementChild.remove();
    if (atEnd) box.scrollTop = box.scrollHeight;
  };
}

function showResult(state, text) {
  $('result').className = state;
  $('result').textContent = text;
}

async function runScript() {
  showResult('', 'running');
  try {
    const {id} = await post('script', {script: $('script').value});
    let answer = await get('result?id=' + id);
    for (; answer.state === 'waiting'; answer = await get('result?id=' + id)) await sleep(50);
    showResult(answer.state, answer.state === 'lost' ? 'no answer; perhaps the page was left' : answer.result);
  } catch (problem) {
    showResult('lost', 'no answer: ' + problem.message);
    throw problem;
  }
}

const numberOf = id => Number($(id).value);
async function addUrl(now) {
  await post('load', {url: $('url').value, now});
  $('url').value = '';
}

onCommand('load-form', 'submit', () => addUrl(true));
onCommand('enqueue', 'click', () => addUrl(false));
onCommand('next', 'click', () => post('next', {}));
onCommand('again', 'click', () => post('load', {url: again}));
onCommand('repaint', 'click', () => post('repaint', {}));
onCommand('visible', 'change', () => post('visibility', {visible: $('visible').checked}));
onCommand('size-form', 'submit', () => post('size', {width: numberOf('width'), height: numberOf('height')}));
onCommand('cookies-form', 'submit', () => post('cookies/delete', {url: $('cookies-url').value}));
onCommand('script-form', 'submit', runScript);
$('script').addEventListener('keydown', key => {
  if (key.ctrlKey && key.key === 'Enter') $('script-form').requestSubmit();
});

repeat(showPicture, 15);
repeat(showState, 250);
repeat(followLog('events'), 300);
repeat(followLog('traces'), 500);
