// The OpenAPI document of a server, and what it says of an exchange.

import assert from 'node:assert/strict';

import {Validator} from '@seriousme/openapi-schema-validator';
import addFormats from 'ajv-formats';
import Ajv2020 from 'ajv/dist/2020.js';
import {parse} from 'yaml';

const base = 'http://weir/api/';
const ownKeywords = ['x-unit', 'x-default', 'x-at-once'];

const escape = (name) => name.replaceAll('~', '~0').replaceAll('/', '~1');

/** Objects of the document's own schemas get no member that is not described. */
function close(node) {
  if (Array.isArray(node)) return node.map(close);
  if (node === null || typeof node !== 'object') return node;
  const closed = Object.fromEntries(Object.entries(node).map(([name, value]) => [name, close(value)]));
  return node.properties && !('additionalProperties' in node) ? {...closed, additionalProperties: false} : closed;
}

export class ApiDocument {
  /** `schemas` are those that the document refers to, by their paths below /api/. */
  constructor(text, schemas) {
    this.document = parse(text);
    this.schemas = schemas;
    this.ajv = new Ajv2020({strict: true, strictRequired: false, allowUnionTypes: true, allErrors: true});
    addFormats(this.ajv);
    this.ajv.addVocabulary([...ownKeywords, ...Object.keys(this.document)]);
    for (const [path, schema] of Object.entries(schemas)) this.ajv.addSchema(schema, base + path);
    this.ajv.addSchema(close(this.document), `${base}openapi.yaml`);
  }

  /** Holds the document against the schema of OpenAPI 3.1, and its examples against their own. */
  async check() {
    const validator = new Validator();
    for (const [path, schema] of Object.entries(this.schemas)) await validator.addSpecRef(structuredClone(schema), path);
    const {valid, errors} = await validator.validate(structuredClone(this.document));
    assert.ok(valid, `docs/openapi.yaml: ${JSON.stringify(errors, null, 1)}`);
    this.#checkExamples(this.document, '#');
  }

  #checkExamples(node, pointer) {
    if (node === null || typeof node !== 'object') return;
    if ('example' in node && node.schema) this.#hold(node.example, `${pointer}/schema`, `${pointer}/example`);
    if (Array.isArray(node.examples)) for (const one of node.examples) this.#hold(one, pointer, `${pointer}/examples`);
    for (const [name, value] of Object.entries(node)) this.#checkExamples(value, `${pointer}/${escape(name)}`);
  }

  /** ["GET /api/streams", …] */
  get calls() {
    return Object.entries(this.document.paths).flatMap(([path, item]) =>
      Object.keys(item).filter((name) => name !== 'parameters').map((method) => `${method.toUpperCase()} ${path}`));
  }

  /** The statuses that a call's description names. */
  statuses(call) {
    return Object.keys(this.#at(this.#pointer(call)).responses).filter((status) => status !== 'default');
  }

  /** The least role that may make a call: "nobody", "viewer", "operator" or "admin". */
  role(call) {
    const description = this.#at(this.#pointer(call));
    assert.equal(Boolean(description.security), description['x-role'] === 'nobody', `${call}: "security" and "x-role"`);
    return description['x-role'] ?? (call.startsWith('GET ') ? 'viewer' : 'operator');
  }

  /** The names of a call's parameters at one place: "query", "header", "path". */
  parameters(call, place) {
    const pointer = this.#pointer(call);
    const lists = [pointer.slice(0, pointer.lastIndexOf('/')), pointer].map((owner) => this.#at(owner).parameters ?? []);
    return lists.flat().map((parameter) => (parameter.$ref ? this.#at(parameter.$ref) : parameter))
      .filter((parameter) => parameter.in === place).map((parameter) => parameter.name);
  }

  /** Throws unless the description of a call allows the body of a request. */
  holdRequest(call, body) {
    const pointer = this.#follow(`${this.#pointer(call)}/requestBody`);
    this.#hold(body, `${pointer}/content/application~1json/schema`, `the request of ${call}`);
  }

  /** Throws unless a response is what the description of a call says. */
  holdResponse(call, {status, headers, body}) {
    const what = `${call}: ${status}`;
    const {responses} = this.#at(this.#pointer(call));
    const key = status in responses ? String(status) : 'default';
    assert.ok(key in responses && (key !== 'default' || status >= 400), `${what} is not described`);
    const pointer = this.#follow(`${this.#pointer(call)}/responses/${key}`);
    const response = this.#at(pointer);
    for (const name of Object.keys(response.headers ?? {}))
      this.#holdHeader(headers.get(name), this.#follow(`${pointer}/headers/${name}`), `${what}: ${name}`);
    const type = headers.get('content-type')?.split(';')[0];
    if (!response.content) return assert.equal(type, undefined, `${what} has a body of ${type}`);
    assert.ok(type in response.content, `${what} is described as ${Object.keys(response.content)}, not as ${type}`);
    const value = /\bjson$/.test(type) ? JSON.parse(body) : body;
    if (response.content[type].schema) this.#hold(value, `${pointer}/content/${escape(type)}/schema`, what);
  }

  /** Throws unless a value is what one of the document's schemas describes. */
  holdSchema(value, name) {
    this.#hold(value, `#/components/schemas/${name}`, name);
  }

  #holdHeader(value, pointer, what) {
    const header = this.#at(pointer);
    if (value === null) return assert.ok(!header.required, `${what} is missing`);
    this.#hold(value, `${pointer}/schema`, what);
  }

  #hold(value, pointer, what) {
    const validate = this.ajv.getSchema(`${base}openapi.yaml${encodeURI(pointer)}`);
    assert.ok(validate, `No schema at ${pointer}`);
    if (validate(value)) return;
    const shown = JSON.stringify(value).slice(0, 2000);
    assert.fail(`${what}: ${this.ajv.errorsText(validate.errors)} ${JSON.stringify(validate.errors.map((e) => e.params))} in ${shown}`);
  }

  #pointer(call) {
    const [method, path] = call.split(' ');
    const item = this.document.paths[path];
    assert.ok(item?.[method.toLowerCase()], `${call} is not described`);
    return `#/paths/${escape(path)}/${method.toLowerCase()}`;
  }

  #at(pointer) {
    return pointer.split('/').slice(1)
      .reduce((node, name) => node?.[name.replaceAll('~1', '/').replaceAll('~0', '~')], this.document);
  }

  #follow(pointer) {
    const {$ref} = this.#at(pointer) ?? assert.fail(`Nothing at ${pointer}`);
    return $ref ? this.#follow($ref) : pointer;
  }
}
