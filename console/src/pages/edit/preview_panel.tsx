import type {Finding} from '../../api/types';
import {texts} from '../../texts';

/** What the server would do with a form. */
export interface Preview {
  accepted: boolean;
  findings: Finding[];
  warnings: Finding[];
  command?: string[];
  takes_effect?: Record<string, string>;
}

function List({findings, kind}: {findings: Finding[]; kind: string}) {
  return (
    <ul class={kind}>
      {findings.map(({key, message}) => (
        <li key={key + message}>
          {key && <code>{key}</code>} {message}
        </li>
      ))}
    </ul>
  );
}

/** Faults and warnings beside the document; without faults, what takes effect when, and the command that would run. */
export function PreviewPanel({preview}: {preview: Preview | null}) {
  return (
    <section class="panel preview" id="findings" aria-live="polite">
      <h2>{texts.edit.check}</h2>
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
