import type {StreamState} from '../../state/streams';
import {findTrouble} from '../../state/trouble';
import type {texts} from '../../texts';

export type SortKey = keyof typeof texts.list.sorts;

const calm = 9;
const stopped = 10;

function rank(state: StreamState): number {
  const record = state.record.peek();
  const trouble = findTrouble(record, state.figures.peek(), 0);
  if (trouble) return trouble.rank;
  return record.status === 'stopped' ? stopped : calm;
}

const largest = (read: (state: StreamState) => number | null | undefined) => (a: StreamState, b: StreamState) =>
  (read(b) ?? -1) - (read(a) ?? -1);

const comparisons: Record<SortKey, (a: StreamState, b: StreamState) => number> = {
  trouble: (a, b) => rank(a) - rank(b),
  id: () => 0,
  label: (a, b) => (a.record.peek().label ?? '').localeCompare(b.record.peek().label ?? ''),
  viewers: largest(({figures}) => figures.peek().viewers),
  cpu: largest(({figures}) => figures.peek().cpu),
  bitrate: largest(({figures}) => figures.peek().bitrate),
};

export function isSortKey(text: string): text is SortKey {
  return text in comparisons;
}

/** The ids in the order of `key`; equals by id. */
export function sortIds(states: Iterable<StreamState>, key: SortKey): number[] {
  const compare = comparisons[key];
  return [...states].sort((a, b) => compare(a, b) || a.id - b.id).map(({id}) => id);
}

/** Whether the text is found in what a person knows a stream by. */
export function matches(state: StreamState, text: string): boolean {
  if (!text) return true;
  const record = state.record.value;
  const known = [record.label, `${record.id}`, ...(record.tags ?? []), ...(record.url_info?.inputs ?? [])];
  return known.some((one) => one?.toLowerCase().includes(text.toLowerCase()));
}

/** An empty tag is every stream's. */
export const hasTag = (state: StreamState, tag: string) => !tag || (state.record.value.tags ?? []).includes(tag);

export const hasProfile = (state: StreamState, profile: string) => !profile || String(state.record.value.profile) === profile;

export const filters = ['all', 'troubled', 'running', 'starting', 'restarting', 'stopped'] as const;
export type Filter = (typeof filters)[number];

export function passes(state: StreamState, filter: Filter): boolean {
  if (filter === 'all') return true;
  if (filter === 'troubled') return findTrouble(state.record.value, state.figures.value, 0) !== null;
  return state.record.value.status === filter;
}
