import {signal} from '@preact/signals';
import {identity, logOut} from '../state/session';
import {isStale} from '../state/streams';
import {texts} from '../texts';

type Theme = 'light' | 'dark';
const stored = localStorage.getItem('theme') as Theme | null;
const preferred: Theme = matchMedia('(prefers-color-scheme: dark)').matches ? 'dark' : 'light';
const theme = signal<Theme>(stored ?? preferred);
document.documentElement.dataset.theme = theme.value;

function switchTheme(): void {
  theme.value = theme.value === 'dark' ? 'light' : 'dark';
  localStorage.setItem('theme', theme.value);
  document.documentElement.dataset.theme = theme.value;
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
        <a href="/" data-page>
          {texts.nav.streams}
        </a>
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
