#!/usr/bin/env node
// Drives every call of the real server, with the real FFmpeg, and holds each answer against docs/openapi.yaml:
// api_test.mjs PROGRAM.

import assert from 'node:assert/strict';
import {readFileSync, readdirSync, writeFileSync} from 'node:fs';
import {createServer} from 'node:http';
import {once} from 'node:events';
import {join} from 'node:path';

import {readCommandLine} from '../browser/command_line.mjs';
import {eventually} from '../browser/wait.mjs';
import {WeirServer} from '../browser/weir_server.mjs';
import {ApiClient} from './client.mjs';
import {ApiDocument} from './document.mjs';
import {makeReference} from './reference.mjs';

const repository = new URL('../..', import.meta.url).pathname;

const demo = {
  label: 'Demo',
  tags: ['news'],
  input: {0: {url: 'testsrc2=size=320x180:rate=25[out0];sine=sample_rate=48000[out1]', format: 'lavfi', re: true}},
  video: {codec: 'libx264', preset: 'ultrafast', bitrate: 300},
  audio: {codec: 'aac', bitrate: 64},
  output: {0: {protocol: 'hls', playlist_name: 'index.m3u8', segment_time: 1, list_size: 4}, 1: {protocol: 'http', filename: 'live.ts'}},
};
const fault = {'audio.bitrate': 'fast'};
const missing = {id: 99, file: 'index.m3u8', filename: 'live.ts', link: 7, name: 'nobody'};

async function readDocument(server) {
  const read = async (path) => (await fetch(server.origin + path)).text();
  const schemas = {};
  for (const name of ['schema/stream', 'schema/profile']) schemas[name] = JSON.parse(await read(`/api/${name}`));
  return new ApiDocument(await read('/api/openapi.yaml'), schemas);
}

async function askServer(api) {
  for (const call of ['/healthz', '/readyz', '/metrics',
    '/api/version', '/api/system', '/api/stats', '/api/stats?gpu=0']) await api.call(`GET ${call}`);
  for (const name of ['openapi.yaml', 'schema/stream', 'schema/profile']) {
    const {headers} = await api.call(`GET /api/${name}`);
    assert.equal(headers.get('content-encoding'), 'gzip', name);
    await api.call(`GET /api/${name}`, {status: 304, headers: {'If-None-Match': headers.get('etag')}});
  }
  const {body: encoders} = await api.call('GET /api/encoders');
  assert.ok(['aac', 'mpeg2video', 'webvtt'].every((known) => encoders.some(({name}) => name === known)), JSON.stringify(encoders));
  await api.call('DELETE /api/system/longest', {status: 204});
  await api.call('GET /api/probe?url=nothing', {status: 400});
  await api.call('POST /api/probe', {status: 400, body: {url: 'file:///etc/passwd'}});
}

/** The id of a stream that is added as nobody does it. */
async function addStream(api) {
  await api.call('POST /api/streams?check=1', {body: demo});
  await api.call('POST /api/streams?check=1', {body: fault});
  for (const body of [fault, '{', '[]']) await api.call('POST /api/streams', {status: 400, body});
  const headers = {'Idempotency-Key': 'one'};
  const added = await api.call('POST /api/streams', {status: 201, body: {...demo, vidoe: 1}, headers});
  assert.equal(added.body.warnings[0].key, 'vidoe');
  const again = await api.call('POST /api/streams', {status: 201, body: {...demo, vidoe: 1}, headers});
  assert.deepEqual(again.body, added.body);
  await api.call('POST /api/streams', {status: 422, body: demo, headers});
  return added.body.id;
}

async function editStream(api, path) {
  const {headers} = await api.call('GET /api/streams/{id}/config', {path});
  const tag = headers.get('etag');
  await api.call('GET /api/streams/{id}/config', {path, status: 304, headers: {'If-None-Match': tag}});
  const changed = await api.call('PATCH /api/streams/{id}', {path, body: {label: 'News'}, headers: {'If-Match': tag}});
  assert.notEqual(changed.headers.get('etag'), tag);
  const newer = await api.call('PATCH /api/streams/{id}', {path, status: 412, body: {label: 'Late'}, headers: {'If-Match': tag}});
  assert.equal(newer.body.document.label, 'News');
  const kept = await api.call('DELETE /api/streams/{id}', {path, status: 412, headers: {'If-Match': tag}});
  assert.equal(kept.body.document.label, 'News');
  await api.call('PATCH /api/streams/{id}', {path, status: 400, body: fault});
  for (const body of [{'audio.bitrate': 96}, fault]) await api.call('PATCH /api/streams/{id}?check=1', {path, body});
}

/** Everything that can be read of a stream, in whatever state it is. */
async function readStream(api, path) {
  for (const part of ['', '/log', '/log?tail=1&all=1&plain=1', '/config', '/urls', '/urls?protocols=hls', '/series', '/series?names=speed,viewers',
    '/history', '/history?kind=added&cause=exited&before=9&after=0&limit=2', '/timeline', '/timeline?hours=1', '/links'])
    await api.call(`GET /api/streams/{id}${part}`, {path});
  for (const part of ['/log?tail=x', '/series?names=x', '/history?limit=0', '/timeline?hours=0'])
    await api.call(`GET /api/streams/{id}${part}`, {path, status: 400});
  for (const list of ['', '?tag=news&tag=hd', '?broken=1']) await api.call(`GET /api/streams${list}`);
}

async function watch(api, path) {
  const hls = (file, status = 200, headers = {}) => api.call('GET /{id}/{file}', {path: {...path, file}, status, headers});
  const playlist = await eventually('a segment', 30, async () => {
    const answer = await fetch(`${api.origin}/${path.id}/playlist_0.m3u8`);
    return answer.ok && answer.text();
  });
  const segment = /^playlist_0_\d+\.ts$/m.exec(playlist)[0];
  for (const file of ['index.m3u8', 'playlist_0.m3u8', segment]) await hls(file);
  await hls(segment, 206, {Range: 'bytes=0-187'});
  await hls(segment, 416, {Range: 'bytes=99999999-'});
  await api.call('OPTIONS /{id}/{file}', {path: {...path, file: segment}, status: 204});
  await api.call('GET /{id}/access', {path, status: 204});
  await api.call('GET /stream/{id}/{filename}', {path: {...path, filename: 'live.ts'}, live: 'G'});
  const picture = await api.call('GET /api/streams/{id}/thumbnail.jpg', {path});
  const known = {'If-None-Match': picture.headers.get('etag')};
  await api.call('GET /api/streams/{id}/thumbnail.jpg', {path, status: 304, headers: known});
  await api.call(`GET /api/probe?url=${api.origin}/${path.id}/${segment}`);
  await api.call('POST /api/probe', {body: {url: `${api.origin}/${path.id}/${segment}`, format: 'mpegts'}});
}

function checkEvents({document}, events) {
  const entries = [...events.matchAll(/^event: journal\ndata: (.*)$/gm)].map(([, data]) => JSON.parse(data));
  assert.ok(entries.length > 0, events);
  for (const entry of entries) document.holdSchema(entry, 'Entry');
}

async function runStream(api, path) {
  await api.call('POST /api/streams/{id}/start', {path});
  await watch(api, path);
  const client = {filename: 'index.m3u8', addr: '192.0.2.7'};
  await api.call('POST /api/streams/{id}/clients', {path, body: {...client, timeout: 60}});
  await api.call('POST /api/streams/{id}/clients', {path, status: 400, body: {...client, addr: 7}});
  await readStream(api, path);
  await api.call('DELETE /api/streams/{id}/clients', {path, body: client});
  await api.call('DELETE /api/streams/{id}/clients', {path, status: 400, body: '{'});
  await api.call('GET /api/streams/{id}/log?follow=1', {path, live: 'Stream #0'});
  await api.call(`GET /api/events?streams=${path.id}`, {live: 'event: figures', headers: {'Last-Event-ID': '1'}});
  await api.call('GET /api/events?streams=x', {status: 400});
  const changed = await api.call('PATCH /api/streams/{id}', {path, body: {'audio.bitrate': 96}});
  assert.deepEqual(changed.body.pending, ['audio.bitrate']);
  await api.call('DELETE /api/streams/{id}', {path, status: 409});
  const events = api.call('GET /api/events', {live: '"kind":"running"'});
  await api.call('POST /api/streams/{id}/restart', {path});
  checkEvents(api, (await events).body);
  await eventually('an end', 20, async () => (await api.call('GET /api/streams/{id}', {path})).body.cycle.last_end);
  await api.call('POST /api/streams/{id}/stop', {path});
  await eventually('the stop', 20, async () => (await api.call('GET /api/streams/{id}', {path})).body.status === 'stopped');
  await readStream(api, path);
  await api.call('DELETE /api/streams/{id}/log', {path, status: 204});
}

async function useLinks(api, path) {
  const all = 'POST /api/streams/{id}/links';
  const link = (await api.call(all, {path, status: 201, body: {expires: 600, name: 'Press'}})).body;
  for (const body of [{expires: 0}, {expires: 1, unknown: 1}]) await api.call(all, {path, status: 400, body});
  await api.call('GET /api/streams/{id}/links', {path});
  await api.call('PATCH /api/streams/{id}', {path, body: {access: 'link'}});
  for (const call of ['GET /{id}/{file}', 'OPTIONS /{id}/{file}', 'GET /{id}/access', 'GET /stream/{id}/{filename}'])
    await api.call(call, {path: {...missing, ...path}, status: 403});
  await api.call('DELETE /api/streams/{id}/links/{link}', {path: {...path, link: link.id}, status: 204});
}

async function useBatch(api, id) {
  const {body: copy} = await api.call('POST /api/streams/{id}/copy', {path: {id}, status: 201, body: {label: 'Copy'}});
  await api.call('POST /api/streams/{id}/copy', {path: {id}, status: 400, body: fault});
  const ids = [String(copy.id), 99];
  for (const [name, more] of [['patch', {form: {label: 'Changed'}}], ['start', {interval: 0}], ['restart', {log_format: '{id}'}], ['stop', {}]]) {
    const {body} = await api.call(`POST /api/batch/${name}`, {body: {ids, ...more}});
    assert.deepEqual(body.results.map(({ok}) => ok), [true, false], name);
    await api.call(`POST /api/batch/${name}`, {status: 400, body: {}});
  }
  await eventually('the stop', 20, async () => (await api.call('GET /api/stats')).body.stopped === 2);
  await api.call('POST /api/batch/delete', {body: {ids}});
  await api.call('POST /api/batch/delete', {status: 400, body: {ids: [0.5]}});
}

/** An input that never comes. */
async function startInVain(api) {
  const {id} = (await api.call('POST /api/streams', {status: 201, body: {...demo, input: {0: {url: 'udp://127.0.0.1:9'}}}})).body;
  const path = {...missing, id};
  await api.call('POST /api/streams/{id}/start', {path});
  for (const call of ['GET /{id}/{file}', 'GET /stream/{id}/{filename}']) await api.call(call, {path, status: 503});
  await api.call('POST /api/streams/{id}/stop', {path});
  await eventually('the stop', 20, async () => (await api.call('GET /api/streams/{id}', {path})).body.status === 'stopped');
  await api.call('DELETE /api/streams/{id}', {path, status: 204});
}

async function startWithoutInput(api) {
  const {id} = (await api.call('POST /api/streams', {status: 201, body: {input: {}, output: {}}})).body;
  await api.call('POST /api/streams/{id}/start', {path: {id}, status: 400});
  await api.call('DELETE /api/streams/{id}', {path: {id}, status: 204});
}

async function useProfiles(api, stream) {
  const form = {name: 'Radio', 'video.codec': 'none', audio: {codec: 'aac', bitrate: 128}};
  const {id} = (await api.call('POST /api/profiles', {status: 201, body: form})).body;
  await api.call('POST /api/profiles', {status: 400, body: fault});
  await api.call('GET /api/profiles');
  await api.call('GET /api/profiles/{id}', {path: {id}});
  await api.call('PATCH /api/profiles/{id}', {path: {id}, body: {'audio.bitrate': 96}});
  await api.call('PATCH /api/profiles/{id}', {path: {id}, status: 400, body: fault});
  await api.call('DELETE /api/profiles/{id}/draft', {path: {id}, status: 204});
  for (const body of [fault, {'audio.bitrate': 96}]) {
    const {body: checked} = await api.call('PATCH /api/profiles/{id}?check=1', {path: {id}, body});
    assert.equal(checked.accepted, body !== fault);
  }
  await api.call('DELETE /api/profiles/{id}/draft', {path: {id}, status: 404});
  await api.call('POST /api/profiles?check=1', {body: {name: 'Checked', ...fault}});
  await api.call('PATCH /api/streams/{id}', {path: stream, body: {profile: String(id)}});
  const {body: drafted} = await api.call('PATCH /api/profiles/{id}', {path: {id}, body: {'audio.bitrate': 112}});
  assert.deepEqual(drafted.pending, ['audio.bitrate']);
  await api.call('GET /api/profiles/{id}', {path: {id}});
  await api.call('POST /api/profiles/{id}/apply', {path: {id}, status: 400, body: {interval: -1}});
  const {body: applied} = await api.call('POST /api/profiles/{id}/apply', {path: {id}, body: {restart: true}});
  assert.deepEqual(applied.results[0].changed, ['audio.bitrate']);
  await api.call('DELETE /api/profiles/{id}', {path: {id}, status: 409});
  await api.call('PATCH /api/streams/{id}', {path: stream, body: {profile: ''}});
  await api.call('DELETE /api/profiles/{id}', {path: {id}, status: 204});
}

async function useWebhooks(api) {
  const receiver = createServer((_, response) => response.end()).listen(0, '127.0.0.1');
  await once(receiver, 'listening');
  const form = {url: `http://127.0.0.1:${receiver.address().port}/`, secret: 'secret', kinds: ['ended'], causes: ['exited']};
  const {id} = (await api.call('POST /api/webhooks', {status: 201, body: form})).body;
  await api.call('POST /api/webhooks', {status: 400, body: {url: 'ftp://127.0.0.1'}});
  await api.call('PATCH /api/webhooks/{id}', {path: {id}, body: {kinds: []}});
  await api.call('PATCH /api/webhooks/{id}', {path: {id}, status: 400, body: {kinds: ['x']}});
  const sent = await api.call('POST /api/webhooks/{id}/test', {path: {id}});
  assert.deepEqual(sent.body, {delivered: true, status: 200});
  receiver.close();
  await api.call('POST /api/webhooks/{id}/test', {path: {id: 'settings-1'}});
  await api.call('GET /api/webhooks');
  await api.call('GET /api/webhooks/{id}', {path: {id}});
  await api.call('PATCH /api/webhooks/{id}', {path: {id: 'settings-1'}, status: 409, body: {kinds: []}});
  await api.call('DELETE /api/webhooks/{id}', {path: {id: 'settings-1'}, status: 409});
  await api.call('DELETE /api/webhooks/{id}', {path: {id}, status: 204});
}

async function useBackups(api) {
  const {body: all} = await api.call('GET /api/export?secrets=1');
  await api.call('POST /api/import', {status: 400, body: {...all, format: 7}});
  const {body} = await api.call('POST /api/import?mode=replace&dry_run=1', {body: all});
  assert.ok(body.streams.unchanged.length === all.streams.length && body.profiles.unchanged.length === all.profiles.length, JSON.stringify(body));
}

async function readHistory(api, id) {
  await api.call(`GET /api/history?stream=${id}&kind=ended,stopped&cause=operator&before=1000&after=1&limit=5`);
  await api.call('GET /api/history');
  await api.call('GET /api/history?cause=x', {status: 400});
}

/** The cookie of a session of a new admin, who is the first user. */
async function logIn(api) {
  const user = {name: 'anna', role: 'admin', password: 'correct horse'};
  const login = (status, form) => api.call('POST /api/login', {status, body: form});
  await login(409, {name: 'anna', password: 'x'});
  await api.call('POST /api/users', {status: 400, body: {...user, password: 'short'}});
  await api.call('POST /api/users', {status: 409, body: {...user, role: 'viewer'}});
  await api.call('POST /api/users', {status: 201, body: user});
  await login(400, {});
  const [first, second] = await Promise.all([login(200, {name: 'anna', password: user.password}), login(429, user)]);
  assert.ok(Number(second.headers.get('retry-after')) > 0);
  await login(401, {name: 'anna', password: 'wrong'});
  return first.headers.get('set-cookie').split(';')[0];
}

async function manageUsers(api) {
  assert.deepEqual((await api.call('GET /api/me')).body, {name: 'anna', role: 'admin', by: 'session'});
  const anna = {path: {name: 'anna'}};
  await api.call('PATCH /api/users/{name}', {...anna, status: 409, body: {role: 'viewer'}});
  await api.call('PATCH /api/users/{name}', {...anna, status: 400, body: {role: 'x'}});
  await api.call('DELETE /api/users/{name}', {...anna, status: 409});
  const bert = {path: {name: 'bert'}};
  await api.call('POST /api/users', {status: 201, body: {name: 'bert', role: 'viewer', password: 'battery staple'}});
  await api.call('PATCH /api/users/{name}', {...bert, body: {role: 'operator'}});
  await api.call('GET /api/users');
  await api.call('DELETE /api/users/{name}', {...bert, status: 204});
}

async function makeTokens(api) {
  const tokens = {};
  for (const name of ['viewer', 'operator']) {
    const form = {name, role: name, expires: 600};
    tokens[name] = {Authorization: `Bearer ${(await api.call('POST /api/tokens', {status: 201, body: form})).body.token}`};
    await api.call('POST /api/tokens', {status: 409, body: form});
  }
  await api.call('POST /api/tokens', {status: 400, body: {name: 'x', role: 'viewer', expires: 0}});
  await api.call('GET /api/tokens');
  return tokens;
}

/** Each call by somebody who has less than each role: exactly those with the described role are let in. */
async function checkRoles(api, tokens) {
  const roles = ['nobody', 'viewer', 'operator'];
  for (const call of api.document.calls) {
    const needed = api.document.role(call);
    for (const role of roles) {
      const {status, headers} = await api.knock(call, missing, role === 'nobody' ? {} : tokens[role]);
      const isIn = needed === 'nobody' || (needed !== 'admin' && roles.indexOf(role) >= roles.indexOf(needed));
      // Of a missing stream the one says 403 to all; to the other the request comes from the server's own machine.
      if (call === 'GET /{id}/access') assert.equal(status, 403, call);
      else if (isIn || call === 'GET /metrics') assert.ok(![401, 403].includes(status), `${call} by ${role}: ${status}`);
      else assert.equal(status, role === 'nobody' ? 401 : 403, `${call} by ${role}`);
      assert.equal(headers.has('www-authenticate'), status === 401, `${call} by ${role}`);
    }
  }
}

async function useAccess(api) {
  assert.equal((await api.call('GET /api/me')).body.by, 'loopback');
  api.identity = {Cookie: await logIn(api)};
  await manageUsers(api);
  const tokens = await makeTokens(api);
  const session = api.identity;
  api.identity = {};
  await checkRoles(api, tokens);
  api.identity = session;
  for (const name of Object.keys(tokens)) await api.call('DELETE /api/tokens/{name}', {path: {name}, status: 204});
}

/** Each call with an id that nothing has. */
async function askForMissing(api) {
  for (const call of api.document.calls.filter((one) => api.document.statuses(one).includes('404')))
    await api.call(call, {path: missing, status: 404, body: call.startsWith('GET') || call.startsWith('OPTIONS') ? undefined : {}});
}

function checkDocuments({ajv}) {
  const profiles = readdirSync(join(repository, 'profiles')).map((name) => ['profile', join('profiles', name)]);
  for (const [kind, file] of [...profiles, ['stream', 'scripts/demo_stream.json']]) {
    const validate = ajv.getSchema(`http://weir/api/schema/${kind}`);
    assert.ok(validate(JSON.parse(readFileSync(join(repository, file), 'utf8'))), `${file}: ${ajv.errorsText(validate.errors)}`);
    assert.ok(!validate({...demo, name: 'x', audio: {codec: 'aac', bitrate: 'fast'}}), `the schema of a ${kind} allows a bitrate "fast"`);
  }
}

const server = new WeirServer(readCommandLine().program);
const settings = join(server.directory, 'webhooks.json');
writeFileSync(settings, JSON.stringify([{url: 'http://127.0.0.1:9/'}]));
try {
  await server.start(['--webhooks', settings, '--webhook-private-addresses']);
  const document = await readDocument(server);
  await document.check();
  checkDocuments(document);
  const api = new ApiClient(server.origin, document);
  await askServer(api);
  const path = {id: await addStream(api)};
  await editStream(api, path);
  await runStream(api, path);
  await useBatch(api, path.id);
  await startInVain(api);
  await startWithoutInput(api);
  await useProfiles(api, path);
  await api.checkMethods({...missing, ...path});
  await useLinks(api, path);
  await useWebhooks(api);
  await useBackups(api);
  await readHistory(api, path.id);
  await api.call('DELETE /api/streams/{id}', {path, status: 204});
  await useAccess(api);
  await askForMissing(api);
  await api.call('POST /api/logout', {status: 204});
  assert.deepEqual(api.unseen(), [], 'answers that are described and never came');
  const reference = readFileSync(join(repository, 'docs/api.md'), 'utf8');
  assert.ok(reference === makeReference(document.document), 'docs/api.md is older than docs/openapi.yaml: tests/api/reference.mjs makes it');
} finally {
  await server.remove();
}
