// A viewer with the player's default settings, and what there was to see.

'use strict';

// Longer stretches without a new frame are noted, in ms.
const shortestFreeze = 500;

class Viewer {
  constructor(url) {
    this.errors = [];
    this.freezes = [];
    this.video = document.body.appendChild(document.createElement('video'));
    this.video.muted = true;
    this.hls = new Hls();
    this.hls.on(Hls.Events.ERROR, (_, {fatal, details, response}) =>
      this.errors.push({at: Date.now(), fatal, details, status: response?.code}));
    this.hls.on(Hls.Events.MANIFEST_PARSED, () => this.video.play());
    this.hls.loadSource(url);
    this.hls.attachMedia(this.video);
    this.time = 0;
    this.frames = 0;
    this.movedAt = undefined;
    this.beganAt = undefined;
    this.timer = setInterval(() => this.look(), 50);
  }

  // It moves when the time advances and frames are decoded.
  look() {
    const frames = this.video.getVideoPlaybackQuality().totalVideoFrames;
    const time = this.video.currentTime;
    const moves = time > this.time && frames > this.frames;
    [this.time, this.frames] = [time, frames];
    if (!moves) return;
    this.beganAt ??= time;
    const now = Date.now();
    if (this.movedAt && now - this.movedAt >= shortestFreeze) this.freezes.push({from: this.movedAt, to: now});
    this.movedAt = now;
  }

  /** The freezes that touch the time from `from` on. One that lasts has no end. */
  freezesSince(from) {
    const freezes = this.freezes.filter((freeze) => freeze.to > from);
    if (Date.now() - this.movedAt >= shortestFreeze) freezes.push({from: this.movedAt});
    return freezes;
  }

  /** The errors since the last call. */
  takeErrors() {
    return this.errors.splice(0);
  }

  state() {
    const {video, hls} = this;
    return {
      time: video.currentTime, played: video.currentTime - this.beganAt, frames: this.frames, latency: hls.latency,
      height: video.videoHeight, paused: video.paused, ready: video.readyState,
    };
  }

  /** Asks for another quality than that on the screen; its height. */
  switchQuality() {
    const {levels} = this.hls;
    const shown = levels.findIndex((level) => level.height === this.video.videoHeight);
    const next = (shown + 1) % levels.length;
    this.hls.nextLevel = next;
    return levels[next].height;
  }

  close() {
    clearInterval(this.timer);
    this.hls.destroy();
    this.video.remove();
  }
}

const viewers = {};

function watch(name, url) {
  viewers[name]?.close();
  viewers[name] = new Viewer(url);
}
