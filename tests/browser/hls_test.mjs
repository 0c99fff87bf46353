#!/usr/bin/env node
// Whether people who watch in a browser see video again soon after each fault, and can still switch the quality:
// hls_test.mjs PROGRAM [--runs N].

import {join} from 'node:path';

import {BrowserViewers} from './browser_viewers.mjs';
import {readCommandLine} from './command_line.mjs';
import {Nginx} from './nginx.mjs';
import {PlaylistChecker} from './playlist_checker.mjs';
import {PlaylistPoller} from './playlist_poller.mjs';
import {makeMedia, TcpSource, UdpSource} from './sources.mjs';
import {copied, ladder, single} from './streams.mjs';
import {eventually, sleep} from './wait.mjs';
import {WeirServer} from './weir_server.mjs';

const watchedSeconds = 40;
const warmUpSeconds = 6; // that a viewer has watched before the fault
const limitSeconds = 15;
const silenceLimitSeconds = 25; // 8 s until a silent source counts as gone
const shortestFreeze = 2; // shorter ones are the machine's
const longestHiccup = 5; // at the end of the watch
const switchSeconds = 20;

const documents = {
  ladder: ({tcp}) => ladder(tcp.url),
  single: ({tcp}) => single(tcp.url),
  copied: ({udp, media}) => copied(udp.url, media),
};

const master = (id) => `/${id}/index.m3u8`;
const media = (id) => `/${id}/playlist_0.m3u8`;
// One that stays watches from the first fault to the last, and has less in its buffer after each; the others come anew
// before each.
const audience = [
  {name: 'ladder', stream: 'ladder', path: master},
  {name: 'single', stream: 'single', path: media},
  {name: 'ladder, stays', stream: 'ladder', path: master, stays: true},
  {name: 'single, nginx', stream: 'single', path: media, throughNginx: true},
  {name: 'copied', stream: 'copied', path: master},
];

class FaultTest {
  checker = new PlaylistChecker();
  failures = [];
  ids = {};
  viewers = new BrowserViewers();

  constructor(program) {
    this.server = new WeirServer(program);
    this.nginx = new Nginx(this.server);
  }

  /** Calls `run` when all streams are on the air and have a whole window; reports what was seen. */
  async main(run) {
    try {
      await this.#prepare();
      await run(this);
      await Promise.all(this.pollers.map((poller) => poller.stop()));
    } catch (failure) {
      this.failures.push(failure.stack);
    } finally {
      await this.viewers.stop();
      this.tcp?.stop();
      this.udp?.stop();
      this.nginx.stop();
      if (this.#hasFailed()) console.error(this.server.readLog());
      await this.server.remove();
    }
    this.#report();
    process.exit(this.#hasFailed() ? 1 : 0);
  }

  async #prepare() {
    await this.server.start();
    await this.nginx.start();
    this.media = makeMedia(join(this.server.directory, 'media.mp4'));
    this.tcp = new TcpSource(this.media);
    this.udp = new UdpSource(this.media);
    await Promise.all([this.tcp.start(), this.udp.start()]);
    const names = [...new Set(audience.map(({stream}) => stream))];
    for (const name of names) this.ids[name] = await this.server.addStream(documents[name](this));
    await this.viewers.start(this.checker);
    for (const name of names) {
      await eventually(`${name} is published`, 60, async () => (await fetch(this.#playlistOf(name))).ok);
    }
    this.pollers = names.map((name) => new PlaylistPoller(this.#playlistOf(name), this.checker));
    for (const poller of this.pollers) await eventually('the window is whole', 60, () => poller.hasWholeWindow());
    await Promise.all(audience.filter(({stays}) => stays).map((viewer) => this.#watch(viewer)));
  }

  async killTranscoders(...streams) {
    await this.#scenario('kill -9 of the transcoder', streams, () =>
      streams.forEach((name) => process.kill(this.#transcoder(name), 'SIGKILL')));
  }

  async restartStreams(...streams) {
    await this.#scenario('planned restart', streams, () => Promise.all(streams.map((name) =>
      this.server.request('POST', `/api/streams/${this.ids[name]}/restart`))));
  }

  /** The source of input 0 goes away, and comes back when the viewers watch input 1. */
  async failOver(...streams) {
    await this.#scenario('failover to input 1', streams, () => this.tcp.stop());
    await this.tcp.start();
  }

  /** The streams find that input 0 is back; they look once a minute. */
  async returnToFirstInput(...streams) {
    await this.#scenario('return to input 0', streams, () => this.#seams(streams));
  }

  async silenceUdp(stream) {
    await this.#scenario('UDP source falls silent', [stream], () => this.udp.stop(), silenceLimitSeconds);
    await this.udp.start();
    await this.server.request('POST', `/api/streams/${this.ids[stream]}/stop`);
    await this.server.request('POST', `/api/streams/${this.ids[stream]}/start`);
  }

  async restartServer(signal, ...streams) {
    const name = signal === 'SIGKILL' ? 'kill -9 and restart of the server' : `${signal} and restart of the server`;
    await this.#scenario(name, streams, async () => {
      await this.server.end(signal);
      await this.server.start();
    });
  }

  // `fault` begins the fault; its result may tell when it began for each stream.
  async #scenario(name, streams, fault, limit = limitSeconds) {
    const viewers = audience.filter(({stream}) => streams.includes(stream));
    await Promise.all(viewers.filter(({stays}) => !stays).map((viewer) => this.#watch(viewer)));
    await Promise.all(viewers.map((viewer) => this.#hasWatched(viewer)));
    const before = streams.map((stream) => this.#transcoder(stream));
    const begun = Date.now();
    const times = await fault();
    await Promise.all(viewers.map((viewer) => this.#judge(name, viewer, times?.[viewer.stream] ?? begun, limit)));
    streams.forEach((stream, index) => {
      if (this.#transcoder(stream) === before[index]) this.failures.push(`${name}, ${stream}: the transcoder runs on`);
    });
    if (streams.includes('ladder')) await this.#switchQuality(name);
  }

  #watch({name, stream, path, throughNginx}) {
    const {origin} = throughNginx ? this.nginx : this.server;
    return this.viewers.watch(name, origin + path(this.ids[stream]));
  }

  async #hasWatched({name}) {
    const watched = async () => (await this.viewers.state(name)).played >= warmUpSeconds;
    await eventually(`${name} plays`, 60, watched).catch(async (failure) => {
      throw new Error(`${failure.message}: ${await this.viewers.describe(name)}`);
    });
  }

  async #judge(scenario, {name, stays}, begun, limit) {
    await sleep(Math.max(0, watchedSeconds - (Date.now() - begun) / 1000));
    const errors = await this.viewers.errors(name);
    const freezes = (await this.viewers.freezesSince(name, begun)).map(({from, to}) => ({
      length: ((to ?? Date.now()) - Math.max(from, begun)) / 1000,
      end: to ? (to - begun) / 1000 : Infinity,
    }));
    const longest = Math.max(0, ...freezes.map(({length}) => length));
    const moves = freezes.filter(({length}) => length >= shortestFreeze).at(-1)?.end ?? 0;
    console.log(`${scenario}, ${name}: froze ${longest.toFixed(1)} s, moves ${moves.toFixed(1)} s after the fault;`
      + ` ${errors.map(({text}) => text).join(' ') || 'no errors'}`);
    const isStill = freezes.some(({end, length}) => end === Infinity && length > longestHiccup);
    if (stays ? isStill : moves > limit) {
      this.failures.push(`${scenario}, ${name}: moves ${moves.toFixed(1)} s after the fault: ${await this.viewers.describe(name)}`);
    }
    if (errors.some(({fatal}) => fatal)) this.failures.push(`${scenario}, ${name}: ${JSON.stringify(errors)}`);
  }

  async #switchQuality(scenario) {
    const height = await this.viewers.switchQuality('ladder');
    const isShown = async () => (await this.viewers.state('ladder')).height === height;
    await eventually('the switch', switchSeconds, isShown).catch(async () => this.failures.push(
      `${scenario}: no ${height} lines ${switchSeconds} s after the switch: ${await this.viewers.describe('ladder')}`));
  }

  // When each stream's transcoder was gone.
  async #seams(streams) {
    const times = {};
    await Promise.all(streams.map(async (stream) => {
      const before = this.#transcoder(stream);
      await eventually(`${stream} goes back to input 0`, 90, () => this.#transcoder(stream) !== before);
      times[stream] = Date.now();
    }));
    return times;
  }

  #transcoder(name) {
    return this.server.transcoderOf(this.ids[name]);
  }

  #playlistOf(name) {
    return `${this.server.origin}/${this.ids[name]}/${name === 'single' ? 'playlist_0.m3u8' : 'index.m3u8'}`;
  }

  #hasFailed() {
    return this.failures.length > 0 || this.checker.faults.length > 0;
  }

  #report() {
    console.log(`${this.checker.count} playlists checked`);
    for (const fault of this.checker.faults) console.error(`Playlist: ${fault}`);
    for (const failure of this.failures) console.error(`Failed: ${failure}`);
  }
}

const {program, runs} = readCommandLine();
const test = new FaultTest(program);
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
