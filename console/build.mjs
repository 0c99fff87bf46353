#!/usr/bin/env node
// Bundles the console: build.mjs DIRECTORY. Writes index.html and assets/, each file gzipped, and manifest.txt with a line
// "path type hash" for each of them. Names of assets hold a hash of their content, so that browsers may keep them.

import {createHash} from 'node:crypto';
import {mkdirSync, readFileSync, rmSync, writeFileSync} from 'node:fs';
import {basename, dirname, extname, join} from 'node:path';
import {fileURLToPath} from 'node:url';
import {gzipSync} from 'node:zlib';
import {build} from 'esbuild';

const here = dirname(fileURLToPath(import.meta.url));
const out = process.argv[2];
if (!out) {
  console.error('Usage: build.mjs DIRECTORY');
  process.exit(2);
}

const types = {
  '.html': 'text/html; charset=utf-8',
  '.js': 'text/javascript',
  '.css': 'text/css',
  '.svg': 'image/svg+xml',
};

const result = await build({
  entryPoints: [join(here, 'src/main.tsx'), join(here, 'src/styles/console.css')],
  outdir: join(out, 'assets'),
  entryNames: '[name]-[hash]',
  chunkNames: '[name]-[hash]',
  bundle: true,
  splitting: true,
  format: 'esm',
  target: 'es2022',
  minify: true,
  jsx: 'automatic',
  jsxImportSource: 'preact',
  legalComments: 'none',
  write: false,
});

const files = new Map(result.outputFiles.map((file) => [`/assets/${basename(file.path)}`, Buffer.from(file.contents)]));
const find = (start, extension) => [...files.keys()].find((path) => path.startsWith(start) && path.endsWith(extension));
const index = readFileSync(join(here, 'index.html'), 'utf8')
  .replace('SCRIPT', find('/assets/main-', '.js'))
  .replace('STYLE', find('/assets/console-', '.css'));
files.set('/index.html', Buffer.from(index));

rmSync(out, {recursive: true, force: true});
mkdirSync(join(out, 'assets'), {recursive: true});
const lines = [];
for (const [path, content] of files) {
  writeFileSync(join(out, `${path}.gz`), gzipSync(content, {level: 9}));
  const hash = createHash('sha256').update(content).digest('hex').slice(0, 24);
  lines.push(`${path} ${hash} ${types[extname(path)]}`);
}
writeFileSync(join(out, 'manifest.txt'), `${lines.join('\n')}\n`);
