import {CopyButton} from '../../parts/copy_button';
import {StateBadge} from '../../parts/state_badge';
import {now} from '../../state/clock';
import {formatBitrate, formatNumber, formatSince, unknown} from '../../state/format';
import {isStale, type StreamState} from '../../state/streams';
import {findTrouble} from '../../state/trouble';
import {texts} from '../../texts';

export const rowHeight = 60;

/** What is wrong, counted down once a second. */
function Sentence({state}: {state: StreamState}) {
  const trouble = findTrouble(state.record.value, state.figures.value, (now.value - state.loaded.value) / 1000);
  return trouble ? (
    <span class={`sentence rank${trouble.rank}`} title={trouble.sentence}>
      {trouble.sentence}
    </span>
  ) : (
    <span class="quiet">{(state.record.value.tags ?? []).join(' · ')}</span>
  );
}

function Input({state}: {state: StreamState}) {
  const {cycle, url_info: info} = state.record.value;
  const index = cycle?.input ?? info?.input_index ?? null;
  if (index === null || state.record.value.status === 'stopped') return <>{unknown}</>;
  return (
    <span title={info?.inputs[index] ?? ''} class={cycle?.preferred === false ? 'warn' : ''}>
      #{index}
    </span>
  );
}

interface RowProps {
  state: StreamState;
  top: number;
  selected: boolean;
  onSelect(selected: boolean): void;
}

export function Row({state, top, selected, onSelect}: RowProps) {
  const record = state.record.value;
  const figures = state.figures.value;
  const name = record.label || texts.list.unnamed(record.id);
  const runs = record.status === 'running';
  const address = record.url_info?.outputs[0];
  return (
    <tr
      class={isStale.value ? 'row old' : 'row'}
      style={{transform: `translateY(${top}px)`}}
      aria-rowindex={top / rowHeight + 2}
    >
      <td class="select">
        <input
          type="checkbox"
          checked={selected}
          aria-label={texts.list.select(name)}
          onChange={(event) => onSelect(event.currentTarget.checked)}
        />
      </td>
      <td class="badge">
        <StateBadge record={record} />
      </td>
      <td class="name">
        <a href={`/streams/${record.id}`} data-page>
          {name}
        </a>
        <Sentence state={state} />
      </td>
      <td class="number">
        <Input state={state} />
      </td>
      <td class="number">{runs ? formatNumber(figures.speed, 2) : unknown}</td>
      <td class="number">{runs ? formatNumber(figures.fps, 1) : unknown}</td>
      <td class="number wide">{runs ? formatBitrate(figures.bitrate) : unknown}</td>
      <td class="number">{runs ? formatNumber(figures.cpu, 0, '%') : unknown}</td>
      <td class="number">{runs ? formatNumber(figures.memory, 0, 'MiB') : unknown}</td>
      <td class="number">{formatNumber(figures.viewers ?? 0)}</td>
      <td class="number wide">{formatSince(record.cycle?.since, now.value)}</td>
      <td class="copy">{address && <CopyButton text={address} />}</td>
    </tr>
  );
}
