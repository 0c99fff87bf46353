import {useSignal} from '@preact/signals';
import {useEffect} from 'preact/hooks';
import {get} from '../../api/client';
import {useAttempt} from '../../state/attempt';

const interval = 5000;

/** What the server answers at the path, asked for every 5 s while the page is seen; `read` asks at once. */
export function useRenewed<Value>(path: string) {
  const value = useSignal<Value | null>(null);
  const {failure, busy, attempt} = useAttempt();
  const read = () =>
    attempt(async () => {
      value.value = await get<Value>(path);
    });
  useEffect(() => {
    const readIfSeen = () => {
      if (!document.hidden && !busy.value) void read();
    };
    readIfSeen();
    const timer = setInterval(readIfSeen, interval);
    document.addEventListener('visibilitychange', readIfSeen);
    return () => {
      clearInterval(timer);
      document.removeEventListener('visibilitychange', readIfSeen);
    };
  }, []);
  return {value, failure, read};
}
