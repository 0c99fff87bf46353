#!/usr/bin/env node
// Whether mpv plays on after each fault, over HLS and over HTTP: players_test.mjs PROGRAM [--runs N].

import {readCommandLine} from './command_line.mjs';
import {FaultTest} from './fault_test.mjs';
import {MpvViewers} from './mpv_viewers.mjs';

// FFmpeg, which mpv reads with, ends at the first connection that is refused, unless it is told to try again.
const tryAgain = '--stream-lavf-o=reconnect_on_network_error=1,reconnect_on_http_error=5xx,reconnect_delay_max=4';
const audience = [
  {name: 'mpv, HLS', stream: 'single', path: (id) => `/${id}/playlist_0.m3u8`, options: [tryAgain]},
  {name: 'mpv, HTTP', stream: 'single', path: (id) => `/stream/${id}/live.ts`,
    options: [`${tryAgain},reconnect=1,reconnect_at_eof=1,reconnect_streamed=1`]},
];

const {program, runs} = readCommandLine();
const test = new FaultTest({program, viewers: new MpvViewers(), audience, watchedSeconds: 25});

await test.main(async () => {
  for (let run = 0; run < runs; ++run) {
    await test.killTranscoders('single');
    await test.restartStreams('single');
    await test.failOver('single');
    await test.returnToFirstInput('single');
    await test.restartServer('SIGTERM', 'single');
    await test.restartServer('SIGKILL', 'single');
  }
});
