import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {StateBadge} from '../../parts/state_badge';
import {Thumbnail} from '../../parts/thumbnail';
import {isStale, type StreamState} from '../../state/streams';
import {texts} from '../../texts';
import {Sentence} from './sentence';
import {useWindow} from './window';

const gap = 12;
const textHeight = 92;
const sizes = {tiles: 240, wall: 400};

function Tile({state, width}: {state: StreamState; width: number}) {
  const record = state.record.value;
  return (
    <li class="tile" style={{width: `${width}px`, height: `${(width * 9) / 16 + textHeight}px`}}>
      <Thumbnail state={state} />
      <div class="name">
        <p>
          <a href={`/streams/${record.id}`} data-page>
            {record.label || texts.list.unnamed(record.id)}
          </a>
          <StateBadge record={record} />
        </p>
        <Sentence state={state} />
      </div>
    </li>
  );
}

/** The streams as pictures: as many beside each other as fit, and only those in view. */
export function Tiles({shown, view}: {shown: StreamState[]; view: keyof typeof sizes}) {
  const available = useSignal(window.innerWidth);
  const columns = Math.max(1, Math.floor((available.value + gap) / (sizes[view] + gap)));
  const width = Math.floor((available.value - gap * (columns - 1)) / columns);
  const height = (width * 9) / 16 + textHeight + gap;
  const lines = Math.ceil(shown.length / columns);
  const {body, first, last} = useWindow<HTMLUListElement>(lines, height, 1);
  useEffect(() => {
    const place = body.current;
    if (!place) return;
    const observer = new ResizeObserver(() => (available.value = place.clientWidth));
    observer.observe(place);
    return () => observer.disconnect();
  }, [body, available]);
  return (
    <ul
      ref={body}
      class={isStale.value ? `tiles ${view} stale-picture` : `tiles ${view}`}
      style={{height: `${lines * height}px`}}
    >
      <li aria-hidden="true" class="above" style={{height: `${first * height}px`}} />
      {shown.slice(first * columns, last * columns).map((state) => (
        <Tile key={state.id} state={state} width={width} />
      ))}
    </ul>
  );
}
