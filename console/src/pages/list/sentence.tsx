import {now} from '../../state/clock';
import type {StreamState} from '../../state/streams';
import {findTrouble} from '../../state/trouble';

// FFmpeg begins its messages with the input's address, which leaves no room in a row for why.
const withoutAddress = (sentence: string) => sentence.replace(/: [a-z][a-z0-9+.-]*:\/\/\S+: /i, ': ');

/** What is wrong, counted down once a second; the tags where nothing is. */
export function Sentence({state}: {state: StreamState}) {
  const trouble = findTrouble(state.record.value, state.figures.value, (now.value - state.loaded.value) / 1000);
  return trouble ? (
    <span class={`sentence rank${trouble.rank}`} title={trouble.sentence}>
      {withoutAddress(trouble.sentence)}
    </span>
  ) : (
    <span class="quiet">{(state.record.value.tags ?? []).join(' · ')}</span>
  );
}
