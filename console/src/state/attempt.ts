import {useSignal} from '@preact/signals';
import {ApiError} from '../api/client';
import type {Finding} from '../api/types';
import {identity} from './session';

/** One thing that a form asks of the server: why it was refused, and whether it is under way. */
export function useAttempt() {
  const failure = useSignal('');
  const findings = useSignal<Finding[]>([]);
  const busy = useSignal(false);
  /** Whether it was done. */
  const attempt = async (what: () => Promise<unknown>): Promise<boolean> => {
    busy.value = true;
    try {
      await what();
      failure.value = '';
      findings.value = [];
      return true;
    } catch (error) {
      failure.value = (error as Error).message;
      findings.value = error instanceof ApiError ? error.findings : [];
      if (error instanceof ApiError && error.status === 401) identity.value = null;
      return false;
    } finally {
      busy.value = false;
    }
  };
  return {failure, findings, busy, attempt};
}
