import type {Figures, Output, StreamRecord} from '../api/types';
import {texts} from '../texts';
import {formatSeconds} from './format';

/** What is wrong with a stream; the lower the rank, the sooner somebody has to look. */
export interface Trouble {
  rank: number;
  sentence: string;
}

const planned = new Set(['timetable', 'operator', 'better_input', 'server_end']);

/** Restarts of the last hour that nobody asked for. */
export function countFaults(record: StreamRecord): number {
  return Object.entries(record.history?.restarts.hour ?? {})
    .filter(([cause]) => !planned.has(cause))
    .reduce((sum, [, count]) => sum + count, 0);
}

/** Seconds until the next launch; `age` is that of the record in seconds. */
function nextLaunch(record: StreamRecord, age: number): string | null {
  const seconds = record.cycle.next_launch;
  if (seconds === null) return null;
  const left = seconds - age;
  return left > 0.5 ? texts.trouble.startsIn(formatSeconds(left)) : texts.trouble.startsNow;
}

/** Without when the next launch was due at that time. */
const whatHappened = (text: string) => text.replace(/; next launch in .*$/, '');

function describeEnd(record: StreamRecord, age: number): string {
  const faults = countFaults(record);
  const parts = [
    record.cycle.last_end ? whatHappened(record.cycle.last_end.text) : texts.trouble.ended,
    faults > 1 ? texts.trouble.timesInAnHour(faults) : null,
    nextLaunch(record, age),
  ];
  return parts.filter((part) => part).join(' · ');
}

function describeOutput(output: Output): string {
  return texts.trouble.output(output.index, output.protocol, output.state, output.error ?? '');
}

/** The worst trouble of a stream, or null. `age` is the time in seconds since the record was asked for. */
export function findTrouble(record: StreamRecord, figures: Figures, age: number): Trouble | null {
  if (record.error) return {rank: 0, sentence: record.error};
  const {cycle} = record;
  if (!cycle) return null;
  if (record.status === 'stopped') {
    if (cycle.last_end?.cause === 'failed') return {rank: 0, sentence: cycle.last_end.text};
    return null;
  }
  if (cycle.state === 'restarting' || (cycle.state === 'starting' && countFaults(record) > 0))
    return {rank: 1, sentence: describeEnd(record, age)};
  const speed = figures.speed ?? record.measured.speed;
  const band = record.limits.speed;
  const min = band?.min ?? 0;
  const max = band?.max ?? Number.POSITIVE_INFINITY;
  if (band && speed !== null && speed !== undefined && (speed < min || speed > max))
    return {rank: 2, sentence: texts.trouble.speed(speed, min, max)};
  const failing = record.outputs?.find(({state}) => state === 'retrying' || state === 'failed');
  if (failing) return {rank: 3, sentence: describeOutput(failing)};
  if (cycle.state === 'waiting') return {rank: 4, sentence: texts.trouble.waiting};
  if (cycle.preferred === false) return {rank: 5, sentence: texts.trouble.notPreferred(cycle.input ?? 0)};
  return null;
}
