import {useComputed, useSignal} from '@preact/signals';
import {useEffect, useMemo, useRef} from 'preact/hooks';
import {ConfirmDialog} from '../../parts/confirm';
import {query, setQuery} from '../../state/router';
import {mayOperate} from '../../state/session';
import {isStale, type StreamState, streams} from '../../state/streams';
import {texts} from '../../texts';
import {EmptyServer} from './empty_server';
import {type Filter, filters, isSortKey, matches, passes, sortIds} from './order';
import {Row, rowHeight} from './row';
import {SelectionBar} from './selection_bar';

const spareRows = 6;

/** Which rows of `count` are in view, some more at both ends. */
function useWindow(count: number) {
  const first = useSignal(0);
  const last = useSignal(40);
  const body = useRef<HTMLTableSectionElement>(null);
  useEffect(() => {
    const look = () => {
      const top = body.current?.getBoundingClientRect().top ?? 0;
      first.value = Math.max(0, Math.floor(-top / rowHeight) - spareRows);
      last.value = Math.min(count, Math.ceil((window.innerHeight - top) / rowHeight) + spareRows);
    };
    look();
    window.addEventListener('scroll', look, {passive: true});
    window.addEventListener('resize', look);
    return () => {
      window.removeEventListener('scroll', look);
      window.removeEventListener('resize', look);
    };
  }, [count, first, last]);
  return {body, first: first.value, last: last.value};
}

/** The order stays while the pointer or the focus is in the table: no row jumps away from under it. */
function useOrder(all: ReadonlyMap<number, StreamState>) {
  const key = query.value.get('sort') ?? 'trouble';
  const sort = isSortKey(key) ? key : 'trouble';
  const held = useRef(false);
  const turn = useSignal(0);
  useEffect(() => {
    const timer = setInterval(() => {
      if (!held.current) turn.value += 1;
    }, 2000);
    return () => clearInterval(timer);
  }, [turn]);
  const {value} = turn;
  const order = useMemo(() => sortIds(all.values(), sort), [all, sort, value]);
  const hold = (is: boolean) => {
    held.current = is;
  };
  return {order, sort, hold};
}

function Filters({all, current}: {all: ReadonlyMap<number, StreamState>; current: Filter}) {
  const counts = useComputed(() => {
    const states = [...(streams.value?.values() ?? [])];
    return new Map(filters.map((filter) => [filter, states.filter((state) => passes(state, filter)).length]));
  });
  const name = (filter: Filter) =>
    filter === 'all' || filter === 'troubled' ? texts.list[filter] : texts.states[filter];
  return (
    <fieldset class="filters" data-count={all.size}>
      {filters.map((filter) => (
        <button
          type="button"
          key={filter}
          aria-pressed={filter === current}
          class={filter}
          onClick={() => setQuery({state: filter === 'all' ? '' : filter})}
        >
          <b>{counts.value.get(filter)}</b> {name(filter)}
        </button>
      ))}
    </fieldset>
  );
}

function Controls({sort}: {sort: string}) {
  return (
    <div class="controls">
      <input
        type="search"
        placeholder={texts.list.search}
        aria-label={texts.list.search}
        value={query.value.get('q') ?? ''}
        onInput={(event) => setQuery({q: event.currentTarget.value})}
      />
      <label>
        {texts.list.sort}{' '}
        <select value={sort} onChange={(event) => setQuery({sort: event.currentTarget.value})}>
          {Object.entries(texts.list.sorts).map(([key, name]) => (
            <option key={key} value={key}>
              {name}
            </option>
          ))}
        </select>
      </label>
      {mayOperate.value && (
        <a class="button" href="/new" data-page>
          {texts.edit.add}
        </a>
      )}
    </div>
  );
}

const columns = Object.entries(texts.list.columns).filter(([key]) => key !== 'copy');

function Table({all, filter}: {all: ReadonlyMap<number, StreamState>; filter: Filter}) {
  const {order, sort, hold} = useOrder(all);
  const selected = useSignal<ReadonlySet<number>>(new Set());
  const text = query.value.get('q') ?? '';
  const shown = order
    .map((id) => all.get(id))
    .filter((state): state is StreamState => state !== undefined && passes(state, filter) && matches(state, text));
  const {body, first, last} = useWindow(shown.length);
  const select = (id: number, is: boolean) => {
    const next = new Set(selected.value);
    if (is) next.add(id);
    else next.delete(id);
    selected.value = next;
  };
  return (
    <>
      <Controls sort={sort} />
      {mayOperate.value && <SelectionBar selected={selected} shown={shown} />}
      <table
        class={isStale.value ? 'streams old' : 'streams'}
        aria-rowcount={shown.length + 1}
        onPointerEnter={() => hold(true)}
        onPointerLeave={() => hold(false)}
        onFocusIn={() => hold(true)}
        onFocusOut={() => hold(false)}
      >
        <thead>
          <tr>
            {columns.map(([key, name]) => (
              <th key={key} scope="col" class={key}>
                {key === 'select' ? <span class="hidden">{name}</span> : name}
              </th>
            ))}
            <th scope="col" class="copy">
              <span class="hidden">{texts.list.columns.copy}</span>
            </th>
          </tr>
        </thead>
        <tbody ref={body} style={{height: `${shown.length * rowHeight}px`}}>
          {shown.slice(first, last).map((state, index) => (
            <Row
              key={state.id}
              state={state}
              top={(first + index) * rowHeight}
              selected={selected.value.has(state.id)}
              onSelect={(is) => select(state.id, is)}
            />
          ))}
        </tbody>
      </table>
      {shown.length === 0 && <p class="notice">{texts.list.none}</p>}
    </>
  );
}

export function ListPage() {
  const all = streams.value;
  useEffect(() => {
    document.title = texts.brand;
  }, []);
  if (!all) return <p class="notice">{texts.loading}</p>;
  if (all.size === 0) return <EmptyServer />;
  const asked = query.value.get('state') as Filter | null;
  const filter = asked && filters.includes(asked) ? asked : 'all';
  return (
    <>
      <h1 class="hidden">{texts.nav.streams}</h1>
      <Filters all={all} current={filter} />
      <Table all={all} filter={filter} />
      <ConfirmDialog />
    </>
  );
}
