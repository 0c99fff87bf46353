import type {Timeline} from '../api/types';
import {formatTime} from '../state/format';
import {texts} from '../texts';

const width = 1440;
const height = 24;

interface Piece {
  kind: string;
  x: number;
  width: number;
  title: string;
  isMark: boolean;
}

/** The least width of a piece, so that a short one is seen: a strip in a row has about a fifteenth of the units. */
const leastWidth = {fine: 3, coarse: 15};

function pieces(timeline: Timeline, least: number): Piece[] {
  const begin = Date.parse(timeline.from);
  const span = Date.parse(timeline.to) - begin;
  const at = (time: string) => ((Date.parse(time) - begin) / span) * width;
  const spans = timeline.intervals.map(({from, to, status, input}) => ({
    kind: input ? `${status} other` : status,
    x: Math.min(at(from), width - least),
    width: Math.max(least, at(to) - at(from)),
    title: texts.stream.span(status, input, formatTime(from), formatTime(to)),
    isMark: false,
  }));
  const marks = timeline.restarts.map(({time, cause}) => ({
    kind: `mark ${cause}`,
    x: Math.min(at(time), width - least),
    width: least,
    title: texts.stream.restartedBy(cause, formatTime(time)),
    isMark: true,
  }));
  return [...spans, ...marks];
}

const top = (piece: Piece) => (piece.isMark ? 0 : 4);

function Pieces({shown}: {shown: Piece[]}) {
  return shown.map((piece, index) => (
    <rect
      key={`${index}${piece.kind}`}
      class={piece.kind}
      x={piece.x}
      width={piece.width}
      y={top(piece)}
      height={height - top(piece)}
    >
      <title>{piece.title}</title>
    </rect>
  ));
}

// A day of a stream in trouble has hundreds of pieces, and a list has dozens of strips: one path of each kind.
function Paths({shown}: {shown: Piece[]}) {
  const paths = new Map<string, string>();
  for (const piece of shown) {
    const box = `M${piece.x.toFixed(1)} ${top(piece)}h${piece.width.toFixed(1)}V${height}h-${piece.width.toFixed(1)}z`;
    paths.set(piece.kind, (paths.get(piece.kind) ?? '') + box);
  }
  return [...paths].map(([kind, path]) => <path key={kind} class={kind} d={path} />);
}

/** The last 24 hours as colours; `fine` with a word for each piece, under the pointer. */
export function Strip({timeline, fine = false}: {timeline: Timeline; fine?: boolean}) {
  const label = texts.glance.day(timeline.restarts.reduce((sum, {count}) => sum + (count ?? 1), 0));
  const shown = pieces(timeline, fine ? leastWidth.fine : leastWidth.coarse);
  return (
    <svg class="day" viewBox={`0 0 ${width} ${height}`} preserveAspectRatio="none" role="img" aria-label={label}>
      {fine ? <Pieces shown={shown} /> : <Paths shown={shown} />}
    </svg>
  );
}
