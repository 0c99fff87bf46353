#!/usr/bin/env node
// Bundles the console: build.mjs DIRECTORY. Writes its files, gzipped, and the sources that make them part of the program.
// Names of assets hold a hash of their content, so that browsers may keep them.

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

const common = {
  outdir: join(out, 'assets'),
  entryNames: '[name]-[hash]',
  chunkNames: '[name]-[hash]',
  bundle: true,
  target: 'es2022',
  minify: true,
  legalComments: 'none',
  write: false,
};
const addressOf = (file) => `/assets/${basename(file.path)}`;

const worker = await build({...common, entryPoints: [join(here, 'src/worker/events_worker.ts')], format: 'iife'});
const pages = await build({
  ...common,
  entryPoints: [join(here, 'src/main.tsx'), join(here, 'src/styles/console.css')],
  splitting: true,
  format: 'esm',
  jsx: 'automatic',
  jsxImportSource: 'preact',
  define: {eventsWorker: JSON.stringify(addressOf(worker.outputFiles[0]))},
});

const files = new Map(
  [...worker.outputFiles, ...pages.outputFiles].map((file) => [addressOf(file), Buffer.from(file.contents)]),
);
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

// The assembler takes the files in; the hash makes it do so again when one changes.
const parts = lines.map((line, index) => {
  const [path, hash] = line.split(' ');
  return `weir_console_${index}: # ${hash}\n.incbin "${join(out, `${path}.gz`)}"\nweir_console_${index}_end:\n`;
});
const names = lines.flatMap((_, index) => [`weir_console_${index}`, `weir_console_${index}_end`]);
writeFileSync(
  join(out, 'console_files.S'),
  `.section .rodata\n${names.map((name) => `.global ${name}\n`).join('')}${parts.join('')}.section .note.GNU-stack,"",@progbits\n`,
);
const rows = lines.map((line, index) => {
  const [path, hash, ...type] = line.split(' ');
  const begin = `weir_console_${index}`;
  return `      {"${path}", "${type.join(' ')}", "${hash}", {${begin}, static_cast<std::size_t>(${begin}_end - ${begin})}},\n`;
});
writeFileSync(
  join(out, 'console_files.cpp'),
  `#include "backend/web/console/console_files.h"

extern "C" {
${names.map((name) => `extern const char ${name}[];\n`).join('')}}

namespace weir {

std::span<const ConsoleFile> console_files() {
  static const ConsoleFile files[] = {
${rows.join('')}  };
  return files;
}

}  // namespace weir
`,
);
