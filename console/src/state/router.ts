import {computed, signal} from '@preact/signals';

const location = signal(new URL(window.location.href));

export const path = computed(() => location.value.pathname);
export const query = computed(() => location.value.searchParams);

function move(target: URL, isNew: boolean): void {
  if (isNew) history.pushState(null, '', target);
  else history.replaceState(null, '', target);
  location.value = target;
}

/** Opens a page of the console. */
export function go(address: string): void {
  move(new URL(address, window.location.href), true);
  window.scrollTo(0, 0);
}

/** Keeps a choice of the page in the address bar; an empty value is left out. */
export function setQuery(changes: Record<string, string>): void {
  const target = new URL(location.value);
  for (const [name, value] of Object.entries(changes)) {
    if (value) target.searchParams.set(name, value);
    else target.searchParams.delete(name);
  }
  move(target, false);
}

window.addEventListener('popstate', () => {
  location.value = new URL(window.location.href);
});

// Links to pages of the console need no load; those with a modifier key are the browser's.
document.addEventListener('click', (event) => {
  const link = (event.target as Element).closest?.('a[data-page]');
  if (!(link instanceof HTMLAnchorElement) || event.ctrlKey || event.metaKey || event.shiftKey || event.button !== 0)
    return;
  event.preventDefault();
  go(link.href);
});
