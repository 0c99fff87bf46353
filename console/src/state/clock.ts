import {signal} from '@preact/signals';

/** The time in milliseconds, moved once a second while the page is seen: what counts up or down reads it. */
export const now = signal(Date.now());

setInterval(() => {
  if (!document.hidden) now.value = Date.now();
}, 1000);
