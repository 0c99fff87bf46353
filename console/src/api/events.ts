import type {Entry, Figures, Status} from './types';

export interface Handlers {
  figures(streams: Record<string, Figures | null>): void;
  status(id: number, status: Status): void;
  journal(entry: Entry): void;
  /** Something was missed: lists are to be asked for anew. */
  resync(): void;
  connected(is: boolean): void;
}

/** Follows the server's events until the returned function is called. The browser connects again by itself. */
export function follow(handlers: Handlers): () => void {
  const source = new EventSource('/api/events');
  const on = <Data>(name: string, handle: (data: Data) => void) =>
    source.addEventListener(name, (event) => handle(JSON.parse((event as MessageEvent<string>).data)));
  on<{streams: Record<string, Figures | null>}>('figures', ({streams}) => handlers.figures(streams));
  on<{stream: number; status: Status}>('status', ({stream, status}) => handlers.status(stream, status));
  on<Entry>('journal', (entry) => handlers.journal(entry));
  source.addEventListener('resync', () => handlers.resync());
  source.addEventListener('open', () => handlers.connected(true));
  source.addEventListener('error', () => handlers.connected(false));
  return () => source.close();
}
