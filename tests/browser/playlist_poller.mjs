// Asks for all playlists of a stream twice a second, reports them to the checker, and tries the segments: when they
// come, and shortly before the server owes them no more.

import {durationOf, parseMasterPlaylist} from './media_playlist.mjs';
import {sleep} from './wait.mjs';

const interval = 0.5;
const client = 'poller';

export class PlaylistPoller {
  #url;
  #checker;
  #playlists = new Map(); // by URL, as they are now
  #segments = new Map(); // by URL: when it was listed last, and for how long it is owed
  #stopped = false;
  #running;

  /** `url` is that of the master playlist, or of a media playlist alone. */
  constructor(url, checker) {
    this.#url = url;
    this.#checker = checker;
    this.#running = this.#run();
  }

  /** Whether every playlist lists three target durations. */
  hasWholeWindow() {
    const all = [...this.#playlists.values()];
    return all.length > 0 && all.every((playlist) => durationOf(playlist) >= 3 * playlist.targetDuration);
  }

  async stop() {
    this.#stopped = true;
    await this.#running;
  }

  async #run() {
    while (!this.#stopped) {
      const begin = Date.now();
      await this.#poll();
      await sleep(Math.max(0, interval - (Date.now() - begin) / 1000));
    }
  }

  async #poll() {
    const urls = await this.#pollPlaylist(this.#url);
    await Promise.all(urls.map((url) => this.#pollPlaylist(url)));
    this.#checker.checkRenditions(client, urls);
    await Promise.all([...this.#segments].map(([url, segment]) => this.#trySegment(url, segment)));
  }

  // Gives the media playlists that a master playlist names.
  async #pollPlaylist(url) {
    const at = Date.now();
    try {
      const response = await fetch(url, {signal: AbortSignal.timeout(5000)});
      const text = await response.text();
      const playlist = this.#checker.see({client, url, status: response.status, text, at});
      if (playlist) this.#noteListed(url, playlist, at);
      if (playlist || !response.ok) return [];
      return parseMasterPlaylist(text).variants.map((variant) => new URL(variant.uri, url).href);
    } catch {
      return []; // the server is away
    }
  }

  #noteListed(playlistUrl, playlist, at) {
    this.#playlists.set(playlistUrl, playlist);
    const window = durationOf(playlist) * 1000;
    for (const {uri} of playlist.segments) {
      const url = new URL(uri, playlistUrl).href;
      const segment = this.#segments.get(url) ?? {window: 0, triedNew: false};
      segment.window = Math.max(segment.window, window);
      segment.listedAt = at;
      this.#segments.set(url, segment);
    }
  }

  // While the server is away it is tried again, until the segment is not owed any more.
  async #trySegment(url, segment) {
    const age = Date.now() - segment.listedAt;
    const isDue = age > Math.max(segment.window - 2000, 1000);
    if (age > segment.window) this.#segments.delete(url);
    if (age > segment.window || (segment.triedNew && !isDue)) return;
    const response = await fetch(url, {method: 'HEAD', signal: AbortSignal.timeout(5000)}).catch(() => undefined);
    if (!response) return;
    const after = Date.now() - segment.listedAt;
    if (response.ok) this.#checker.noteSize(url, Number(response.headers.get('content-length')));
    if (!response.ok && after <= segment.window) {
      this.#checker.noteMissing(url, response.status, after / 1000, segment.window / 1000);
    }
    segment.triedNew = true;
    if (isDue) this.#segments.delete(url);
  }
}
