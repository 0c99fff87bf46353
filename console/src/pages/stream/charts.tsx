import {type Signal, useSignal} from '@preact/signals';
import {useEffect, useRef} from 'preact/hooks';
import type {SeriesName, StreamRecord} from '../../api/types';
import {formatBitrate, formatNumber, formatTime, unknown} from '../../state/format';
import type {StreamState} from '../../state/streams';
import {theme} from '../../state/theme';
import {timelineOf} from '../../state/timelines';
import {texts} from '../../texts';
import type {Chart, ChartData} from './chart';
import {type Samples, seriesNames, useSamples} from './samples';

const formats: Record<SeriesName, (value: number | null | undefined) => string> = {
  speed: (value) => formatNumber(value, 2, '×'),
  fps: (value) => formatNumber(value, 1, 'fps'),
  bitrate: formatBitrate,
  cpu: (value) => formatNumber(value, 0, '%'),
  memory: (value) => formatNumber(value, 0, 'MiB'),
  viewers: (value) => formatNumber(value),
};

function readBand({limits}: StreamRecord, name: SeriesName): ChartData['band'] {
  const band = name === 'speed' ? limits?.speed : null;
  return band && (band.min !== null || band.max !== null) ? {min: band.min ?? 0, max: band.max ?? 1e9} : null;
}

const readLimit = ({limits}: StreamRecord, name: SeriesName) =>
  name === 'memory' ? (limits?.memory_mib ?? null) : null;

function describe(values: (number | null)[], name: SeriesName): string {
  const known = values.filter((value) => value !== null);
  if (known.length === 0) return texts.charts.none;
  const format = formats[name];
  return texts.charts.summary(format(values.at(-1)), format(Math.min(...known)), format(Math.max(...known)));
}

function describeLimit(data: ChartData, name: SeriesName): string {
  if (data.band) return texts.charts.band(formats[name](data.band.min), formats[name](data.band.max));
  return data.limit === null ? '' : texts.charts.limit(formats[name](data.limit));
}

interface FigureProps {
  name: SeriesName;
  samples: Samples;
  state: StreamState;
  cursor: Signal<number | null>;
}

function useChart(data: ChartData, cursor: Signal<number | null>) {
  const place = useRef<HTMLDivElement>(null);
  const chart = useRef<Chart | null>(null);
  const latest = useRef(data);
  latest.current = data;
  const colors = theme.value;
  useEffect(() => {
    let gone = false;
    void import('./chart').then(({drawChart}) => {
      if (gone || !place.current) return;
      chart.current = drawChart(place.current, latest.current, (index) => {
        cursor.value = index;
      });
    });
    return () => {
      gone = true;
      chart.current?.destroy();
      chart.current = null;
    };
  }, [colors, cursor]);
  useEffect(() => chart.current?.show(data));
  return place;
}

function ChartFigure({name, samples, state, cursor}: FigureProps) {
  const record = state.record.value;
  const values = samples.series[name];
  const data: ChartData = {
    times: samples.times,
    values,
    restarts: (timelineOf(state.id).value?.restarts ?? []).map(({time}) => Date.parse(time) / 1000),
    band: readBand(record, name),
    limit: readLimit(record, name),
  };
  const place = useChart(data, cursor);
  const index = cursor.value;
  const time = index === null ? undefined : samples.times[index];
  const summary = describe(values, name);
  const limit = describeLimit(data, name);
  const title = texts.stream.figures[name];
  return (
    <figure class="chart">
      <figcaption>
        <b>{title}</b>{' '}
        <span>
          {time === undefined || index === null
            ? summary
            : `${formatTime(new Date(time * 1000).toISOString())}: ${formats[name](values[index]) || unknown}`}
        </span>
        <span class="quiet">{limit}</span>
      </figcaption>
      <div ref={place} class="plot" role="img" aria-label={`${title}: ${summary}${limit && `, ${limit}`}`} />
    </figure>
  );
}

/** The figures of the last hour, with the stream's limits and restarts. */
export function Charts({state}: {state: StreamState}) {
  const samples = useSamples(state);
  const cursor = useSignal<number | null>(null);
  if (!samples.value) return null;
  return (
    <section class="panel">
      <h2>{texts.charts.title}</h2>
      <p class="quiet">{texts.charts.legend}</p>
      <div class="charts">
        {seriesNames.map((name) => (
          <ChartFigure key={name} name={name} samples={samples.value as Samples} state={state} cursor={cursor} />
        ))}
      </div>
    </section>
  );
}
