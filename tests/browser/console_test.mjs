#!/usr/bin/env node
// What somebody sees who adds a stream in the console and keeps it open while the stream runs, dies, comes back and is
// changed by two people, and what a viewer may do: console_test.mjs PROGRAM.

import assert from 'node:assert/strict';

import {chromium} from 'playwright-core';

import {readCommandLine} from './command_line.mjs';
import {single} from './streams.mjs';
import {eventually} from './wait.mjs';
import {WeirServer} from './weir_server.mjs';

const stream = {...single('unused'), label: 'News', tags: ['hd']};
stream.input = {0: stream.input[1]};
const password = 'correct horse battery';

async function addByDocument(page, server) {
  await page.goto(server.origin);
  await page.getByText('Add your first stream').waitFor();
  await page.getByRole('link', {name: 'Add a stream'}).click();
  const editor = page.getByLabel('Document (JSON)');
  await editor.fill(JSON.stringify({...stream, output: {...stream.output, 2: {protocol: 'udp', hostname: 'h', port: 70000}}}));
  await page.locator('#findings').getByText('output.2.port').waitFor();
  assert.ok(await page.getByRole('button', {name: 'Save'}).isDisabled());
  await page.reload();
  await eventually('what was typed, after a reload', 10, async () => /70000/.test(await editor.inputValue()));
  await editor.fill(JSON.stringify(stream));
  await page.getByRole('button', {name: 'Save'}).click();
  await page.getByRole('heading', {name: 'News'}).waitFor();
}

/** Somebody else saves while the editor is open: both changes are in the end, and what differs from the run is named. */
async function editBesideSomebodyElse(page, server, id) {
  await page.getByRole('link', {name: 'Edit'}).click();
  const editor = page.getByLabel('Document (JSON)');
  await eventually('the document', 10, async () => /"hd"/.test(await editor.inputValue()));
  await server.request('PATCH', `/api/streams/${id}`, {tags: ['hd', 'theirs']});
  await editor.fill((await editor.inputValue()).replace('"bitrate": 500', '"bitrate": 400'));
  await page.getByRole('button', {name: 'Save'}).click();
  await page.getByText('Somebody else has changed the stream').waitFor();
  await page.getByRole('button', {name: /Keep theirs/}).click();
  await page.getByRole('button', {name: 'Save'}).click();
  await page.getByText('Takes effect at the next start: video.bitrate').waitFor();
  assert.deepEqual((await server.request('GET', `/api/streams/${id}`)).tags, ['hd', 'theirs']);
}

async function startWhileListIsOpen(page, server) {
  await page.getByRole('link', {name: 'Streams'}).click();
  const row = page.getByRole('row', {name: 'News'});
  await row.getByText('stopped').waitFor();
  const [{id}] = await server.request('GET', '/api/streams');
  await server.request('POST', `/api/streams/${id}/start`);
  await row.getByText('running').waitFor();
  await eventually('live figures', 10, async () => /25\.\d/.test(await row.innerText()));
  await page.getByRole('searchbox').fill('no such label');
  await row.waitFor({state: 'detached'});
  assert.match(page.url(), /\?q=no\+such\+label$/);
  await page.getByRole('searchbox').fill('hd');
  await row.waitFor();
  return id;
}

/** The first event has all figures, and may come before the list. */
async function reload(page) {
  await page.reload();
  const row = page.getByRole('row', {name: 'News'});
  await eventually('figures that do not change', 10, async () => /25\.\d[^]*MiB/.test(await row.innerText()));
}

/** Pictures come in rows and tiles, a tag that no stream has leaves none, and the choices stay in the address. */
async function lookAtPictures(page) {
  const picture = () => page.locator('.thumbnail img').evaluate(({naturalWidth}) => naturalWidth);
  await page.getByRole('img', {name: /^Last 24 hours: 0 restarts/}).waitFor();
  await eventually('a picture in the row', 30, async () => await picture() > 0);
  await page.getByRole('button', {name: 'Tiles'}).click();
  await page.getByRole('listitem').filter({hasText: 'News'}).getByText('running').waitFor();
  await eventually('a picture in the tile', 30, async () => await picture() > 0);
  await page.goto(page.url().replace(/\?.*/, '?tag=sport'));
  await page.getByText('No stream matches').waitFor();
  await page.getByRole('combobox', {name: 'Tag'}).selectOption('hd');
  await page.getByRole('row', {name: 'News'}).waitFor();
  assert.match(page.url(), /\?tag=hd$/);
}

async function watch(page) {
  await page.getByRole('link', {name: 'News'}).click();
  await page.getByRole('button', {name: 'Play', exact: true}).click();
  const shown = () => page.evaluate(() => {
    const video = document.querySelector('video');
    return [video?.currentTime ?? 0, video?.getVideoPlaybackQuality().totalVideoFrames ?? 0];
  });
  await eventually('moving video', 30, async () => (await shown()).every((figure) => figure > 1));
}

async function readCharts(page) {
  await page.getByRole('img', {name: /^Frames: now 25\.0/}).locator('canvas').waitFor({timeout: 30_000});
  await page.getByRole('img', {name: /^Speed: .*should be 0\.90.* to 1\.20/}).waitFor();
}

async function readWhyItDied(page, server, id) {
  process.kill(server.transcoderOf(id), 'SIGKILL');
  await page.locator('.head').getByText(/ended by signal 9 \(Killed\).*starts again/).waitFor({timeout: 5000});
  await page.locator('.history').getByText('ended by signal 9 (Killed)').waitFor();
  await page.locator('.head').getByText('running').waitFor();
}

async function lookAsViewer(page, server) {
  await server.request('POST', '/api/users', {name: 'anna', role: 'admin', password});
  const logIn = async (secret) => {
    await page.getByLabel('Name').fill('vera');
    await page.getByLabel('Password').fill(secret);
    await page.getByRole('button', {name: 'Log in'}).click();
  };
  await page.context().request.post(`${server.origin}/api/login`, {data: {name: 'anna', password}});
  const added = await page.context().request.post(`${server.origin}/api/users`, {data: {name: 'vera', role: 'viewer', password}});
  assert.equal(added.status(), 201);
  await page.reload();
  await page.getByRole('button', {name: 'Stop'}).waitFor();
  await page.getByRole('button', {name: 'Log out'}).click();
  await logIn('wrong');
  await page.getByText('Name or password is wrong').waitFor();
  await logIn(password);
  await page.getByRole('heading', {name: 'News'}).waitFor();
  for (const name of ['Stop', 'Restart', 'Delete']) assert.equal(await page.getByRole('button', {name}).count(), 0, name);
  const status = await page.evaluate(async () => (await fetch('/api/streams/0/stop', {method: 'POST'})).status);
  assert.equal(status, 403);
  await page.getByRole('button', {name: 'Log out'}).click();
  await page.getByLabel('Password').waitFor();
}

async function checkFiles(server) {
  const page = await fetch(server.origin, {headers: {'Accept-Encoding': 'identity'}});
  const text = await page.text();
  assert.match(text, /^<!doctype html>/);
  assert.match(page.headers.get('content-security-policy'), /script-src 'self'/);
  const script = await fetch(server.origin + /src="([^"]+)"/.exec(text)[1]);
  assert.match(script.headers.get('cache-control'), /immutable/);
  assert.equal((await fetch(`${server.origin}/assets/main.js`)).status, 404);
}

const server = new WeirServer(readCommandLine().program);
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-dev-shm-usage'],
});
try {
  await server.start();
  await checkFiles(server);
  const page = await browser.newPage();
  const faults = [];
  page.on('pageerror', (error) => faults.push(error.message));
  page.on('console', (message) => /Content Security Policy/.test(message.text()) && faults.push(message.text()));
  await addByDocument(page, server);
  const id = await startWhileListIsOpen(page, server);
  await reload(page);
  await lookAtPictures(page);
  await watch(page);
  await readCharts(page);
  await readWhyItDied(page, server, id);
  await editBesideSomebodyElse(page, server, id);
  await lookAsViewer(page, server);
  assert.deepEqual(faults, []);
} finally {
  await browser.close();
  await server.remove();
}
