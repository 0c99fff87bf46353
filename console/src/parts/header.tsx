import {path} from '../state/router';
import {identity, logOut, mayAdministrate} from '../state/session';
import {isStale} from '../state/streams';
import {switchTheme} from '../state/theme';
import {texts} from '../texts';

function Page({address, name}: {address: string; name: string}) {
  return (
    <a href={address} aria-current={path.value === address ? 'page' : undefined} data-page>
      {name}
    </a>
  );
}

export function Header() {
  const who = identity.value;
  return (
    <header class="top">
      <a class="skip" href="#content">
        {texts.nav.skip}
      </a>
      <a class="brand" href="/" data-page>
        {texts.brand}
      </a>
      <nav>
        <Page address="/" name={texts.nav.streams} />
        <Page address="/profiles" name={texts.profiles.title} />
        <Page address="/system" name={texts.system.link} />
        {mayAdministrate.value && <Page address="/users" name={texts.users.link} />}
      </nav>
      <p class="stale" role="status">
        {isStale.value ? texts.stale : ''}
      </p>
      <button type="button" onClick={switchTheme}>
        {texts.nav.theme}
      </button>
      {who?.name && <span class="who">{`${who.name} (${who.role})`}</span>}
      {who?.by === 'session' && (
        <button type="button" onClick={() => void logOut()}>
          {texts.nav.logOut}
        </button>
      )}
    </header>
  );
}
