#!/usr/bin/env node
// Makes docs/api.md of docs/openapi.yaml: reference.mjs > docs/api.md, in the repository's top folder.

import {readFileSync} from 'node:fs';
import {pathToFileURL} from 'node:url';

import {parse} from 'yaml';

const roles = {nobody: ' For everybody.', operator: ' For operators.', admin: ' For admins.'};

/** The text of docs/api.md. */
export function makeReference(document) {
  const follow = (node) => (node.$ref?.startsWith('#')
    ? follow(node.$ref.split('/').slice(1).reduce((at, name) => at[name], document)) : node);

  const calls = Object.entries(document.paths).flatMap(([path, item]) =>
    Object.entries(item).filter(([name]) => name !== 'parameters').map(([method, call]) =>
      ({...call, title: `${method.toUpperCase()} ${path}`, parameters: [...item.parameters ?? [], ...call.parameters ?? []].map(follow)})));

  const chapter = ({name, description}) => [`## ${name}`, '', description, '',
    ...calls.filter(({tags}) => tags.includes(name)).flatMap(section)];

  const section = (call) => [`### ${call.title}`, '', `${call.summary}.${roles[call['x-role']] ?? ''}`, '',
    ...call.description ? [call.description.trim(), ''] : [],
    ...table(['Parameter', 'In', 'Value', 'Meaning'], call.parameters.map(({name, in: place, required, schema, description}) =>
      [`\`${name}\``, place, `${describe(schema)}${required ? ', required' : ''}`, description])),
    ...call.requestBody ? body('Body', follow(call.requestBody)) : [],
    ...table(['Status', 'Meaning', 'Headers', 'Body'], Object.entries(call.responses).map(([status, answer]) =>
      [status === 'default' ? '4xx, 5xx' : status, ...describeAnswer(follow(answer))])),
    ...Object.entries(call.responses).filter(([status]) => status.startsWith('2'))
      .flatMap(([status, answer]) => examples(`${status}:`, follow(answer).content))];

  const describeAnswer = ({description, headers = {}, content = {}}) => [description,
    Object.keys(headers).map((name) => `\`${name}\``).join(', '),
    Object.entries(content).map(([type, {schema}]) => (type === 'application/json' ? describe(schema) : `\`${type}\``)).join(', ')];

  const body = (title, {content}) => [`${title}: ${describe(content['application/json'].schema)}`, '',
    ...members(follow(content['application/json'].schema)), ...examples('For example:', content)];

  const examples = (title, content = {}) => Object.values(content).filter(({example}) => example !== undefined)
    .flatMap(({example}) => [title, '', ...format(example).split('\n').map((line) => `    ${line}`), '']);

  const members = ({properties = {}, required = []}) => table(['Member', 'Value', 'Meaning'],
    Object.entries(properties).map(([name, schema]) => [`\`${name}\``,
      describe(schema) + (required.length > 0 && !required.includes(name) ? ', may be absent' : ''),
      schema.description ?? follow(schema).description ?? '']));

  /** A schema in a few words. */
  function describe(schema) {
    if (schema.$ref) return link(schema.$ref);
    if (schema.const !== undefined) return `\`${JSON.stringify(schema.const)}\``;
    if (schema.enum) return schema.enum.map((value) => `\`${JSON.stringify(value)}\``).join(', ');
    if (schema.anyOf) return schema.anyOf.map(describe).join(' or ');
    const types = [schema.type ?? 'anything'].flat();
    return types.map((type) => describeType(type, schema)).join(' or ');
  }

  function describeType(type, schema) {
    if (type === 'array' && schema.items) return `list of: ${describe(schema.items)}`;
    if (type === 'object' && schema.properties) {
      const inner = Object.entries(schema.properties).map(([name, one]) => `\`${name}\`: ${describe(one)}`);
      return `{${inner.join('; ')}}`;
    }
    if (type === 'object' && schema.additionalProperties) return `mapping to: ${describe(schema.additionalProperties)}`;
    const limits = [schema.minimum, schema.maximum];
    return limits.some((limit) => limit !== undefined) ? `${type} (${limits[0] ?? ''} to ${limits[1] ?? ''})`.replace(' to )', ' or more)') : type;
  }

  function link($ref) {
    const name = $ref.split('/').at(-1);
    if (!$ref.startsWith('#')) return `[${name === 'stream' ? 'document of a stream' : 'profile'}](stream-document.md)`;
    return `[${name}](#${name.toLowerCase()})`;
  }

  const schemas = Object.entries(document.components.schemas).flatMap(([name, schema]) => [`### ${name}`, '',
    ...schema.description ? [schema.description, ''] : [],
    ...schema.properties ? members(schema) : [`${describe(schema)}.`, ''],
    ...examples('For example:', {schema: {example: schema.examples?.[0]}})]);

  const contents = table(['Call', ''], calls.map(({title, summary}) => [`[${title}](#${anchor(title)})`, summary]));
  return ['# The HTTP API', '',
    'The server describes its API itself, in OpenAPI 3.1 under `/api/openapi.yaml`. This page is made of that description:',
    '`node tests/api/reference.mjs > docs/api.md`.', '',
    ...contents, document.info.description.trim(), '', ...document.tags.flatMap(chapter), '## Bodies', '', ...schemas,
  ].join('\n').replace(/\n+$/, '\n');
}

/** JSON that breaks lines only where it must. */
function format(value, indent = '') {
  const line = JSON.stringify(value);
  if (indent.length + line.length <= 100 || typeof value !== 'object') return line;
  const inner = `${indent}  `;
  const parts = Array.isArray(value) ? value.map((one) => format(one, inner))
    : Object.entries(value).map(([name, one]) => `${JSON.stringify(name)}: ${format(one, inner)}`);
  const [begin, end] = Array.isArray(value) ? '[]' : '{}';
  return `${begin}\n${inner}${parts.join(`,\n${inner}`)}\n${indent}${end}`;
}

const anchor = (title) => title.toLowerCase().replace(/[^\w -]/g, '').replaceAll(' ', '-');

function table(head, rows) {
  if (rows.length === 0) return [];
  const used = head.map((_, column) => column).filter((column) => column === 0 || rows.some((row) => row[column]));
  const line = (cells) => `| ${used.map((column) => (cells[column] ?? '').trim().replaceAll('|', '\\|').replaceAll('\n', ' ')).join(' | ')} |`;
  return [line(head), `|${used.map(() => '---').join('|')}|`, ...rows.map(line), ''];
}

if (import.meta.url === pathToFileURL(process.argv[1]).href)
  process.stdout.write(makeReference(parse(readFileSync(new URL('../../docs/openapi.yaml', import.meta.url), 'utf8'))));
