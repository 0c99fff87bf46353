import {type Signal, useSignal} from '@preact/signals';
import {confirm, confirmWithNumber} from '../../parts/confirm';
import {type Action, act} from '../../state/actions';
import type {StreamState} from '../../state/streams';
import {texts} from '../../texts';

const actions: Action[] = ['start', 'stop', 'restart', 'delete'];

const defaultInterval = 3;
const longestInterval = 3600;

interface Props {
  selected: Signal<ReadonlySet<number>>;
  shown: StreamState[];
}

/** What can be done with the selected streams at once. */
export function SelectionBar({selected, shown}: Props) {
  const refusal = useSignal('');
  const ids = [...selected.value];
  const all = shown.length > 0 && shown.every(({id}) => selected.value.has(id));
  const run = async (action: Action) => {
    const question = texts.actions.ask[action](ids.length);
    const button = texts.actions[action];
    let interval: number | undefined;
    if (action === 'restart' && ids.length > 1) {
      const field = {label: texts.glance.interval, value: defaultInterval, max: longestInterval};
      const answer = await confirmWithNumber(question, button, field);
      if (answer === null) return;
      interval = answer;
    } else if (!(await confirm(question, button))) {
      return;
    }
    refusal.value = await act(action, ids, interval);
    selected.value = new Set();
  };
  return (
    <div class="selection">
      <label>
        <input
          type="checkbox"
          checked={all}
          onChange={(event) => {
            selected.value = new Set(event.currentTarget.checked ? shown.map(({id}) => id) : []);
          }}
        />{' '}
        {texts.list.selected(ids.length)}
      </label>
      {actions.map((action) => (
        <button type="button" key={action} disabled={ids.length === 0} onClick={() => void run(action)}>
          {texts.actions[action]}
        </button>
      ))}
      <span class="failure" role="alert">
        {refusal}
      </span>
    </div>
  );
}
