import {spawn} from 'node:child_process';

/** Spawns a program that does not outlive the test, however that ends. */
export function spawnChild(program, parameters, options = {}) {
  return spawn('setpriv', ['--pdeathsig', 'KILL', program, ...parameters], {stdio: 'ignore', ...options});
}
