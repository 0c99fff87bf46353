import {type Message, openFeed} from './event_feed';
import type {Entry, Figures, Status} from './types';

export interface Handlers {
  figures(streams: Record<string, Figures | null>): void;
  status(id: number, status: Status): void;
  journal(entry: Entry): void;
  /** Something was missed: lists are to be asked for anew. */
  resync(): void;
  connected(is: boolean): void;
  /** The server gives no events: somebody may have to log in. */
  refused(): void;
}

/** The address of the script of src/worker; the bundler knows it. */
declare const eventsWorker: string;

function hand(message: Message, to: Handlers): void {
  switch (message.name) {
    case 'figures':
      return to.figures(message.data.streams);
    case 'status':
      return to.status(message.data.stream, message.data.status);
    case 'journal':
      return to.journal(message.data);
    case 'connected':
      return to.connected(message.data);
    default:
      return to[message.name]();
  }
}

/** Follows the server's events over the connection that all tabs share, until the returned function is called. */
export function follow(handlers: Handlers): () => void {
  const tell = (message: Message) => hand(message, handlers);
  // Some phones have none.
  if (typeof SharedWorker === 'undefined') return openFeed(tell);
  const worker = new SharedWorker(eventsWorker);
  const {port} = worker;
  let closeOwn = () => {};
  // A server that was updated has another script: this tab has a connection of its own until it is loaded again.
  worker.onerror = () => (closeOwn = openFeed(tell));
  port.onmessage = ({data}: MessageEvent<Message>) => tell(data);
  const leave = () => port.postMessage('leave');
  const join = () => port.postMessage('join');
  // A page that the browser keeps for its "back" button takes part again when it is shown.
  const comeBack = (event: PageTransitionEvent) => event.persisted && join();
  join();
  addEventListener('pagehide', leave);
  addEventListener('pageshow', comeBack);
  return () => {
    removeEventListener('pagehide', leave);
    removeEventListener('pageshow', comeBack);
    leave();
    port.close();
    closeOwn();
  };
}
