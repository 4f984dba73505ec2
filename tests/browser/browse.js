// Visits the sites in headless Chromium, first without the filter and then in each of its ways, and prints a table of
// what came of it. browse.py starts it and tells it the ports.
'use strict';
const fs = require('node:fs');
const { setTimeout: pause } = require('node:timers/promises');
const { chromium } = require('playwright-core');
const { open } = require('./sites.js');
const { helpers, visits, refusals } = require('./visits.js');

const told = JSON.parse(process.argv[2]);
const quiet = ['--no-sandbox', '--disable-gpu', '--disable-quic', '--no-first-run', '--disable-background-networking',
  '--disable-component-update', '--disable-sync'];

// A browser of its own for each way; a page of its own for each thing. A thing that fails has its error as value.
async function browse(sites, proxy, things) {
  const args = proxy ? [...quiet, `--proxy-server=127.0.0.1:${proxy}`, '--proxy-bypass-list=<-loopback>'] : quiet;
  const browser = await chromium.launch({ executablePath: told.chromium, args });
  const context = await browser.newContext({ ignoreHTTPSErrors: true });
  context.setDefaultTimeout(20_000);
  await context.addInitScript(helpers);
  const values = [];
  for (const [what, visit] of things) {
    const page = await context.newPage(), over = new AbortController();
    const limit = pause(40_000, null, over).then(() => { throw new Error('nothing happens any more'); });
    try {
      await page.goto(`${sites.plain}/blank`);
      values.push(await Promise.race([visit({ page, sites }), limit]));
    } catch (error) {
      values.push(error);
      console.log(`${what}, port ${proxy}: ${error.message.split('\n')[0]}`);
    }
    over.abort();
    limit.catch(() => {});
    await page.close();
  }
  await browser.close();
  return values;
}

async function main() {
  const sites = await open(fs.readFileSync(`${told.folder}/key`), fs.readFileSync(`${told.folder}/cert`));
  const rows = [['what', 'direct', 'through squid']];
  const tell = async (things, ports, judge) => {
    const values = [];
    for (const port of ports) values.push(await browse(sites, port, things));
    things.forEach(([what], i) => rows.push([what, ...values.map(way => judge(way[i], i))]));
  };
  const plain = await browse(sites, 0, visits), failed = plain.findIndex(value => value instanceof Error);
  if (failed >= 0) throw new Error(`${visits[failed][0]} fails without the filter`);
  const same = (value, i) => JSON.stringify(value) === JSON.stringify(plain[i]) ? 'identical' : 'DIFFERS';
  await tell(visits, told.unscanned, same);
  const meant = (value, i) => !(value instanceof Error) && refusals[i][2](value) ? 'as meant' : 'NOT SO';
  await tell(refusals, told.scanned, meant);
  rows.forEach(row => console.log(row[0].padEnd(36) + row[1].padEnd(12) + row[2]));
  process.exit(rows.flat().some(cell => cell === 'DIFFERS' || cell === 'NOT SO') ? 1 : 0);
}

main().catch(error => {
  console.error(error);
  process.exit(1);
});
