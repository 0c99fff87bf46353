import {texts} from '../../texts';

const words = texts.backup;

export const lists = ['streams', 'profiles', 'webhooks'] as const;
export const changes = ['added', 'changed', 'removed', 'unchanged'] as const;
export type List = (typeof lists)[number];
type Id = number | string;

/** What an import does, or would do. */
export type Outcome = {dry_run: boolean} & Record<List, Record<(typeof changes)[number], Id[]>>;

interface ImportedRecord {
  id?: Id;
  label?: string;
  name?: string;
  url?: string;
}

// Nobody has looked at the content yet.
function recordsOf(content: unknown, list: List): (ImportedRecord | null)[] {
  const whole = content as Record<string, unknown> | null;
  const parent = list === 'webhooks' ? (whole?.settings as Record<string, unknown> | null | undefined) : whole;
  const records = parent?.[list];
  return Array.isArray(records) ? records : [];
}

const titleOf = ({label, name, url}: ImportedRecord) => String(label || name || url || '');

/** Labels, names or addresses of the imported records, by id. */
export function readTitles(content: unknown, list: List): Map<string, string> {
  return new Map(recordsOf(content, list).flatMap((record) => (record ? [[String(record.id), titleOf(record)]] : [])));
}

/** The record in which the key of a finding lies, as "stream 7, News:"; empty for other keys. */
export function nameRecord(content: unknown, key: string): string {
  const [, list, place] = /^(?:settings\.)?(streams|profiles|webhooks)\.(\d+)/.exec(key) ?? [];
  const record = list && recordsOf(content, list as List)[Number(place)];
  return record ? words.record(words.one[list as List], String(record.id ?? '?'), titleOf(record)) : '';
}
