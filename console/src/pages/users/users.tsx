import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {get, patch, post, remove} from '../../api/client';
import type {User} from '../../api/types';
import {confirm} from '../../parts/confirm';
import {RoleField} from '../../parts/role_field';
import {useAttempt} from '../../state/attempt';
import {identity} from '../../state/session';
import {texts} from '../../texts';

const userPath = (name: string) => `/api/users/${encodeURIComponent(name)}`;

function AddForm({isFirst, onDone}: {isFirst: boolean; onDone(name: string): void}) {
  const {failure, busy, attempt} = useAttempt();
  const submit = async (event: SubmitEvent) => {
    event.preventDefault();
    const form = event.currentTarget as HTMLFormElement;
    const user = Object.fromEntries(new FormData(form));
    if (!(await attempt(() => post('/api/users', user)))) return;
    form.reset();
    onDone(String(user.name));
  };
  return (
    <form class="fields" onSubmit={submit}>
      <h3>{texts.users.addTitle}</h3>
      <label>
        {texts.users.name}
        <input name="name" autocomplete="off" required />
      </label>
      <RoleField value={isFirst ? 'admin' : 'viewer'} />
      <label>
        {texts.users.password}
        <input name="password" type="password" autocomplete="new-password" required />
      </label>
      <button type="submit" class="primary" disabled={busy}>
        {texts.users.add}
      </button>
      <p class="failure" role="alert">
        {failure}
      </p>
    </form>
  );
}

function ChangeForm({user, onDone, onCancel}: {user: User; onDone(): void; onCancel(): void}) {
  const {failure, busy, attempt} = useAttempt();
  const submit = async (event: SubmitEvent) => {
    event.preventDefault();
    const form = Object.fromEntries(new FormData(event.currentTarget as HTMLFormElement));
    if (!form.password) delete form.password;
    if (await attempt(() => patch(userPath(user.name), form))) onDone();
  };
  return (
    <form class="fields" aria-label={texts.users.changeOf(user.name)} onSubmit={submit}>
      <RoleField value={user.role} />
      <label>
        {texts.users.newPassword}
        <input name="password" type="password" autocomplete="new-password" autofocus />
      </label>
      <button type="submit" class="primary" disabled={busy}>
        {texts.users.save}
      </button>
      <button type="button" onClick={onCancel}>
        {texts.actions.cancel}
      </button>
      <p class="quiet">{texts.users.changeHint}</p>
      <p class="failure" role="alert">
        {failure}
      </p>
    </form>
  );
}

function UserRow({user, onDone}: {user: User; onDone(message: string): void}) {
  const changing = useSignal(false);
  const {failure, attempt} = useAttempt();
  const drop = async () => {
    if (!(await confirm(texts.users.askDelete(user.name), texts.actions.delete))) return;
    if (await attempt(() => remove(userPath(user.name)))) onDone('');
  };
  return (
    <li>
      <div class="item">
        <span class="name">
          <b>{user.name}</b> {user.name === identity.value?.name && <span class="quiet">({texts.users.you})</span>}
        </span>
        <span class="quiet">{user.role}</span>
        <span class="buttons">
          <button
            type="button"
            aria-label={texts.users.changeOf(user.name)}
            aria-expanded={changing.value}
            onClick={() => (changing.value = !changing.value)}
          >
            {texts.users.change}
          </button>
          <button type="button" aria-label={texts.users.deleteOf(user.name)} onClick={() => void drop()}>
            {texts.actions.delete}
          </button>
        </span>
      </div>
      <p class="failure" role="alert">
        {failure}
      </p>
      {changing.value && (
        <ChangeForm
          user={user}
          onCancel={() => (changing.value = false)}
          onDone={() => {
            changing.value = false;
            onDone(texts.users.saved(user.name));
          }}
        />
      )}
    </li>
  );
}

/** Lists the users; each can be changed and deleted, and one can be added. */
export function Users() {
  const users = useSignal<User[] | null>(null);
  const done = useSignal('');
  const {failure, attempt} = useAttempt();
  const read = (message = '') => {
    done.value = message;
    return attempt(async () => {
      users.value = await get<User[]>('/api/users');
    });
  };
  useEffect(() => void read(), []);
  const isEmpty = users.value?.length === 0;
  return (
    <section class="panel">
      <h2>{texts.users.users}</h2>
      <p class="failure" role="alert">
        {failure}
      </p>
      <p class="good" role="status">
        {done}
      </p>
      {isEmpty && <p class="warn">{texts.users.noUsers}</p>}
      <ul class="items">
        {users.value?.map((user) => (
          <UserRow key={user.name} user={user} onDone={(message) => void read(message)} />
        ))}
      </ul>
      {users.value && (
        <AddForm key={String(isEmpty)} isFirst={isEmpty} onDone={(name) => void read(texts.users.added(name))} />
      )}
    </section>
  );
}
