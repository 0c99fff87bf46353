// What the streams read: encoders that can be taken away and come back.

import {execFileSync} from 'node:child_process';
import {createSocket} from 'node:dgram';
import {once} from 'node:events';
import {createServer} from 'node:net';

import {spawnChild} from './child.mjs';

const quiet = ['-hide_banner', '-nostdin', '-loglevel', 'error'];

/** Makes a file of 20 s with a keyframe every 2 s, so that sources cost no encoder. */
export function makeMedia(path) {
  execFileSync('ffmpeg', [
    ...quiet, '-f', 'lavfi', '-i', 'testsrc2=size=640x360:rate=25', '-f', 'lavfi', '-i', 'sine=frequency=440:sample_rate=48000',
    '-t', '20', '-c:v', 'libx264', '-preset', 'ultrafast', '-pix_fmt', 'yuv420p', '-b:v', '600k', '-g', '50', '-keyint_min', '50',
    '-sc_threshold', '0', '-c:a', 'aac', '-b:a', '64k', path,
  ]);
  return path;
}

const play = (media) => [...quiet, '-re', '-stream_loop', '-1', '-i', media, '-c', 'copy'];

/** A port that nobody has at the moment. */
export async function findPort() {
  const server = createServer().listen(0, '127.0.0.1');
  await once(server, 'listening');
  const {port} = server.address();
  server.close();
  await once(server, 'close');
  return port;
}

/** Plays to each client that connects, which gets an FFmpeg of its own. */
export class TcpSource {
  constructor(media) {
    this.media = media;
    this.port = 0;
    this.ends = [];
  }

  get url() {
    return `tcp://127.0.0.1:${this.port}`;
  }

  async start() {
    this.server = createServer((client) => this.#serve(client)).listen(this.port, '127.0.0.1');
    await once(this.server, 'listening');
    this.port = this.server.address().port;
  }

  /** Refuses new clients and cuts off those that it has. */
  stop() {
    this.server.close();
    this.ends.splice(0).forEach((end) => end());
  }

  #serve(client) {
    const encoder = spawnChild('ffmpeg', [...play(this.media), '-f', 'flv', 'pipe:1'], {stdio: ['ignore', 'pipe', 'ignore']});
    const end = () => {
      encoder.kill('SIGKILL');
      client.destroy();
    };
    this.ends.push(end);
    client.on('error', end).on('close', end);
    encoder.on('exit', end);
    encoder.stdout.pipe(client);
  }
}

/** MPEG-TS in datagrams. */
export class UdpSource {
  constructor(media) {
    this.media = media;
  }

  async start() {
    if (!this.port) {
      const socket = createSocket('udp4').bind(0, '127.0.0.1');
      await once(socket, 'listening');
      this.port = socket.address().port;
      socket.close();
    }
    this.encoder = spawnChild('ffmpeg', [...play(this.media), '-f', 'mpegts', `${this.url}?pkt_size=1316`]);
  }

  get url() {
    return `udp://127.0.0.1:${this.port}`;
  }

  /** From now on it is silent. */
  stop() {
    this.encoder.kill('SIGKILL');
  }
}
