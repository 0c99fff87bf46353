#!/usr/bin/env node
// Whether people who watch in a browser see video again soon after each fault: hls_test.mjs PROGRAM [--runs N].
// PROGRAM is the server. Prints how long the video stood still, and fails when it did for too long.

import {join} from 'node:path';
import {parseArgs} from 'node:util';

import {Browser} from './browser.mjs';
import {PlaylistChecker} from './playlist_checker.mjs';
import {PlaylistPoller} from './playlist_poller.mjs';
import {makeMedia, RtmpSource, UdpSource} from './sources.mjs';
import {copied, ladder, single} from './streams.mjs';
import {eventually, sleep} from './wait.mjs';
import {WeirServer} from './weir_server.mjs';

const watchedSeconds = 40; // after a fault
const warmUpSeconds = 6; // before it
const limitSeconds = 15;
const silenceLimitSeconds = 25; // 8 s until a silent source counts as gone
const switchSeconds = 20;
const shortestFreeze = 1000; // ms; shorter ones are the machine's

const {values: options, positionals} = parseArgs({allowPositionals: true, options: {runs: {type: 'string', default: '1'}}});
const program = positionals[0] ?? process.env.WEIR_PROGRAM;
if (!program) throw new Error('Usage: hls_test.mjs PROGRAM [--runs N]');

class HlsTest {
  checker = new PlaylistChecker();
  browser = new Browser();
  server = new WeirServer(program);
  failures = [];
  table = new Map(); // by scenario and stream: the results of the runs
  ids = {};

  async run(runs) {
    try {
      await this.prepare();
      for (let i = 0; i < runs; ++i) await this.runScenarios();
      await Promise.all(this.pollers.map((poller) => poller.stop()));
    } finally {
      await this.browser.stop();
      this.rtmp?.stop();
      this.udp?.stop();
      if (this.failures.length > 0 || this.checker.faults.length > 0) console.error(this.server.readLog());
      await this.server.remove();
    }
    this.report();
  }

  async prepare() {
    await this.server.start();
    const media = makeMedia(join(this.server.directory, 'media.mp4'));
    this.rtmp = new RtmpSource(media);
    this.udp = new UdpSource(media);
    await this.rtmp.start();
    await this.udp.start();
    this.ids.ladder = await this.server.addStream(ladder(this.rtmp.url));
    this.ids.single = await this.server.addStream(single(this.rtmp.url));
    this.ids.copied = await this.server.addStream(copied(this.udp.url, media));
    await this.browser.start(this.checker);
    console.log(`Chromium ${this.browser.version()}`);
    for (const name of Object.keys(this.ids)) await eventually(`${name} has HLS`, 60, () => this.isPublished(name));
    this.pollers = Object.keys(this.ids).map((name) => new PlaylistPoller(this.url(name), this.checker));
  }

  async runScenarios() {
    const both = ['ladder', 'single'];
    await this.scenario('kill -9 of the transcoder', both, () =>
      both.forEach((name) => process.kill(this.server.transcoderOf(this.ids[name]), 'SIGKILL')));
    await this.scenario('planned restart', both, () => Promise.all(both.map((name) => this.post(name, 'restart'))));
    await this.scenario('failover to input 1', both, () => this.rtmp.stop());
    await this.rtmp.start();
    await Promise.all([
      this.scenario('return to input 0', both, () => this.seams(both)),
      this.scenario('UDP source silent', ['copied'], () => this.udp.stop(), silenceLimitSeconds),
    ]);
    await this.udp.start();
    await this.scenario('SIGTERM and restart of the server', both, () => this.restartServer('SIGTERM'));
    await this.scenario('kill -9 and restart of the server', both, () => this.restartServer('SIGKILL'));
  }

  /** `fault` begins the fault; its result may tell when each stream's began. */
  async scenario(name, streams, fault, limit = limitSeconds) {
    await Promise.all(streams.map((stream) => this.browser.watch(stream, this.url(stream))));
    for (const stream of streams) await eventually(`${stream} plays before: ${name}`, 30, () => this.hasPlayed(stream));
    const before = streams.map((stream) => this.server.transcoderOf(this.ids[stream]));
    const begun = Date.now();
    const times = await fault();
    for (const [index, stream] of streams.entries()) {
      await this.watchOn(name, stream, times?.[stream] ?? begun, limit);
      if (this.server.transcoderOf(this.ids[stream]) === before[index]) this.fail(name, stream, 'nothing happened');
    }
    if (streams.includes('ladder')) await this.switchQuality(name);
  }

  async watchOn(name, stream, begun, limit) {
    await sleep(Math.max(0, begun / 1000 + watchedSeconds - Date.now() / 1000));
    const freezes = await this.browser.ask(stream, 'freezesSince', begun);
    const lengths = freezes.map(({from, to}) => ((to ?? Date.now()) - Math.max(from, begun)) / 1000);
    const last = freezes.filter(({from, to}) => (to ?? Date.now()) - Math.max(from, begun) >= shortestFreeze).at(-1);
    const longest = Math.max(0, ...lengths);
    const moves = last ? (last.to ? (last.to - begun) / 1000 : Infinity) : 0;
    const result = {longest, moves};
    const key = `${name}\t${stream}`;
    this.table.set(key, [...(this.table.get(key) ?? []), result]);
    const errors = await this.browser.errors(stream);
    console.log(`${name}, ${stream}: froze ${longest.toFixed(1)} s, moves ${moves.toFixed(1)} s after the fault,`
      + ` ${errors.map((e) => e.details).join(' ') || 'no errors'}`);
    if (moves > limit) this.fail(name, stream, `moves ${moves.toFixed(1)} s after the fault: ${JSON.stringify(await this.browser.ask(stream, 'state'))}`);
    if (errors.some((error) => error.fatal)) this.fail(name, stream, `has errors: ${JSON.stringify(errors)}`);
  }

  async switchQuality(name) {
    const height = await this.browser.ask('ladder', 'switchQuality');
    const isShown = async () => (await this.browser.ask('ladder', 'state')).height === height;
    await eventually('the switch', switchSeconds, isShown).catch(() =>
      this.fail(name, 'ladder', `shows no ${height} lines ${switchSeconds} s after the switch`));
  }

  async restartServer(signal) {
    await this.server.end(signal);
    await this.server.start();
  }

  /** When each stream's transcoder was gone. */
  async seams(streams) {
    const before = streams.map((stream) => this.server.transcoderOf(this.ids[stream]));
    const times = {};
    await Promise.all(streams.map((stream, index) =>
      eventually(`${stream} goes back to input 0`, 90, () => {
        if (this.server.transcoderOf(this.ids[stream]) === before[index]) return false;
        times[stream] = Date.now();
        return true;
      })));
    return times;
  }

  async hasPlayed(stream) {
    return (await this.browser.ask(stream, 'state')).played >= warmUpSeconds;
  }

  async isPublished(name) {
    const response = await fetch(this.url(name));
    return response.ok;
  }

  url(name) {
    return `${this.server.origin}/${this.ids[name]}/${name === 'single' ? 'playlist_0.m3u8' : 'index.m3u8'}`;
  }

  post(name, action) {
    return this.server.request('POST', `/api/streams/${this.ids[name]}/${action}`);
  }

  fail(scenario, stream, message) {
    this.failures.push(`${scenario}, ${stream}: ${message}`);
  }

  report() {
    console.log('\nFreezes in seconds, and when the last one was over after the fault:');
    for (const [key, results] of this.table) {
      const [scenario, stream] = key.split('\t');
      const cells = results.map(({longest, moves}) => `${longest.toFixed(1)} (${moves.toFixed(1)})`);
      console.log(`${scenario.padEnd(36)}${stream.padEnd(8)}${cells.join('  ')}`);
    }
    const late = this.pollers.reduce((sum, poller) => sum + poller.fetchedLate, 0);
    console.log(`${this.checker.count} playlists checked, ${late} segments fetched after they had left the list`);
    for (const fault of this.checker.faults) console.error(`Playlist: ${fault}`);
    for (const failure of this.failures) console.error(`Failed: ${failure}`);
    if (this.failures.length > 0 || this.checker.faults.length > 0) process.exitCode = 1;
  }
}

await new HlsTest().run(Number(options.runs));
