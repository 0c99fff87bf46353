import {useSignal} from '@preact/signals';
import {patch, post, remove} from '../../api/client';
import type {Webhook} from '../../api/types';
import {confirm} from '../../parts/confirm';
import {useAttempt} from '../../state/attempt';
import {formatTime} from '../../state/format';
import {texts} from '../../texts';
import {useRenewed} from './renewed';

const words = texts.webhooks;
const pathOf = (id: string) => `/api/webhooks/${encodeURIComponent(id)}`;

const kinds = 'started launched running ended stopped failed added changed deleted set_aside notice status'.split(' ');
const causes = [
  ...['exited', 'signalled', 'not_launched', 'no_input', 'stalled', 'speed', 'memory', 'directory_lost'],
  ...['timetable', 'better_input', 'operator', 'server_end', 'failed'],
];

/** The form as the server takes it; an empty secret leaves the one that is there. */
function readForm(form: HTMLFormElement) {
  const fields = new FormData(form);
  const secret = fields.has('unsigned') ? '' : fields.get('secret') || undefined;
  return {url: fields.get('url'), kinds: fields.getAll('kinds'), causes: fields.getAll('causes'), secret};
}

interface ChoicesProps {
  name: string;
  title: string;
  all: string[];
  chosen: string[] | undefined;
}

function Choices({name, title, all, chosen}: ChoicesProps) {
  return (
    <fieldset class="choices">
      <legend>{title}</legend>
      {all.map((word) => (
        <label key={word}>
          <input type="checkbox" name={name} value={word} defaultChecked={chosen?.includes(word)} /> {word}
        </label>
      ))}
    </fieldset>
  );
}

interface FormProps {
  webhook?: Webhook;
  send(form: object): Promise<unknown>;
  onDone(): void;
}

function WebhookForm({webhook, send, onDone}: FormProps) {
  const {failure, findings, busy, attempt} = useAttempt();
  const isFiltered = webhook !== undefined && webhook.kinds.length + webhook.causes.length > 0;
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
        {webhook ? words.newSecret : words.secret}
        <input name="secret" type="password" autocomplete="new-password" />
      </label>
      {webhook?.signed && (
        <label>
          <input type="checkbox" name="unsigned" /> {words.unsigned}
        </label>
      )}
      <details open={isFiltered}>
        <summary>{words.filter}</summary>
        <Choices name="kinds" title={words.kinds} all={kinds} chosen={webhook?.kinds} />
        <Choices name="causes" title={words.causes} all={causes} chosen={webhook?.causes} />
      </details>
      <button type="submit" class="primary" disabled={busy.value}>
        {webhook ? words.save : words.add}
      </button>
      <p class="failure" role="alert">
        {findings.value.length ? findings.value.map(({message}) => message).join('; ') : failure}
      </p>
    </form>
  );
}

/** The latest attempt: a receiver's refusal is as much of a failure as its silence. */
function Latest({latest}: Pick<Webhook, 'latest'>) {
  if (!latest) return null;
  const {time, status = 0, error} = latest;
  const hasArrived = status >= 200 && status < 300;
  return (
    <span class={hasArrived ? 'good' : 'failure'}>
      {hasArrived ? '✓' : '✖'} {words.latest(formatTime(time), error ?? words.status(status))}
    </span>
  );
}

function describe(webhook: Webhook): string {
  const only = [...webhook.kinds, ...webhook.causes];
  const parts = [
    words.counts(webhook.delivered, webhook.waiting, webhook.given_up + webhook.dropped),
    only.length ? words.only(only) : null,
    webhook.signed ? words.signed : null,
    webhook.from_settings ? words.fromSettings : null,
  ];
  return parts.filter((part) => part).join(' · ');
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
        <span class="quiet">{describe(webhook)}</span>
        <Latest latest={webhook.latest} />
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
  const {value: webhooks, failure, read} = useRenewed<Webhook[]>('/api/webhooks');
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
