#!/usr/bin/env node
// What an administrator does in the console: console_admin_test.mjs PROGRAM.

import assert from 'node:assert/strict';
import {createServer} from 'node:http';

import {chromium} from 'playwright-core';

import {readCommandLine} from './command_line.mjs';
import {single} from './streams.mjs';
import {eventually} from './wait.mjs';
import {WeirServer} from './weir_server.mjs';

const password = 'correct horse battery';

/** A profile is made, changed and applied; its stream is restarted with it, and it can't be deleted. */
async function useProfile(page, server) {
  await page.goto(`${server.origin}/profiles/new`);
  await page.getByRole('textbox', {name: 'Name'}).fill('House');
  const bitrate = page.locator('[id="member-video.bitrate"]');
  await bitrate.fill('fast');
  await page.locator('.field').getByText('fast is not a whole number').waitFor();
  await bitrate.fill('300');
  await page.locator('[id="member-video.preset"]').fill('ultrafast');
  await page.getByRole('button', {name: 'Add a profile'}).click();
  await page.getByRole('heading', {name: 'House'}).waitFor();
  const profile = /\d+$/.exec(page.url())[0];

  const document = {...single('unused'), label: 'News', profile};
  const {id} = await server.request('POST', '/api/streams', {...document, input: {0: document.input[1]}});
  await server.request('POST', `/api/streams/${id}/start`);
  await eventually('the stream runs', 30, async () => (await server.request('GET', `/api/streams/${id}`)).status === 'running');

  await page.goto(`${server.origin}/?profile=${profile}`);
  await page.getByRole('row', {name: 'News'}).waitFor();
  await page.getByRole('combobox', {name: 'Profile'}).getByText('House').waitFor({state: 'attached'});
  await page.goto(`${server.origin}/profiles/${profile}`);
  await page.getByRole('link', {name: 'News'}).waitFor();
  await bitrate.fill('400');
  await page.getByRole('button', {name: 'Save draft'}).click();
  await page.getByText('The draft is saved.').waitFor();
  assert.equal((await server.request('GET', `/api/streams/${id}/config`)).video.bitrate, 300);
  await page.getByRole('button', {name: 'Apply and restart'}).click();
  await page.getByText('Apply the draft to 1 stream and restart').waitFor();
  await page.getByRole('dialog').getByRole('button', {name: 'Apply and restart'}).click();
  await page.getByText('changed: video.bitrate').waitFor();
  await eventually('the restart', 30, async () => {
    const {cycle, pending} = await server.request('GET', `/api/streams/${id}`);
    return cycle.number === 2 && cycle.state === 'running' && pending.length === 0;
  });
  await page.getByRole('button', {name: 'Delete'}).click();
  await page.getByRole('dialog').getByRole('button', {name: 'Delete'}).click();
  await page.getByText(`is used by stream ${id}`).waitFor();
}

/** A dry run names what is wrong in the file, and what a right one would do; nothing is changed before the import. */
async function importFile(page, server) {
  const file = await server.request('GET', '/api/export');
  const tryIt = () => page.getByRole('button', {name: 'Dry run'}).click();
  await page.goto(`${server.origin}/system`);
  const added = {...file.streams[0], id: 7, label: 'Imported', profile: null};
  await page.getByLabel('File of an export').setInputFiles({name: 'export.json', mimeType: 'application/json',
    buffer: Buffer.from(JSON.stringify({...file, streams: [{...added, output: {0: {protocol: 'udp', hostname: 'h', port: 70000}}}]}))});
  await tryIt();
  await page.getByRole('listitem').filter({hasText: 'stream 7, Imported: streams.0.output.0.port'}).waitFor();
  assert.ok(await page.getByRole('button', {name: 'Import'}).isDisabled());
  await page.getByLabel('Or its text').fill(JSON.stringify({...file, streams: [added]}));
  await tryIt();
  await page.getByRole('row', {name: 'stream 7 added Imported'}).waitFor();
  const labels = async () => (await server.request('GET', '/api/streams')).map(({label}) => label);
  assert.deepEqual(await labels(), ['News']);
  await page.getByRole('button', {name: 'Import'}).click();
  await page.getByRole('dialog').getByRole('button', {name: 'Import'}).click();
  await page.getByText('What the import did').waitFor();
  assert.deepEqual(await labels(), ['News', 'Imported']);
}

/** A webhook is added, and its test arrives; then its receiver fails a test and an entry, and the page says so. */
async function testWebhook(page, server) {
  const kinds = [];
  let status = 204;
  const receiver = createServer((request, response) => {
    kinds.push(request.headers['x-weir-event']);
    response.writeHead(status).end();
  });
  await new Promise((resolve) => receiver.listen(0, '127.0.0.1', resolve));
  try {
    await page.getByLabel('Address').fill(`http://127.0.0.1:${receiver.address().port}/hook`);
    await page.getByText('Only some entries').click();
    await page.getByRole('group', {name: /^Kinds/}).getByLabel('changed').check();
    await page.getByRole('button', {name: 'Add webhook'}).click();
    await page.getByRole('button', {name: /^Send a test/}).click();
    await page.getByText('The test arrived: status 204.').waitFor();
    assert.deepEqual(kinds, ['test']);
    status = 500;
    await page.getByRole('button', {name: /^Send a test/}).click();
    await page.getByText('The test did not arrive: status 500').waitFor();
    await server.request('PATCH', '/api/streams/7', {label: 'Changed'});
    await page.locator('.failure').filter({hasText: /latest .*: status 500/}).waitFor();
  } finally {
    receiver.close();
    receiver.closeAllConnections();
  }
}

/** The first user is an admin, and logs in; a token that is made here opens the API until it is revoked. */
async function addUserAndToken(page, server) {
  await page.goto(`${server.origin}/users`);
  const form = page.locator('form').filter({has: page.getByRole('heading', {name: 'Add a user'})});
  await form.getByLabel('Name').fill('anna');
  await form.getByLabel('Password').fill(password);
  await form.getByRole('button', {name: 'Add user'}).click();
  await page.getByRole('button', {name: 'Log in'}).waitFor();
  await page.goto(`${server.origin}/users`);
  await page.getByLabel('Name').fill('anna');
  await page.getByLabel('Password').fill(password);
  await page.getByRole('button', {name: 'Log in'}).click();
  await page.getByRole('heading', {name: 'Make a token'}).waitFor();
  const tokens = page.locator('section').filter({has: page.getByRole('heading', {name: 'Tokens', exact: true})});
  await tokens.getByLabel('Name').fill('backup');
  await page.getByRole('button', {name: 'Make token'}).click();
  const token = await page.locator('.once code').innerText();
  const ask = async () => (await fetch(`${server.origin}/api/streams`, {headers: {Authorization: `Bearer ${token}`}})).status;
  assert.equal(await ask(), 200);
  await page.getByRole('button', {name: 'I have copied it'}).click();
  await page.getByRole('button', {name: 'Revoke backup'}).click();
  await page.getByRole('dialog').getByRole('button', {name: 'Revoke'}).click();
  await eventually('the token is refused', 10, async () => await ask() === 401);
}

const server = new WeirServer(readCommandLine().program);
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-dev-shm-usage'],
});
try {
  await server.start(['--webhook-private-addresses']);
  const page = await browser.newPage();
  const faults = [];
  page.on('pageerror', (error) => faults.push(error.message));
  await useProfile(page, server);
  await importFile(page, server);
  await testWebhook(page, server);
  await addUserAndToken(page, server);
  assert.deepEqual(faults, []);
} finally {
  await browser.close();
  await server.remove();
}
