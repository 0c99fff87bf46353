#!/usr/bin/env node
// Whether a stream with "access": "link" is watched with a valid token only, at the server and through nginx, down to the
// segments: links_test.mjs PROGRAM.

import assert from 'node:assert/strict';

import {readCommandLine} from './command_line.mjs';
import {Nginx} from './nginx.mjs';
import {single} from './streams.mjs';
import {eventually} from './wait.mjs';
import {WeirServer} from './weir_server.mjs';

const stream = {...single('udp://127.0.0.1:9'), access: 'link'};
stream.input = {0: stream.input[1]};

const status = async (url) => {
  const response = await fetch(url);
  await response.body?.cancel();
  return response.status;
};

/** The playlist's address and that of its first segment, which inherits the token. */
async function findAddresses(origin, id, token) {
  const playlist = `${origin}/${id}/${token}/playlist_0.m3u8`;
  const text = await eventually('a segment', 60, async () => {
    const response = await fetch(playlist);
    return response.ok && response.text();
  });
  const segment = new URL(/^playlist_0_\d+\.ts$/m.exec(text)[0], playlist).href;
  return [playlist, segment, `${origin}/stream/${id}/${token}/live.ts`];
}

const server = new WeirServer(readCommandLine().program);
const nginx = new Nginx(server);
try {
  await server.start();
  await nginx.start();
  const id = await server.addStream(stream);
  const link = await server.request('POST', `/api/streams/${id}/links`, {expires: 600, name: 'test'});
  for (const {origin} of [server, nginx]) {
    const addresses = await findAddresses(origin, id, link.token);
    assert.equal(addresses[1].split('/').at(-2), link.token);
    for (const address of addresses) {
      assert.equal(await status(address), 200, address);
      for (const wrong of ['', `${link.token}x/`, `${link.token.replace('.', '.1')}/`])
        assert.equal(await status(address.replace(`${link.token}/`, wrong)), 403, `${address} with "${wrong}"`);
    }
  }
  const direct = await findAddresses(server.origin, id, link.token);
  const throughNginx = await findAddresses(nginx.origin, id, link.token);
  await server.request('DELETE', `/api/streams/${id}/links/${link.id}`);
  for (const address of direct) assert.equal(await status(address), 403, `${address} after the link was revoked`);
  for (const address of throughNginx)
    await eventually(`403 of ${address} after the link was revoked`, 5, async () => (await status(address)) === 403);
} finally {
  nginx.stop();
  await server.remove();
}
