import {identity, logOut, mayAdministrate} from '../state/session';
import {isStale} from '../state/streams';
import {switchTheme} from '../state/theme';
import {texts} from '../texts';

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
        <a href="/" data-page>
          {texts.nav.streams}
        </a>
        <a href="/profiles" data-page>
          {texts.profiles.title}
        </a>
        {mayAdministrate.value && (
          <a href="/users" data-page>
            {texts.users.link}
          </a>
        )}
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
