import {Strip} from '../../parts/strip';
import {useLiveTimeline} from '../../state/timelines';
import {texts} from '../../texts';

/** Status and input of the last 24 hours, and the restarts in them. */
export function TimelineStrip({id}: {id: number}) {
  const timeline = useLiveTimeline(id);
  if (!timeline) return null;
  return (
    <figure class="strip">
      <figcaption>{texts.stream.timeline}</figcaption>
      <Strip timeline={timeline} fine />
    </figure>
  );
}
