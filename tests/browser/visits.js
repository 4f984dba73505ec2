// What the browser does on the sites. A visit's value is all that it got; it is compared with the value of the same
// visit without the filter. A refusal says whether the filter kept back what it is to keep back.
'use strict';
const fs = require('node:fs');
const { noise, sha } = require('./sites.js');

const file = noise(300_000, '8'), largeFile = noise(3_000_000, '9');
const upload = buffer => ({ name: 'file.bin', mimeType: 'application/octet-stream', buffer });

// In the page: what fetch says of a resource.
const helpers = () => {
  window.get = async (url, options) => {
    const answer = await fetch(url, { cache: 'no-store', ...options });
    const body = await answer.arrayBuffer();
    const digest = [...new Uint8Array(await crypto.subtle.digest('SHA-256', body))].map(b => b.toString(16)).join();
    const length = options?.method === 'HEAD' && answer.headers.get('content-length'); // differs where gzip is undone
    const fields = ['content-type', 'content-range'].map(name => answer.headers.get(name));
    return [answer.status, answer.url, answer.redirected, body.byteLength, digest, length, ...fields];
  };
};
const get = (url, options) => ({ page }) => page.evaluate(([u, o]) => window.get(u, o), [url, options]);
const each = (...urls) => ({ page }) => page.evaluate(async all => {
  const values = [];
  for (const url of all) values.push(await window.get(url));
  return values;
}, urls);

// A navigation with all that it loads.
const load = (site, name) => async ({ page, sites }) => {
  const answers = [];
  const note = answer => answers.push(answer);
  page.on('response', note);
  await page.goto(sites[site] + name, { waitUntil: 'networkidle' });
  page.off('response', note);
  const value = await Promise.all(answers.map(async answer => [answer.url(), answer.status(),
    answer.status() >= 300 && answer.status() < 400 ? null : sha(await answer.body())]));
  return [await page.title(), page.url(), ...value.sort()];
};

async function submit({ page, sites }, form, buffer) {
  await page.goto(`${sites.plain}/forms`);
  if (buffer) await page.setInputFiles(`#${form} input[type=file]`, upload(buffer));
  const sends = page.evaluate(id => document.getElementById(id).submit(), form);
  const [answer] = await Promise.all([page.waitForNavigation(), sends]);
  return [answer.status(), await page.content()];
}

async function download({ page }) {
  const [saved] = await Promise.all([page.waitForEvent('download'), page.evaluate(() => { location = '/download'; })]);
  return [saved.suggestedFilename(), sha(fs.readFileSync(await saved.path()))];
}

// Each piece is asked for only once the one before has been seen.
const stream = type => ({ page }) => page.evaluate(async url => {
  const seen = [], reader = (await fetch(url)).body.getReader(), decoder = new TextDecoder();
  for (let text = ''; ;) {
    const { done, value } = await reader.read();
    if (done) return seen;
    text += decoder.decode(value, { stream: true });
    if (!text.endsWith('\n\n')) continue;
    seen.push(text);
    text = '';
    await fetch('/go');
  }
}, `/live/${type}`);

const events = ({ page }) => page.evaluate(() => new Promise((resolve, reject) => {
  const seen = [], source = new EventSource('/live/text/event-stream');
  source.onerror = () => reject(new Error(`after ${seen}`));
  source.onmessage = async event => {
    if (seen.push(event.data) === 4) source.close();
    await fetch('/go');
    if (seen.length === 4) resolve(seen);
  };
}));

const socket = site => ({ page, sites }) => page.evaluate(url => new Promise((resolve, reject) => {
  const seen = [], ws = new WebSocket(url), sent = ['text', 'ä'.repeat(40_000), new Uint8Array(200_000).fill(7), ''];
  ws.binaryType = 'arraybuffer';
  ws.onerror = () => reject(new Error('no connection'));
  ws.onopen = () => sent.forEach(message => ws.send(message));
  ws.onmessage = event => {
    seen.push(typeof event.data === 'string' ? event.data : new Uint8Array(event.data).join());
    if (seen.length === sent.length) ws.close(1000, 'done');
  };
  ws.onclose = event => resolve([seen, event.code, event.reason, event.wasClean]);
}), sites[site].replace('http', 'ws') + '/socket');

const big = size => ({ method: 'POST', body: 'x'.repeat(size), headers: { 'X-Own': 'field' } });
const visits = [
  ['page with 28 resources', load('plain', '/')],
  ['the same over HTTPS', load('secure', '/')],
  ['60 requests, kept connections', each(...Array.from({ length: 60 }, (_, i) => `/kept/${i}`))],
  ['redirects 301, 302, 303, 307, 308', load('plain', '/301')],
  ['redirected POST', get('/redirected-post', big(30_000))],
  ['chunked page', load('plain', '/chunked')],
  ['close-delimited page', load('plain', '/closed')],
  ['empty close-delimited page', load('plain', '/empty')],
  ['204', get('/204')],
  ['304 asked for by the page', get('/etag', { headers: { 'If-None-Match': '"one"' } })],
  ['304 for the browser\'s cache', async visit => {
    const before = visit.sites.unchanged();
    const value = [await get('/etag', { cache: 'default' })(visit), await get('/etag', { cache: 'no-cache' })(visit)];
    return [...value, visit.sites.unchanged() - before];
  }],
  ['HEAD', async visit => Promise.all(['/large', '/404'].map(url => get(url, { method: 'HEAD' })(visit)))],
  ['ranges: 206, 416', async visit => Promise.all(['1000-70000', '-500', '400000-'].map(range =>
    get('/ranged', { headers: { Range: `bytes=${range}` } })(visit)))],
  ['long error pages', async visit => [await load('plain', '/404')(visit), await each('/500', '/403', '/503')(visit)]],
  ['gzip, deflate not asked for', each('/gzip', '/deflate', '/gzip-chunked', '/gzip-image', '/gzip-404')],
  ['gzip page shown', load('plain', '/gzip-chunked')],
  ['5 MB, 700 KB chunked', each('/large', '/large-chunked')],
  ['download of 5 MB', download],
  ['long and odd addresses', each('/echo?q=' + 'x'.repeat(6000), '/a%2Fb/%C3%BC?a=b%00&c#d', '/a//b/./c;d=e')],
  ['cookies', async visit => [await get('/cookies')(visit), await get('/cookies-seen')(visit)]],
  ['POST of a form', visit => submit(visit, 'fields')],
  ['upload where allowed', visit => submit(visit, 'allowed', file)],
  ['POST of 0, 10240, 2000000 bytes', async visit => Promise.all([0, 10240, 2_000_000].map(size =>
    get('/echo', big(size))(visit)))],
  ['PUT, DELETE, PATCH', async visit => Promise.all(['PUT', 'DELETE', 'PATCH'].map(method =>
    get('/echo', { method, body: method })(visit)))],
  ['other origin, asked first', async visit =>
    get(`${visit.sites.secure}/echo`, { method: 'PUT', body: 'x', headers: { 'X-Own': 'y' } })(visit)],
  ['fetch streams, live', async visit => [
    await stream('application/x-ndjson')(visit), await stream('text/plain')(visit), await stream('text/html')(visit)]],
  ['server-sent events, live', events],
  ['WebSocket ws', socket('plain')],
  ['WebSocket wss', socket('secure')],
];

const isBlocked = reason => ([status, content]) =>
  status === 403 && content.includes('This page is blocked') && content.includes(reason);
const goTo = name => async ({ page, sites }) => {
  const answer = await page.goto(sites.plain + name);
  return [answer.status(), await answer.text()];
};
// A download that is cut short or refused.
const fails = url => ({ page }) =>
  page.evaluate(u => fetch(u, { mode: 'no-cors' }).then(r => r.arrayBuffer()).then(() => 'came', () => 'failed'), url);
const refuseUpload = buffer => async visit => {
  const value = await submit(visit, 'refused', buffer);
  return visit.sites.received.includes(sha(buffer)) ? 'it arrived' : value;
};
const offensive = 'Offensive content found on the site in category Sample category', infected = 'Content is infected';
const refusals = [
  ['phrases', goTo('/words'), isBlocked(offensive)],
  ['phrases, chunked', goTo('/words-chunked'), isBlocked(offensive)],
  ['phrases, gzip', goTo('/words-gzip'), isBlocked(offensive)],
  ['MIME type', goTo('/forbidden'), isBlocked('application/x-forbidden')],
  ['upload', refuseUpload(file.subarray(0, 1000)), isBlocked('')],
  ['upload of 3 MB', refuseUpload(largeFile), isBlocked('')],
  ['marked download', goTo('/marked'), isBlocked(infected)],
  ['marked, chunked', goTo('/marked-chunked'), isBlocked(infected)],
  ['marked, close-delimited', goTo('/marked-closed'), isBlocked(infected)],
  ['marked behind 3 MB', fails('/marked-late'), value => value === 'failed'],
  ['blacklisted address', goTo('/listed'), isBlocked('Black Listed URL')],
  ['blocked host over HTTPS', visit => fails(visit.sites.secure.replace('localhost', '127.0.0.1'))(visit),
    value => value === 'failed'],
  ['unmarked download, scanned', get('/large'), value => value[0] === 200 && value[3] === 5_000_000],
];

module.exports = { helpers, visits, refusals };
