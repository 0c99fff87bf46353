import {useSignal} from '@preact/signals';
import {patch} from '../../api/client';
import {CopyButton} from '../../parts/copy_button';
import {useAttempt} from '../../state/attempt';
import {texts} from '../../texts';

/** A word of a command as a shell takes it. */
const quote = (word: string) => (/^[\w@%+=:,./-]+$/.test(word) ? word : `'${word.replaceAll("'", "'\\''")}'`);

/** The transcoder's command, its secrets masked; asked for when somebody wants to see it. */
export function Command({id}: {id: number}) {
  const command = useSignal('');
  const {failure, attempt} = useAttempt();
  const read = () =>
    attempt(async () => {
      const preview = await patch<{command: string[]}>(`/api/streams/${id}?check=1`, {});
      command.value = preview.command.map(quote).join(' ');
    });
  return (
    <details class="panel command" onToggle={(event) => event.currentTarget.open && void read()}>
      <summary>{texts.stream.command}</summary>
      <p class="failure" role="alert">
        {failure}
      </p>
      <pre>{command}</pre>
      {command.value && <CopyButton text={command.value} label={texts.stream.copyCommand} />}
    </details>
  );
}
