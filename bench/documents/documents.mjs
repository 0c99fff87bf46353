#!/usr/bin/env node
// Sends generated documents, half of them with one fault, to a real server, and runs some of those that it accepts with the
// real FFmpeg: documents.mjs PROGRAM [--count 2000] [--launches 200] [--seed 1] [--at-once 3]. Ends with 1 if an answer
// is not the expected one, or a stream does not run; each case is printed.

import {execFileSync} from 'node:child_process';
import {join} from 'node:path';
import {parseArgs} from 'node:util';

import {eventually, sleep} from '../../tests/browser/wait.mjs';
import {WeirServer} from '../../tests/browser/weir_server.mjs';
import {listFaults, spoil} from './faulty_document.mjs';
import {Random} from './random.mjs';
import {makeDocument} from './valid_document.mjs';

const {values, positionals: [program]} = parseArgs({
  allowPositionals: true,
  options: Object.fromEntries(Object.entries({count: '2000', launches: '200', seed: '1', 'at-once': '3'})
    .map(([name, value]) => [name, {type: 'string', default: value}])),
});
if (!program) {
  console.error('Usage: documents.mjs PROGRAM [--count N] [--launches N] [--seed N] [--at-once N]');
  process.exit(2);
}
const [count, launches, seed, atOnce] = ['count', 'launches', 'seed', 'at-once'].map((name) => Number(values[name]));
const patience = 30;  // seconds until a stream has to run

/** Files that every document can read. */
function makeSources(directory) {
  const paths = ['source.ts', 'source.mp4', 'with space.mkv'].map((name) => join(directory, name));
  for (const path of paths)
    execFileSync('ffmpeg', ['-v', 'error', '-f', 'lavfi', '-i', 'testsrc2=size=320x180:rate=25', '-f', 'lavfi', '-i', 'sine=sample_rate=48000',
      '-t', '10', '-c:v', 'libx264', '-preset', 'ultrafast', '-g', '25', '-pix_fmt', 'yuv420p', '-c:a', 'aac', '-y', path]);
  return paths;
}

async function ask(server, method, path, body) {
  const response = await fetch(server.origin + path, {method, body: body && JSON.stringify(body)});
  const text = await response.text();
  return {status: response.status, body: text ? JSON.parse(text) : undefined};
}

const wrong = [];

function tell(what, number, form, answer) {
  wrong.push(what);
  console.log(`${what} #${number}: ${JSON.stringify(form).slice(0, 1500)}\n    ${JSON.stringify(answer).slice(0, 600)}`);
}

/** Whether the answer names the fault, and nothing else. */
function checkRefusal(number, {form, key}, {status, body}) {
  const keys = body?.findings?.map((finding) => finding.key) ?? [];
  if (status !== 400) return tell(`status ${status} for a fault in ${key}`, number, form, body);
  if (!keys.includes(key)) return tell(`no finding for ${key}`, number, form, body);
  if (keys.some((one) => one !== key)) tell(`also other findings than ${key}`, number, form, body);
}

async function send(server, sources) {
  const faults = listFaults((await ask(server, 'GET', '/api/schema/stream')).body);
  const used = new Set();
  const runnable = [];
  const sums = {accepted: 0, refused: 0};
  for (let number = 0; number < count; ++number) {
    const random = new Random(seed * 1e6 + number);
    const {document, isReachable} = makeDocument(random, sources, number);
    if (number % 2) {
      const place = ((number - 1) / 2 + seed) % faults.length;
      used.add(place);
      const spoilt = spoil(document, faults[place]);
      const answer = await ask(server, 'POST', '/api/streams', spoilt.form);
      checkRefusal(number, spoilt, answer);
      if (answer.status === 400) ++sums.refused;
      else if (answer.status === 201) await ask(server, 'DELETE', `/api/streams/${answer.body.id}`);
      continue;
    }
    const answer = await ask(server, 'POST', '/api/streams', document);
    if (answer.status !== 201) {
      tell('a right document is refused', number, document, answer.body);
      continue;
    }
    ++sums.accepted;
    if (isReachable && runnable.length < launches) runnable.push({number, document, id: answer.body.id});
    else await ask(server, 'DELETE', `/api/streams/${answer.body.id}`);
  }
  console.log(`${count} documents: ${sums.accepted} accepted, ${sums.refused} refused, with ${used.size} of ${faults.length} kinds of faults`);
  return runnable;
}

/** Resolves when the transcoder has told its progress, to the seconds that it took; to nothing when it does not. */
async function waitForProgress(server, id) {
  const begin = Date.now();
  while (Date.now() - begin < patience * 1000) {
    const {body} = await ask(server, 'GET', `/api/streams/${id}`);
    if (body.status === 'running' && body.time) return (Date.now() - begin) / 1000;
    await sleep(0.1);
  }
}

async function launch(server, {number, document, id}) {
  await ask(server, 'POST', `/api/streams/${id}/start`);
  const seconds = await waitForProgress(server, id);
  if (seconds === undefined) {
    const log = await (await fetch(`${server.origin}/api/streams/${id}/log?tail=15`)).text();
    tell('does not run', number, document, 'its log:');
    console.log(log);
  }
  await ask(server, 'POST', `/api/streams/${id}/stop`);
  await eventually(`stream ${id} is stopped`, patience, async () => (await ask(server, 'GET', `/api/streams/${id}`)).body.status === 'stopped');
  const {status, body} = await ask(server, 'DELETE', `/api/streams/${id}`);
  if (status !== 204) tell(`is deleted with ${status}`, number, document, body);
  return seconds;
}

async function launchAll(server, runnable) {
  const times = [];
  const total = runnable.length;
  const work = async () => {
    for (let next = runnable.shift(); next; next = runnable.shift()) {
      const seconds = await launch(server, next);
      if (seconds !== undefined) times.push(seconds);
    }
  };
  await Promise.all(Array.from({length: atOnce}, work));
  times.sort((a, b) => a - b);
  const at = (part) => times[Math.floor((times.length - 1) * part)]?.toFixed(1);
  console.log(`${times.length} of ${total} launched streams told their progress; after ${at(0.5)} s (median), ${at(0.95)} s (95 %), ${at(1)} s (longest)`);
}

const server = new WeirServer(program);
try {
  const sources = makeSources(server.directory);
  await server.start();
  await launchAll(server, await send(server, sources));
} finally {
  await server.remove();
}
const sums = new Map();
for (const what of wrong) sums.set(what, (sums.get(what) ?? 0) + 1);
for (const [what, times] of sums) console.log(`${times} × ${what}`);
process.exit(wrong.length ? 1 : 0);
