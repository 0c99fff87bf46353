#!/usr/bin/env node
// Whether people who watch in a browser see video again soon after each fault, and can still switch the quality:
// hls_test.mjs PROGRAM [--runs N].

import {BrowserViewers} from './browser_viewers.mjs';
import {readCommandLine} from './command_line.mjs';
import {FaultTest} from './fault_test.mjs';
import {eventually} from './wait.mjs';

const switchSeconds = 20;

const master = (id) => `/${id}/index.m3u8`;
const media = (id) => `/${id}/playlist_0.m3u8`;
const audience = [
  {name: 'ladder', stream: 'ladder', path: master},
  {name: 'single', stream: 'single', path: media},
  {name: 'ladder, stays', stream: 'ladder', path: master, stays: true},
  {name: 'single, nginx', stream: 'single', path: media, throughNginx: true},
  {name: 'copied', stream: 'copied', path: master},
];

const {program, runs} = readCommandLine();
const viewers = new BrowserViewers();
const test = new FaultTest({program, viewers, audience, watchedSeconds: 40});

test.afterScenario = async (scenario, streams) => {
  if (!streams.includes('ladder')) return;
  const height = await viewers.switchQuality('ladder');
  const isShown = async () => (await viewers.state('ladder')).height === height;
  await eventually('the switch', switchSeconds, isShown).catch(async () =>
    test.failures.push(`${scenario}: no ${height} lines ${switchSeconds} s after the switch: ${await viewers.describe('ladder')}`));
};

await test.main(async () => {
  const streams = ['ladder', 'single'];
  for (let run = 0; run < runs; ++run) {
    await test.killTranscoders(...streams);
    await test.restartStreams(...streams);
    await test.failOver(...streams);
    await Promise.all([test.returnToFirstInput(...streams), test.silenceUdp('copied')]);
    await test.restartServer('SIGTERM', ...streams);
    await test.restartServer('SIGKILL', ...streams);
  }
});
