#!/usr/bin/env node
// Takes the pictures of the console that the documentation shows: pictures.mjs PROGRAM DIRECTORY [MINUTES]. The streams
// run for so many minutes before (default 10), so that charts and strips have something to show.

import {execFileSync} from 'node:child_process';
import {mkdirSync, rmSync} from 'node:fs';
import {join} from 'node:path';
import {setTimeout as wait} from 'node:timers/promises';

import {chromium} from 'playwright-core';

import {ladder, single} from './streams.mjs';
import {WeirServer} from './weir_server.mjs';

const [program, directory, minutes = '10'] = process.argv.slice(2);
const hls = {protocol: 'hls', playlist_name: 'index.m3u8'};
const [, generated] = Object.values(single('unused').input);
const picture = (source, rate = 10) => ({url: `${source}=size=320x180:rate=${rate}`, format: 'lavfi', re: true});
const small = {video: {codec: 'libx264', preset: 'ultrafast', bitrate: 300}, audio: {codec: 'none'}};
const unreachable = 'http://127.0.0.1:9/live.ts';

const streams = [
  {...ladder(unreachable), label: 'News', tags: ['hd'], input: {0: generated, 1: {url: unreachable, format: 'mpegts', re: false}, restart: {hours: '4', weekdays: '*'}},
    min_speed: 0.9, max_speed: 1.2, max_sys_mem: 512},
  {...small, label: 'Sport', tags: ['hd'], input: {0: {url: unreachable}, 1: picture('smptehdbars')}, output: {0: hls}},
  {...small, label: 'Film', input: {0: picture('mandelbrot', 5)}, output: {0: hls}},
  {...small, label: 'Regional', tags: ['regional'], input: {0: {url: unreachable}}, output: {0: hls}},
  {...small, label: 'Radio', video: {codec: 'none'}, audio: {codec: 'aac', bitrate: 96},
    input: {0: {url: 'sine=frequency=440', format: 'lavfi', re: true}}, output: {0: {protocol: 'http', filename: 'radio.aac'}}},
  {...small, label: 'Weather', input: {0: picture('testsrc')}, output: {0: hls}},
  {...small, label: 'Archive', tags: ['regional'], input: {0: picture('rgbtestsrc')}, output: {0: hls}},
];
const stopped = new Set(['Archive']);

const pages = (id) => ({
  list: ['/', async (page) => page.getByRole('row', {name: 'News'}).getByText('running').waitFor()],
  stream: [`/streams/${id}`, async (page) => {
    await page.getByRole('button', {name: 'Play', exact: true}).click();
    await page.locator('.chart canvas').first().waitFor();
  }],
  form: [`/streams/${id}/edit`, async (page) => page.getByText('This can be saved.').waitFor()],
});

async function take(browser, server, id, colorScheme, width) {
  const page = await browser.newPage({colorScheme, viewport: {width, height: width < 500 ? 844 : width > 2000 ? 1440 : 900}});
  for (const [name, [path, shown]] of Object.entries(pages(id))) {
    await page.goto(server.origin + path);
    await shown(page);
    await wait(4000);
    const file = join(directory, `${name}-${colorScheme}-${width}`);
    await page.screenshot({path: `${file}.png`});
    execFileSync('ffmpeg', ['-loglevel', 'error', '-y', '-i', `${file}.png`, '-quality', '82', `${file}.webp`]);
    rmSync(`${file}.png`);
  }
  await page.close();
}

const server = new WeirServer(program);
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-dev-shm-usage'],
});
try {
  mkdirSync(directory, {recursive: true});
  await server.start();
  const ids = [];
  for (const stream of streams) ids.push((await server.request('POST', '/api/streams', stream)).id);
  for (const [index, id] of ids.entries())
    if (!stopped.has(streams[index].label)) await server.request('POST', `/api/streams/${id}/start`);
  await wait(Number(minutes) * 60_000);
  for (const colorScheme of ['light', 'dark'])
    for (const width of [390, 1280, 2560]) await take(browser, server, ids[0], colorScheme, width);
} finally {
  await browser.close();
  await server.remove();
}
