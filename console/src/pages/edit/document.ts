import type {Finding} from '../../api/types';
import {texts} from '../../texts';

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

export const format = (document: Document) => JSON.stringify(document, null, 2);

/** The text as a document, or what is wrong with it as JSON. */
export function parse(text: string): Document | Finding {
  try {
    const value: unknown = JSON.parse(text);
    if (value !== null && typeof value === 'object' && !Array.isArray(value)) return value as Document;
    return {key: '', message: texts.edit.noMapping};
  } catch (failure) {
    return {key: '', message: (failure as Error).message};
  }
}

export const isFinding = (parsed: Document | Finding): parsed is Finding =>
  typeof parsed.key === 'string' && typeof parsed.message === 'string' && Object.keys(parsed).length === 2;

/** What a new stream begins with: it only lacks the address of its input. */
export const unfinished: Document = {
  input: {0: {}},
  output: {0: {protocol: 'hls', playlist_name: 'index.m3u8'}},
};

/** A test picture and tone, which every FFmpeg can make. */
export const demo: Document = {
  label: 'Demo',
  input: {0: {url: 'testsrc2=size=640x360:rate=25[out0];sine=frequency=440:sample_rate=48000[out1]', format: 'lavfi', re: true}},
  video: {codec: 'libx264', preset: 'ultrafast', bitrate: 500},
  output: {0: {protocol: 'hls', playlist_name: 'index.m3u8'}},
};
