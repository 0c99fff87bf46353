import {signal} from '@preact/signals';

type Theme = 'light' | 'dark';

const stored = localStorage.getItem('theme') as Theme | null;
const preferred: Theme = matchMedia('(prefers-color-scheme: dark)').matches ? 'dark' : 'light';

/** The colours in use: what is drawn by script is drawn again when it changes. */
export const theme = signal<Theme>(stored ?? preferred);
document.documentElement.dataset.theme = theme.value;

export function switchTheme(): void {
  const next = theme.value === 'dark' ? 'light' : 'dark';
  localStorage.setItem('theme', next);
  document.documentElement.dataset.theme = next;
  theme.value = next;
}
