import {type Signal, useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {post} from '../../api/client';
import {act} from '../../state/actions';
import {useAttempt} from '../../state/attempt';
import {streams} from '../../state/streams';
import {texts} from '../../texts';
import {loadProfiles, type Profile} from '../../state/profiles';
import {type Candidate, type Common, useCandidates} from './candidates';
import {type Pasted, readPasted, writePasted} from './pasted';

const most = 500;

interface Added {
  id: number;
  label: string;
}

/** Why somebody may not want it, though the server would take it. */
function doubtOf({url}: Candidate, index: number, all: Candidate[]): string {
  const first = all.findIndex((other) => other.url === url);
  if (first !== index) return texts.addMany.twice(first + 1);
  const user = [...(streams.value?.values() ?? [])].find(({record}) => record.value.inputs?.some((input) => input.url === url));
  return user ? texts.addMany.usedBy(user.record.value.label || texts.list.unnamed(user.id)) : '';
}

function Verdict({candidate, doubt}: {candidate: Candidate; doubt: string}) {
  const {findings} = candidate;
  if (findings === null) return <span class="quiet">{texts.addMany.checking}</span>;
  if (findings.length) return <span class="failure">{findings.map(({message}) => message).join('; ')}</span>;
  return doubt ? <span class="warn">{doubt}</span> : <span class="good">{texts.addMany.ready}</span>;
}

function Preview({candidates}: {candidates: Candidate[]}) {
  return (
    <div class="scroll">
      <table class="many">
        <thead>
          <tr>
            <th scope="col">#</th>
            {texts.addMany.columns.map((name) => (
              <th scope="col" key={name}>
                {name}
              </th>
            ))}
          </tr>
        </thead>
        <tbody>
          {candidates.map((candidate, index) => (
            <tr key={index}>
              <td>{index + 1}</td>
              <td>{candidate.label}</td>
              <td>
                <code>{candidate.url}</code>
              </td>
              <td>
                <Verdict candidate={candidate} doubt={doubtOf(candidate, index, candidates)} />
              </td>
            </tr>
          ))}
        </tbody>
      </table>
    </div>
  );
}

/** Adds those that the server takes, one after the other; the text keeps the lines of the others. */
async function addAll(candidates: Candidate[], starts: boolean, text: Signal<string>, added: Signal<Added[]>): Promise<void> {
  const left = [...candidates];
  const keep = () => (text.value = left.map(writePasted).join('\n'));
  const ids: number[] = [];
  try {
    for (const candidate of candidates.filter(({findings}) => findings?.length === 0)) {
      const {id} = await post<{id: number}>('/api/streams', candidate.document);
      ids.push(id);
      added.value = [...added.value, {id, label: candidate.label}];
      left.splice(left.indexOf(candidate), 1);
    }
  } finally {
    keep();
  }
  const refusal = starts && ids.length ? await act('start', ids) : '';
  if (refusal) throw new Error(refusal);
}

function CommonFields({common, profiles}: {common: Signal<Common>; profiles: Profile[]}) {
  return (
    <div class="fields">
      <label>
        {texts.addMany.profile}
        <select
          value={common.value.profile}
          onChange={(event) => (common.value = {...common.value, profile: event.currentTarget.value})}
        >
          <option value="">{texts.form.noProfile}</option>
          {profiles.map(({id, name}) => (
            <option key={id} value={String(id)}>
              {name}
            </option>
          ))}
        </select>
      </label>
      <label>
        {texts.addMany.tags}
        <input
          value={common.value.tags}
          onInput={(event) => (common.value = {...common.value, tags: event.currentTarget.value})}
        />
      </label>
    </div>
  );
}

function Outcome({added}: {added: Added[]}) {
  if (added.length === 0) return null;
  return (
    <div role="status">
      <p class="good">{texts.addMany.added(added.length)}</p>
      <ul class="links">
        {added.map(({id, label}) => (
          <li key={id}>
            <a href={`/streams/${id}`} data-page>
              {label}
            </a>
          </li>
        ))}
      </ul>
    </div>
  );
}

const read = (text: string): Pasted[] => readPasted(text).slice(0, most + 1);

/** Adds a stream for each pasted address, after a look at what would be added. */
export function AddManyPage() {
  const text = useSignal('');
  const common = useSignal<Common>({profile: '', tags: ''});
  const starts = useSignal(true);
  const added = useSignal<Added[]>([]);
  const profiles = useSignal<Profile[]>([]);
  const {failure, busy, attempt} = useAttempt();
  const pasted = read(text.value);
  const isTooLong = pasted.length > most;
  const candidates = useCandidates(isTooLong ? [] : pasted, common.value);
  const ready = candidates.value.filter(({findings}) => findings?.length === 0).length;
  useEffect(() => {
    void attempt(async () => {
      profiles.value = await loadProfiles();
    });
  }, []);
  return (
    <form
      class="panel add-many"
      onSubmit={(event) => {
        event.preventDefault();
        void attempt(() => addAll(candidates.value, starts.value, text, added));
      }}
    >
      <h1>{texts.addMany.title}</h1>
      <label>
        {texts.addMany.addresses}
        <textarea
          class="pasted"
          rows={8}
          spellcheck={false}
          placeholder={texts.addMany.placeholder}
          value={text}
          onInput={(event) => (text.value = event.currentTarget.value)}
        />
      </label>
      <p class="quiet">{texts.addMany.hint}</p>
      <CommonFields common={common} profiles={profiles.value} />
      {isTooLong && <p class="failure">{texts.addMany.tooMany(most)}</p>}
      {candidates.value.length > 0 && <Preview candidates={candidates.value} />}
      <p>
        <label>
          <input
            type="checkbox"
            checked={starts.value}
            onChange={(event) => (starts.value = event.currentTarget.checked)}
          />{' '}
          {texts.addMany.start}
        </label>
      </p>
      <div class="buttons">
        <button type="submit" class="primary" disabled={busy.value || ready === 0}>
          {texts.addMany.add(ready)}
        </button>
        <a class="button" href="/" data-page>
          {texts.actions.cancel}
        </a>
      </div>
      <p class="failure" role="alert">
        {failure}
      </p>
      <Outcome added={added.value} />
    </form>
  );
}
