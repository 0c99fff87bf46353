import {useEffect} from 'preact/hooks';
import {ConfirmDialog} from '../../parts/confirm';
import {mayAdministrate} from '../../state/session';
import {texts} from '../../texts';
import {Tokens} from './tokens';
import {Users} from './users';

/** Who may use the server, and which programs. */
export function UsersPage() {
  useEffect(() => {
    document.title = `${texts.users.title} – ${texts.brand}`;
  }, []);
  if (!mayAdministrate.value) return <p class="notice">{texts.users.adminsOnly}</p>;
  return (
    <article class="administration">
      <h1>{texts.users.title}</h1>
      <Users />
      <Tokens />
      <ConfirmDialog />
    </article>
  );
}
