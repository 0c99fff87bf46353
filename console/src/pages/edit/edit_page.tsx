import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {ApiError} from '../../api/client';
import {go} from '../../state/router';
import {texts} from '../../texts';
import {type Document, difference, format, parse, unfinished} from './document';
import {check, readStored, type Stored, save, useDraft} from './draft';
import {Editor, Tabs} from './editor';
import {StreamForm} from './form/stream_form';
import {useCheck} from './use_check';
import {NewerPanel} from './newer_panel';
import {PreviewPanel} from './preview_panel';

/** Adds a stream, or changes the one with the id: as a form or as JSON, checked by the server while it is typed. */
export function EditPage({id}: {id?: number}) {
  const stored = useSignal<Stored | null>(null);
  const text = useSignal('');
  const failure = useSignal('');
  const newer = useSignal<Stored | null>(null);
  const draft = useDraft(id, stored, text);
  const checked = useCheck(text, (document) => check(id, stored.value, document));
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
        <Tabs />
      </div>
      <div class="columns">
        <Editor text={text.value} onInput={draft.keep}>
          {(document, change) => (
            <StreamForm
              document={document}
              findings={preview?.findings ?? []}
              timetable={preview?.timetable}
              onChange={change}
            />
          )}
        </Editor>
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
