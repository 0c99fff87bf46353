// The checker finds each of these faults, and none in playlists as they should be.

import assert from 'node:assert/strict';
import test from 'node:test';

import {PlaylistChecker} from './playlist_checker.mjs';

const url = 'http://weir/0/playlist_0.m3u8';
const masterUrl = 'http://weir/0/index.m3u8';

// Segments first..last of 4 s each; `breaks` names those that begin a run of the transcoder.
function media(first, last, {breaks = [], discontinuity = 0, target = 4, head = '', edit = (text) => text} = {}) {
  let text = `#EXTM3U\n#EXT-X-VERSION:3\n#EXT-X-TARGETDURATION:${target}\n#EXT-X-MEDIA-SEQUENCE:${first}\n`;
  text += `#EXT-X-DISCONTINUITY-SEQUENCE:${discontinuity}\n${head}`;
  for (let number = first; number <= last; ++number) {
    if (breaks.includes(number)) text += '#EXT-X-DISCONTINUITY\n';
    text += `#EXT-X-PROGRAM-DATE-TIME:${new Date(1e12 + number * 4000).toISOString()}\n`;
    text += `#EXTINF:4.000000,\nplaylist_0_${number}.ts\n`;
  }
  return edit(text);
}

const replace = (from, to) => ({edit: (text) => text.replace(from, to)});
const variant = (attributes) => `#EXTM3U\n#EXT-X-STREAM-INF:${attributes}\nplaylist_0.m3u8\n`;
const good = 'BANDWIDTH=900000,AVERAGE-BANDWIDTH=800000,CODECS="avc1.42e01e,mp4a.40.2",RESOLUTION=640x360,FRAME-RATE=25.000';

const see = (checker, text, at, from = url) => checker.see({client: 'test', url: from, status: text ? 200 : 503, text, at});

// The answers come 2 s apart; an empty one is a failure.
function check(answers) {
  const checker = new PlaylistChecker();
  answers.forEach((answer, index) => see(checker, answer, index * 2000));
  return checker.faults;
}

const faults = [
  ['an answer that fails', [media(1, 4), ''], /answers 503/],
  ['a sequence that goes back', [media(5, 8), media(4, 8)], /goes back from 5\.\.8/],
  ['a sequence that jumps', [media(1, 4), media(6, 9)], /jumps from 4 to 6/],
  ['a discontinuity that goes away', [media(1, 5, {breaks: [4]}), media(2, 6)], /changes the discontinuity of segment 4/],
  ['a segment with another address', [media(1, 4), media(1, 4, replace('_3.ts', '_x.ts'))], /changes the uri of segment 3/],
  ['an address used again', [media(1, 4), media(2, 5, replace('_5.ts', '_1.ts'))], /lists playlist_0_1\.ts as number 5/],
  ['a target duration that changes', [media(1, 4), media(1, 4, {target: 5})], /changes its target duration/],
  ['a list cut too short', [media(1, 4), media(3, 4)], /down to 8\.000 s/],
  ['a time that goes back', [media(1, 4, replace(/T01:46:52/, 'T01:46:40'))], /goes back in EXT-X-PROGRAM-DATE-TIME/],
  ['a segment without time', [media(1, 1, replace(/#EXT-X-PROGRAM.*\n/, ''))], /no EXT-X-PROGRAM-DATE-TIME/],
  ['a stream that goes on after its end', [media(1, 4) + '#EXT-X-ENDLIST\n', media(1, 5)], /goes on after/],
  ['something else', ['<html>'], /does not begin with #EXTM3U/],
  ['a variant without bandwidth', [variant('RESOLUTION=640x360')], /without BANDWIDTH/],
  ['a resolution of 0', [variant('BANDWIDTH=1,RESOLUTION=0x0')], /RESOLUTION 0x0/],
];

test('finds each fault', async (t) => {
  for (const [name, answers, expected] of faults) {
    await t.test(name, () => assert.match(check(answers).join('\n'), expected));
  }
});

test('measures the stated bandwidth on the segments, and that they stay the same', () => {
  const checker = new PlaylistChecker();
  see(checker, media(1, 4), 0);
  for (const number of [1, 2, 3, 4]) checker.noteSize(`http://weir/0/playlist_0_${number}.ts`, 450_000);
  see(checker, variant('BANDWIDTH=900000'), 0, masterUrl);
  assert.deepEqual(checker.faults, []);
  see(checker, variant('BANDWIDTH=800000'), 0, masterUrl);
  checker.noteSize('http://weir/0/playlist_0_1.ts', 1);
  assert.match(checker.faults.join(), /states BANDWIDTH 800000 .* measured are 900000.*another segment/);
});

test('compares the renditions of a stream', () => {
  const checker = new PlaylistChecker();
  const other = 'http://weir/0/playlist_1.m3u8';
  see(checker, media(1, 4, {breaks: [3]}), 0);
  see(checker, media(1, 4, {breaks: [4], target: 5}).replaceAll('playlist_0', 'playlist_1'), 0, other);
  checker.checkRenditions('test', [url, other]);
  assert.match(checker.faults.join(), /target duration 5.*segment 3 in another discontinuity/);
});
