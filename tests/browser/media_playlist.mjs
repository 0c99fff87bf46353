// Reads HLS playlists (RFC 8216) as a player would, and names what the format itself forbids.

const allowedBeforeSegment = new Set(['EXTINF', 'EXT-X-PROGRAM-DATE-TIME', 'EXT-X-DISCONTINUITY']);
const dateTime = /^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?(Z|[+-]\d\d:?\d\d)$/;

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
  const lines = text.split('\n').map((line) => line.trimEnd());
  if (lines[0] !== '#EXTM3U') fault('does not begin with #EXTM3U');
  let version = 1;
  let breaks = 0;
  let next = {duration: NaN, time: NaN};
  const counts = {};
  for (const line of lines.slice(1)) {
    if (line === '' || (line.startsWith('#') && !line.startsWith('#EXT'))) continue;
    if (!line.startsWith('#')) {
      if (Number.isNaN(next.duration)) fault(`${line} has no EXTINF`);
      playlist.segments.push({
        number: playlist.mediaSequence + playlist.segments.length,
        uri: line,
        discontinuity: playlist.discontinuitySequence + breaks,
        ...next,
      });
      next = {duration: NaN, time: NaN};
      continue;
    }
    const [, tag, value] = /^#([A-Z0-9-]+):?(.*)$/.exec(line);
    counts[tag] = (counts[tag] ?? 0) + 1;
    if (!allowedBeforeSegment.has(tag) && counts[tag] > 1) fault(`has ${tag} twice`);
    switch (tag) {
      case 'EXT-X-VERSION': version = readInteger(value, tag, fault); break;
      case 'EXT-X-TARGETDURATION': playlist.targetDuration = readInteger(value, tag, fault); break;
      case 'EXT-X-MEDIA-SEQUENCE':
      case 'EXT-X-DISCONTINUITY-SEQUENCE':
        if (playlist.segments.length > 0 || breaks > 0) fault(`has ${tag} after a segment or a discontinuity`);
        playlist[tag === 'EXT-X-MEDIA-SEQUENCE' ? 'mediaSequence' : 'discontinuitySequence'] = readInteger(value, tag, fault);
        break;
      case 'EXT-X-DISCONTINUITY': ++breaks; break;
      case 'EXT-X-PROGRAM-DATE-TIME':
        if (!dateTime.test(value)) fault(`has the ${tag} ${value}`);
        next.time = Date.parse(value);
        break;
      case 'EXTINF': {
        const [duration] = value.split(',');
        if (!/^\d+(\.\d+)?$/.test(duration) || !value.includes(',')) fault(`has the EXTINF ${value}`);
        if (duration.includes('.') && version < 3) fault('has fractions in EXTINF below version 3');
        next.duration = Number(duration);
        break;
      }
      case 'EXT-X-ENDLIST': playlist.ended = true; break;
    }
  }
  if (!(playlist.targetDuration > 0)) fault('has no EXT-X-TARGETDURATION');
  if (playlist.segments.length === 0) fault('has no segment');
  return playlist;
}

/** A master playlist: {variants, faults}. A variant has its `uri`, `bandwidth`, `averageBandwidth` and `attributes`. */
export function parseMasterPlaylist(text) {
  const master = {variants: [], faults: []};
  const fault = (message) => master.faults.push(message);
  const lines = text.split('\n').map((line) => line.trimEnd());
  if (lines[0] !== '#EXTM3U') fault('does not begin with #EXTM3U');
  for (const tag of ['EXTINF', 'EXT-X-TARGETDURATION', 'EXT-X-MEDIA-SEQUENCE', 'EXT-X-ENDLIST']) {
    if (lines.some((line) => line.startsWith(`#${tag}`))) fault(`is a master playlist with ${tag}`);
  }
  lines.forEach((line, index) => {
    if (!line.startsWith('#EXT-X-STREAM-INF:')) return;
    const attributes = readAttributes(line.slice('#EXT-X-STREAM-INF:'.length), fault);
    const uri = lines[index + 1] ?? '';
    if (uri === '' || uri.startsWith('#')) fault('has a variant without URI');
    const read = (name) => (attributes.has(name) ? readInteger(attributes.get(name), name, fault) : NaN);
    const variant = {uri, attributes, bandwidth: read('BANDWIDTH'), averageBandwidth: read('AVERAGE-BANDWIDTH')};
    if (!(variant.bandwidth > 0)) fault(`has ${uri} without BANDWIDTH`);
    if (variant.averageBandwidth > variant.bandwidth) fault(`has AVERAGE-BANDWIDTH above BANDWIDTH for ${uri}`);
    checkAttribute(attributes, 'RESOLUTION', /^[1-9]\d*x[1-9]\d*$/, fault);
    checkAttribute(attributes, 'CODECS', /^"[^",\s]+(,[^",\s]+)*"$/, fault);
    checkAttribute(attributes, 'FRAME-RATE', /^\d+(\.\d+)?$/, fault);
    master.variants.push(variant);
  });
  return master;
}

function readInteger(value, name, fault) {
  if (!/^\d{1,20}$/.test(value)) fault(`has the ${name} ${value === '' ? '(empty)' : value}`);
  return Number(value);
}

// An attribute list of RFC 8216, 4.2: commas in quoted values separate nothing.
function readAttributes(text, fault) {
  const attributes = new Map();
  let rest = text;
  while (rest !== '') {
    const found = /^([A-Z0-9-]+)=("[^"]*"|[^",]*)(,|$)/.exec(rest);
    if (!found) {
      fault(`has the attributes ${rest}`);
      return attributes;
    }
    if (attributes.has(found[1])) fault(`has ${found[1]} twice in a variant`);
    attributes.set(found[1], found[2]);
    rest = rest.slice(found[0].length);
  }
  return attributes;
}

function checkAttribute(attributes, name, pattern, fault) {
  if (attributes.has(name) && !pattern.test(attributes.get(name))) {
    fault(`has the ${name} ${attributes.get(name) || '(empty)'}`);
  }
}
