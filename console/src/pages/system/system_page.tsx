import {useEffect} from 'preact/hooks';
import {ConfirmDialog} from '../../parts/confirm';
import {mayAdministrate} from '../../state/session';
import {texts} from '../../texts';
import {Backup} from './backup';
import {EncoderList} from './encoder_list';
import {Machine} from './machine';
import {Webhooks} from './webhooks';

/** The machine below the streams, and what is set for all of them. */
export function SystemPage() {
  useEffect(() => {
    document.title = `${texts.system.title} – ${texts.brand}`;
  }, []);
  return (
    <article class="administration">
      <h1>{texts.system.title}</h1>
      <Machine />
      <EncoderList />
      {mayAdministrate.value && (
        <>
          <Backup />
          <Webhooks />
        </>
      )}
      <ConfirmDialog />
    </article>
  );
}
