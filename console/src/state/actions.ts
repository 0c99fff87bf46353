import {ApiError, post, remove} from '../api/client';
import {texts} from '../texts';

export type Action = 'start' | 'stop' | 'restart' | 'delete';

interface BatchAnswer {
  results: {id: number; ok: boolean; error?: string}[];
}

/** Asks for it, and returns why it was refused; empty when it was not. `interval`: seconds between two of many. */
export async function act(action: Action, ids: number[], interval?: number): Promise<string> {
  try {
    const [only] = ids;
    if (ids.length === 1 && only !== undefined) {
      if (action === 'delete') await remove(`/api/streams/${only}`);
      else await post(`/api/streams/${only}/${action}`);
      return '';
    }
    const {results} = await post<BatchAnswer>(`/api/batch/${action}`, {ids, interval});
    const refused = results.filter(({ok}) => !ok);
    return refused.length ? texts.actions.failed(refused.length, `#${refused[0]?.id} ${refused[0]?.error ?? ''}`) : '';
  } catch (failure) {
    return failure instanceof ApiError ? failure.message : String(failure);
  }
}
