import type {Figures} from '../../api/types';
import {CopyButton} from '../../parts/copy_button';
import {StateBadge} from '../../parts/state_badge';
import {Strip} from '../../parts/strip';
import {Thumbnail} from '../../parts/thumbnail';
import {now} from '../../state/clock';
import {formatBitrate, formatNumber, formatSince, unknown} from '../../state/format';
import {isStale, type StreamState} from '../../state/streams';
import {useTimeline} from '../../state/timelines';
import {texts} from '../../texts';
import {Sentence} from './sentence';

export const rowHeight = 60;
const timelineMilliseconds = 180_000;

function Input({state}: {state: StreamState}) {
  const {cycle, url_info: info} = state.record.value;
  const index = cycle?.input ?? info?.input_index ?? null;
  if (index === null || state.record.value.status === 'stopped') return <>{unknown}</>;
  return (
    <span title={info?.inputs[index] ?? ''} class={cycle?.preferred === false ? 'warn' : ''}>
      #{index}
      {cycle?.preferred === false && <small>⚠ {texts.glance.notPreferred}</small>}
    </span>
  );
}

function Day({id}: {id: number}) {
  const timeline = useTimeline(id, timelineMilliseconds);
  return timeline && <Strip timeline={timeline} />;
}

const figureColumns = 5;

function RunningFigures({figures}: {figures: Figures}) {
  return (
    <>
      <td class="number column-speed">{formatNumber(figures.speed, 2)}</td>
      <td class="number column-fps">{formatNumber(figures.fps, 1)}</td>
      <td class="number column-bitrate">{formatBitrate(figures.bitrate)}</td>
      <td class="number column-cpu">{formatNumber(figures.cpu, 0, '%')}</td>
      <td class="number column-memory">{formatNumber(figures.memory, 0, 'MiB')}</td>
    </>
  );
}

interface RowProps {
  state: StreamState;
  top: number;
  selected: boolean;
  onSelect(selected: boolean): void;
}

/** A stream in the list. While it does not run, what is wrong has the room of the figures. */
export function Row({state, top, selected, onSelect}: RowProps) {
  const record = state.record.value;
  const name = record.label || texts.list.unnamed(record.id);
  const runs = record.status === 'running';
  const address = record.url_info?.outputs[0];
  return (
    <tr
      class={isStale.value ? 'row old' : 'row'}
      style={{transform: `translateY(${top}px)`}}
      aria-rowindex={top / rowHeight + 2}
    >
      <td class="column-select">
        <input
          type="checkbox"
          checked={selected}
          aria-label={texts.list.select(name)}
          onChange={(event) => onSelect(event.currentTarget.checked)}
        />
      </td>
      <td class="column-state">
        <StateBadge record={record} />
      </td>
      <td class="column-picture">
        <Thumbnail state={state} />
      </td>
      <td class="name column-label" colSpan={runs ? 1 : 1 + figureColumns}>
        <a href={`/streams/${record.id}`} data-page>
          {name}
        </a>
        <Sentence state={state} />
      </td>
      {runs && <RunningFigures figures={state.figures.value} />}
      <td class="number column-input">
        <Input state={state} />
      </td>
      <td class="column-day">
        <Day id={record.id} />
      </td>
      <td class="number column-viewers">{formatNumber(state.figures.value.viewers ?? 0)}</td>
      <td class="number column-since">{formatSince(record.cycle?.since, now.value)}</td>
      <td class="column-copy">{address && <CopyButton text={address} />}</td>
    </tr>
  );
}
