import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {get} from '../../api/client';
import type {Timeline} from '../../api/types';
import {formatTime} from '../../state/format';
import {latestEntry} from '../../state/streams';
import {texts} from '../../texts';

const width = 1440;
const refreshMilliseconds = 60_000;

/** Status and input of the last 24 hours, and the restarts in them. */
export function TimelineStrip({id}: {id: number}) {
  const timeline = useSignal<Timeline | null>(null);
  const latest = latestEntry.value;
  useEffect(() => {
    const read = () =>
      get<Timeline>(`/api/streams/${id}/timeline?hours=24`).then(
        (answer) => {
          timeline.value = answer;
        },
        () => {},
      );
    if (!latest || latest.stream === id) void read();
    const timer = setInterval(read, refreshMilliseconds);
    return () => clearInterval(timer);
  }, [id, timeline, latest]);
  const shown = timeline.value;
  if (!shown) return null;
  const begin = Date.parse(shown.from);
  const span = Date.parse(shown.to) - begin;
  const at = (time: string) => ((Date.parse(time) - begin) / span) * width;
  return (
    <figure class="strip">
      <figcaption>{texts.stream.timeline}</figcaption>
      <svg viewBox={`0 0 ${width} 24`} preserveAspectRatio="none" role="img" aria-label={texts.stream.timeline}>
        {shown.intervals.map((interval) => (
          <rect
            key={interval.from}
            class={`${interval.status} ${interval.input ? 'other' : ''}`}
            x={at(interval.from)}
            width={Math.max(1, at(interval.to) - at(interval.from))}
            y="4"
            height="20"
          >
            <title>{`${interval.status} ${formatTime(interval.from)} – ${formatTime(interval.to)}`}</title>
          </rect>
        ))}
        {shown.restarts.map((restart) => (
          <rect key={restart.time} class={`mark ${restart.cause}`} x={at(restart.time)} width="3" y="0" height="24">
            <title>{texts.stream.restartedBy(restart.cause, formatTime(restart.time))}</title>
          </rect>
        ))}
      </svg>
    </figure>
  );
}
