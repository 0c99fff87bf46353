// The real server in a data directory of its own.

import {openSync, closeSync, mkdtempSync, readFileSync, rmSync} from 'node:fs';
import {tmpdir} from 'node:os';
import {join} from 'node:path';

import {spawnChild} from './child.mjs';
import {eventually} from './wait.mjs';

export class WeirServer {
  /** The program's path. */
  constructor(program) {
    this.program = program;
    this.directory = mkdtempSync(join(tmpdir(), 'weir-browser-test-'));
    this.log = join(this.directory, 'log');
    this.port = 0;
  }

  get origin() {
    return `http://127.0.0.1:${this.port}`;
  }

  /** Starts it on the port that it had before, with further options, and resolves when it takes requests. */
  async start(further = []) {
    const output = openSync(this.log, 'a');
    const begin = this.readLog().length;
    const options = ['--data', join(this.directory, 'data'), '--port', String(this.port), '--restore-interval', 'auto',
      '--file-root', this.directory, ...further];
    this.child = spawnChild(this.program, ['serve', ...options], {stdio: ['ignore', output, output]});
    closeSync(output);
    this.exited = new Promise((resolve, reject) => {
      this.child.once('exit', resolve);
      this.child.once('error', reject);
    });
    this.port = await eventually('the server listens', 30, () => {
      if (this.#hasEnded()) throw new Error(`The server ended:\n${this.readLog().slice(begin)}`);
      return Number(/Listening on http:\/\/127\.0\.0\.1:(\d+)\n/.exec(this.readLog().slice(begin))?.[1]);
    });
    await eventually('the server is ready', 30, async () => (await fetch(`${this.origin}/readyz`)).ok);
  }

  async end(signal) {
    this.child.kill(signal);
    await this.exited;
  }

  /** Ends the server and removes what it wrote. */
  async remove() {
    if (this.child && !this.#hasEnded()) await this.end('SIGKILL');
    rmSync(this.directory, {recursive: true, force: true, maxRetries: 10});
  }

  readLog() {
    return readFileSync(this.log, 'utf8');
  }

  async request(method, path, body) {
    const response = await fetch(this.origin + path, {method, body: body && JSON.stringify(body)});
    const text = await response.text();
    if (!response.ok) throw new Error(`${method} ${path}: ${response.status} ${text}`);
    return text === '' ? undefined : JSON.parse(text);
  }

  /** Adds a stream and starts it; its id. */
  async addStream(form) {
    const {id} = await this.request('POST', '/api/streams', form);
    await this.request('POST', `/api/streams/${id}/start`);
    return id;
  }

  /** The process of a stream's transcoder; undefined while there is none. */
  transcoderOf(id) {
    const inDirectory = `/hls/${id}/`;
    return this.#children().find((pid) => commandLine(pid).includes(inDirectory));
  }

  #hasEnded() {
    return this.child.exitCode !== null || this.child.signalCode !== null;
  }

  #children() {
    if (this.#hasEnded()) throw new Error('The server has ended by itself');
    const {pid} = this.child;
    return readFileSync(`/proc/${pid}/task/${pid}/children`, 'utf8').split(' ').filter(Boolean).map(Number);
  }
}

function commandLine(pid) {
  try {
    return readFileSync(`/proc/${pid}/cmdline`, 'utf8');
  } catch {
    return '';
  }
}
