// The sites that are visited: one program, plain and TLS, whose pages use what today's web uses.
'use strict';
const crypto = require('node:crypto');
const { EventEmitter, once } = require('node:events');
const fs = require('node:fs');
const http = require('node:http');
const https = require('node:https');
const path = require('node:path');
const { setTimeout: pause } = require('node:timers/promises');
const zlib = require('node:zlib');

const share = name => fs.readFileSync(path.join(__dirname, '../../share/site', name));
const sha = bytes => crypto.createHash('sha256').update(bytes).digest('hex');
const noise = (size, seed) => crypto.createCipheriv('aes-128-ctr', sha(seed).slice(0, 16), Buffer.alloc(16))
  .update(Buffer.alloc(size));
const prose = size => Buffer.from('A harmless line, as good as any other.\n'.repeat(size / 39));

const html = 'text/html; charset=utf-8';
const words = share('words.html'), marked = share('marked.txt'), large = noise(5_000_000, '1');
const page = `<!doctype html><title>page</title><link rel=stylesheet href=/style.css><script src=/script.js></script>
  ${Array.from({ length: 24 }, (_, i) => `<img src="/kept/${i}.png">`).join('')}<iframe src=/chunked></iframe>`;
const forms = `<!doctype html><title>forms</title><form id=fields method=post action=/echo>
  <input name=a value="ä &amp; =b"><textarea name=t>${'line\n'.repeat(3000)}</textarea></form>
  <form id=allowed method=post action=/allowed enctype=multipart/form-data><input type=file name=f></form>
  <form id=refused method=post action=/refused enctype=multipart/form-data><input type=file name=f></form>`;
const script = Buffer.from('fetch("/kept/from-script").then(r => r.text()).then(t => document.title = t.length);');
const frame = Buffer.concat([Buffer.from('<!doctype html><title>frame</title><pre>'), prose(90_000)]);

const webSocketKey = '258EAFA5-E914-47DA-95CA-C5AB0DC85B11'; // RFC 6455, section 1.3
const go = new EventEmitter();
const received = []; // digests of the files that came in forms
let unchanged = 0;

const send = (type, bytes, fields = {}, status = 200) => (request, response) => {
  response.writeHead(status, { 'Content-Type': type, 'Content-Length': bytes.length, ...fields });
  response.end(bytes);
};

// Framings that node does not use towards a client of HTTP/1.0.
const raw = (line, type, pieces, fields = '') => async ({ socket }) => {
  socket.write(`${line}\r\nContent-Type: ${type}\r\n${fields}Connection: close\r\n\r\n`);
  for (const piece of pieces) {
    socket.write(piece);
    await pause(5);
  }
  socket.end();
};
function chunked(type, bytes, line = 'HTTP/1.1 200 OK', fields = '') {
  const pieces = [];
  for (let at = 0; at < bytes.length; at += 7000) {
    const piece = bytes.subarray(at, at + 7000);
    pieces.push(`${piece.length.toString(16)};name=value\r\n`, piece, '\r\n');
  }
  return raw(line, type, [...pieces, '0\r\nX-Trailer: 1\r\n\r\n'], `Transfer-Encoding: chunked\r\n${fields}`);
}

const ranged = (type, bytes) => (request, response) => {
  const range = /^bytes=(\d*)-(\d*)$/.exec(request.headers.range || '');
  if (!range) return send(type, bytes, { 'Accept-Ranges': 'bytes' })(request, response);
  const [first, last] = range[1] === '' ? [bytes.length - range[2], bytes.length - 1]
    : [Number(range[1]), Math.min(range[2] || bytes.length, bytes.length - 1)];
  const outside = first >= bytes.length, span = outside ? '*' : `${first}-${last}`;
  const field = { 'Content-Range': `bytes ${span}/${bytes.length}` };
  send(type, outside ? prose(500) : bytes.subarray(first, last + 1), field, outside ? 416 : 206)(request, response);
};

// Says what arrived: of a form's file the file alone, since its boundary differs each time.
function echo(request, response, body) {
  const [type, boundary] = (request.headers['content-type'] || '').split('; boundary=');
  if (boundary) body = body.subarray(body.indexOf('\r\n\r\n') + 4, body.lastIndexOf(`\r\n--${boundary}`));
  if (boundary) received.push(sha(body));
  const told = JSON.stringify([request.method, request.url, type, request.headers['x-own'], body.length, sha(body)]);
  const open = Object.fromEntries(['Origin', 'Headers', 'Methods'].map(name => [`Access-Control-Allow-${name}`, '*']));
  if (request.method === 'OPTIONS') return response.writeHead(204, open).end();
  send('text/plain', Buffer.from(told), open)(request, response);
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

function revalidated(request, response) {
  const tag = { ETag: '"one"' };
  if (request.headers['if-none-match'] !== tag.ETag) return send('text/plain', prose(4000), tag)(request, response);
  unchanged++;
  response.writeHead(304, tag).end();
}

const redirect = (status, to) => send(html, prose(200), { Location: to }, status);
const text = value => (request, response) => send('text/plain', Buffer.from(`${value(request)}`))(request, response);
const gzip = { 'Content-Encoding': 'gzip' }, binary = 'application/octet-stream';
const routes = {
  '/': send(html, Buffer.from(page)), '/blank': send(html, Buffer.from('<!doctype html>')),
  '/forms': send(html, Buffer.from(forms)), '/listed': send(html, prose(100)),
  '/style.css': send('text/css', prose(70_000)), '/script.js': send('text/javascript', script),
  '/301': redirect(301, '/302'), '/302': redirect(302, '/303'), '/303': redirect(303, '/307'),
  '/307': redirect(307, '/308'), '/308': redirect(308, '/'), '/redirected-post': redirect(307, '/echo'),
  '/chunked': chunked(html, frame), '/large-chunked': chunked(binary, noise(700_000, '2')),
  '/closed': raw('HTTP/1.0 200 OK', html, [frame, prose(30_000)]), '/empty': raw('HTTP/1.0 200 OK', html, []),
  '/large': send(binary, large), '/204': (request, response) => response.writeHead(204).end(),
  '/download': send(binary, large, { 'Content-Disposition': 'attachment; filename=large.bin' }),
  '/ranged': ranged(binary, noise(300_000, '3')),
  '/404': send(html, prose(200_000), {}, 404), '/503': send(html, Buffer.alloc(0), {}, 503),
  '/500': chunked(html, prose(120_000), 'HTTP/1.1 500 Internal Server Error'),
  '/403': raw('HTTP/1.1 403 Forbidden', html, [prose(90_000)]),
  '/gzip': send(html, zlib.gzipSync(frame), gzip), '/gzip-404': send(html, zlib.gzipSync(frame), gzip, 404),
  '/gzip-chunked': chunked(html, zlib.gzipSync(frame), 'HTTP/1.1 200 OK', 'Content-Encoding: gzip\r\n'),
  '/gzip-image': send('image/svg+xml', zlib.gzipSync(prose(50_000)), gzip),
  '/deflate': send(html, zlib.deflateSync(frame), { 'Content-Encoding': 'deflate' }),
  '/etag': revalidated, '/go': text(() => go.emit('on')),
  '/cookies': send(html, prose(100), { 'Set-Cookie': ['a=1; Path=/', 'b=two; HttpOnly'] }),
  '/cookies-seen': text(request => request.headers.cookie),
  '/words': send(html, words), '/words-chunked': chunked(html, words),
  '/words-gzip': send(html, zlib.gzipSync(words), gzip), '/forbidden': send('application/x-forbidden', words),
  '/marked': send(binary, marked), '/marked-late': send(binary, Buffer.concat([noise(3_000_000, '6'), marked])),
  '/marked-chunked': chunked('application/zip', Buffer.concat([noise(50_000, '5'), marked])),
  '/marked-closed': raw('HTTP/1.0 200 OK', binary, [noise(50_000, '7'), marked]),
};

async function serve(request, response) {
  const body = Buffer.concat(await request.toArray());
  if (routes[request.url]) return routes[request.url](request, response);
  if (request.url.startsWith('/live/')) return live(request, response);
  if (request.url.startsWith('/kept/')) return send('image/png', noise(20_000, request.url))(request, response);
  echo(request, response, body);
}

// RFC 6455, as much of it as an echo needs.
function echoFrames(request, socket, head) {
  const key = crypto.createHash('sha1').update(request.headers['sec-websocket-key'] + webSocketKey);
  socket.write('HTTP/1.1 101 Switching Protocols\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n' +
    `Sec-WebSocket-Accept: ${key.digest('base64')}\r\n\r\n`);
  let held = head;
  socket.on('error', () => {});
  socket.on('data', bytes => {
    held = Buffer.concat([held, bytes]);
    for (;;) {
      const short = held[1] & 127, mask = short < 126 ? 2 : short === 126 ? 4 : 10;
      if (held.length < mask + 4) return;
      const length = short < 126 ? short : short === 126 ? held.readUInt16BE(2) : Number(held.readBigUInt64BE(2));
      if (held.length < mask + 4 + length) return;
      const load = Buffer.from(held.subarray(mask + 4, mask + 4 + length)).map((byte, i) => byte ^ held[mask + i % 4]);
      socket.write(Buffer.concat([Buffer.from([held[0], short]), held.subarray(2, mask), load]));
      if ((held[0] & 15) === 8) return socket.end();
      held = held.subarray(mask + 4 + length);
    }
  });
}

async function open(key, cert) {
  const ports = [];
  for (const server of [http.createServer(serve), https.createServer({ key, cert }, serve)]) {
    server.on('upgrade', echoFrames).listen(0, '127.0.0.1').unref();
    await once(server, 'listening');
    ports.push(server.address().port);
  }
  const [plain, secure] = [`http://localhost:${ports[0]}`, `https://localhost:${ports[1]}`];
  return { plain, secure, received, unchanged: () => unchanged };
}

module.exports = { open, noise, sha };
