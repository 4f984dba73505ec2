// The site that is visited, plain and TLS. An address says what its answer is to be: what it is made of and how large,
// its status, type, coding and framing.
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
const noise = (size, seed) => crypto.createCipheriv('aes-128-ctr', sha(`${seed}`).slice(0, 16), Buffer.alloc(16))
  .update(Buffer.alloc(Number(size)));
const prose = size => Buffer.from('A harmless line, as good as any other.\n'.repeat(size / 39));

// A sound of so many bytes, nearly an hour for 20 MB.
const sound = size => {
  const head = Buffer.alloc(44, 'RIFF\0\0\0\0WAVEfmt \x10\0\0\0\x01\0\x01\0\0\0\0\0\0\0\0\0\x01\0\x08\0data', 'latin1');
  [[size - 8, 4], [6000, 24], [6000, 28], [size - 44, 40]].forEach(([number, at]) => head.writeUInt32LE(number, at));
  return Buffer.concat([head, Buffer.alloc(size - 44, 128)]);
};

const form = (id, type, inner) => `<form id=${id} method=post action=/${id} enctype=${type}>${inner}</form>`;
const upload = id => form(id, 'multipart/form-data', '<input type=file name=f>');
const contents = {
  noise, prose, sound, words: () => share('words.html'),
  marked: size => Buffer.concat([noise(size, 4), share('marked.txt')]),
  page: () => Buffer.from(`<!doctype html><title>page</title><link rel=stylesheet href="/?type=text/css&size=70000">
    <script src="/?type=text/javascript&of=script"></script><iframe src="/?framing=chunked&size=90000"></iframe>
    ${Array.from({ length: 24 }, (_, i) => `<img src="/?type=image/png&of=noise&size=20000&seed=${i}">`).join('')}`),
  script: () => Buffer.from('fetch("/?size=999").then(r => r.text()).then(t => document.title = t.length);'),
  forms: () => Buffer.from(upload('allowed') + upload('refused') + form('fields', '',
    `<input name=a value="&#228; &amp; =b"><textarea name=t>${'line\n'.repeat(3000)}</textarea>`)),
};
const go = new EventEmitter(), uploads = [], starts = []; // digests of the files in forms; where ranges began

// Says what arrived: of a form's file the file alone, since its boundary differs each time.
function echo(request, response, body) {
  const [type, boundary] = (request.headers['content-type'] || '').split('; boundary=');
  if (boundary) body = body.subarray(body.indexOf('\r\n\r\n') + 4, body.lastIndexOf(`\r\n--${boundary}`));
  if (boundary) uploads.push(sha(body));
  response.end(JSON.stringify([request.method, request.url, type, request.headers['x-own'], body.length, sha(body)]));
}

// Goes on only when the page asks for it: what was sent so far must have arrived.
async function live(response, type) {
  response.writeHead(200, { 'Content-Type': type, 'Cache-Control': 'no-store' });
  for (let i = 0; i < 4; i++) {
    response.write(`data: piece ${i}\n\n`);
    await once(go, 'on');
  }
  response.end();
}

async function serve(request, response) {
  const body = Buffer.concat(await request.toArray()), { pathname, searchParams } = new URL(request.url, 'http://x');
  const asked = { status: 200, type: 'text/html', of: 'prose', size: 50_000, ...Object.fromEntries(searchParams) };
  if (pathname === '/go') return response.end(`${go.emit('on')}`);
  if (pathname === '/live') return live(response, asked.type);
  if (pathname !== '/') return echo(request, response, body);
  const fields = { 'Content-Type': asked.type, ETag: '"one"' }, isChunked = asked.framing === 'chunked';
  if (request.headers['if-none-match']) return response.writeHead(304, fields).end();
  if (asked.to) fields.Location = asked.to;
  if (asked.coding) fields['Content-Encoding'] = asked.coding;
  let content = contents[asked.of](asked.size, asked.seed);
  if (asked.coding) content = zlib[`${asked.coding}Sync`](content);
  const range = /bytes=(\d+)-(\d*)/.exec(request.headers.range);
  if (range) {
    starts.push(Number(range[1]));
    range[2] ||= content.length - 1;
    [asked.status, fields['Content-Range']] = range[1] < content.length
      ? [206, `bytes ${range[1]}-${range[2]}/${content.length}`] : [416, `bytes */${content.length}`];
    content = content.subarray(range[1], Number(range[2]) + 1);
  }
  if (asked.status !== '204' && !asked.framing) fields['Content-Length'] = content.length;
  if (!asked.framing) return response.writeHead(Number(asked.status), fields).end(content);

  // Framings that node does not use towards a client of HTTP/1.0.
  if (isChunked) fields['Transfer-Encoding'] = 'chunked';
  const lines = Object.entries({ ...fields, Connection: 'close' }).map(field => field.join(': ')).join('\r\n');
  request.socket.write(`HTTP/1.1 ${asked.status} Made up\r\n${lines}\r\n\r\n`);
  for (let at = 0; at < content.length; at += 7000, await pause(1)) {
    const piece = content.subarray(at, at + 7000), size = Buffer.from(`${piece.length.toString(16)};name=value\r\n`);
    request.socket.write(isChunked ? Buffer.concat([size, piece, Buffer.from('\r\n')]) : piece);
  }
  request.socket.end(isChunked ? '0\r\nX-Trailer: 1\r\n\r\n' : '');
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

async function open(folder) {
  const [key, cert] = ['key', 'cert'].map(name => fs.readFileSync(`${folder}/${name}.pem`));
  const servers = [http.createServer(serve), https.createServer({ key, cert }, serve)];
  servers.forEach(server => server.on('upgrade', echoMessage).listen(0, '::').unref());
  await Promise.all(servers.map(server => once(server, 'listening')));
  const ports = servers.map(server => server.address().port);
  return host => ({ plain: `http://${host}:${ports[0]}`, secure: `https://${host}:${ports[1]}`, uploads, starts });
}

module.exports = { open, noise, sha };
