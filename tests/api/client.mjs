// A client that holds every answer against the document, and knows what it has not asked for yet.

import assert from 'node:assert/strict';

export class ApiClient {
  #seen = new Set();
  /** Headers of each request that say who sends it. */
  identity = {};

  constructor(origin, document) {
    this.origin = origin;
    this.document = document;
  }

  /**
   * Makes a call, such as "GET /api/streams/{id}/log?tail=1", and resolves to what it answers: {status, headers, body}, the
   * body as JSON where it is that. `path` gives the parameters of the path, `status` is what has to come. Of an answer
   * without an end `live` gives the text at which to leave.
   */
  async call(target, {status = 200, path = {}, body, headers = {}, live} = {}) {
    const [call, query = ''] = target.split('?');
    this.#checkParameters(call, query, headers);
    if (body !== undefined && status < 400) this.document.holdRequest(call, body);
    const answer = await this.#send(call, path, query, {headers, body: encode(body)}, live);
    assert.equal(answer.status, status, `${target} ${JSON.stringify(path)}: ${answer.body}`);
    this.document.holdResponse(call, answer);
    this.#seen.add(`${call} ${status}`);
    // HEAD has no parts.
    if (call.startsWith('GET ') && !headers.Range) await this.#compareHead(call, path, query, headers, answer);
    const isJson = answer.headers.get('content-type')?.includes('json');
    return {...answer, body: isJson ? JSON.parse(answer.body) : answer.body};
  }

  /** The described answers that have not been seen. */
  unseen() {
    return this.document.calls.flatMap((call) => this.document.statuses(call).map((status) => `${call} ${status}`))
      .filter((answer) => !this.#seen.has(answer));
  }

  /** At each address: exactly the described methods are allowed. */
  async checkMethods(path) {
    const methods = new Map();
    for (const call of this.document.calls) {
      const [method, template] = call.split(' ');
      methods.set(template, [...methods.get(template) ?? [], method]);
    }
    for (const [template, described] of methods) {
      const {status, headers, body} = await this.#send(`PUT ${template}`, path, '', {});
      assert.equal(status, 405, `PUT ${template}`);
      this.document.holdSchema(JSON.parse(body), 'Failure');
      const allowed = headers.get('allow').split(', ').filter((method) => described.includes(method) || !['HEAD', 'OPTIONS'].includes(method));
      assert.deepEqual(allowed.sort(), described.sort(), template);
    }
  }

  /** The status and headers of a call by somebody who may or may not make it. */
  async knock(call, path, identity) {
    const {status, headers, body} = await this.#send(call, path, '', {headers: identity}, '\n');
    if (status >= 400) this.document.holdResponse(call, {status, headers, body});
    return {status, headers};
  }

  #checkParameters(call, query, headers) {
    for (const [place, names] of [['query', [...new URLSearchParams(query).keys()]], ['header', Object.keys(headers)]])
      for (const name of names)
        assert.ok(this.document.parameters(call, place).includes(name), `${call}: ${place} parameter ${name} is not described`);
  }

  async #send(call, path, query, options, live) {
    const [method, template] = call.split(' ');
    const filled = template.replace(/\{(\w+)\}/g, (_, name) => path[name] ?? assert.fail(`${call}: no ${name}`));
    const end = new AbortController();
    const response = await fetch(`${this.origin}${filled}${query && `?${query}`}`,
      {method, redirect: 'manual', signal: end.signal, ...options, headers: {...this.identity, ...options.headers}});
    const body = live ? await readUntil(response, live) : await response.text();
    end.abort();
    return {status: response.status, headers: response.headers, body};
  }

  async #compareHead(call, path, query, headers, {status, headers: expected}) {
    const head = await this.#send(call.replace('GET', 'HEAD'), path, query, {headers});
    assert.equal(head.body, '');
    assert.deepEqual([head.status, head.headers.get('content-type')], [status, expected.get('content-type')], `HEAD of ${call}`);
  }
}

const encode = (body) => (body === undefined || typeof body === 'string' ? body : JSON.stringify(body));

async function readUntil(response, text) {
  let body = '';
  const decoder = new TextDecoder('latin1');
  for await (const part of response.body ?? []) {
    body += decoder.decode(part);
    if (body.includes(text)) return body;
  }
  return body;
}
