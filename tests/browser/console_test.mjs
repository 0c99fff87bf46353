#!/usr/bin/env node
// What somebody sees who adds a stream in the console and keeps it open while the stream runs, dies, comes back and is
// changed by two people, and what a viewer may do: console_test.mjs PROGRAM.

import assert from 'node:assert/strict';

import {chromium} from 'playwright-core';

import {readCommandLine} from './command_line.mjs';
import {single} from './streams.mjs';
import {eventually} from './wait.mjs';
import {WeirServer} from './weir_server.mjs';

const label = 'News';
const source = single('unused').input[1];
const password = 'correct horse battery';

async function fill(within, texts) {
  for (const [name, text] of Object.entries(texts)) await within.getByRole('textbox', {name}).fill(text);
}

/** A second input is preferred by its button, and taken away again. */
async function sortInputs(page, card) {
  await page.getByRole('button', {name: 'Add an input'}).click();
  await fill(card('Input 1'), {URL: 'udp://127.0.0.1:1'});
  await page.getByRole('button', {name: 'Prefer input 1 more'}).click();
  const first = card('Input 0').getByRole('textbox', {name: 'URL'});
  await eventually('the other order', 10, async () => await first.inputValue() === 'udp://127.0.0.1:1');
  await page.getByRole('button', {name: 'Remove input 0'}).click();
}

async function addByForm(page, server) {
  await page.goto(server.origin);
  await page.getByText('Add your first stream').waitFor();
  await page.getByRole('link', {name: 'Add a stream'}).click();
  const card = (heading) => page.getByRole('listitem').filter({has: page.getByRole('heading', {name: heading})});
  const section = (heading) => page.locator('section').filter({has: page.getByRole('heading', {name: heading, exact: true})});
  await fill(page, {Label: label, Tags: 'hd,'});
  await fill(card('Input 0'), {URL: source.url});
  await card('Input 0').getByText('More').click();
  await fill(card('Input 0'), {Format: 'lavfi'});
  await card('Input 0').getByLabel('Real time').selectOption('yes');
  await sortInputs(page, card);
  await fill(section('Video'), {Preset: 'ultrafast', Bitrate: '500', Width: '640', Height: '360', 'Frame rate': '25'});
  await page.getByRole('table', {name: 'Restart'}).getByRole('button', {name: '3 h', exact: true}).click();
  await page.getByText(/^Next: .*03:00/).waitFor();
  await page.getByRole('button', {name: 'Add an output'}).click();
  await page.getByLabel('Protocol of output 1').selectOption('udp');
  await fill(card('Output 1'), {Host: 'h', Port: '70000'});
  await card('Output 1').getByText('70000 is not a port').waitFor();
  assert.ok(await page.getByRole('button', {name: 'Save'}).isDisabled());
  await page.reload();
  await page.getByRole('button', {name: 'output.1.port'}).click();
  await eventually('the field of the finding', 10, () =>
    page.getByRole('textbox', {name: 'Port'}).evaluate((field) => field === document.activeElement && field.value === '70000'));
  await page.getByRole('button', {name: 'Remove output 1'}).click();
  await page.getByRole('button', {name: 'JSON'}).click();
  const {input, tags, video} = JSON.parse(await page.getByLabel('Document (JSON)').inputValue());
  assert.deepEqual({input, tags, video}, {
    input: {0: source, restart: {hours: '3', weekdays: '*'}}, tags: ['hd'], video: {preset: 'ultrafast', bitrate: 500, width: 640, height: 360, fps: 25},
  });
  await page.getByRole('button', {name: 'Save'}).click();
  await page.getByRole('heading', {name: label}).waitFor();
}

/** The preferred input can't be reached: the list and the strip say that the stream runs on the other one. */
async function seeFailover(page, server) {
  const {id} = await server.request('POST', '/api/streams', {...single('http://127.0.0.1:9/none.ts'), label: 'Spare'});
  await server.request('POST', `/api/streams/${id}/start`);
  await page.goto(server.origin);
  const row = page.getByRole('row', {name: 'Spare'});
  await row.getByText('runs on input #1, not on the preferred one').waitFor();
  await row.getByText('⚠ not preferred').waitFor();
  await page.goto(`${server.origin}/streams/${id}`);
  await page.locator('.day .running.other title').filter({hasText: 'running, input #1'}).first().waitFor({state: 'attached'});
  await server.request('POST', `/api/streams/${id}/stop`);
}

/** Somebody else saves while the editor is open: both changes are in the end, and what differs from the run is named. */
async function editBesideSomebodyElse(page, server, id) {
  await page.getByRole('link', {name: 'Edit'}).click();
  await page.getByRole('button', {name: 'JSON'}).click();
  const editor = page.getByLabel('Document (JSON)');
  await eventually('the document', 10, async () => /"hd"/.test(await editor.inputValue()));
  await server.request('PATCH', `/api/streams/${id}`, {tags: ['hd', 'theirs']});
  await editor.fill((await editor.inputValue()).replace('"bitrate": 500', '"bitrate": 400'));
  await page.getByRole('button', {name: 'Save'}).click();
  await page.getByText('Somebody else has changed the stream').waitFor();
  await page.getByRole('button', {name: /Keep theirs/}).click();
  await page.getByRole('button', {name: 'Save'}).click();
  const pending = page.getByText('Takes effect at the next start: video.bitrate');
  await pending.waitFor();
  await page.getByRole('button', {name: 'Restart'}).click();
  await page.getByRole('dialog').getByRole('button', {name: 'Restart'}).click();
  await pending.waitFor({state: 'detached'});
  await page.locator('.head').getByText('running').waitFor();
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

/** All tabs of a browser share one connection to the server's events, and one that comes later has all figures. */
async function openTabs(page, server) {
  const tabs = [await page.context().newPage(), await page.context().newPage()];
  for (const tab of tabs) {
    await tab.goto(server.origin);
    const row = tab.getByRole('row', {name: 'News'});
    await eventually('figures that do not change', 10, async () => /25\.\d[^]*MiB/.test(await row.innerText()));
  }
  const subscribers = async () => Number(/^weir_event_subscribers (\d+)/m.exec(await (await fetch(`${server.origin}/metrics`)).text())?.[1]);
  await eventually('one connection', 10, async () => await subscribers() === 1);
  for (const tab of tabs) await tab.close();
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
  await page.locator('.viewers li').filter({hasText: /127\.0\.0\.1 hls \d+ s$/}).waitFor();
  await page.getByRole('heading', {name: 'Viewers (1)'}).waitFor();
}

async function readCharts(page) {
  await page.getByRole('img', {name: /^Frames: now 25\.0/}).locator('canvas').waitFor({timeout: 30_000});
  await page.getByRole('img', {name: /^Speed: .*should be 0\.90.* to 1\.20/}).waitFor();
}

/** What is in the input, what would run, and when the timetable acts. */
async function lookInside(page) {
  await page.getByRole('button', {name: 'Probe'}).click();
  await page.getByRole('status').getByText(/rawvideo, 640×360/).waitFor();
  await page.getByText('The command of its next start').click();
  await page.locator('.command').getByText(/libx264/).waitFor();
  await page.getByText(/^Next restart by the timetable: .*00:00/).waitFor();
}

async function readWhyItDied(page, server, id) {
  process.kill(server.transcoderOf(id), 'SIGKILL');
  await page.locator('.head').getByText(/ended by signal 9 \(Killed\).*starts again/).waitFor({timeout: 5000});
  await page.locator('.history').getByText('ended by signal 9 (Killed)').waitFor();
  await page.locator('.head').getByText('running').waitFor();
}

/** A list of addresses: the faulty one stays, the others become streams. */
async function addMany(page, server, id) {
  await page.goto(`${server.origin}/new/many`);
  await page.getByLabel('Addresses').fill('#EXTM3U\n#EXTINF:-1 group-title="a,b",Sport, live\nudp://127.0.0.1:9\nhtp://x');
  await page.getByLabel('Tags of all').fill('many');
  await page.getByText('"htp" is not an allowed input protocol').waitFor();
  await page.getByLabel('Start them').uncheck();
  await page.getByRole('button', {name: 'Add 1 stream'}).click();
  await page.getByRole('link', {name: 'Sport, live'}).click();
  await page.getByRole('heading', {name: 'Sport, live'}).waitFor();
  await page.getByRole('button', {name: 'Duplicate'}).click();
  await page.getByRole('heading', {name: /^Edit stream/}).waitFor();
  assert.deepEqual((await server.request('GET', '/api/streams?tag=many')).map((stream) => stream.label), ['Sport, live', 'Sport, live (copy)']);
  await page.goto(`${server.origin}/streams/${id}`);
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
  const other = await page.context().newPage();
  await other.goto(server.origin);
  await other.getByRole('row', {name: 'News'}).waitFor();
  await page.getByRole('button', {name: 'Log out'}).click();
  for (const tab of [page, other]) await tab.getByLabel('Password').waitFor();
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
  const page = await (await browser.newContext()).newPage();
  const faults = [];
  page.on('pageerror', (error) => faults.push(error.message));
  page.on('console', (message) => /Content Security Policy/.test(message.text()) && faults.push(message.text()));
  await addByForm(page, server);
  const id = await startWhileListIsOpen(page, server);
  await reload(page);
  await openTabs(page, server);
  await lookAtPictures(page);
  await watch(page);
  await readCharts(page);
  await lookInside(page);
  await readWhyItDied(page, server, id);
  await editBesideSomebodyElse(page, server, id);
  await seeFailover(page, server);
  await addMany(page, server, id);
  await lookAsViewer(page, server);
  assert.deepEqual(faults, []);
} finally {
  await browser.close();
  await server.remove();
}
