// Debian's Chromium with a page of viewers. The page comes from a server of its own, so that for the streams it is one
// of another site.

import {readFile} from 'node:fs/promises';
import {once} from 'node:events';
import {createServer} from 'node:http';
import {fileURLToPath} from 'node:url';

import {chromium} from 'playwright-core';

const at = (path) => fileURLToPath(new URL(path, import.meta.url));
const files = {
  '/': [at('page/index.html'), 'text/html'],
  '/viewer.js': [at('page/viewer.js'), 'text/javascript'],
  '/hls.min.js': [at('node_modules/hls.js/dist/hls.min.js'), 'text/javascript'],
};

async function servePage() {
  const server = createServer(async (request, response) => {
    const [path, type] = files[request.url] ?? [];
    if (!path) return response.writeHead(404).end();
    response.writeHead(200, {'Content-Type': type}).end(await readFile(path));
  }).listen(0, '127.0.0.1');
  await once(server, 'listening');
  return server;
}

export class BrowserViewers {
  #pageServer;
  #browser;
  #page;
  #answers = Promise.resolve();

  /** Reports every playlist that the page gets to the checker. */
  async start(checker) {
    this.#pageServer = await servePage();
    this.#browser = await chromium.launch({
      executablePath: process.env.CHROMIUM ?? '/usr/bin/chromium',
      args: ['--no-sandbox', '--mute-audio', '--disable-background-timer-throttling', '--disable-renderer-backgrounding'],
    });
    this.#page = await this.#browser.newPage();
    this.#page.on('pageerror', (failure) => console.error('In the page:', failure.message));
    this.#page.on('response', (response) => this.#report(response, checker));
    console.log(`Chromium ${this.#browser.version()}`);
    await this.#page.goto(`http://127.0.0.1:${this.#pageServer.address().port}/`);
  }

  // In the order of the answers, whenever their texts come.
  #report(response, checker) {
    const url = response.url();
    if (!url.endsWith('.m3u8')) return;
    const at = Date.now();
    const text = response.text().catch(() => undefined); // the request was cancelled
    this.#answers = this.#answers.then(async () => {
      const playlist = {client: 'page', url, status: response.status(), text: await text, at};
      if (playlist.text !== undefined) checker.see(playlist);
    });
  }

  async stop() {
    await this.#browser?.close();
    this.#pageServer?.close();
  }

  /** A new viewer, in place of the one that has the name. */
  watch(name, url) {
    return this.#page.evaluate(([n, u]) => watch(n, u), [name, url]);
  }

  freezesSince(name, from) {
    return this.#ask(name, 'freezesSince', from);
  }

  async errors(name) {
    const errors = await this.#ask(name, 'takeErrors');
    return errors.map(({fatal, details, status}) => ({fatal, text: status ? `${details} (${status})` : details}));
  }

  state(name) {
    return this.#ask(name, 'state');
  }

  async describe(name) {
    return JSON.stringify(await this.state(name));
  }

  /** Asks for another quality than that on the screen; its height. */
  switchQuality(name) {
    return this.#ask(name, 'switchQuality');
  }

  #ask(name, method, ...values) {
    return this.#page.evaluate(([n, m, v]) => viewers[n][m](...v), [name, method, values]);
  }
}
