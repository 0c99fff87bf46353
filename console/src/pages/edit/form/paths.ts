import type {Document} from '../document';

/** Where a member stands: `['input', '0', 'url']`. Joined by dots it is the key of the server's findings. */
export type Path = readonly string[];

export const isMapping = (value: unknown): value is Document =>
  value !== null && typeof value === 'object' && !Array.isArray(value);

export function valueAt(document: Document, path: Path): unknown {
  let value: unknown = document;
  for (const name of path) value = isMapping(value) || Array.isArray(value) ? (value as Document)[name] : undefined;
  return value;
}

/**
 * The document with another value at the path; undefined takes the member away, and a named mapping that has become empty
 * with it. Numbered ones stay: an input without members is still an input.
 */
export function withValue(document: Document, path: Path, value: unknown): Document {
  const [name, ...rest] = path;
  if (name === undefined) return document;
  const inner = document[name];
  // A list becomes a mapping of the same numbers.
  const next = rest.length ? withValue(isMapping(inner) || Array.isArray(inner) ? {...inner} : {}, rest, value) : value;
  const isGone = next === undefined || (rest.length > 0 && !/^\d+$/.test(name) && Object.keys(next as object).length === 0);
  if (!isGone) return {...document, [name]: next};
  const {[name]: _, ...others} = document;
  return others;
}

/** The numbered members of a mapping in their order. */
export function numbered(mapping: unknown): [string, Document][] {
  if (!isMapping(mapping) && !Array.isArray(mapping)) return [];
  return Object.entries(mapping)
    .filter(([name, value]) => /^\d+$/.test(name) && isMapping(value))
    .sort(([one], [other]) => Number(one) - Number(other)) as [string, Document][];
}

/** The mapping with these numbered members instead, counted from 0; its named members stay. */
export function renumbered(mapping: unknown, members: unknown[]): Document {
  const named = isMapping(mapping) ? Object.entries(mapping).filter(([name]) => !/^\d+$/.test(name)) : [];
  return Object.fromEntries([...members.map((member, index) => [String(index), member]), ...named]);
}

export function moved<Item>(items: Item[], from: number, to: number): Item[] {
  const rest = items.filter((_, index) => index !== from);
  return [...rest.slice(0, to), items[from] as Item, ...rest.slice(to)];
}
