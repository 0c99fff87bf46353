import {get} from '../../../api/client';

/** A JSON Schema of a document or of a member, as far as the form reads it. */
export interface Schema {
  title?: string;
  description?: string;
  type?: string | string[];
  enum?: unknown[];
  const?: unknown;
  anyOf?: Schema[];
  oneOf?: Schema[];
  properties?: Record<string, Schema>;
  patternProperties?: Record<string, Schema>;
  required?: string[];
  format?: string;
  maxLength?: number;
  examples?: unknown[];
  'x-unit'?: string;
  'x-default'?: string;
}

const loaded = new Map<string, Promise<Schema>>();

/** The schema of documents; asked for once. */
export function loadSchema(of: 'stream' | 'profile'): Promise<Schema> {
  const known = loaded.get(of);
  if (known) return known;
  const asked = get<Schema>(`/api/schema/${of}`).catch((failure: Error) => {
    loaded.delete(of);
    throw failure;
  });
  loaded.set(of, asked);
  return asked;
}

/** The schema of a named member; an empty one where the server's schema lacks it. */
export const memberOf = (schema: Schema, name: string): Schema => schema.properties?.[name] ?? {};

/** The schema of the numbered members of a mapping: of inputs, outputs, renditions. */
export const numberedOf = (schema: Schema): Schema => Object.values(schema.patternProperties ?? {})[0] ?? {};

export type Kind = 'flag' | 'choice' | 'secret' | 'list' | 'number' | 'long' | 'text';

const typesOf = (schema: Schema) => [schema.type ?? schema.anyOf?.flatMap(({type}) => type ?? []) ?? []].flat();

/** Which control a member is edited with. */
export function kindOf(schema: Schema, name: string): Kind {
  if (schema.enum) return schema.enum.includes(true) ? 'flag' : 'choice';
  if (schema.format === 'password') return 'secret';
  if (name === 'filters' || name === 'headers') return 'long';
  const [first] = typesOf(schema);
  if (first === 'array') return 'list';
  return first === 'integer' || first === 'number' ? 'number' : 'text';
}

/** The texts among which a choice is made. */
export const choicesOf = (schema: Schema): string[] =>
  (schema.enum ?? []).filter((value): value is string => typeof value === 'string' && value !== '');

/** Descriptions are written for a page of text: without its marks of code and links. */
export const plain = (text: string): string => text.replace(/\[([^\]]*)\]\([^)]*\)/g, '$1').replaceAll('`', '');
