import {type Signal, useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {ApiError, getTagged, patch, post} from '../../api/client';
import type {Finding} from '../../api/types';
import {go} from '../../state/router';
import {texts} from '../../texts';
import {type Document, difference, example, withoutServerMembers} from './document';
import {type Preview, PreviewPanel} from './preview_panel';

const checkDelay = 400;

interface Stored {
  document: Document;
  tag: string;
}

async function readStored(id: number): Promise<Stored> {
  const {value, tag} = await getTagged<Document>(`/api/streams/${id}/config`);
  return {document: withoutServerMembers(value), tag};
}

const format = (document: Document) => JSON.stringify(document, null, 2);

/** The text as a document, or what is wrong with it as JSON. */
function parse(text: string): Document | Finding {
  try {
    const value: unknown = JSON.parse(text);
    if (value !== null && typeof value === 'object' && !Array.isArray(value)) return value as Document;
    return {key: '', message: texts.edit.noMapping};
  } catch (failure) {
    return {key: '', message: (failure as Error).message};
  }
}

const isFinding = (parsed: Document | Finding): parsed is Finding =>
  typeof parsed.key === 'string' && typeof parsed.message === 'string' && Object.keys(parsed).length === 2;

const refusal = (findings: Finding[]): Preview => ({accepted: false, findings, warnings: []});

async function check(id: number | undefined, stored: Stored | null, text: string): Promise<Preview> {
  const document = parse(text);
  if (isFinding(document)) return refusal([document]);
  if (id === undefined) return post<Preview>('/api/streams?check=1', document);
  return patch<Preview>(`/api/streams/${id}?check=1`, difference(stored?.document ?? {}, document));
}

/** Saves, and returns the stream's id. */
async function save(id: number | undefined, stored: Stored | null, text: string): Promise<number> {
  const document = parse(text) as Document;
  if (id === undefined) return (await post<{id: number}>('/api/streams', document)).id;
  await patch(`/api/streams/${id}`, difference(stored?.document ?? {}, document), {'If-Match': stored?.tag ?? ''});
  return id;
}

const draftName = (id: number | undefined, stored: Stored | null) => `draft ${id ?? 'new'} ${stored?.tag ?? ''}`;

/** What was typed stays over a reload of the page, for as long as the document is the one that it began with. */
function useDraft(id: number | undefined, stored: Signal<Stored | null>, text: Signal<string>) {
  const name = draftName(id, stored.value);
  const ready = id === undefined || stored.value !== null;
  useEffect(() => {
    if (!ready) return;
    text.value = sessionStorage.getItem(name) ?? format(stored.value?.document ?? example);
  }, [name, ready, stored, text]);
  return {
    keep: (typed: string) => {
      text.value = typed;
      sessionStorage.setItem(draftName(id, stored.value), typed);
    },
    forget: () => sessionStorage.removeItem(name),
  };
}

/** Adds a stream, or changes the one with the id: its document as JSON, checked by the server while it is typed. */
export function EditPage({id}: {id?: number}) {
  const stored = useSignal<Stored | null>(null);
  const text = useSignal('');
  const preview = useSignal<Preview | null>(null);
  const failure = useSignal('');
  const newer = useSignal<Stored | null>(null);
  const draft = useDraft(id, stored, text);
  useEffect(() => {
    if (id !== undefined) void readStored(id).then((read) => (stored.value = read), (error: Error) => (failure.value = error.message));
  }, [id, stored, failure]);
  useEffect(() => {
    if (!text.value) return;
    const timer = setTimeout(() => {
      check(id, stored.value, text.value).then(
        (answer) => (preview.value = answer),
        (error: ApiError) => (preview.value = refusal(error.findings?.length ? error.findings : [{key: '', message: error.message}])),
      );
    }, checkDelay);
    return () => clearTimeout(timer);
  }, [id, text.value, stored, preview]);
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
  return (
    <form class="edit" onSubmit={submit}>
      <h1>{id === undefined ? texts.edit.add : texts.edit.change(id)}</h1>
      <div class="columns">
        <label>
          {texts.edit.document}
          <textarea
            spellcheck={false}
            rows={28}
            value={text}
            aria-describedby="findings"
            onInput={(event) => draft.keep(event.currentTarget.value)}
          />
        </label>
        <PreviewPanel preview={preview.value} />
      </div>
      {newer.value && (
        <section class="panel warn">
          <p>{texts.edit.newer}</p>
          <pre>{format(difference(stored.value?.document ?? {}, newer.value.document))}</pre>
          <button
            type="button"
            onClick={() => {
              const mine = difference(stored.value?.document ?? {}, parse(text.value) as Document);
              const merged = Object.entries({...newer.value?.document, ...mine}).filter(([, value]) => value !== null);
              stored.value = newer.value;
              newer.value = null;
              failure.value = '';
              draft.keep(format(Object.fromEntries(merged)));
            }}
          >
            {texts.edit.takeOver}
          </button>
        </section>
      )}
      <p class="failure" role="alert">
        {failure}
      </p>
      <div class="buttons">
        <button type="submit" class="primary" disabled={!preview.value?.accepted}>
          {texts.edit.save}
        </button>
        <a class="button" href={id === undefined ? '/' : `/streams/${id}`} data-page>
          {texts.actions.cancel}
        </a>
      </div>
    </form>
  );
}
