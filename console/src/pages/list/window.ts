import {useSignal} from '@preact/signals';
import {useEffect, useRef} from 'preact/hooks';

/** Which of `count` lines of this height are in view, `spare` more at both ends. */
export function useWindow<Box extends HTMLElement>(count: number, height: number, spare: number) {
  const first = useSignal(0);
  const last = useSignal(40);
  const body = useRef<Box>(null);
  useEffect(() => {
    const look = () => {
      const top = body.current?.getBoundingClientRect().top ?? 0;
      first.value = Math.max(0, Math.floor(-top / height) - spare);
      last.value = Math.min(count, Math.ceil((window.innerHeight - top) / height) + spare);
    };
    look();
    window.addEventListener('scroll', look, {passive: true});
    window.addEventListener('resize', look);
    return () => {
      window.removeEventListener('scroll', look);
      window.removeEventListener('resize', look);
    };
  }, [count, height, spare, first, last]);
  return {body, first: first.value, last: last.value};
}
