#!/usr/bin/env node
// Makes src/api/openapi.ts of docs/openapi.yaml: openapi_types.mjs > src/api/openapi.ts, in this folder.

import {readFileSync} from 'node:fs';

import {parse} from 'yaml';

const {components, paths} = parse(readFileSync(new URL('../docs/openapi.yaml', import.meta.url), 'utf8'));

const names = {integer: 'number', number: 'number', string: 'string', boolean: 'boolean', null: 'null'};
const indent = (text) => text.replaceAll('\n', '\n  ');
const nameOf = ($ref) => $ref.split('/').at(-1);

/** A schema as a type. */
function print(schema) {
  // The documents of streams and profiles have schemas of their own, which forms are made from at run time.
  if (schema.$ref) return schema.$ref.startsWith('#') ? nameOf(schema.$ref) : 'Record<string, unknown>';
  if (schema.const !== undefined) return JSON.stringify(schema.const);
  if (schema.enum) return schema.enum.map((value) => JSON.stringify(value)).join(' | ');
  if (schema.anyOf) return schema.anyOf.map(print).join(' | ');
  if (schema.allOf) return schema.allOf.map(print).join(' & ');
  return [schema.type ?? 'any'].flat().map((type) => printType(type, schema)).join(' | ');
}

function printType(type, {items, properties, required, additionalProperties, propertyNames}) {
  if (type === 'array') return `(${items ? print(items) : 'unknown'})[]`;
  if (type !== 'object') return names[type] ?? 'unknown';
  if (properties) return printMembers(properties, required ?? []);
  const values = typeof additionalProperties === 'object' ? print(additionalProperties) : 'unknown';
  const keys = propertyNames ? print(propertyNames) : required?.map((name) => JSON.stringify(name)).join(' | ');
  if (!keys) return `Record<string, ${values}>`;
  return required ? `Record<${keys}, ${values}>` : `Partial<Record<${keys}, ${values}>>`;
}

function printMembers(properties, required) {
  const members = Object.entries(properties).map(([name, schema]) => {
    const note = schema.description ? `/** ${schema.description.replaceAll('*/', '* /')} */\n` : '';
    return `\n${note}${name}${required.includes(name) ? '' : '?'}: ${print(schema)};`;
  });
  return `{${indent(members.join(''))}\n}`;
}

/** What a call answers when all is well; undefined where that is no JSON. */
function answerOf({responses}) {
  const answers = Object.entries(responses).filter(([status]) => status.startsWith('2'));
  const bodies = answers.map(([, answer]) => (answer.$ref ? components.responses[nameOf(answer.$ref)] : answer));
  return bodies.map(({content}) => content?.['application/json']?.schema).find((schema) => schema !== undefined);
}

const schemas = Object.entries(components.schemas).map(([name, schema]) => `export type ${name} = ${print(schema)};\n`);
const calls = Object.values(paths).flatMap(({parameters, ...methods}) => Object.values(methods));
const answers = calls.map((call) => [call.operationId, answerOf(call)]).filter(([, schema]) => schema !== undefined);
const answerLines = answers.map(([name, schema]) => `\n${name}: ${print(schema)};`).join('');

process.stdout.write(`// Made of docs/openapi.yaml by openapi_types.mjs; changes belong there.

${schemas.join('\n')}
/** What calls answer, by their operationId. */
export interface Answers {${indent(answerLines)}
}
`);
