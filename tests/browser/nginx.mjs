// nginx in front of the server, configured as packaging/nginx/weir.conf says.

import {once} from 'node:events';
import {readFileSync, writeFileSync} from 'node:fs';
import {join} from 'node:path';

import {spawnChild} from './child.mjs';
import {findPort} from './sources.mjs';
import {eventually} from './wait.mjs';

const shipped = new URL('../../packaging/nginx/weir.conf', import.meta.url);

export class Nginx {
  /** Serves the data directory of the server. */
  constructor(server) {
    this.server = server;
  }

  get origin() {
    return `http://127.0.0.1:${this.port}`;
  }

  async start() {
    this.port = await findPort();
    const at = (name) => join(this.server.directory, name);
    writeFileSync(at('weir-nginx.conf'), this.#adapt(readFileSync(shipped, 'utf8')));
    writeFileSync(at('nginx.conf'), `daemon off; pid ${at('nginx.pid')}; error_log ${at('nginx.log')};
      events {} http { access_log off; client_body_temp_path ${at('body')}; proxy_temp_path ${at('proxy')};
      fastcgi_temp_path ${at('fastcgi')}; uwsgi_temp_path ${at('uwsgi')}; scgi_temp_path ${at('scgi')};
      include ${at('weir-nginx.conf')}; }\n${process.getuid() === 0 ? 'user root;' : ''}`);
    this.child = spawnChild('/usr/sbin/nginx', ['-c', at('nginx.conf')]);
    await once(this.child, 'spawn');
    await eventually('nginx answers', 30, () => fetch(this.origin).catch(() => undefined));
  }

  stop() {
    this.child?.kill();
  }

  // What the administrator fills in.
  #adapt(text) {
    const changes = [
      ['listen 80;', `listen 127.0.0.1:${this.port};`],
      ['  listen [::]:80;\n', ''],
      ['127.0.0.1:8080', `127.0.0.1:${this.server.port}`],
      ['/var/lib/weir', join(this.server.directory, 'data')],
    ];
    for (const [from, to] of changes) {
      if (!text.includes(from)) throw new Error(`packaging/nginx/weir.conf no longer has "${from}"`);
      text = text.replaceAll(from, to);
    }
    return text;
  }
}
