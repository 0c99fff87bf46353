import type {Disk, System} from '../../api/types';
import {formatBytes, formatNumber, formatSeconds, unknown} from '../../state/format';
import {texts} from '../../texts';
import {useRenewed} from './renewed';
import {findWarnings} from './warnings';

const names = texts.system.figures;

function Warnings({system}: {system: System}) {
  const warnings = findWarnings(system);
  if (warnings.length === 0) return <p class="good">{texts.system.healthy}</p>;
  return (
    <ul class="warnings">
      {warnings.map(({isSerious, text, remedy}) => (
        <li key={text}>
          <b class={isSerious ? 'failure' : 'warn'}>{isSerious ? texts.system.serious : texts.system.notable}:</b> {text}{' '}
          <span class="quiet">{remedy}</span>
        </li>
      ))}
    </ul>
  );
}

interface Figure {
  name: string;
  value: string;
  more?: string;
}

function usedShare(total: number | null, free: number | null): string {
  return total && free !== null ? formatNumber((1 - free / total) * 100, 0, '%') : unknown;
}

const describeDisk = (name: string, {total_bytes: total, free_bytes: free, error}: Disk): Figure => ({
  name,
  value: usedShare(total, free),
  more: error ?? texts.system.free(formatBytes(free), formatBytes(total)),
});

function listFigures({processors, memory, disks, loop, descriptors, uptime_seconds: uptime}: System): Figure[] {
  const [one, five, fifteen] = processors.load ?? [];
  return [
    {
      name: `${names.load} (${texts.system.ofProcessors(processors.count)})`,
      value: formatNumber(five, 2),
      more: texts.system.loads(formatNumber(one, 2), formatNumber(fifteen, 2)),
    },
    {
      name: names.memory,
      value: usedShare(memory.total_bytes, memory.available_bytes),
      more: texts.system.available(formatBytes(memory.available_bytes), formatBytes(memory.total_bytes)),
    },
    describeDisk(names.disks.hls, disks.hls),
    describeDisk(names.disks.recordings, disks.recordings),
    {
      name: names.loop,
      value: formatNumber(loop.lag_ms, 1, 'ms'),
      more: texts.system.longest(formatNumber(loop.longest_lag_ms, 0, 'ms'), formatNumber(loop.longest_turn_ms, 0, 'ms')),
    },
    {name: names.descriptors, value: formatNumber(descriptors.open), more: texts.system.ofLimit(descriptors.limit)},
    {name: names.uptime, value: formatSeconds(uptime)},
  ];
}

function Versions({versions}: {versions: System['versions']}) {
  return (
    <dl class="versions">
      {(['weir', 'ffmpeg', 'kernel'] as const).map((name) => (
        <div key={name}>
          <dt>{texts.system.versionOf[name]}</dt>
          <dd>{versions[name] || texts.system.noFfmpeg}</dd>
        </div>
      ))}
    </dl>
  );
}

/** Figures of the machine and the server, and what they call for. */
export function Machine() {
  const {value, failure} = useRenewed<System>('/api/system');
  const system = value.value;
  if (!system) return <p class="notice">{failure.value || texts.loading}</p>;
  return (
    <section class="panel">
      <h2>{texts.system.machine}</h2>
      <p class="failure" role="alert">
        {failure.value && texts.system.old(failure.value)}
      </p>
      <Warnings system={system} />
      <dl class={`figures machine ${failure.value ? 'old' : ''}`}>
        {listFigures(system).map(({name, value, more}) => (
          <div key={name}>
            <dt>{name}</dt>
            <dd>
              {value} {more && <small>{more}</small>}
            </dd>
          </div>
        ))}
      </dl>
      <h3>{texts.system.gpus}</h3>
      {system.gpus.length === 0 && <p class="quiet">{texts.system.noGpus}</p>}
      <ul class="items">
        {system.gpus.map(({index, streams, streams_memory_mib: memory}) => (
          <li key={index}>{texts.system.gpu(index, streams, formatBytes(memory * 2 ** 20))}</li>
        ))}
      </ul>
      <h3>{texts.system.versions}</h3>
      <Versions versions={system.versions} />
    </section>
  );
}
