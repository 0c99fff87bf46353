import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {get, patch, post, remove} from '../../api/client';
import type {Webhook} from '../../api/types';
import {confirm} from '../../parts/confirm';
import {useAttempt} from '../../state/attempt';
import {formatTime} from '../../state/format';
import {texts} from '../../texts';

const words = texts.webhooks;
const pathOf = (id: string) => `/api/webhooks/${encodeURIComponent(id)}`;

const readList = (text: unknown) =>
  String(text ?? '')
    .split(',')
    .map((word) => word.trim())
    .filter((word) => word);

/** The form as the server takes it; an empty secret leaves the one that is there. */
function readForm(form: HTMLFormElement) {
  const {url, kinds, causes, secret} = Object.fromEntries(new FormData(form));
  return {url, kinds: readList(kinds), causes: readList(causes), ...(secret ? {secret} : {})};
}

interface FormProps {
  webhook?: Webhook;
  send(form: object): Promise<unknown>;
  onDone(): void;
}

function WebhookForm({webhook, send, onDone}: FormProps) {
  const {failure, findings, busy, attempt} = useAttempt();
  const submit = async (event: SubmitEvent) => {
    event.preventDefault();
    const form = event.currentTarget as HTMLFormElement;
    if (!(await attempt(() => send(readForm(form))))) return;
    form.reset();
    onDone();
  };
  return (
    <form class="fields" aria-label={webhook ? words.changeOf(webhook.url) : words.addTitle} onSubmit={submit}>
      {!webhook && <h3>{words.addTitle}</h3>}
      <label>
        {words.url}
        <input name="url" type="url" required defaultValue={webhook?.url ?? ''} />
      </label>
      <label>
        {words.kinds}
        <input name="kinds" defaultValue={webhook?.kinds.join(', ') ?? ''} />
      </label>
      <label>
        {words.causes}
        <input name="causes" defaultValue={webhook?.causes.join(', ') ?? ''} />
      </label>
      <label>
        {webhook ? words.newSecret : words.secret}
        <input name="secret" type="password" autocomplete="new-password" />
      </label>
      <button type="submit" class="primary" disabled={busy.value}>
        {webhook ? words.save : words.add}
      </button>
      <p class="failure" role="alert">
        {findings.value.length ? findings.value.map(({message}) => message).join('; ') : failure}
      </p>
    </form>
  );
}

function describeLatest({latest}: Webhook): string {
  if (!latest) return '';
  return words.latest(formatTime(latest.time), latest.error ?? words.status(latest.status ?? 0));
}

function WebhookItem({webhook, onDone}: {webhook: Webhook; onDone(): void}) {
  const changing = useSignal(false);
  const tested = useSignal('');
  const {failure, busy, attempt} = useAttempt();
  const {id, url} = webhook;
  const test = () =>
    attempt(async () => {
      tested.value = '';
      const {delivered, status, error} = await post<{delivered: boolean; status?: number; error?: string}>(`${pathOf(id)}/test`);
      tested.value = delivered ? words.arrived(status ?? 0) : words.failed(error ?? words.status(status ?? 0));
      onDone();
    });
  const drop = async () => {
    if (!(await confirm(words.askDelete(url), texts.actions.delete))) return;
    if (await attempt(() => remove(pathOf(id)))) onDone();
  };
  return (
    <li>
      <div class="item">
        <code class="name">{url}</code>
        <span class="quiet">
          {words.counts(webhook.delivered, webhook.waiting, webhook.given_up + webhook.dropped)}
          {webhook.signed && ` · ${words.signed}`}
          {webhook.from_settings && ` · ${words.fromSettings}`}
        </span>
        <span class={webhook.latest?.error ? 'failure' : 'quiet'}>{describeLatest(webhook)}</span>
        <span class="buttons">
          <button type="button" aria-label={words.testOf(url)} disabled={busy.value} onClick={() => void test()}>
            {words.test}
          </button>
          {!webhook.from_settings && (
            <>
              <button
                type="button"
                aria-label={words.changeOf(url)}
                aria-expanded={changing.value}
                onClick={() => (changing.value = !changing.value)}
              >
                {words.change}
              </button>
              <button type="button" aria-label={words.deleteOf(url)} onClick={() => void drop()}>
                {texts.actions.delete}
              </button>
            </>
          )}
        </span>
      </div>
      <p role="status">{tested}</p>
      <p class="failure" role="alert">
        {failure}
      </p>
      {changing.value && (
        <WebhookForm
          webhook={webhook}
          send={(form) => patch(pathOf(id), form)}
          onDone={() => {
            changing.value = false;
            onDone();
          }}
        />
      )}
    </li>
  );
}

/** Lists the webhooks with how their deliveries went; each can be tried, changed and deleted, and one can be added. */
export function Webhooks() {
  const webhooks = useSignal<Webhook[] | null>(null);
  const {failure, attempt} = useAttempt();
  const read = () =>
    attempt(async () => {
      webhooks.value = await get<Webhook[]>('/api/webhooks');
    });
  useEffect(() => void read(), []);
  return (
    <section class="panel">
      <h2>{words.title}</h2>
      <p class="quiet">{words.hint}</p>
      <p class="failure" role="alert">
        {failure}
      </p>
      {webhooks.value?.length === 0 && <p>{words.none}</p>}
      <ul class="items">
        {webhooks.value?.map((webhook) => (
          <WebhookItem key={webhook.id} webhook={webhook} onDone={() => void read()} />
        ))}
      </ul>
      <WebhookForm send={(form) => post('/api/webhooks', form)} onDone={() => void read()} />
    </section>
  );
}
