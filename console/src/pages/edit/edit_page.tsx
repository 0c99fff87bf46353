import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {ApiError} from '../../api/client';
import {go, query, setQuery} from '../../state/router';
import {texts} from '../../texts';
import {type Document, difference, format, isFinding, parse, unfinished} from './document';
import {readStored, type Stored, save, useCheck, useDraft} from './draft';
import {StreamForm} from './form/stream_form';
import {NewerPanel} from './newer_panel';
import type {Preview} from './preview';
import {PreviewPanel} from './preview_panel';

/** The two ways to edit, kept in step: both change the same text. */
function Tabs({isText}: {isText: boolean}) {
  const tab = (isChosen: boolean, text: string, value: string) => (
    <button type="button" aria-pressed={isChosen} onClick={() => setQuery({as: value})}>
      {text}
    </button>
  );
  return (
    <div class="views" role="group" aria-label={texts.edit.as}>
      {tab(!isText, texts.edit.asForm, '')}
      {tab(isText, texts.edit.asText, 'json')}
    </div>
  );
}

function TextEditor({text, onInput}: {text: string; onInput(text: string): void}) {
  return (
    <label>
      {texts.edit.document}
      <textarea
        spellcheck={false}
        rows={28}
        value={text}
        aria-describedby="findings"
        onInput={(event) => onInput(event.currentTarget.value)}
      />
    </label>
  );
}

function Editor({text, preview, onInput}: {text: string; preview: Preview | null; onInput(text: string): void}) {
  const isText = query.value.get('as') === 'json';
  if (isText) return <TextEditor text={text} onInput={onInput} />;
  const document = parse(text || '{}');
  if (isFinding(document)) return <p class="notice">{texts.edit.notReadable}</p>;
  return (
    <StreamForm
      document={document}
      findings={preview?.findings ?? []}
      timetable={preview?.timetable}
      onChange={(changed: Document) => onInput(format(changed))}
    />
  );
}

/** Adds a stream, or changes the one with the id: as a form or as JSON, checked by the server while it is typed. */
export function EditPage({id}: {id?: number}) {
  const stored = useSignal<Stored | null>(null);
  const text = useSignal('');
  const failure = useSignal('');
  const newer = useSignal<Stored | null>(null);
  const draft = useDraft(id, stored, text);
  const checked = useCheck(id, stored, text);
  useEffect(() => {
    const tell = (error: Error) => (failure.value = error.message);
    if (id !== undefined) void readStored(id).then((read) => (stored.value = read), tell);
  }, [id, stored, failure]);
  const submit = async (event: SubmitEvent) => {
    event.preventDefault();
    try {
      const saved = await save(id, stored.value, text.value);
      draft.forget();
      go(`/streams/${saved}`);
    } catch (error) {
      failure.value = (error as Error).message;
      if (error instanceof ApiError && error.status === 412 && id !== undefined) newer.value = await readStored(id);
    }
  };
  const join = (theirs: Stored) => {
    const mine = difference(stored.value?.document ?? {}, parse(text.value) as Document);
    const merged = Object.entries({...theirs.document, ...mine}).filter(([, value]) => value !== null);
    stored.value = theirs;
    newer.value = null;
    failure.value = '';
    draft.keep(format(Object.fromEntries(merged)));
  };
  // An empty form is not yet wrong.
  const preview = text.value === format(unfinished) ? null : checked.value;
  if (id !== undefined && !stored.value) return <p class="notice">{failure.value || texts.loading}</p>;
  return (
    <form class="edit" noValidate onSubmit={submit}>
      <div class="head">
        <h1>{id === undefined ? texts.edit.add : texts.edit.change(id)}</h1>
        {id === undefined && (
          <a href="/new/many" data-page>
            {texts.addMany.link}
          </a>
        )}
        <Tabs isText={query.value.get('as') === 'json'} />
      </div>
      <div class="columns">
        <Editor text={text.value} preview={preview} onInput={draft.keep} />
        <div class="beside">
          <PreviewPanel preview={preview} isNew={id === undefined} />
          {newer.value && stored.value && <NewerPanel stored={stored.value} newer={newer.value} onJoin={join} />}
          <p class="failure" role="alert">
            {failure}
          </p>
          <div class="buttons">
            <button type="submit" class="primary" disabled={!preview?.accepted}>
              {texts.edit.save}
            </button>
            <a class="button" href={id === undefined ? '/' : `/streams/${id}`} data-page>
              {texts.actions.cancel}
            </a>
          </div>
        </div>
      </div>
    </form>
  );
}
