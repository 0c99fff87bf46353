import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {get} from '../../api/client';
import type {Cause, Entry} from '../../api/types';
import {formatTime} from '../../state/format';
import {latestEntry} from '../../state/streams';
import {texts} from '../../texts';

const pageSize = 50;
const grave = new Set(['ended', 'failed', 'set_aside']);

function HistoryEntry({entry}: {entry: Entry}) {
  return (
    <li class={grave.has(entry.kind) ? `entry warn ${entry.kind}` : `entry ${entry.kind}`}>
      <time dateTime={entry.time}>{formatTime(entry.time)}</time>
      <span>
        {entry.description}
        {entry.count && entry.first && (
          <span class="quiet"> · {texts.stream.timesFrom(entry.count, formatTime(entry.first))}</span>
        )}
      </span>
    </li>
  );
}

/** What happened to the stream, newest first, with new entries as they come. */
export function History({id}: {id: number}) {
  const entries = useSignal<Entry[]>([]);
  const cause = useSignal<Cause | ''>('');
  const hasMore = useSignal(false);
  const read = async (before?: number) => {
    const filter = cause.value ? `&cause=${cause.value}` : '';
    const from = before ? `&before=${before}` : '';
    const page = await get<Entry[]>(`/api/streams/${id}/history?limit=${pageSize}${filter}${from}`);
    entries.value = before ? [...entries.value, ...page] : page;
    hasMore.value = page.length === pageSize;
  };
  const latest = latestEntry.value;
  useEffect(() => {
    if (!latest || latest.stream === id) void read().catch(() => {});
  }, [id, cause.value, latest?.number]);
  const causes = [...new Set(entries.value.map((entry) => entry.cause).filter((one) => one !== undefined))];
  if (cause.value && !causes.includes(cause.value)) causes.push(cause.value);
  return (
    <section class="panel">
      <h2>{texts.stream.history}</h2>
      <fieldset class="filters">
        {(['', ...causes] as const).map((one) => (
          <button type="button" key={one} aria-pressed={one === cause.value} onClick={() => (cause.value = one)}>
            {one || texts.stream.allCauses}
          </button>
        ))}
      </fieldset>
      {entries.value.length === 0 && <p class="quiet">{texts.stream.noHistory}</p>}
      <ol class="history">
        {entries.value.map((entry) => (
          <HistoryEntry key={entry.number} entry={entry} />
        ))}
      </ol>
      {hasMore.value && (
        <button type="button" onClick={() => void read(entries.value.at(-1)?.number)}>
          {texts.stream.more}
        </button>
      )}
    </section>
  );
}
