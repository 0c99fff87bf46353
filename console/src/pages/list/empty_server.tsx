import {useSignal} from '@preact/signals';
import {post} from '../../api/client';
import {act} from '../../state/actions';
import {go} from '../../state/router';
import {mayOperate} from '../../state/session';
import {texts} from '../../texts';
import {demo} from '../edit/document';

/** The first visit: a stream of one's own, or one that every machine can make. */
export function EmptyServer() {
  const failure = useSignal('');
  const startDemo = async () => {
    try {
      const {id} = await post<{id: number}>('/api/streams', demo);
      failure.value = await act('start', [id]);
      go(`/streams/${id}`);
    } catch (error) {
      failure.value = (error as Error).message;
    }
  };
  return (
    <section class="panel empty">
      <h1>{texts.list.empty}</h1>
      <p>{texts.list.emptyHint}</p>
      {mayOperate.value && (
        <div class="buttons">
          <a class="button" href="/new" data-page>
            {texts.edit.add}
          </a>
          <a class="button" href="/new/many" data-page>
            {texts.addMany.link}
          </a>
          <button type="button" onClick={() => void startDemo()}>
            {texts.list.demo}
          </button>
        </div>
      )}
      <p class="failure" role="alert">
        {failure}
      </p>
    </section>
  );
}
