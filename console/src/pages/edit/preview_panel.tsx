import type {Finding} from '../../api/types';
import {texts} from '../../texts';
import {controlId} from './form/field';
import type {Preview} from './preview';

/** Goes to the field of a member; in the text there is none. */
function show(key: string): void {
  const control = document.getElementById(controlId(key));
  for (let parent = control?.closest('details'); parent; parent = parent.parentElement?.closest('details')) parent.open = true;
  control?.scrollIntoView({block: 'center'});
  control?.focus();
}

function List({findings, kind}: {findings: Finding[]; kind: string}) {
  return (
    <ul class={kind}>
      {findings.map(({key, message}) => (
        <li key={key + message}>
          {key && (
            <button type="button" class="link" onClick={() => show(key)}>
              <code>{key}</code>
            </button>
          )}{' '}
          {message}
        </li>
      ))}
    </ul>
  );
}

/** Faults and warnings beside the document; without faults, what takes effect when, and the command that would run. */
export function PreviewPanel({preview, isNew}: {preview: Preview | null; isNew: boolean}) {
  return (
    <section class="panel preview" id="findings" aria-live="polite">
      <h2>{texts.edit.check}</h2>
      {!preview && isNew && <p class="quiet">{texts.edit.begin}</p>}
      {preview?.accepted && <p class="good">{texts.edit.accepted}</p>}
      <List findings={preview?.findings ?? []} kind="failure" />
      <List findings={preview?.warnings ?? []} kind="warn" />
      {Object.entries(preview?.takes_effect ?? {}).map(([key, when]) => (
        <p key={key}>
          <code>{key}</code> <span class="quiet">{when}</span>
        </p>
      ))}
      {preview?.command && (
        <details>
          <summary>{texts.edit.command}</summary>
          <pre>{preview.command.join(' ')}</pre>
        </details>
      )}
    </section>
  );
}
