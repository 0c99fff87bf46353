#!/usr/bin/env node
// What an administrator does in the console: console_admin_test.mjs PROGRAM.

import assert from 'node:assert/strict';

import {chromium} from 'playwright-core';

import {readCommandLine} from './command_line.mjs';
import {single} from './streams.mjs';
import {eventually} from './wait.mjs';
import {WeirServer} from './weir_server.mjs';

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

const server = new WeirServer(readCommandLine().program);
const browser = await chromium.launch({
  executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
  args: ['--no-sandbox', '--disable-dev-shm-usage'],
});
try {
  await server.start();
  const page = await browser.newPage();
  const faults = [];
  page.on('pageerror', (error) => faults.push(error.message));
  await useProfile(page, server);
  assert.deepEqual(faults, []);
} finally {
  await browser.close();
  await server.remove();
}
