#!/usr/bin/env node
// No page of the console has a fault that axe-core finds, in either theme: console_accessibility_test.mjs PROGRAM.

import assert from 'node:assert/strict';
import {readFileSync} from 'node:fs';
import {createRequire} from 'node:module';

import {chromium} from 'playwright-core';

import {readCommandLine} from './command_line.mjs';
import {ladder} from './streams.mjs';
import {WeirServer} from './weir_server.mjs';

const axe = readFileSync(createRequire(import.meta.url).resolve('axe-core/axe.min.js'), 'utf8');
const password = 'correct horse battery';

async function findFaults(page) {
  await page.evaluate(axe);
  const {violations} = await page.evaluate(() => window.axe.run());
  return violations.flatMap(({id, nodes}) => nodes.map((node) => `${id}: ${node.html.slice(0, 200)} ${node.any[0]?.message ?? ''}`));
}

/** Pages with what has to be seen before they are looked at. */
const pages = (id) => [
  ['/', (page) => page.getByRole('row', {name: 'ladder'}).getByText('stopped')],
  ['/?view=tiles', (page) => page.getByRole('listitem').filter({hasText: 'ladder'})],
  ['/?view=wall', (page) => page.getByRole('listitem').filter({hasText: 'ladder'})],
  [`/streams/${id}`, (page) => page.getByRole('heading', {name: 'ladder'})],
  [`/streams/${id}/edit`, (page) => page.getByText('This can be saved.')],
  [`/streams/${id}/edit?as=json`, (page) => page.getByText('This can be saved.')],
  ['/new', (page) => page.getByRole('heading', {name: 'Outputs'})],
  ['/new/many', (page) => page.getByLabel('Addresses')],
  ['/profiles', (page) => page.getByRole('link', {name: '720p H.264'})],
  ['/profiles/2', (page) => page.getByText('This can be saved.')],
  ['/system', (page) => page.getByRole('heading', {name: 'Webhooks'})],
  ['/users', (page) => page.getByText('Add a user')],
  ['/streams/999', (page) => page.getByText('There is no such page')],
];

async function lookAtAll(browser, server, id, colorScheme) {
  const page = await browser.newPage({colorScheme});
  const faults = [];
  const look = async (path, shown) => {
    await page.goto(server.origin + path);
    await shown(page).first().waitFor();
    faults.push(...(await findFaults(page)).map((fault) => `${colorScheme} ${path}: ${fault}`));
  };
  await look('/', (shown) => shown.getByLabel('Password'));
  await page.context().request.post(`${server.origin}/api/login`, {data: {name: 'anna', password}});
  for (const [path, shown] of pages(id)) await look(path, shown);
  await page.goto(`${server.origin}/streams/${id}/edit`);
  await page.getByText('This can be saved.').waitFor();
  await page.evaluate(() => {
    for (const group of document.querySelectorAll('details')) group.open = true;
  });
  await page.getByLabel('Lowest speed').fill('fast');
  await page.getByText('fast is not').first().waitFor();
  faults.push(...(await findFaults(page)).map((fault) => `${colorScheme} faulty form: ${fault}`));
  await page.close();
  return faults;
}

const server = new WeirServer(readCommandLine().program);
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-dev-shm-usage'],
});
try {
  await server.start();
  const {id} = await server.request('POST', '/api/streams', {...ladder('udp://239.0.0.1:1234'), tags: ['hd']});
  await server.request('POST', '/api/users', {name: 'anna', role: 'admin', password});
  const faults = [];
  for (const colorScheme of ['light', 'dark']) faults.push(...await lookAtAll(browser, server, id, colorScheme));
  assert.deepEqual(faults, []);
} finally {
  await browser.close();
  await server.remove();
}
