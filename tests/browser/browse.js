// Visits the sites in headless Chromium, without the filter and in each of its ways, and prints a table of what came of
// it. browse.py starts it and tells it the ports.
'use strict';
const { setTimeout: pause } = require('node:timers/promises');
const { chromium } = require('playwright-core');
const { open } = require('./sites.js');
const { visits } = require('./visits.js');

const told = JSON.parse(process.argv[2]);
const args = ['--no-sandbox', '--disable-gpu', '--disable-quic', '--disable-background-networking'];
const stuck = async () => {
  await pause(40_000, null, { ref: false });
  throw new Error('nothing happens any more');
};

async function main() {
  const sitesAt = await open(told.folder);
  const browser = await chromium.launch({ executablePath: told.chromium, args });
  const through = async way => {
    const proxy = way && { server: way.proxy, bypass: '<-loopback>' };
    const { host } = way || { host: 'localhost' }, sites = sitesAt(host);
    const context = await browser.newContext({ ignoreHTTPSErrors: true, proxy });
    return async visit => {
      const page = await context.newPage();
      await page.goto(`${sites.plain}/?size=0`);
      const value = await Promise.race([visit({ page, sites }), stuck()]);
      await page.close();
      return JSON.stringify(value).replaceAll(host, 'localhost');
    };
  };
  const plain = await through(), unscanned = await Promise.all(told.unscanned.map(through));
  const scanned = await Promise.all(told.scanned.map(through));
  console.log('what'.padEnd(36) + told.scanned.map(way => way.name.padEnd(15)).join(''));
  for (const [what, visit, ...parts] of visits) {
    const cells = [what.padEnd(36)], expected = parts.length ? null : await plain(visit);
    for (const way of parts.length ? scanned : unscanned) {
      const value = await way(visit).catch(error => error.message);
      const right = parts.length ? parts.every(part => value.includes(part)) : value === expected;
      cells.push((right ? parts.length ? 'as meant' : 'identical' : `WRONG: ${value.slice(0, 300)}`).padEnd(15));
      if (!right) process.exitCode = 1;
    }
    console.log(cells.join(''));
  }
  await browser.close();
}

main().catch(error => {
  console.error(error);
  process.exit(1);
});
