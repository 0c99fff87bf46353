import {useSignal} from '@preact/signals';
import {post, remove} from '../../api/client';
import {confirm, confirmWithNumber} from '../../parts/confirm';
import {useAttempt} from '../../state/attempt';
import type {Profile} from '../../state/profiles';
import {streams} from '../../state/streams';
import {texts} from '../../texts';

interface Result {
  id: number;
  ok: boolean;
  changed?: string[];
  pending?: string[];
  error?: string;
}

const defaultInterval = 3;
const longestInterval = 3600;

const nameOf = (id: number) => streams.value?.get(id)?.record.value.label || texts.list.unnamed(id);

function describe({error, changed = [], pending = []}: Result): string {
  if (error) return error;
  if (changed.length === 0) return texts.profiles.unchanged;
  const waits = pending.length ? ` · ${texts.profiles.pending(pending.join(', '))}` : '';
  return texts.profiles.changed(changed.join(', ')) + waits;
}

function Results({results}: {results: Result[]}) {
  return (
    <div role="status">
      {results.length > 0 && <h3>{texts.profiles.results}</h3>}
      <ul class="items">
        {results.map((result) => (
          <li key={result.id} class={result.ok ? '' : 'failure'}>
            <b>{nameOf(result.id)}</b> {describe(result)}
          </li>
        ))}
      </ul>
    </div>
  );
}

function Users({ids}: {ids: number[]}) {
  return (
    <>
      <h2>{texts.profiles.users}</h2>
      {ids.length === 0 && <p class="quiet">{texts.profiles.noUsers}</p>}
      <ul class="links">
        {ids.map((id) => (
          <li key={id}>
            <a href={`/streams/${id}`} data-page>
              {nameOf(id)}
            </a>{' '}
            <span class="quiet">{streams.value?.get(id)?.record.value.status}</span>
          </li>
        ))}
      </ul>
    </>
  );
}

/** Who has the profile, and what becomes of its draft. */
export function ApplyPanel({profile, onDone}: {profile: Profile; onDone(): void}) {
  const results = useSignal<Result[]>([]);
  const {failure, findings, busy, attempt} = useAttempt();
  const {users} = profile;
  const running = users.filter((id) => streams.value?.get(id)?.record.value.status === 'running').length;
  const path = `/api/profiles/${profile.id}`;
  const apply = async (form: {restart: boolean; interval?: number}) => {
    const done = await attempt(async () => {
      results.value = (await post<{results: Result[]}>(`${path}/apply`, form)).results;
    });
    if (done) onDone();
  };
  const applyOnly = async () => {
    if (await confirm(texts.profiles.askApply(users.length), texts.profiles.apply)) await apply({restart: false});
  };
  const applyAndRestart = async () => {
    const field = {label: texts.glance.interval, value: defaultInterval, max: longestInterval};
    const question = texts.profiles.askRestart(users.length, running);
    const interval = await confirmWithNumber(question, texts.profiles.applyAndRestart, field);
    if (interval !== null) await apply({restart: true, interval});
  };
  const drop = async () => {
    if (!(await confirm(texts.profiles.askDrop, texts.profiles.drop))) return;
    if (await attempt(() => remove(`${path}/draft`))) onDone();
  };
  return (
    <section class="panel">
      <Users ids={users} />
      <h2>{texts.profiles.draft}</h2>
      <p class="quiet">{profile.draft ? texts.profiles.draftHint : texts.profiles.noDraft}</p>
      {profile.draft && (
        <div class="buttons">
          <button type="button" disabled={busy.value} onClick={() => void applyOnly()}>
            {texts.profiles.apply}
          </button>
          <button type="button" disabled={busy.value} onClick={() => void applyAndRestart()}>
            {texts.profiles.applyAndRestart}
          </button>
          <button type="button" disabled={busy.value} onClick={() => void drop()}>
            {texts.profiles.drop}
          </button>
        </div>
      )}
      <p class="failure" role="alert">
        {findings.value.length ? findings.value.map(({message}) => message).join('; ') : failure}
      </p>
      <Results results={results.value} />
    </section>
  );
}
