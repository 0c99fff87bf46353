import {useComputed} from '@preact/signals';
import {useEffect, useRef} from 'preact/hooks';
import {limited} from '../api/limited';
import {now} from '../state/clock';
import type {StreamState} from '../state/streams';

const ageMilliseconds = 10_000;
const settleMilliseconds = 300;

function load(image: HTMLImageElement, address: string): Promise<void> {
  return new Promise((resolve) => {
    image.onload = () => {
      image.classList.remove('absent');
      resolve();
    };
    image.onerror = () => {
      image.classList.add('absent');
      resolve();
    };
    image.src = address;
  });
}

/** A small picture of what the stream shows, renewed while the page is seen. */
export function Thumbnail({state}: {state: StreamState}) {
  const image = useRef<HTMLImageElement>(null);
  const turn = useComputed(() => Math.floor(now.value / ageMilliseconds));
  const {preview, status} = state.record.value;
  const address = preview && status === 'running' ? `${preview}?turn=${turn.value}` : '';
  useEffect(() => {
    if (!address) return;
    let gone = false;
    const timer = setTimeout(() => {
      void limited(async () => {
        if (!gone && image.current) await load(image.current, address);
      });
    }, settleMilliseconds);
    return () => {
      gone = true;
      clearTimeout(timer);
    };
  }, [address]);
  return <span class="thumbnail">{address && <img ref={image} class="absent" alt="" />}</span>;
}
