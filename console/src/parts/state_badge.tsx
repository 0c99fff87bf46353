import type {StreamRecord} from '../api/types';
import {texts} from '../texts';

type Shown = keyof typeof texts.states;

function shownState(record: StreamRecord): Shown {
  if (record.error && !record.cycle) return 'broken';
  if (record.status === 'stopped' && record.cycle?.last_end?.cause === 'failed') return 'failed';
  return record.cycle?.state ?? record.status ?? 'stopped';
}

/** The state by colour and word. */
export function StateBadge({record}: {record: StreamRecord}) {
  const state = shownState(record);
  return <span class={`state ${state}`}>{texts.states[state]}</span>;
}
