import {useSignal} from '@preact/signals';
import {useRef} from 'preact/hooks';
import {post} from '../../api/client';
import type {Finding} from '../../api/types';
import {confirm} from '../../parts/confirm';
import {useAttempt} from '../../state/attempt';
import {load, streams} from '../../state/streams';
import {texts} from '../../texts';
import {changes, type List, lists, nameRecord, type Outcome, readTitles} from './imported';

const words = texts.backup;
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

/** A row for each record that the import touches. */
function rowsOf(outcome: Outcome, content: unknown) {
  const knownLabel = (list: List, id: number | string) =>
    list === 'streams' ? streams.value?.get(Number(id))?.record.value.label : '';
  return lists.flatMap((list) => {
    const titles = readTitles(content, list);
    return changes
      .filter((change) => change !== 'unchanged')
      .flatMap((change) =>
        outcome[list][change].map((id) => ({
          name: `${words.one[list]} ${id}`,
          change: words.changes[change],
          title: titles.get(`${id}`) ?? knownLabel(list, id),
        })),
      );
  });
}

function Changes({outcome, content}: {outcome: Outcome; content: unknown}) {
  const rows = rowsOf(outcome, content);
  const heading = outcome.dry_run ? words.would : words.did;
  return (
    <>
      <div role="status">
        <h3>{heading}</h3>
      </div>
      {rows.length > 0 && (
        <div class="list-window" role="region" aria-label={heading} tabIndex={0}>
          <table class="many">
            <tbody>
              {rows.map(({name, change, title}) => (
                <tr key={name}>
                  <th scope="row">{name}</th>
                  <td>{change}</td>
                  <td>{title}</td>
                </tr>
              ))}
            </tbody>
          </table>
        </div>
      )}
      <p class="quiet">{words.unchanged(lists.map((list) => words.count[list](outcome[list].unchanged.length)))}</p>
    </>
  );
}

function Findings({findings, content}: {findings: Finding[]; content: unknown}) {
  return (
    <>
      <p class="failure" role="alert">
        {words.refused(findings.length)}
      </p>
      <div class="list-window" role="region" aria-label={words.findings} tabIndex={0}>
        <ul class="items">
          {findings.map(({key, message}) => (
            <li key={key + message}>
              {nameRecord(content, key)} <code>{key}</code> <span class="failure">{message}</span>
            </li>
          ))}
        </ul>
      </div>
    </>
  );
}

function parse(text: string): unknown {
  try {
    return JSON.parse(text);
  } catch (error) {
    throw new Error(words.notJson((error as Error).message));
  }
}

/** A file or pasted text: choosing one takes the other away. */
function Source({onText}: {onText(text: string): void}) {
  const file = useRef<HTMLInputElement>(null);
  const pasted = useSignal('');
  const take = async (chosen: File | undefined) => {
    pasted.value = '';
    onText((await chosen?.text()) ?? '');
  };
  const paste = (text: string) => {
    if (file.current) file.current.value = '';
    pasted.value = text;
    onText(text);
  };
  return (
    <>
      <label>
        {words.file}
        <input
          ref={file}
          type="file"
          accept=".json,application/json"
          onChange={(event) => void take(event.currentTarget.files?.[0])}
        />
      </label>
      <label class="wide">
        {words.paste}
        <textarea rows={3} spellcheck={false} value={pasted} onInput={(event) => paste(event.currentTarget.value)} />
      </label>
    </>
  );
}

function Mode({onMode}: {onMode(mode: string): void}) {
  return (
    <label>
      {words.mode}
      <select onChange={(event) => onMode(event.currentTarget.value)}>
        {Object.entries(words.modes).map(([value, name]) => (
          <option key={value} value={value}>
            {name}
          </option>
        ))}
      </select>
    </label>
  );
}

/** What is to be imported, and what the server says to it; both are forgotten when something else is chosen. */
function useImport() {
  const text = useSignal('');
  const mode = useSignal('merge');
  const content = useSignal<unknown>(null);
  const outcome = useSignal<Outcome | null>(null);
  const {failure, findings, busy, attempt} = useAttempt();
  const forget = () => {
    outcome.value = null;
    findings.value = [];
    failure.value = '';
  };
  const choose = (chosen: {text?: string; mode?: string}) => {
    forget();
    text.value = chosen.text ?? text.value;
    mode.value = chosen.mode ?? mode.value;
  };
  const send = (isDry: boolean) =>
    attempt(async () => {
      forget();
      content.value = parse(text.value);
      outcome.value = await post<Outcome>(`/api/import?mode=${mode.value}${isDry ? '&dry_run=1' : ''}`, content.value);
      if (!isDry) await load();
    });
  return {text, content, outcome, failure, findings, busy, choose, send};
}

function Import() {
  const {text, content, outcome, failure, findings, busy, choose, send} = useImport();
  const run = async () => {
    const removed = lists.reduce((sum, list) => sum + (outcome.value?.[list].removed.length ?? 0), 0);
    if (await confirm(words.ask(removed), words.import)) await send(false);
  };
  return (
    <>
      <fieldset class="fields" disabled={busy.value}>
        <Source onText={(chosen) => choose({text: chosen})} />
        <Mode onMode={(chosen) => choose({mode: chosen})} />
        <button type="button" disabled={!text.value} onClick={() => void send(true)}>
          {words.tryIt}
        </button>
        <button type="button" class="primary" disabled={!outcome.value?.dry_run} onClick={() => void run()}>
          {words.import}
        </button>
      </fieldset>
      {findings.value.length > 0 ? (
        <Findings findings={findings.value} content={content.value} />
      ) : (
        <p class="failure" role="alert">
          {failure}
        </p>
      )}
      {outcome.value && <Changes outcome={outcome.value} content={content.value} />}
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
