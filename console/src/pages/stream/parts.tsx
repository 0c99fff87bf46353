import {get} from '../../api/client';
import type {Input, StreamRecord} from '../../api/types';
import {CopyButton} from '../../parts/copy_button';
import {Probe} from '../../parts/probe';
import {now} from '../../state/clock';
import {describeMedia, formatSeconds, formatSince, formatTime} from '../../state/format';
import {mayOperate} from '../../state/session';
import {texts} from '../../texts';

function describeProbe({in_use, probe}: Input): string {
  if (in_use) return texts.stream.inUse;
  if (!probe) return texts.stream.notProbed;
  return probe.answers ? texts.stream.answers : texts.stream.silent(probe.reason ?? '');
}

// The record masks the secrets of addresses, the document has them.
async function readInput(id: number, index: number): Promise<object> {
  const {input} = await get<{input: Record<string, object>}>(`/api/streams/${id}/config`);
  return input[index] ?? {};
}

export function Inputs({record}: {record: StreamRecord}) {
  return (
    <section class="panel">
      <h2>{texts.stream.inputs}</h2>
      <ol start={0}>
        {(record.inputs ?? []).map((input, index) => (
          <li key={`${index} ${input.url}`} class={input.in_use ? 'used' : ''}>
            <code>{input.url}</code>
            <span class="quiet">{describeProbe(input)}</span>
            {mayOperate.value && <Probe isPossible={true} read={() => readInput(record.id, index)} />}
          </li>
        ))}
      </ol>
      {(['restart', 'switch'] as const).map((name) => {
        const time = record.timetable?.[name];
        return time ? <p key={name}>{texts.stream.timetable[name](formatTime(time))}</p> : null;
      })}
    </section>
  );
}

export function Outputs({record}: {record: StreamRecord}) {
  const addresses = record.url_info?.outputs ?? [];
  return (
    <section class="panel">
      <h2>{texts.stream.outputs}</h2>
      <ol start={0}>
        {(record.outputs ?? []).map((output) => (
          <li key={output.index}>
            <b>{output.protocol}</b>{' '}
            <span class={output.state === 'retrying' || output.state === 'failed' ? 'warn' : 'quiet'}>
              {output.state} {output.since && texts.stream.since(formatSince(output.since, now.value))} {output.error}
            </span>
          </li>
        ))}
      </ol>
      <ul class="addresses">
        {addresses.map((address) => (
          <li key={address}>
            <code>{address}</code> <CopyButton text={address} />
          </li>
        ))}
      </ul>
    </section>
  );
}

export function Media({record}: {record: StreamRecord}) {
  const sides = [
    [texts.stream.mediaIn, record.codec_info?.inputs ?? []],
    [texts.stream.mediaOut, record.codec_info?.outputs ?? []],
  ] as const;
  return (
    <section class="panel">
      <h2>{texts.stream.media}</h2>
      <dl class="media">
        {sides.flatMap(([side, list]) =>
          list.map((media, index) => (
            <div key={`${side}${index}`}>
              <dt>{side}</dt>
              <dd>{describeMedia(media)}</dd>
            </div>
          )),
        )}
      </dl>
    </section>
  );
}

const listViewers = (record: StreamRecord) =>
  Object.values(record.client_info ?? {}).flatMap(({protocol, clients}) =>
    clients.map((client) => ({protocol, ...client})),
  );

/** How many viewers the record lists. */
export const countViewers = (record: StreamRecord): number => listViewers(record).length;

export function Viewers({record}: {record: StreamRecord}) {
  const clients = listViewers(record);
  return (
    <section class="panel">
      <h2>
        {texts.stream.viewers} ({clients.length})
      </h2>
      {clients.length === 0 && <p class="quiet">{texts.stream.noViewers}</p>}
      <ul class="viewers">
        {clients.slice(0, 100).map((client, index) => (
          <li key={`${client.addr}${index}`}>
            {client.addr} <span class="quiet">{client.protocol}</span>{' '}
            <span class="quiet">{formatSeconds(client.duration)}</span>
          </li>
        ))}
      </ul>
    </section>
  );
}
