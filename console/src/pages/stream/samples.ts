import {type Signal, useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {get} from '../../api/client';
import type {Series, SeriesName} from '../../api/types';
import type {StreamState} from '../../state/streams';

/** Figures of the last hour side by side; times in seconds of the server's clock. */
export interface Samples {
  times: number[];
  series: Record<SeriesName, (number | null)[]>;
}

export const seriesNames: SeriesName[] = ['speed', 'fps', 'bitrate', 'cpu', 'memory', 'viewers'];

const stepSeconds = 10;
const kept = 360;

/** The samples of the server's answer. */
export function readSamples({to, step, series}: Series): Samples {
  const end = Date.parse(to) / 1000;
  const count = series.speed.length;
  return {times: series.speed.map((_, index) => end - (count - 1 - index) * step), series};
}

/** The samples with one more, an hour of them at most. */
export function addSample(samples: Samples, time: number, values: Partial<Record<SeriesName, number | null>>): Samples {
  const last = <Value>(list: Value[], value: Value) => [...list, value].slice(-kept);
  return {
    times: last(samples.times, time),
    series: Object.fromEntries(
      seriesNames.map((name) => [name, last(samples.series[name], values[name] ?? null)]),
    ) as Samples['series'],
  };
}

// A page that was not seen has slept: what it missed is asked for.
const isContinued = (samples: Samples, time: number) => time - (samples.times.at(-1) ?? 0) < 2.5 * stepSeconds;

/** The last hour of a stream, continued by the live figures. */
export function useSamples(state: StreamState): Signal<Samples | null> {
  const samples = useSignal<Samples | null>(null);
  useEffect(() => {
    let offset = 0;
    const read = async () => {
      const answer = await get<Series>(`/api/streams/${state.id}/series`);
      offset = Date.parse(answer.to) - Date.now();
      samples.value = readSamples(answer);
    };
    const step = () => {
      if (document.hidden) return;
      const time = (Date.now() + offset) / 1000;
      const known = samples.peek();
      if (!known || !isContinued(known, time)) return void read().catch(() => {});
      const runs = state.record.peek().status === 'running';
      samples.value = addSample(known, time, runs ? state.figures.peek() : {});
    };
    step();
    const timer = setInterval(step, stepSeconds * 1000);
    return () => clearInterval(timer);
  }, [state, samples]);
  return samples;
}
