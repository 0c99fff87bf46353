import type {Entry, Figures, Status} from './types';

/** What the server tells by itself; `connected` and `refused` are about the connection to it. */
export type Message =
  | {name: 'figures'; data: {streams: Record<string, Figures | null>}}
  | {name: 'status'; data: {stream: number; status: Status}}
  | {name: 'journal'; data: Entry}
  | {name: 'resync' | 'refused'}
  | {name: 'connected'; data: boolean};

const retryMilliseconds = 3000;

/** Reads the server's events until the returned function is called. After a failure it connects again by itself. */
export function openFeed(tell: (message: Message) => void): () => void {
  let source: EventSource;
  let retry: ReturnType<typeof setTimeout> | undefined;
  const open = () => {
    source = new EventSource('/api/events');
    for (const name of ['figures', 'status', 'journal'] as const)
      source.addEventListener(name, (event) => tell({name, data: JSON.parse(event.data)}));
    source.addEventListener('resync', () => tell({name: 'resync'}));
    source.addEventListener('open', () => tell({name: 'connected', data: true}));
    source.addEventListener('error', () => {
      tell({name: 'connected', data: false});
      // After an answer that holds no events, such as 401, the browser does not try again.
      if (source.readyState !== EventSource.CLOSED) return;
      tell({name: 'refused'});
      retry = setTimeout(open, retryMilliseconds);
    });
  };
  open();
  return () => {
    clearTimeout(retry);
    source.close();
  };
}
