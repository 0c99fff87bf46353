/** A stream's document as the editor shows it: without the members that the server keeps itself. */
export type Document = Record<string, unknown>;

const ownedByServer = new Set(['id', 'status']);

export function withoutServerMembers(document: Document): Document {
  return Object.fromEntries(Object.entries(document).filter(([key]) => !ownedByServer.has(key)));
}

/** What changes `before` into `after`: changed members whole, and null for those that are gone. */
export function difference(before: Document, after: Document): Document {
  const form: Document = {};
  for (const [key, value] of Object.entries(after))
    if (JSON.stringify(before[key]) !== JSON.stringify(value)) form[key] = value;
  for (const key of Object.keys(before)) if (!(key in after)) form[key] = null;
  return form;
}

export const example: Document = {
  label: 'News',
  input: {0: {url: 'udp://239.0.0.1:1234'}},
  output: {0: {protocol: 'hls', playlist_name: 'index.m3u8'}},
};

/** A test picture and tone, which every FFmpeg can make. */
export const demo: Document = {
  label: 'Demo',
  input: {0: {url: 'testsrc2=size=640x360:rate=25[out0];sine=frequency=440:sample_rate=48000[out1]', format: 'lavfi', re: true}},
  video: {codec: 'libx264', preset: 'ultrafast', bitrate: 500},
  output: {0: {protocol: 'hls', playlist_name: 'index.m3u8'}},
};
