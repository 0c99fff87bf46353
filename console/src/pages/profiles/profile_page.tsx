import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {get, patch, post, remove} from '../../api/client';
import {ConfirmDialog, confirm} from '../../parts/confirm';
import {useAttempt} from '../../state/attempt';
import type {Profile} from '../../state/profiles';
import {go} from '../../state/router';
import {mayOperate} from '../../state/session';
import {texts} from '../../texts';
import {type Document, difference, format, parse} from '../edit/document';
import {Editor, Tabs} from '../edit/editor';
import type {Preview} from '../edit/preview';
import {PreviewPanel} from '../edit/preview_panel';
import {useCheck} from '../edit/use_check';
import {ApplyPanel} from './apply_panel';
import {ProfileForm} from './profile_form';

const pathOf = (id: number | undefined) => (id === undefined ? '/api/profiles' : `/api/profiles/${id}`);

/** The profile as its next edit finds it: with what was not applied yet. */
function toEdit(profile: Profile | null): Document {
  const {id: _, draft, users: __, ...published} = profile ?? {id: 0, users: []};
  return (draft as Document | undefined) ?? published;
}

const changeOf = (id: number | undefined, stored: Profile | null, document: Document) =>
  id === undefined ? document : difference(toEdit(stored), document);

/** Adds a profile, or edits the draft of the one with the id. */
export function ProfilePage({id}: {id?: number}) {
  const stored = useSignal<Profile | null>(null);
  const text = useSignal(id === undefined ? format({}) : '');
  const saved = useSignal('');
  const {failure, busy, attempt} = useAttempt();
  const checked = useCheck(text, (document) => {
    const form = changeOf(id, stored.value, document);
    return id === undefined ? post<Preview>(`${pathOf(id)}?check=1`, form) : patch<Preview>(`${pathOf(id)}?check=1`, form);
  });
  const read = () =>
    attempt(async () => {
      stored.value = await get<Profile>(pathOf(id));
      text.value = format(toEdit(stored.value));
    });
  useEffect(() => {
    if (id !== undefined) void read();
  }, [id]);
  const save = () =>
    attempt(async () => {
      const form = changeOf(id, stored.value, parse(text.value) as Document);
      if (id === undefined) return go(`/profiles/${(await post<{id: number}>(pathOf(id), form)).id}`);
      await patch(pathOf(id), form);
      saved.value = texts.profiles.saved;
      await read();
    });
  const drop = async () => {
    if (!(await confirm(texts.profiles.askDelete(stored.value?.name ?? ''), texts.actions.delete))) return;
    if (await attempt(() => remove(pathOf(id)))) go('/profiles');
  };
  const preview = text.value === format({}) ? null : checked.value;
  if (id !== undefined && !stored.value) return <p class="notice">{failure.value || texts.loading}</p>;
  return (
    <>
      <form
        class="edit"
        noValidate
        onSubmit={(event) => {
          event.preventDefault();
          void save();
        }}
      >
        <div class="head">
          <h1>{stored.value?.name ?? texts.profiles.addTitle}</h1>
          <Tabs />
        </div>
        <div class="columns">
          <Editor
            text={text.value}
            onInput={(typed) => {
              text.value = typed;
              saved.value = '';
            }}
          >
            {(document, change) => (
              <ProfileForm document={document} findings={preview?.findings ?? []} onChange={change} />
            )}
          </Editor>
          <div class="beside">
            <PreviewPanel preview={preview} isNew={false} />
            <p class="failure" role="alert">
              {failure}
            </p>
            <p class="good" role="status">
              {saved}
            </p>
            {mayOperate.value && (
              <div class="buttons saving">
                <button type="submit" class="primary" disabled={busy.value || !preview?.accepted}>
                  {id === undefined ? texts.profiles.add : texts.profiles.saveDraft}
                </button>
                <a class="button" href="/profiles" data-page>
                  {texts.actions.cancel}
                </a>
                {id !== undefined && (
                  <button type="button" onClick={() => void drop()}>
                    {texts.actions.delete}
                  </button>
                )}
              </div>
            )}
            {stored.value && mayOperate.value && <ApplyPanel profile={stored.value} onDone={() => void read()} />}
          </div>
        </div>
      </form>
      <ConfirmDialog />
    </>
  );
}
