import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {get, post, remove} from '../../api/client';
import type {Token} from '../../api/types';
import {confirm} from '../../parts/confirm';
import {CopyButton} from '../../parts/copy_button';
import {RoleField} from '../../parts/role_field';
import {useAttempt} from '../../state/attempt';
import {formatTime} from '../../state/format';
import {texts} from '../../texts';

interface Made {
  name: string;
  token: string;
}

function MakeForm({onDone}: {onDone(made: Made): void}) {
  const {failure, busy, attempt} = useAttempt();
  const submit = async (event: SubmitEvent) => {
    event.preventDefault();
    const form = event.currentTarget as HTMLFormElement;
    const {name, role, expires} = Object.fromEntries(new FormData(form));
    const asked = {name, role, expires: expires ? Number(expires) : null};
    await attempt(async () => {
      onDone(await post<Made>('/api/tokens', asked));
      form.reset();
    });
  };
  return (
    <form class="fields" onSubmit={submit}>
      <h3>{texts.users.makeTitle}</h3>
      <label>
        {texts.users.name}
        <input name="name" autocomplete="off" required />
      </label>
      <RoleField value="viewer" />
      <label>
        {texts.users.lifetime}
        <select name="expires">
          {Object.entries(texts.users.lifetimes).map(([seconds, name]) => (
            <option key={seconds} value={seconds}>
              {name}
            </option>
          ))}
        </select>
      </label>
      <button type="submit" class="primary" disabled={busy}>
        {texts.users.make}
      </button>
      <p class="failure" role="alert">
        {failure}
      </p>
    </form>
  );
}

function TokenRow({token, onDone}: {token: Token; onDone(): void}) {
  const {failure, attempt} = useAttempt();
  const revoke = async () => {
    if (!(await confirm(texts.users.askRevoke(token.name), texts.users.revoke))) return;
    if (await attempt(() => remove(`/api/tokens/${encodeURIComponent(token.name)}`))) onDone();
  };
  return (
    <li>
      <div class="item">
        <b class="name">{token.name}</b>
        <span class="quiet">
          {token.role} · {texts.users.created} {formatTime(token.created)} · {texts.users.expires}{' '}
          {token.expires ? formatTime(token.expires) : texts.users.never}
        </span>
        <span class="buttons">
          <button type="button" aria-label={texts.users.revokeOf(token.name)} onClick={() => void revoke()}>
            {texts.users.revoke}
          </button>
        </span>
      </div>
      <p class="failure" role="alert">
        {failure}
      </p>
    </li>
  );
}

/** Lists the tokens of programs; one can be made, and is shown once, and each can be revoked. */
export function Tokens() {
  const tokens = useSignal<Token[] | null>(null);
  const made = useSignal<Made | null>(null);
  const {failure, attempt} = useAttempt();
  const read = () =>
    attempt(async () => {
      tokens.value = await get<Token[]>('/api/tokens');
    });
  useEffect(() => void read(), []);
  return (
    <section class="panel">
      <h2>{texts.users.tokens}</h2>
      <p class="quiet">{texts.users.tokensHint}</p>
      <p class="failure" role="alert">
        {failure}
      </p>
      <div role="status">
        {made.value && (
          <div class="once">
            <p>{texts.users.shownOnce(made.value.name)}</p>
            <code>{made.value.token}</code>
            <div class="buttons">
              <CopyButton text={made.value.token} label={texts.users.copyToken} />
              <button type="button" class="small" onClick={() => (made.value = null)}>
                {texts.users.tokenDone}
              </button>
            </div>
          </div>
        )}
      </div>
      {tokens.value?.length === 0 && <p class="quiet">{texts.users.noTokens}</p>}
      <ul class="items">
        {tokens.value?.map((token) => (
          <TokenRow key={token.name} token={token} onDone={() => void read()} />
        ))}
      </ul>
      <MakeForm
        onDone={(token) => {
          made.value = token;
          void read();
        }}
      />
    </section>
  );
}
