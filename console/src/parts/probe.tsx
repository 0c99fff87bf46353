import {useSignal} from '@preact/signals';
import {post} from '../api/client';
import type {MediaStream} from '../api/types';
import {useAttempt} from '../state/attempt';
import {describeMedia} from '../state/format';
import {texts} from '../texts';

interface Probed {
  format: string;
  streams: MediaStream[];
}

interface ProbeProps {
  isPossible: boolean;
  /** The input as a document has it. */
  read(): object | Promise<object>;
}

/** Asks the server what is in an input. */
export function Probe({isPossible, read}: ProbeProps) {
  const lines = useSignal<string[]>([]);
  const {failure, busy, attempt} = useAttempt();
  const probe = () =>
    attempt(async () => {
      lines.value = [];
      const {format, streams} = await post<Probed>('/api/probe', await read());
      lines.value = [format, ...streams.map(describeMedia)];
    });
  return (
    <span class="probe">
      <button type="button" class="small" disabled={busy.value || !isPossible} onClick={() => void probe()}>
        {busy.value ? texts.form.probing : texts.form.probe}
      </button>
      <span role="status">{lines.value.join(' · ')}</span>
      <span class="failure" role="alert">
        {failure}
      </span>
    </span>
  );
}
