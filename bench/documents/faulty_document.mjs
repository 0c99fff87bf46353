// A document with one fault. The key that its finding has to name is known.

/** Every way in which a value breaks the schema of a member. */
function breakMember(schema) {
  const values = [];
  const types = [schema.type ?? []].flat();
  const takesNumbers = types.includes('number') || types.includes('integer');
  if (schema.maximum !== undefined) values.push(schema.maximum + 1, String(schema.maximum * 2 + 1));
  if (schema.minimum !== undefined && takesNumbers) values.push(schema.minimum - 1);
  if (schema.enum) values.push('sideways', 7.5, {a: 1});
  if (schema.pattern) values.push('1x', [1]);
  if (types.includes('integer') && schema.pattern) values.push(1.5);
  if (schema.maxLength !== undefined) values.push('x'.repeat(schema.maxLength + 1), 'two\nlines');
  if (types.length && !types.includes('object') && !types.includes('array')) values.push({a: 1}, ['a']);
  if (types.includes('string') && !types.includes('number') && !schema.pattern) values.push('a\0b');
  if (types.includes('object') && !types.includes('string')) values.push('text', 7);
  if (types.includes('array') && !types.includes('object')) values.push('text', {a: 1});
  return values;
}

/** [{key, value}] of every member that the schema describes. */
function listMemberFaults(schema, key = '') {
  const faults = [];
  for (const [name, member] of Object.entries(schema.properties ?? {})) {
    const below = key ? `${key}.${name}` : name;
    // `input` and `output` are replaced by them, which takes the whole document away.
    if (key) faults.push(...breakMember(member).map((value) => ({key: below, value})));
    else if (!['input', 'output'].includes(name)) faults.push(...breakMember(member).map((value) => ({key: below, value})));
    faults.push(...listMemberFaults(member, below));
  }
  for (const member of Object.values(schema.patternProperties ?? {})) {
    const below = `${key}.0`;
    if (member.oneOf) for (const output of member.oneOf) faults.push(...listOutputFaults(output));
    else faults.push(...listMemberFaults(member, below));
  }
  return faults;
}

/** An output of the protocol is added behind those that the document has. */
function listOutputFaults(schema) {
  const complete = outputs[schema.title];
  if (!complete) throw new Error(`No example of an output over ${schema.title}`);
  return listMemberFaults(schema, 'OUTPUT').filter(({key}) => key !== 'OUTPUT.protocol').map((fault) => ({...fault, output: complete}))
    .concat((schema.required ?? []).filter((name) => name !== 'protocol').map((name) => ({key: `OUTPUT.${name}`, value: null, output: complete})));
}

const outputs = {
  hls: {protocol: 'hls', playlist_name: 'x.m3u8'},
  rtmp: {protocol: 'rtmp', server: 'localhost', port: 1935, app: 'live', playpath: 'key'},
  rtsp: {protocol: 'rtsp', hostname: 'localhost', port: 8554, path: 'cam'},
  udp: {protocol: 'udp', hostname: '239.0.0.1', port: 1234},
  rtp: {protocol: 'rtp', hostname: '127.0.0.1', port: 5004},
  tcp: {protocol: 'tcp', hostname: '127.0.0.1', port: 9000},
  srt: {protocol: 'srt', hostname: '127.0.0.1', port: 9710},
  file: {protocol: 'file', filename: 'faulty.ts'},
  http: {protocol: 'http', filename: 'faulty.ts'},
};

// What no schema says. `at` is the key of the finding where it is not `key`.
const relations = [
  {key: 'min_speed', value: 60, extra: {max_speed: 2}, at: 'max_speed'},
  {key: 'input.0.url', value: null}, {key: 'input.0.url', value: ''}, {key: 'input.0.url', value: 'gopher://host/1'},
  {key: 'input.0.url', value: '/etc/passwd'}, {key: 'input.0.url', value: 'file:///etc/passwd'},
  {key: 'input.0.options.output_ts_offset', value: 1}, {key: 'input.0.options.dump_extra', value: 'x'},
  {key: 'input.7', value: {}, at: 'input.7.url'}, {key: 'input.7', value: 'udp://239.0.0.1:5'},
  {key: 'input.switch.hours', value: '25'}, {key: 'input.restart.minutes', value: '60'}, {key: 'input.restart.weekdays', value: '7'},
  {key: 'video.width', value: 321}, {key: 'video.height', value: 181}, {key: 'video.filters', value: 'nosuchfilter'},
  {key: 'video.filters', value: 'movie=/etc/passwd'}, {key: 'video.filters', value: 'metadata=print:file=/tmp/x'},
  {key: 'audio.filters', value: 'ametadata=print:file=/tmp/x'},
  {key: 'video.renditions', value: {1: {width: 320}}, at: 'video.renditions.0'}, {key: 'video.renditions', value: Array(17).fill({width: 320})},
  {key: 'video.cvdelogo', value: {filename: '/etc/passwd'}, at: 'video.cvdelogo.filename'},
  {key: 'video.max_bitrate', value: 90, extra: {'video.bitrate': 100, 'video.crf': null, 'video.renditions': null}, encoder: 'mpeg4'},
  {key: 'video.bframes', value: 2, extra: {'video.tune': 'zerolatency'}, encoder: 'libx265'},
  {key: 'video.delogo', value: {x: 1, y: 1, w: 1}}, {key: 'video.delogo', value: '1:2:3'}, {key: 'video.map', value: 'w:1'},
  {key: 'audio.map', value: {a: [1]}}, {key: 'profile', value: '999'}, {key: 'id', value: 3}, {key: 'status', value: 'running'},
  {key: 'tags', value: ['']}, {key: 'tags', value: [7]}, {key: 'tags', value: ['x'.repeat(101)]},
  {key: 'OUTPUT.protocol', value: 'gopher'}, {key: 'OUTPUT.protocol', value: null}, {key: 'OUTPUT.port', value: 99999, output: outputs.udp},
  {key: 'OUTPUT.protocol', value: 'hls', output: outputs.hls}, {key: 'OUTPUT.hostname', value: null, output: outputs.srt},
  {key: 'OUTPUT.passphrase', value: 'short', output: outputs.srt}, {key: 'OUTPUT.streamid', value: 'a b', output: outputs.srt},
  {key: 'OUTPUT.hostname', value: 'a b', output: outputs.udp}, {key: 'OUTPUT.path', value: '/etc', output: outputs.file},
  {key: 'OUTPUT.filename', value: 'live.mp4', output: outputs.http}, {key: 'OUTPUT.filename', value: 'x/', output: outputs.file, at: 'OUTPUT'},
  {key: 'OUTPUT.filename', value: 'unknown.ending', output: outputs.file}, {key: 'OUTPUT.format', value: 'mp4', output: outputs.http},
  {key: 'OUTPUT.rendition', value: 9, output: outputs.udp}, {key: 'OUTPUT.app', value: '///', output: outputs.rtmp, at: 'OUTPUT'},
  {key: 'OUTPUT.playpath', value: 'a b', output: outputs.rtmp}, {key: 'OUTPUT.segment_time', value: 0, output: outputs.hls},
];

export function listFaults(schema) {
  return listMemberFaults(schema).concat(relations);
}

/** The document with the fault: {form, key}. Dotted keys at the end are applied last. */
export function spoil(document, fault) {
  const form = structuredClone(document);
  // Only output 0 may be an hls output; any other one comes behind those of the document.
  const place = fault.output?.protocol === 'hls' && fault.value !== 'hls' ? 0 : Object.keys(form.output).length;
  const key = fault.key.replace('OUTPUT', `output.${place}`);
  if (fault.output) form.output = place === 0 ? {0: {...fault.output}} : {...form.output, [place]: {...fault.output}};
  // What is copied or left out needs no filters, sizes and maps: they are not looked at.
  const encoder = {video: 'libx264', audio: 'aac'}[key.split('.')[0]];
  if (encoder && key.includes('.') && !key.endsWith('.codec')) form[`${key.split('.')[0]}.codec`] = fault.encoder ?? encoder;
  Object.assign(form, fault.extra);
  delete form[key];
  const section = key.split('.')[0];
  if (key === section) for (const dotted of Object.keys(form)) if (dotted.startsWith(`${section}.`)) delete form[dotted];
  form[key] = fault.value;
  return {form, key: (fault.at ?? key).replace('OUTPUT', `output.${place}`)};
}
