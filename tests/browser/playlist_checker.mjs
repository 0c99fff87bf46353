// Holds the playlists that a server answers, one after the other, against RFC 8216: what one of them may say after
// those before it.

import {durationOf, isMaster, parseMasterPlaylist, parseMediaPlaylist} from './media_playlist.mjs';

const maxFaults = 100;

/** Whoever asks again and again: it sees the answers to one URL in order. */
const chainOf = (client, url) => `${client} ${url}`;

export class PlaylistChecker {
  /** How many playlists were checked. */
  count = 0;
  /** What was wrong, each once. */
  faults = [];

  #known = new Set();
  #last = new Map(); // by chain: the playlist answered before, and when
  #segments = new Map(); // by playlist and number: the segment as it was first seen
  #owners = new Map(); // by segment URL: playlist and number that it stands for
  #sizes = new Map(); // by segment URL: bytes

  /**
   * An answer of the server to `client` at `at` (ms). Answers to one client are reported in the order of its requests,
   * which don't overlap. Returns the media playlist, if it is one.
   */
  see({client, url, status, text, at}) {
    ++this.count;
    const chain = chainOf(client, url);
    if (status !== 200) {
      if (this.#last.has(chain)) this.#fault(url, `answers ${status} after it had answered`);
      return undefined;
    }
    if (isMaster(text)) {
      this.#last.set(chain, {});
      this.#checkMaster(client, url, parseMasterPlaylist(text));
      return undefined;
    }
    const playlist = parseMediaPlaylist(text);
    playlist.faults.forEach((message) => this.#fault(url, message));
    this.#checkAlone(url, playlist);
    this.#checkSegments(url, playlist);
    const before = this.#last.get(chain);
    if (before) this.#checkAfter(url, before, playlist, at);
    this.#last.set(chain, {playlist, at});
    return playlist;
  }

  /** The size of a segment as the server answers it, at any time. */
  noteSize(segmentUrl, bytes) {
    const before = this.#sizes.get(segmentUrl);
    if (before !== undefined && before !== bytes) {
      this.#fault(segmentUrl, `had ${before} bytes and now has ${bytes}: another segment`);
    }
    this.#sizes.set(segmentUrl, bytes);
  }

  /** A segment that could not be fetched although the server still owed it. */
  noteMissing(segmentUrl, status, secondsAfter, window) {
    this.#fault(segmentUrl,
      `answers ${status} ${secondsAfter.toFixed(1)} s after it was last listed, in a list of ${window.toFixed(1)} s`);
  }

  /** Renditions of one stream: the same discontinuities at the same time, and one target duration (6.2.4). */
  checkRenditions(client, urls) {
    const playlists = urls.map((url) => this.#last.get(chainOf(client, url))?.playlist);
    const first = playlists[0];
    playlists.forEach((playlist, index) => {
      if (index === 0 || !playlist || !first) return;
      if (playlist.targetDuration !== first.targetDuration) {
        this.#fault(urls[index], `has the target duration ${playlist.targetDuration}, ${urls[0]} ${first.targetDuration}`);
      }
      for (const segment of playlist.segments) {
        const other = first.segments.find((candidate) => candidate.number === segment.number);
        if (other && other.discontinuity !== segment.discontinuity && Math.abs(other.time - segment.time) < 1000) {
          this.#fault(urls[index], `has segment ${segment.number} in another discontinuity than ${urls[0]}`);
        }
      }
    });
  }

  #checkAlone(url, playlist) {
    playlist.segments.forEach((segment, index) => {
      const {number} = segment;
      if (Math.round(segment.duration) > playlist.targetDuration) {
        this.#fault(url, `lists ${segment.duration} s, more than the target duration ${playlist.targetDuration}`);
      }
      if (Number.isNaN(segment.time)) this.#fault(url, `has no EXT-X-PROGRAM-DATE-TIME for segment ${number}`);
      if (index > 0 && !(segment.time > playlist.segments[index - 1].time)) {
        this.#fault(url, `goes back in EXT-X-PROGRAM-DATE-TIME at segment ${number}`);
      }
    });
  }

  #checkSegments(url, playlist) {
    for (const segment of playlist.segments) {
      const key = `${url} ${segment.number}`;
      const known = this.#segments.get(key);
      if (!known) this.#segments.set(key, segment);
      for (const member of ['uri', 'duration', 'time', 'discontinuity']) {
        if (known && !Object.is(known[member], segment[member])) {
          this.#fault(url, `changes the ${member} of segment ${segment.number} from ${known[member]} to ${segment[member]}`);
        }
      }
      const segmentUrl = new URL(segment.uri, url).href;
      const owner = this.#owners.get(segmentUrl) ?? key;
      if (owner !== key) this.#fault(url, `lists ${segment.uri} as number ${segment.number}, earlier it was ${owner}`);
      this.#owners.set(segmentUrl, owner);
    }
  }

  #checkAfter(url, before, playlist, at) {
    const earlier = before.playlist;
    if (!earlier || earlier.segments.length === 0 || playlist.segments.length === 0) return;
    const first = playlist.segments[0].number;
    const last = playlist.segments.at(-1).number;
    const lastBefore = earlier.segments.at(-1).number;
    if (first < earlier.segments[0].number || last < lastBefore) {
      this.#fault(url, `goes back from ${earlier.segments[0].number}..${lastBefore} to ${first}..${last}`);
    }
    // Whoever was away for a whole window has missed segments.
    const wasAway = at - before.at >= durationOf(earlier) * 1000;
    if (first > lastBefore + 1 && !wasAway) this.#fault(url, `jumps from ${lastBefore} to ${first}`);
    if (playlist.targetDuration !== earlier.targetDuration) {
      this.#fault(url, `changes its target duration from ${earlier.targetDuration} to ${playlist.targetDuration}`);
    }
    if (playlist.discontinuitySequence < earlier.discontinuitySequence) {
      this.#fault(url, `goes back in EXT-X-DISCONTINUITY-SEQUENCE from ${earlier.discontinuitySequence} to ${playlist.discontinuitySequence}`);
    }
    const removed = first > earlier.segments[0].number;
    if (removed && !playlist.ended && durationOf(playlist) < 3 * playlist.targetDuration - 0.001) {
      this.#fault(url, `removes segments down to ${durationOf(playlist).toFixed(3)} s, less than three target durations`);
    }
    if (earlier.ended && !playlist.ended) this.#fault(url, 'goes on after EXT-X-ENDLIST');
  }

  #checkMaster(client, url, master) {
    master.faults.forEach((message) => this.#fault(url, message));
    for (const variant of master.variants) {
      const variantUrl = new URL(variant.uri, url).href;
      const shown = this.#last.get(chainOf(client, variantUrl))?.playlist;
      const peak = shown ? this.#measurePeak(variantUrl, shown) : 0;
      if (peak > variant.bandwidth * 1.1) {
        this.#fault(url, `states BANDWIDTH ${variant.bandwidth} for ${variant.uri}, measured are ${Math.round(peak)}`);
      }
    }
  }

  // The largest bit rate of any run of segments that lasts half to one and a half target durations (4.3.4.2).
  #measurePeak(url, {segments, targetDuration}) {
    let peak = 0;
    for (let begin = 0; begin < segments.length; ++begin) {
      let [bits, seconds] = [0, 0];
      for (let i = begin; i < segments.length && seconds < 1.5 * targetDuration; ++i) {
        const bytes = this.#sizes.get(new URL(segments[i].uri, url).href);
        if (bytes === undefined) break;
        bits += 8 * bytes;
        seconds += segments[i].duration;
        if (seconds >= 0.5 * targetDuration && seconds <= 1.5 * targetDuration) peak = Math.max(peak, bits / seconds);
      }
    }
    return peak;
  }

  #fault(url, message) {
    const text = `${new URL(url).pathname} ${message}`;
    if (this.#known.has(text) || this.faults.length >= maxFaults) return;
    this.#known.add(text);
    this.faults.push(`${new Date().toISOString().slice(11, 23)} ${text}`);
  }
}
