// Reads HLS playlists (RFC 8216) as a player would, and names what the format itself forbids.

const perSegment = new Set(['EXTINF', 'EXT-X-PROGRAM-DATE-TIME', 'EXT-X-DISCONTINUITY']);
const attributeForms = {
  'BANDWIDTH': /^[1-9]\d*$/,
  'AVERAGE-BANDWIDTH': /^\d+$/,
  'RESOLUTION': /^[1-9]\d*x[1-9]\d*$/,
  'CODECS': /^"[^",\s]+(,[^",\s]+)*"$/,
  'FRAME-RATE': /^\d+(\.\d+)?$/,
};

export const isMaster = (text) => text.includes('#EXT-X-STREAM-INF');

/** The seconds that all segments last. */
export const durationOf = (playlist) => playlist.segments.reduce((sum, segment) => sum + segment.duration, 0);

/**
 * A media playlist: {targetDuration, mediaSequence, discontinuitySequence, ended, segments, faults}. A segment has its
 * `number`, `uri`, `duration` in seconds, `time` (wall clock in ms, NaN when unknown) and `discontinuity`, the number
 * of discontinuities before it since the stream began.
 */
export function parseMediaPlaylist(text) {
  const playlist = {targetDuration: NaN, mediaSequence: 0, discontinuitySequence: 0, ended: false, segments: [], faults: []};
  const fault = (message) => playlist.faults.push(message);
  const heads = new Set();
  let breaks = 0;
  let next = {duration: NaN, time: NaN};
  for (const line of linesOf(text, fault)) {
    if (!line.startsWith('#')) {
      if (Number.isNaN(next.duration)) fault(`${line} has no EXTINF`);
      const [number, discontinuity] = [playlist.mediaSequence + playlist.segments.length, playlist.discontinuitySequence + breaks];
      playlist.segments.push({number, uri: line, discontinuity, ...next});
      next = {duration: NaN, time: NaN};
      continue;
    }
    const [, tag, value] = /^#([A-Z0-9-]+):?(.*)$/.exec(line);
    if (heads.has(tag)) fault(`has ${tag} twice`);
    if (!perSegment.has(tag)) heads.add(tag);
    switch (tag) {
      case 'EXT-X-TARGETDURATION': playlist.targetDuration = readInteger(value, tag, fault); break;
      case 'EXT-X-MEDIA-SEQUENCE': playlist.mediaSequence = readInteger(value, tag, fault); break;
      case 'EXT-X-DISCONTINUITY-SEQUENCE': playlist.discontinuitySequence = readInteger(value, tag, fault); break;
      case 'EXT-X-DISCONTINUITY': ++breaks; break;
      case 'EXT-X-PROGRAM-DATE-TIME': next.time = Date.parse(value); break;
      case 'EXTINF': next.duration = Number(/^(\d+(\.\d+)?),/.exec(value)?.[1]); break;
      case 'EXT-X-ENDLIST': playlist.ended = true; break;
    }
  }
  if (!(playlist.targetDuration > 0)) fault('has no EXT-X-TARGETDURATION');
  if (playlist.segments.length === 0) fault('has no segment');
  return playlist;
}

/** A master playlist: {variants, faults}. A variant has its `uri` and its `bandwidth`. */
export function parseMasterPlaylist(text) {
  const master = {variants: [], faults: []};
  const fault = (message) => master.faults.push(message);
  const lines = linesOf(text, fault);
  lines.forEach((line, index) => {
    if (!line.startsWith('#EXT-X-STREAM-INF:')) return;
    const uri = lines[index + 1] ?? '';
    if (uri === '' || uri.startsWith('#')) fault('has a variant without URI');
    const attributes = readAttributes(line.slice('#EXT-X-STREAM-INF:'.length), fault);
    const bandwidth = Number(attributes.get('BANDWIDTH'));
    if (!(bandwidth > 0)) fault(`has ${uri} without BANDWIDTH`);
    if (Number(attributes.get('AVERAGE-BANDWIDTH')) > bandwidth) fault(`has AVERAGE-BANDWIDTH above BANDWIDTH for ${uri}`);
    master.variants.push({uri, bandwidth});
  });
  return master;
}

// Without comments and empty lines.
function linesOf(text, fault) {
  const [first, ...lines] = text.split('\n').map((line) => line.trimEnd());
  if (first !== '#EXTM3U') fault('does not begin with #EXTM3U');
  return lines.filter((line) => line !== '' && (!line.startsWith('#') || line.startsWith('#EXT')));
}

function readInteger(value, name, fault) {
  if (!/^\d{1,20}$/.test(value)) fault(`has the ${name} ${value}`);
  return Number(value);
}

// An attribute list of RFC 8216, 4.2: commas in quoted values separate nothing.
function readAttributes(text, fault) {
  const attributes = new Map();
  for (const [, name, value] of text.matchAll(/([A-Z0-9-]+)=("[^"]*"|[^,]*)(?:,|$)/g)) {
    if (attributes.has(name)) fault(`has ${name} twice in a variant`);
    if (attributeForms[name] && !attributeForms[name].test(value)) fault(`has the ${name} ${value || '(empty)'}`);
    attributes.set(name, value);
  }
  return attributes;
}
