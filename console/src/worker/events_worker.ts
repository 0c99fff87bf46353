// One connection for all tabs of a browser: over HTTP/1.1 it opens only six to a server.

import {type Message, openFeed} from '../api/event_feed';
import type {Figures} from '../api/types';

const tabs = new Set<MessagePort>();
let close: (() => void) | null = null;
let isConnected: boolean | null = null;
// Events hold what changed: a tab that comes later begins with what they have made.
let figures: Record<string, Figures> = {};

function merge(changes: Record<string, Figures | null>): void {
  for (const [id, changed] of Object.entries(changes)) {
    if (changed === null) delete figures[id];
    else figures[id] = {...figures[id], ...changed};
  }
}

function take(message: Message): void {
  if (message.name === 'figures') merge(message.data.streams);
  if (message.name === 'connected') {
    isConnected = message.data;
    // The first event of a connection has everything.
    figures = {};
  }
  for (const tab of tabs) tab.postMessage(message);
}

function join(tab: MessagePort): void {
  tabs.add(tab);
  const tell = (message: Message) => tab.postMessage(message);
  if (isConnected !== null) tell({name: 'connected', data: isConnected});
  if (Object.keys(figures).length) tell({name: 'figures', data: {streams: figures}});
  close ??= openFeed(take);
}

function leave(tab: MessagePort): void {
  tabs.delete(tab);
  if (tabs.size > 0) return;
  close?.();
  close = null;
  isConnected = null;
  figures = {};
}

const scope = globalThis as unknown as {onconnect: (event: MessageEvent) => void};
scope.onconnect = ({ports: [tab]}) => {
  if (tab) tab.onmessage = ({data}: MessageEvent<'join' | 'leave'>) => (data === 'join' ? join(tab) : leave(tab));
};
