import {type Signal, useComputed, useSignal} from '@preact/signals';
import {useEffect, useMemo, useRef} from 'preact/hooks';
import {ConfirmDialog} from '../../parts/confirm';
import {query, setQuery} from '../../state/router';
import {mayOperate} from '../../state/session';
import {isStale, type StreamState, streams} from '../../state/streams';
import {texts} from '../../texts';
import {EmptyServer} from './empty_server';
import {type Filter, filters, hasProfile, hasTag, isSortKey, matches, passes, sortIds} from './order';
import {Row, rowHeight} from './row';
import {SelectionBar} from './selection_bar';
import {ProfileSelect, TagSelect} from './selects';
import {Tiles} from './tiles';
import {useWindow} from './window';

const spareRows = 6;
const views = ['rows', 'tiles', 'wall'] as const;
type View = (typeof views)[number];

function currentView(): View {
  const asked = query.value.get('view') as View | null;
  return asked && views.includes(asked) ? asked : 'rows';
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

function ViewSwitch() {
  const current = currentView();
  return (
    <fieldset class="views">
      <legend class="hidden">{texts.glance.view}</legend>
      {views.map((view) => (
        <button
          type="button"
          key={view}
          aria-pressed={view === current}
          onClick={() => setQuery({view: view === 'rows' ? '' : view})}
        >
          {texts.glance.views[view]}
        </button>
      ))}
    </fieldset>
  );
}

function Controls({sort, all}: {sort: string; all: ReadonlyMap<number, StreamState>}) {
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
      <TagSelect all={all} />
      <ProfileSelect all={all} />
      <ViewSwitch />
      {mayOperate.value && (
        <a class="button" href="/new" data-page>
          {texts.edit.add}
        </a>
      )}
    </div>
  );
}

const columns = Object.entries(texts.list.columns);
const nameless = new Set(['select', 'picture', 'copy']);

/** What the filters leave, in order. */
function useShown(all: ReadonlyMap<number, StreamState>, filter: Filter) {
  const {order, sort, hold} = useOrder(all);
  const text = query.value.get('q') ?? '';
  const tag = query.value.get('tag') ?? '';
  const profile = query.value.get('profile') ?? '';
  const isShown = (state: StreamState) =>
    passes(state, filter) && matches(state, text) && hasTag(state, tag) && hasProfile(state, profile);
  const shown = order.flatMap((id) => {
    const state = all.get(id);
    return state && isShown(state) ? [state] : [];
  });
  return {shown, sort, hold};
}

function TableHead() {
  return (
    <thead>
      <tr>
        {columns.map(([key, name]) => (
          <th key={key} scope="col" class={`column-${key}`}>
            {nameless.has(key) ? <span class="hidden">{name}</span> : name}
          </th>
        ))}
      </tr>
    </thead>
  );
}

interface TableProps {
  shown: StreamState[];
  selected: Signal<ReadonlySet<number>>;
  hold(is: boolean): void;
}

function Table({shown, selected, hold}: TableProps) {
  const {body, first, last} = useWindow<HTMLTableSectionElement>(shown.length, rowHeight, spareRows);
  const select = (id: number, is: boolean) => {
    const next = new Set(selected.value);
    if (is) next.add(id);
    else next.delete(id);
    selected.value = next;
  };
  return (
    <table
      class={isStale.value ? 'streams old' : 'streams'}
      aria-rowcount={shown.length + 1}
      onPointerEnter={() => hold(true)}
      onPointerLeave={() => hold(false)}
      onFocusIn={() => hold(true)}
      onFocusOut={() => hold(false)}
    >
      <TableHead />
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
  );
}

function List({all}: {all: ReadonlyMap<number, StreamState>}) {
  const asked = query.value.get('state') as Filter | null;
  const filter = asked && filters.includes(asked) ? asked : 'all';
  const {shown, sort, hold} = useShown(all, filter);
  const selected = useSignal<ReadonlySet<number>>(new Set());
  const view = currentView();
  return (
    <>
      {view !== 'wall' && (
        <>
          <Filters all={all} current={filter} />
          <Controls sort={sort} all={all} />
        </>
      )}
      {view === 'rows' && mayOperate.value && <SelectionBar selected={selected} shown={shown} />}
      {view === 'rows' ? (
        <Table shown={shown} selected={selected} hold={hold} />
      ) : (
        <Tiles key={view} shown={shown} view={view} />
      )}
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
  return (
    <>
      <h1 class="hidden">{texts.nav.streams}</h1>
      <List all={all} />
      <ConfirmDialog />
    </>
  );
}
