import {useSignal} from '@preact/signals';
import {post} from '../../api/client';
import {confirm} from '../../parts/confirm';
import {useAttempt} from '../../state/attempt';
import {load} from '../../state/streams';
import {texts} from '../../texts';

const words = texts.backup;
const lists = ['streams', 'profiles', 'webhooks'] as const;
const changes = ['added', 'changed', 'removed', 'unchanged'] as const;

type Outcome = {dry_run: boolean} & Record<(typeof lists)[number], Record<(typeof changes)[number], (number | string)[]>>;

function Export() {
  const secrets = useSignal(false);
  return (
    <>
      <p class="quiet">{words.exportHint}</p>
      <p>
        <label>
          <input
            type="checkbox"
            checked={secrets}
            onChange={(event) => (secrets.value = event.currentTarget.checked)}
          />{' '}
          {words.secrets}
        </label>
      </p>
      <a class="button" href={`/api/export${secrets.value ? '?secrets=1' : ''}`} download>
        {words.export}
      </a>
    </>
  );
}

function Changes({outcome}: {outcome: Outcome}) {
  const describe = (ids: (number | string)[]) => (ids.length ? ids.map((id) => `#${id}`).join(', ') : words.nothing);
  return (
    <div role="status">
      <h3>{outcome.dry_run ? words.would : words.did}</h3>
      <div class="scroll">
        <table class="many">
          <thead>
            <tr>
              <td />
              {changes.map((change) => (
                <th scope="col" key={change}>
                  {words.changes[change]}
                </th>
              ))}
            </tr>
          </thead>
          <tbody>
            {lists.map((list) => (
              <tr key={list}>
                <th scope="row">{words.lists[list]}</th>
                {changes.map((change) => (
                  <td key={change}>{describe(outcome[list][change])}</td>
                ))}
              </tr>
            ))}
          </tbody>
        </table>
      </div>
    </div>
  );
}

function parse(text: string): unknown {
  try {
    return JSON.parse(text);
  } catch (error) {
    throw new Error(words.notJson((error as Error).message));
  }
}

function Import() {
  const text = useSignal('');
  const mode = useSignal<'merge' | 'replace'>('merge');
  const outcome = useSignal<Outcome | null>(null);
  const {failure, findings, busy, attempt} = useAttempt();
  const send = (isDry: boolean) =>
    attempt(async () => {
      outcome.value = null;
      const query = `mode=${mode.value}${isDry ? '&dry_run=1' : ''}`;
      outcome.value = await post<Outcome>(`/api/import?${query}`, parse(text.value));
      if (!isDry) await load();
    });
  const run = async () => {
    const removed = lists.reduce((sum, list) => sum + (outcome.value?.[list].removed.length ?? 0), 0);
    if (await confirm(words.ask(removed), words.import)) await send(false);
  };
  const take = async (file: File | undefined) => {
    outcome.value = null;
    text.value = (await file?.text()) ?? '';
  };
  return (
    <>
      <div class="fields">
        <label>
          {words.file}
          <input
            type="file"
            accept=".json,application/json"
            onChange={(event) => void take(event.currentTarget.files?.[0])}
          />
        </label>
        <label>
          {words.mode}
          <select
            value={mode}
            onChange={(event) => {
              mode.value = event.currentTarget.value as 'merge' | 'replace';
              outcome.value = null;
            }}
          >
            {Object.entries(words.modes).map(([value, name]) => (
              <option key={value} value={value}>
                {name}
              </option>
            ))}
          </select>
        </label>
        <button type="button" disabled={busy.value || !text.value} onClick={() => void send(true)}>
          {words.tryIt}
        </button>
        <button type="button" class="primary" disabled={busy.value || !outcome.value?.dry_run} onClick={() => void run()}>
          {words.import}
        </button>
      </div>
      <p class="failure" role="alert">
        {findings.value.length === 0 && failure}
      </p>
      <ul class="failure items">
        {findings.value.map(({key, message}) => (
          <li key={key + message}>
            <code>{key}</code> {message}
          </li>
        ))}
      </ul>
      {outcome.value && <Changes outcome={outcome.value} />}
    </>
  );
}

/** Everything as one file, and back; what an import would do is seen before. */
export function Backup() {
  return (
    <section class="panel">
      <h2>{words.title}</h2>
      <Export />
      <h3>{words.import}</h3>
      <Import />
    </section>
  );
}
