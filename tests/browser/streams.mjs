// The streams that viewers watch. They are small: a machine with two cores has to encode and decode them all.

const generated = {
  url: 'testsrc2=size=640x360:rate=25,drawtext=text=\'%{pts}\':fontsize=32:fontcolor=white:box=1[out0];'
    + 'sine=frequency=880:sample_rate=48000[out1]',
  format: 'lavfi',
  re: true,
};

const encoder = {codec: 'libx264', preset: 'ultrafast', fps: 25};

const hls = (playlistName) => ({protocol: 'hls', playlist_name: playlistName, segment_time: 4, list_size: 6});

/** Goes back to input 0 at the next look at the timetable, once a minute. */
const goBack = {minutes: '*', hours: '*', weekdays: '*'};

/** Reads `url`, and generated video when there is none. */
export const ladder = (url) => ({
  label: 'ladder',
  input: {0: {url}, 1: generated, switch: goBack},
  video: {
    ...encoder,
    renditions: {
      0: {width: 640, height: 360, bitrate: 500},
      1: {width: 426, height: 240, bitrate: 250},
      2: {width: 256, height: 144, bitrate: 120},
    },
  },
  audio: {codec: 'aac', bitrate: 64},
  output: {0: hls('index.m3u8')},
});

/** One rendition, without a master playlist; and over HTTP. */
export const single = (url) => ({
  label: 'single',
  input: {0: {url}, 1: generated, switch: goBack},
  video: {...encoder, width: 640, height: 360, bitrate: 500},
  audio: {codec: 'aac', bitrate: 64},
  output: {0: hls('playlist_0.m3u8'), 1: {protocol: 'http', filename: 'live.ts'}},
});

/** A copied source. */
export const copied = (url, standby) => ({
  label: 'copied',
  input: {0: {url, format: 'mpegts'}, 1: {url: standby, format: 'mov', re: true, loop: -1}},
  video: {codec: 'copy'},
  audio: {codec: 'copy'},
  output: {0: hls('index.m3u8')},
});
