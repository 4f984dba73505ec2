// The sites that are visited: one program, plain and TLS, whose pages use what today's web uses.
'use strict';
const crypto = require('node:crypto');
const { EventEmitter, once } = require('node:events');
const fs = require('node:fs');
const http = require('node:http');
const https = require('node:https');
const { setTimeout: pause } = require('node:timers/promises');
const zlib = require('node:zlib');

const share = name => fs.readFileSync(`${__dirname}/../../share/site/${name}`);
const sha = bytes => crypto.createHash('sha256').update(bytes).digest('hex');
const noise = (size, seed) => crypto.createCipheriv('aes-128-ctr', sha(seed).slice(0, 16), Buffer.alloc(16))
  .update(Buffer.alloc(size));
const prose = size => Buffer.from('A harmless line, as good as any other.\n'.repeat(size / 39));

const html = 'text/html; charset=utf-8', binary = 'application/octet-stream';
const words = share('words.html'), marked = share('marked.txt'), large = noise(5_000_000, '1');
const gzip = { 'Content-Encoding': 'gzip' };
const page = `<!doctype html><title>page</title><link rel=stylesheet href=/style.css><script src=/script.js></script>
  ${Array.from({ length: 24 }, (_, i) => `<img src="/kept/${i}.png">`).join('')}<iframe src=/chunked></iframe>`;
const form = (id, type, inner) => `<form id=${id} method=post action=/${id} enctype=${type}>${inner}</form>`;
const upload = id => form(id, 'multipart/form-data', '<input type=file name=f>');
const forms = `<!doctype html><title>forms</title>${upload('allowed')}${upload('refused')}` + form('fields', '',
  `<input name=a value="ä &amp; =b"><textarea name=t>${'line\n'.repeat(3000)}</textarea>`);
const script = 'fetch("/kept/from-script").then(r => r.text()).then(t => document.title = t.length);';
const frame = Buffer.concat([Buffer.from('<!doctype html><title>frame</title><pre>'), prose(90_000)]);

const go = new EventEmitter();
const uploads = []; // digests of the files that came in forms

const send = (type, bytes, fields = {}, status = 200) => (request, response) => {
  response.writeHead(status, { 'Content-Type': type, 'Content-Length': Buffer.byteLength(bytes), ...fields });
  response.end(bytes);
};

// Framings that node does not use towards a client of HTTP/1.0.
const closed = (type, bytes, status = '200 OK', begin = '', wrap = piece => piece, end = '') => async ({ socket }) => {
  socket.write(`HTTP/1.1 ${status}\r\nContent-Type: ${type}\r\n${begin}Connection: close\r\n\r\n`);
  for (let at = 0; at < bytes.length; at += 7000, await pause(1)) socket.write(wrap(bytes.subarray(at, at + 7000)));
  socket.end(end);
};
const chunk = piece => Buffer.from(`${piece.length.toString(16)};a=b\r\n${piece.toString('latin1')}\r\n`, 'latin1');
const chunked = (type, bytes, status, fields = '') =>
  closed(type, bytes, status, `Transfer-Encoding: chunked\r\n${fields}`, chunk, '0\r\nX-Trailer: 1\r\n\r\n');

const ranges = { 'bytes=1000-70000': [1000, 70_001], 'bytes=-500': [4_999_500, 5_000_000] };
function ranged(request, response) {
  const [begin, end] = ranges[request.headers.range] || [], span = end ? `${begin}-${end - 1}` : '*';
  const field = { 'Content-Range': `bytes ${span}/5000000` };
  send(binary, end ? large.subarray(begin, end) : prose(500), field, end ? 206 : 416)(request, response);
}

// Says what arrived: of a form's file the file alone, since its boundary differs each time.
function echo(request, response, body) {
  const [type, boundary] = (request.headers['content-type'] || '').split('; boundary=');
  if (boundary) body = body.subarray(body.indexOf('\r\n\r\n') + 4, body.lastIndexOf(`\r\n--${boundary}`));
  if (boundary) uploads.push(sha(body));
  const told = [request.method, request.url, type, request.headers['x-own'], body.length, sha(body)];
  send('text/plain', JSON.stringify(told))(request, response);
}

// Goes on only when the page asks for it: what was sent so far must have arrived.
async function live(request, response) {
  response.writeHead(200, { 'Content-Type': request.url.slice('/live/'.length), 'Cache-Control': 'no-store' });
  for (let i = 0; i < 4; i++) {
    response.write(`data: piece ${i}\n\n`);
    await once(go, 'on');
  }
  response.end();
}

const etag = { ETag: '"one"' }, unchanged = (request, response) => response.writeHead(304, etag).end();
const revalidated = (request, response) =>
  (request.headers['if-none-match'] ? unchanged : send('text/plain', prose(4000), etag))(request, response);
const redirect = (status, to) => send(html, prose(200), { Location: to }, status);
const zipped = zlib.gzipSync(frame);
const routes = {
  '/': send(html, page), '/blank': send(html, '<!doctype html>'), '/forms': send(html, forms),
  '/style.css': send('text/css', prose(70_000)), '/script.js': send('text/javascript', script),
  '/301': redirect(301, '/302'), '/302': redirect(302, '/303'), '/303': redirect(303, '/307'),
  '/307': redirect(307, '/308'), '/308': redirect(308, '/'), '/redirected-post': redirect(307, '/echo'),
  '/chunked': chunked(html, frame), '/large-chunked': chunked(binary, noise(700_000, '2')),
  '/closed': closed(html, frame), '/empty': closed(html, Buffer.alloc(0)),
  '/large': send(binary, large), '/204': (request, response) => response.writeHead(204).end(),
  '/download': send(binary, large, { 'Content-Disposition': 'attachment; filename=large.bin' }), '/ranged': ranged,
  '/404': send(html, prose(200_000), {}, 404), '/500': chunked(html, prose(120_000), '500 Internal Server Error'),
  '/403': closed(html, prose(90_000), '403 Forbidden'), '/503': send(html, '', {}, 503), '/etag': revalidated,
  '/gzip': send(html, zipped, gzip), '/gzip-chunked': chunked(html, zipped, '200 OK', 'Content-Encoding: gzip\r\n'),
  '/gzip-404': send(html, zipped, gzip, 404), '/gzip-image': send('image/svg+xml', zipped, gzip),
  '/deflate': send(html, zlib.deflateSync(frame), { 'Content-Encoding': 'deflate' }),
  '/go': (request, response) => go.emit('on') && response.end(),
  '/words': send(html, words), '/words-chunked': chunked(html, words),
  '/forbidden': send('application/x-forbidden', words),
  '/marked': send(binary, marked), '/marked-late': send(binary, Buffer.concat([large, marked])),
  '/marked-chunked': chunked('application/zip', Buffer.concat([noise(50_000, '5'), marked])),
};

async function serve(request, response) {
  const body = Buffer.concat(await request.toArray());
  if (routes[request.url]) return routes[request.url](request, response);
  if (request.url.startsWith('/live/')) return live(request, response);
  if (request.url.startsWith('/kept/')) return send('image/png', noise(20_000, request.url))(request, response);
  echo(request, response, body);
}

// RFC 6455, as much of it as an echo of one message of 60,000 bytes needs.
function echoMessage(request, socket) {
  const key = request.headers['sec-websocket-key'] + '258EAFA5-E914-47DA-95CA-C5AB0DC85B11';
  socket.write('HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n' +
    `Sec-WebSocket-Accept: ${crypto.createHash('sha1').update(key).digest('base64')}\r\n\r\n`);
  let held = Buffer.alloc(0);
  socket.on('error', () => {}).on('data', bytes => {
    held = Buffer.concat([held, bytes]);
    if (held.length !== 60_008) return;
    const message = held.subarray(8).map((byte, i) => byte ^ held[4 + i % 4]);
    socket.end(Buffer.concat([Buffer.from([0x82, 126, 0xEA, 0x60]), message, Buffer.from([0x88, 2, 3, 232])]));
  });
}

async function open(key, cert) {
  const servers = [http.createServer(serve), https.createServer({ key, cert }, serve)];
  servers.forEach(server => server.on('upgrade', echoMessage).listen(0, '127.0.0.1').unref());
  await Promise.all(servers.map(server => once(server, 'listening')));
  const [plain, secure] = servers.map((server, i) => `${['http', 'https'][i]}://localhost:${server.address().port}`);
  return { plain, secure, uploads };
}

module.exports = { open, noise, sha };
