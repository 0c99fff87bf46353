import {parseArgs} from 'node:util';

/** {program, runs} of `NAME_test.mjs PROGRAM [--runs N]`; PROGRAM is the server. */
export function readCommandLine() {
  const options = {runs: {type: 'string', default: '1'}};
  const {values, positionals} = parseArgs({allowPositionals: true, options});
  const program = positionals[0] ?? process.env.WEIR_PROGRAM;
  if (!program || !(Number(values.runs) > 0)) {
    console.error('Usage: NAME_test.mjs PROGRAM [--runs N], or PROGRAM in the environment as WEIR_PROGRAM');
    process.exit(2);
  }
  return {program, runs: Number(values.runs)};
}
