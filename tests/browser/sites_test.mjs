#!/usr/bin/env node
// What pages of other origins can do to a server through the browser of somebody who may use it: nothing. Without users,
// and with one who is logged in: sites_test.mjs PROGRAM.

import assert from 'node:assert/strict';
import {spawnSync} from 'node:child_process';
import {once} from 'node:events';
import {createServer} from 'node:http';
import {join} from 'node:path';

import {chromium} from 'playwright-core';

import {readCommandLine} from './command_line.mjs';
import {single} from './streams.mjs';
import {WeirServer} from './weir_server.mjs';

const form = JSON.stringify({...single('udp://127.0.0.1:9'), input: {0: {url: 'udp://127.0.0.1:9'}}});

/** In the page: what is read, and what requests that need no permission give. */
async function attack(streams, body) {
  const read = await fetch(streams, {credentials: 'include'}).then((r) => r.text(), () => undefined);
  const typed = {method: 'POST', body, credentials: 'include', headers: {'Content-Type': 'application/json'}};
  const written = await fetch(streams, typed).then((r) => r.status, () => undefined);
  await fetch(streams, {method: 'POST', body, credentials: 'include', mode: 'no-cors'});
  return {read, written};
}

/** In the page: the body is one name of a field, as text/plain leaves it. */
function submitForm([streams, body]) {
  const element = document.createElement('form');
  Object.assign(element, {method: 'POST', action: streams, enctype: 'text/plain'});
  const input = Object.assign(document.createElement('input'), {name: body.replace(/}$/, ',"x":"'), value: '"}'});
  element.append(input);
  document.body.append(element);
  element.submit();
}

async function expectNothing(context, server, site) {
  const streams = `${server.origin}/api/streams`;
  const page = await context.newPage();
  const posts = [];
  page.on('response', (r) => r.request().method() === 'POST' && posts.push(r.status()));
  await page.goto(site);
  const result = await page.evaluate(`(${attack})(${JSON.stringify(streams)}, ${JSON.stringify(form)})`);
  assert.deepEqual(result, {read: undefined, written: undefined}, `${site} reads or writes`);
  const [answer] = await Promise.all([page.waitForResponse(streams), page.evaluate(submitForm, [streams, form])]);
  assert.equal(answer.status(), 403, `a form of ${site}`);
  assert.deepEqual(posts, [403, 403], `POSTs of ${site}`);
  await page.close();
}

async function expectOwnRequestsOnly(context, server, sites) {
  const streams = `${server.origin}/api/streams`;
  // The same without a foreign page: what is refused there is the page's fault.
  assert.equal((await context.request.post(streams, {data: form, headers: {'Content-Type': 'text/plain'}})).status(), 201);
  const before = await (await context.request.get(streams)).text();
  for (const site of sites) await expectNothing(context, server, site);
  assert.equal(JSON.parse(await (await context.request.get(streams)).text()).length, JSON.parse(before).length);
  // A name that is made to point to the server.
  const page = await context.newPage();
  const rebound = await page.goto(`http://rebound.example:${server.port}/api/streams`);
  assert.equal(rebound.status(), 403);
  assert.doesNotMatch(await rebound.text(), /udp/);
  await page.close();
}

const server = new WeirServer(readCommandLine().program);
const foreign = createServer((_, response) => response.setHeader('Content-Type', 'text/html').end('<body></body>'));
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox', '--host-resolver-rules=MAP *.example 127.0.0.1'],
});
try {
  await server.start();
  await once(foreign.listen(0, '127.0.0.1'), 'listening');
  const {port} = foreign.address();
  // Of another port, to which the browser sends the same cookies, and of another site.
  const sites = [`http://127.0.0.1:${port}/`, `http://foreign.example:${port}/`];
  const context = await browser.newContext();
  await expectOwnRequestsOnly(context, server, sites);

  const account = {name: 'anna', password: 'correct horse'};
  const add = ['user', 'add', account.name, '--role', 'admin', '--data', join(server.directory, 'data')];
  assert.equal(spawnSync(server.program, add, {input: `${account.password}\n`}).status, 0);
  assert.equal((await context.request.get(`${server.origin}/api/streams`)).status(), 401);
  assert.equal((await context.request.post(`${server.origin}/api/login`, {data: account})).status(), 200);
  await expectOwnRequestsOnly(context, server, sites);
} finally {
  await browser.close();
  foreign.close();
  await server.remove();
}
