// mpv without screen and loudspeaker, asked over its JSON IPC.

import {once} from 'node:events';
import {connect} from 'node:net';
import {join} from 'node:path';
import {createInterface} from 'node:readline';

import {spawnChild} from './child.mjs';
import {eventually, sleep} from './wait.mjs';

const shortestFreeze = 500; // ms
const headless = ['--no-config', '--terminal=no', '--vo=null', '--ao=null'];

let sockets = 0;

export class MpvViewers {
  #directory;
  #players = new Map();

  async start(checker, directory) {
    this.#directory = directory;
  }

  /** A new player, in place of the one that has the name. */
  async watch(name, url, options = []) {
    this.#players.get(name)?.stop();
    const player = new Mpv();
    this.#players.set(name, player);
    await player.start(url, this.#directory, options);
  }

  played(name) {
    const {moved, beganAt} = this.#players.get(name);
    return (moved - beganAt) / 1000;
  }

  freezesSince(name, from) {
    return this.#players.get(name).freezesSince(from);
  }

  errors(name) {
    return this.#players.get(name).ended ? [{fatal: true, text: 'mpv has ended'}] : [];
  }

  describe(name) {
    const {ended, freezes} = this.#players.get(name);
    return JSON.stringify({ended, freezes});
  }

  stop() {
    this.#players.forEach((player) => player.stop());
  }
}

class Mpv {
  /** [from, to] in ms: when the playback time stood still. */
  freezes = [];
  ended = false;

  #requests = new Map();
  #lastRequest = 0;

  /** Plays `url`; `directory` takes its socket. */
  async start(url, directory, options) {
    const path = join(directory, `mpv-${++sockets}`);
    this.child = spawnChild('mpv', [...headless, ...options, `--input-ipc-server=${path}`, url]);
    this.child.once('exit', () => (this.ended = true));
    this.socket = await eventually('mpv takes commands', 20, async () => {
      const socket = connect(path);
      const failed = once(socket, 'error').then(() => undefined);
      return Promise.race([once(socket, 'connect').then(() => socket), failed]);
    });
    this.socket.on('error', () => {}); // it ends with mpv
    createInterface(this.socket).on('line', (line) => this.#take(JSON.parse(line)));
    this.#watch();
  }

  stop() {
    this.ended = true;
    this.child?.kill('SIGKILL');
    this.socket?.destroy();
  }

  /** The freezes that touch the time from `from` on. One that lasts has no end. */
  freezesSince(from) {
    const freezes = this.freezes.filter((freeze) => freeze.to > from);
    if (this.ended || Date.now() - this.moved >= shortestFreeze) freezes.push({from: this.moved});
    return freezes;
  }

  // Timestamps begin anew with each run of the transcoder: any change that is no end counts.
  async #watch() {
    let time;
    while (!this.ended) {
      const now = await this.#read('time-pos').catch(() => undefined);
      if (now !== undefined && now !== time) {
        if (this.moved && Date.now() - this.moved >= shortestFreeze) this.freezes.push({from: this.moved, to: Date.now()});
        this.moved = Date.now();
        this.beganAt ??= this.moved;
        time = now;
      }
      await sleep(0.05);
    }
  }

  #read(property) {
    const id = ++this.#lastRequest;
    this.socket.write(`${JSON.stringify({command: ['get_property', property], request_id: id})}\n`);
    return new Promise((resolve) => this.#requests.set(id, resolve));
  }

  #take({request_id: id, error, data}) {
    this.#requests.get(id)?.(error === 'success' ? data : undefined);
    this.#requests.delete(id);
  }
}
