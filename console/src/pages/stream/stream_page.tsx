import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {post} from '../../api/client';
import {ConfirmDialog, confirm} from '../../parts/confirm';
import {Player} from '../../parts/player';
import {StateBadge} from '../../parts/state_badge';
import {type Action, act} from '../../state/actions';
import {now} from '../../state/clock';
import {formatBitrate, formatNumber, formatSince} from '../../state/format';
import {go} from '../../state/router';
import {mayOperate} from '../../state/session';
import {isStale, refresh, type StreamState, streams} from '../../state/streams';
import {findTrouble} from '../../state/trouble';
import {texts} from '../../texts';
import {Charts} from './charts';
import {Command} from './command';
import {History} from './history';
import {LogView} from './log_view';
import {countViewers, Inputs, Media, Outputs, Viewers} from './parts';
import {TimelineStrip} from './timeline_strip';

function Actions({state, name}: {state: StreamState; name: string}) {
  const refusal = useSignal('');
  const run = async (action: Action) => {
    const question = action === 'start' ? null : texts.actions.askOne[action](name);
    if (question && !(await confirm(question, texts.actions[action]))) return;
    refusal.value = await act(action, [state.id]);
    if (action === 'delete' && !refusal.value) go('/');
  };
  const duplicate = async () => {
    try {
      const {id} = await post<{id: number}>(`/api/streams/${state.id}/copy`);
      go(`/streams/${id}/edit`);
    } catch (error) {
      refusal.value = (error as Error).message;
    }
  };
  const isStopped = state.record.value.status === 'stopped';
  const possible: Action[] = isStopped ? ['start', 'delete'] : ['stop', 'restart'];
  return (
    <div class="buttons">
      <span class="failure" role="alert">
        {refusal}
      </span>
      <a class="button" href={`/streams/${state.id}/edit`} data-page>
        {texts.edit.edit}
      </a>
      <button type="button" onClick={() => void duplicate()}>
        {texts.edit.duplicate}
      </button>
      {possible.map((action) => (
        <button type="button" key={action} onClick={() => void run(action)}>
          {texts.actions[action]}
        </button>
      ))}
    </div>
  );
}

function Figures({state}: {state: StreamState}) {
  const figures = state.figures.value;
  const record = state.record.value;
  const runs = record.status === 'running';
  const names = texts.stream.figures;
  const shown: [string, string][] = [
    [names.speed, runs ? formatNumber(figures.speed, 2, '×') : '–'],
    [names.fps, runs ? formatNumber(figures.fps, 1, 'fps') : '–'],
    [names.bitrate, runs ? formatBitrate(figures.bitrate) : '–'],
    [names.cpu, runs ? formatNumber(figures.cpu, 0, '%') : '–'],
    [names.memory, runs ? formatNumber(figures.memory, 0, 'MiB') : '–'],
    [names.viewers, formatNumber(figures.viewers ?? 0)],
    [names.onAir, formatNumber(record.history?.on_air_percent, 2, '%')],
  ];
  return (
    <dl class={isStale.value ? 'figures old' : 'figures'}>
      {shown.map(([name, value]) => (
        <div key={name}>
          <dt>{name}</dt>
          <dd>{value}</dd>
        </div>
      ))}
    </dl>
  );
}

/** Where the server publishes the stream for this page, or why there is no picture. */
function Picture({state}: {state: StreamState}) {
  const playing = useSignal(false);
  const record = state.record.value;
  const address = record.url_info?.outputs.find((url) => new URL(url).pathname.startsWith(`/${record.id}/`));
  if (record.status === 'stopped') return <p class="player overlay">{texts.stream.noPicture.stopped}</p>;
  if (!address) return <p class="player overlay">{texts.stream.noPicture.noHls}</p>;
  if (playing.value) return <Player playlist={new URL(address).pathname} />;
  return (
    <button type="button" class="player overlay" onClick={() => (playing.value = true)}>
      {record.preview && record.status === 'running' && <img src={record.preview} alt="" />}
      <span>{texts.stream.play}</span>
    </button>
  );
}

function Head({state}: {state: StreamState}) {
  const record = state.record.value;
  const name = record.label || texts.list.unnamed(record.id);
  const trouble = findTrouble(record, state.figures.value, (now.value - state.loaded.value) / 1000);
  useEffect(() => {
    document.title = `${name} – ${texts.brand}`;
  }, [name]);
  // Viewers come and go without an entry in the journal.
  const viewers = state.figures.value.viewers ?? 0;
  useEffect(() => {
    if (viewers !== countViewers(record)) void refresh(record.id);
  }, [viewers]);
  return (
    <div class="head">
      <div>
        <h1>{name}</h1>
        <p>
          <StateBadge record={record} />{' '}
          <span class="quiet">{texts.stream.since(formatSince(record.cycle?.since, now.value))}</span>{' '}
          {trouble && <span class={`sentence rank${trouble.rank}`}>{trouble.sentence}</span>}
        </p>
        {record.pending?.length > 0 && <p class="warn">{texts.stream.pending(record.pending.join(', '))}</p>}
      </div>
      {mayOperate.value && <Actions state={state} name={name} />}
    </div>
  );
}

export function StreamPage({id}: {id: number}) {
  if (!streams.value) return <p class="notice">{texts.loading}</p>;
  const state = streams.value.get(id);
  if (!state) return <h1 class="notice">{texts.notFound}</h1>;
  return (
    <article class="stream">
      <Head state={state} />
      <div class="columns">
        <div>
          <Picture state={state} />
          <Figures state={state} />
          <TimelineStrip id={id} />
        </div>
        <div>
          <Inputs record={state.record.value} />
          <Outputs record={state.record.value} />
          <Media record={state.record.value} />
          <Viewers record={state.record.value} />
        </div>
      </div>
      <Charts state={state} />
      <History id={id} />
      {mayOperate.value && <Command id={id} />}
      <LogView id={id} />
      <ConfirmDialog />
    </article>
  );
}
