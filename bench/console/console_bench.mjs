#!/usr/bin/env node
// How the console bears many streams: console_bench.mjs WEIR FAKE_TRANSCODER [STREAMS] [MINUTES] (1000 and 10). Shows how
// long the first full list takes, the frames of scrolling and searching while figures change, and the page's heap after a
// garbage collection each minute.

import {createRequire} from 'node:module';
import {setTimeout as wait} from 'node:timers/promises';

import {eventually} from '../../tests/browser/wait.mjs';
import {WeirServer} from '../../tests/browser/weir_server.mjs';

const {chromium} = createRequire(new URL('../../tests/browser/', import.meta.url))('playwright-core');

const [program, fakeTranscoder, count = '1000', minutes = '10'] = process.argv.slice(2);
process.env.FAKE_FIGURES = '1';

const document = (index) => ({
  label: `Channel ${index}`,
  tags: [`group ${index % 10}`],
  input: {0: {url: 'testsrc2', format: 'lavfi', re: true}},
  output: {0: {protocol: 'udp', hostname: '127.0.0.1', port: 20_000 + (index % 10_000)}},
});

async function runStreams(server) {
  const ids = [];
  for (let index = 0; index < Number(count); ++index)
    ids.push((await server.request('POST', '/api/streams', document(index))).id);
  await server.request('POST', '/api/batch/start', {ids, interval: 0});
  await eventually('all run', 300, async () => (await server.request('GET', '/api/stats')).running === ids.length);
}

function describe(times) {
  const sorted = [...times].sort((a, b) => a - b);
  const at = (share) => sorted[Math.min(sorted.length - 1, Math.floor(share * sorted.length))].toFixed(1);
  return `median ${at(0.5)} ms, 95 % ${at(0.95)} ms, longest ${at(1)} ms (${sorted.length})`;
}

/** The times between frames while the list scrolls for so many seconds. */
const scroll = (page, seconds) => page.evaluate((milliseconds) => new Promise((resolve) => {
  const times = [];
  const begin = performance.now();
  let last = begin;
  const step = (now) => {
    times.push(now - last);
    last = now;
    const height = document.documentElement.scrollHeight - innerHeight;
    scrollTo(0, Math.abs(((now - begin) * 3) % (2 * height) - height));
    if (now - begin < milliseconds) requestAnimationFrame(step);
    else resolve(times.slice(1));
  };
  requestAnimationFrame(step);
}), seconds * 1000);

/** From each typed letter to the frame that shows what it leaves. */
async function search(page, text) {
  const times = [];
  const field = page.getByRole('searchbox');
  for (let length = 0; length <= text.length; ++length) {
    times.push(await field.evaluate((input, typed) => new Promise((resolve) => {
      const begin = performance.now();
      input.value = typed;
      input.dispatchEvent(new InputEvent('input', {bubbles: true}));
      requestAnimationFrame(() => requestAnimationFrame(() => resolve(performance.now() - begin)));
    }), text.slice(0, length)));
    await wait(100);
  }
  await field.fill('');
  return times;
}

async function readHeap(session) {
  await session.send('HeapProfiler.collectGarbage');
  const {usedSize} = await session.send('Runtime.getHeapUsage');
  return (usedSize / 2 ** 20).toFixed(2);
}

const server = new WeirServer(program);
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-dev-shm-usage'],
});
try {
  await server.start(['--ffmpeg', fakeTranscoder]);
  await runStreams(server);
  const page = await browser.newPage({viewport: {width: 1280, height: 900}});
  const begin = performance.now();
  await page.goto(server.origin);
  await page.locator('tr[aria-rowindex]').nth(10).waitFor();
  console.log(`first full list of ${count}: ${(performance.now() - begin).toFixed(0)} ms`);
  await wait(5000);
  console.log(`scrolling, frames: ${describe(await scroll(page, 10))}`);
  console.log(`searching, two frames each: ${describe(await search(page, 'channel 77'))}`);
  const session = await page.context().newCDPSession(page);
  for (let minute = 0; minute <= Number(minutes); ++minute) {
    if (minute) await wait(60_000);
    console.log(`heap after ${minute} min: ${await readHeap(session)} MiB`);
  }
} finally {
  await browser.close();
  await server.remove();
}
