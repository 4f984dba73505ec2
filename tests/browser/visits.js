// What the browser does on the sites. A visit's value is all that it got; it is compared with the value of the same
// visit without the filter. Where texts follow, the filter keeps something back, and the value has these texts in it.
'use strict';
const fs = require('node:fs');
const { noise, sha } = require('./sites.js');

const file = noise(300_000, '8'), largeFile = noise(3_000_000, '9');

const all = (...steps) => async visit => {
  const values = [];
  for (const step of steps) values.push(await (typeof step === 'string' ? get(step) : step)(visit));
  return values;
};

// What fetch says of a resource. A length is told of a HEAD alone: it differs where gzip is undone.
const get = (url, options) => ({ page }) => page.evaluate(async ([u, o]) => {
  const answer = await fetch(u, { cache: 'no-store', ...o }), body = await answer.arrayBuffer();
  const digest = new Uint8Array(await crypto.subtle.digest('SHA-256', body)).join();
  const fields = ['content-type', 'content-range', o?.method === 'HEAD' ? 'content-length' : 'x-none'];
  return [answer.status, answer.url, body.byteLength, digest, ...fields.map(name => answer.headers.get(name)),
    new TextDecoder().decode(body.slice(0, 5000))];
}, [url, options]);
const post = (url, size) => get(url, { method: 'POST', body: 'x'.repeat(size), headers: { 'X-Own': 'field' } });

// A navigation with all that it loads.
const load = (name, site = 'plain') => async ({ page, sites }) => {
  const answers = [];
  page.on('response', answer => answers.push(answer));
  await page.goto(sites[site] + name, { waitUntil: 'networkidle' });
  const values = answers.map(async a => [a.url(), a.status(), await a.body().then(sha, () => 'no body')]);
  return [await page.title(), page.url(), ...(await Promise.all(values)).sort()];
};

const submit = (form, buffer) => async ({ page, sites }) => {
  await page.goto(`${sites.plain}/?of=forms`);
  const upload = { name: 'file.bin', mimeType: 'application/octet-stream', buffer };
  if (buffer) await page.setInputFiles(`#${form} input[type=file]`, upload);
  const sends = page.evaluate(id => document.getElementById(id).submit(), form);
  const [answer] = await Promise.all([page.waitForNavigation(), sends]);
  return [answer.status(), await page.content(), 'arrived', buffer && sites.uploads.includes(sha(buffer))];
};

// Each piece is asked for only once the one before has been seen.
const stream = type => ({ page }) => page.evaluate(async url => {
  const seen = [], reader = (await fetch(url)).body.pipeThrough(new TextDecoderStream()).getReader();
  for (let part; !(part = await reader.read()).done; await fetch('/go')) seen.push(part.value);
  return seen;
}, `/live?type=${type}`);

const events = ({ page }) => page.evaluate(() => new Promise(resolve => {
  const seen = [], source = new EventSource('/live?type=text/event-stream');
  source.addEventListener('message', event => seen.push(event.data));
  source.addEventListener('message', () => fetch('/go'));
  source.addEventListener('error', () => source.close());
  source.addEventListener('error', () => resolve(seen));
}));

// A player that goes near the end asks for the part from there on.
const seek = ({ page, sites }) => page.evaluate(() => new Promise((resolve, reject) => {
  const player = Object.assign(document.createElement('video'), { src: '/?of=sound&type=audio/wav&size=20000000' });
  player.addEventListener('loadedmetadata', () => { player.currentTime = player.duration * 0.9; });
  player.addEventListener('seeked', () => resolve([player.duration, player.currentTime, player.readyState > 1]));
  player.addEventListener('error', () => reject(new Error(player.error.message)));
})).then(values => [...values, sites.starts.splice(0).some(start => start > 15_000_000)]);

const download = ({ page, sites }) => page.goto(sites.plain).then(async () => {
  const starts = page.waitForEvent('download');
  await page.evaluate(() => Object.assign(document.createElement('a'),
    { href: '/?of=noise&type=application/zip&size=3000000', download: 'file.zip' }).click());
  const saved = await starts;
  return [saved.suggestedFilename(), sha(fs.readFileSync(await saved.path()))];
});

const socket = site => ({ page, sites }) => page.evaluate(url => new Promise((resolve, reject) => {
  const seen = [], ws = new WebSocket(url);
  ws.binaryType = 'arraybuffer';
  ws.onopen = () => ws.send(new Uint8Array(60_000).map((_, i) => i));
  ws.onmessage = event => seen.push(new Uint8Array(event.data).join());
  ws.onclose = event => event.wasClean ? resolve([seen, event.code]) : reject(new Error(`closed: ${event.code}`));
}), sites[site].replace('http', 'ws') + '/socket');

const isBlocked = ['[403,', 'This page is blocked'], infected = 'A virus was found in the file';
const offensive = 'text fits the category';
const redirect = (to, code) => `/?status=${code}&to=${encodeURIComponent(to)}`;
const visits = [
  ['page with 28 resources', load('/?of=page')],
  ['the same over HTTPS', load('/?of=page', 'secure')],
  ['60 requests, kept connections', all(...Array.from({ length: 60 }, (_, i) => `/?of=noise&size=9999&seed=${i}`))],
  ['redirects', load([308, 307, 303, 302, 301].reduce(redirect, '/?of=page'))],
  ['redirected POST', post('/?status=307&to=/echo', 30_000)],
  ['chunked', all(load('/?framing=chunked'), '/?framing=chunked&of=noise&size=700000&type=application/zip')],
  ['close-delimited, empty', all(load('/?framing=close'), load('/?framing=close&size=0'))],
  ['204', get('/?status=204&size=0')],
  ['304', all(get('/', { headers: { 'If-None-Match': '"one"' } }), get('/', { cache: 'default' }),
    get('/', { cache: 'no-cache' }))],
  ['HEAD', all(get('/?size=5000000', { method: 'HEAD' }), get('/?status=404', { method: 'HEAD' }))],
  ['ranges: 206, 416', all(get('/?of=noise&size=300000', { headers: { Range: 'bytes=1000-70000' } }),
    get('/', { headers: { Range: 'bytes=60000-60001' } }))],
  ['long error pages', all(load('/?status=404&size=200000'), '/?status=500&size=200000&framing=chunked',
    '/?status=403&size=200000&framing=close', '/?status=503&size=0')],
  ['gzip, deflate not asked for', all('/?coding=gzip', '/?coding=deflate', '/?coding=gzip&type=image/svg%2Bxml',
    '/?coding=gzip&status=404', load('/?coding=gzip&framing=chunked'))],
  ['5 MB', get('/?of=noise&size=5000000&type=application/zip')],
  ['POST of forms, upload where allowed', all(submit('fields'), submit('allowed', file))],
  ['POST of 0, 10240, 2000000 bytes', all(post('/echo', 0), post('/echo', 10_240), post('/echo', 2_000_000))],
  ['fetch streams, live', all(stream('application/x-ndjson'), stream('text/plain'), stream('text/html'))],
  ['server-sent events, live', events],
  ['media, ranges', seek],
  ['download', download],
  ['WebSocket ws, wss', all(socket('plain'), socket('secure'))],
  ['phrases', get('/?of=words'), ...isBlocked, offensive],
  ['phrases, chunked', get('/?of=words&framing=chunked'), ...isBlocked, offensive],
  ['MIME type', get('/?type=application/x-forbidden'), ...isBlocked, 'application/x-forbidden'],
  ['upload', submit('refused', file.subarray(0, 1000)), ...isBlocked, '"arrived",false]'],
  ['upload of 3 MB', submit('refused', largeFile), ...isBlocked, '"arrived",false]'],
  ['marked download', get('/?of=marked&type=application/zip&size=0'), ...isBlocked, infected],
  ['marked, chunked', get('/?of=marked&type=application/zip&framing=chunked'), ...isBlocked, infected],
  ['marked behind 5 MB', get('/?of=marked&type=application/zip&size=5000000'), 'TypeError'],
  ['unmarked download, scanned', get('/?of=noise&type=application/zip&size=5000000'), '[200,', ',5000000,'],
];

module.exports = { visits };
