import {texts} from '../../texts';
import {difference, format} from './document';
import type {Stored} from './draft';

/** What somebody else has saved meanwhile, and a button that keeps it below one's own changes. */
export function NewerPanel({stored, newer, onJoin}: {stored: Stored; newer: Stored; onJoin(theirs: Stored): void}) {
  return (
    <section class="panel warn">
      <p>{texts.edit.newer}</p>
      <pre>{format(difference(stored.document, newer.document))}</pre>
      <button type="button" onClick={() => onJoin(newer)}>
        {texts.edit.takeOver}
      </button>
    </section>
  );
}
