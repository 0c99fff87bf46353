import {type Signal, signal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {get} from '../api/client';
import {limited} from '../api/limited';
import type {Timeline} from '../api/types';
import {latestEntry} from './streams';

const known = new Map<number, {timeline: Signal<Timeline | null>; asked: number}>();

function find(id: number) {
  const found = known.get(id) ?? {timeline: signal<Timeline | null>(null), asked: 0};
  known.set(id, found);
  return found;
}

async function ask(id: number): Promise<void> {
  const one = find(id);
  one.asked = Date.now();
  try {
    one.timeline.value = await limited(() => get<Timeline>(`/api/streams/${id}/timeline?hours=24`));
  } catch {
    one.asked = 0;
  }
}

/** The last 24 hours of a stream; null until somebody has asked for them. */
export const timelineOf = (id: number): Signal<Timeline | null> => find(id).timeline;

const settleMilliseconds = 300;

/** Keeps a stream's timeline at most `age` milliseconds old while it is shown; rows that fly past ask for nothing. */
export function useTimeline(id: number, age: number): Timeline | null {
  const one = find(id);
  useEffect(() => {
    const look = () => {
      if (!document.hidden && Date.now() - one.asked >= age) void ask(id);
    };
    const settled = setTimeout(look, settleMilliseconds);
    const timer = setInterval(look, Math.min(age, 10_000));
    return () => {
      clearTimeout(settled);
      clearInterval(timer);
    };
  }, [id, age, one]);
  return one.timeline.value;
}

/** As `useTimeline`, and at once when something happens to the stream. */
export function useLiveTimeline(id: number): Timeline | null {
  const latest = latestEntry.value;
  useEffect(() => {
    if (latest?.stream === id) void ask(id);
  }, [id, latest]);
  return useTimeline(id, 60_000);
}
