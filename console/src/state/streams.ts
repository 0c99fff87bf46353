import {batch, computed, type Signal, signal} from '@preact/signals';
import {ApiError, get} from '../api/client';
import {follow} from '../api/events';
import type {Stream} from '../api/openapi';
import type {Entry, Figures, StreamRecord} from '../api/types';
import {now} from './clock';
import {identify, identity} from './session';

/** A stream with signals of its own, so that a change of one redraws nothing of the others. */
export interface StreamState {
  id: number;
  record: Signal<StreamRecord>;
  /** When the record was asked for, in milliseconds: some of its members count from then. */
  loaded: Signal<number>;
  figures: Signal<Figures>;
}

/** All streams by id; null until they are loaded. The map is replaced when one comes or goes. */
export const streams = signal<ReadonlyMap<number, StreamState> | null>(null);
/** The latest journal entry, for pages that follow one stream. */
export const latestEntry = signal<Entry | null>(null);

const silenceLimit = 3000;
const connected = signal(true);
const latestFigures = signal(Date.now());

/** Whether the figures are not those of now: nobody is to trust them. */
export const isStale = computed(() => {
  if (!connected.value) return true;
  const someRun = [...(streams.value?.values() ?? [])].some(({record}) => record.value.status === 'running');
  return someRun && now.value - latestFigures.value > silenceLimit;
});

// The first figures are complete, those after them only what changed: none are lost that come before the record.
const early = new Map<number, Figures>();

function putInto(map: Map<number, StreamState>, record: StreamRecord): void {
  const known = map.get(record.id);
  if (known) {
    known.record.value = record;
    known.loaded.value = Date.now();
  } else {
    const figures = signal(early.get(record.id) ?? {});
    early.delete(record.id);
    map.set(record.id, {id: record.id, record: signal(record), loaded: signal(Date.now()), figures});
  }
}

// Documents that were written by hand may have anything as a label.
const readRecord = (stream: Stream): StreamRecord => ({
  ...stream,
  label: (stream.label ?? null) === null ? null : String(stream.label),
});

function put(records: StreamRecord[]): void {
  const next = new Map(streams.value);
  batch(() => {
    for (const record of records) putInto(next, record);
    if (next.size !== streams.value?.size) streams.value = new Map([...next].sort(([a], [b]) => a - b));
  });
}

function drop(id: number): void {
  early.delete(id);
  if (!streams.value?.has(id)) return;
  const next = new Map(streams.value);
  next.delete(id);
  streams.value = next;
}

/** Asks for all records anew. */
export async function load(): Promise<void> {
  const records = (await get<Stream[]>('/api/streams')).map(readRecord);
  const ids = new Set(records.map(({id}) => id));
  batch(() => {
    for (const id of streams.value?.keys() ?? []) if (!ids.has(id)) drop(id);
    put(records);
    streams.value ??= new Map();
  });
}

/** Asks for one record anew. */
export async function refresh(id: number): Promise<void> {
  try {
    put([readRecord(await get<Stream>(`/api/streams/${id}`))]);
  } catch (failure) {
    if (failure instanceof ApiError && failure.status === 404) drop(id);
    else if (failure instanceof ApiError && failure.status === 401) identity.value = null;
  }
}

const changed = new Set<number>();
const manyChanges = 20;
let isDue = false;

// Entries of the same moment are answered by one request for each stream, or by one for all.
function refreshSoon(id: number): void {
  changed.add(id);
  if (isDue) return;
  isDue = true;
  setTimeout(() => {
    const ids = [...changed];
    changed.clear();
    isDue = false;
    if (ids.length > manyChanges) void load().catch(() => {});
    else for (const one of ids) void refresh(one);
  }, 200);
}

function takeFigures(all: Record<string, Figures | null>): void {
  batch(() => {
    latestFigures.value = Date.now();
    for (const [id, figures] of Object.entries(all)) {
      if (figures === null) {
        drop(Number(id));
        continue;
      }
      const known = streams.value?.get(Number(id));
      if (known) {
        known.figures.value = {...known.figures.value, ...figures};
      } else {
        early.set(Number(id), {...early.get(Number(id)), ...figures});
        if (streams.value) refreshSoon(Number(id));
      }
    }
  });
}

/** Keeps `streams` up to date until the returned function is called. */
export function followStreams(): () => void {
  return follow({
    figures: takeFigures,
    status: refreshSoon,
    journal: (entry) => {
      latestEntry.value = entry;
      if (entry.stream !== null) refreshSoon(entry.stream);
    },
    resync: () => void load().catch(() => {}),
    connected: (is) => {
      connected.value = is;
    },
    refused: () =>
      void identify().then(
        (isKnown) => {
          if (!isKnown) identity.value = null;
        },
        () => {},
      ),
  });
}
