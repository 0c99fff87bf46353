import uPlot from 'uplot';

/** What a chart shows, and what it is measured against. Times are in seconds. */
export interface ChartData {
  times: number[];
  values: (number | null)[];
  restarts: number[];
  /** A band that values should stay in. */
  band: {min: number; max: number} | null;
  /** A value that must not be passed. */
  limit: number | null;
}

export interface Chart {
  show(data: ChartData): void;
  destroy(): void;
}

const height = 132;

const color = (name: string) => getComputedStyle(document.documentElement).getPropertyValue(`--${name}`).trim();

// A limit far above what is used would press the curve flat on the ground; the text tells it anyway.
function highest({values, band, limit}: ChartData): number {
  const used = Math.max(0, ...values.map((value) => value ?? 0));
  const reachable = limit !== null && limit < used * 3 ? limit : 0;
  return Math.max(used, band?.max ?? 0, reachable) * 1.1 || 1;
}

function drawBand(plot: uPlot, {band}: ChartData): void {
  if (!band) return;
  const top = plot.valToPos(band.max, 'y', true);
  plot.ctx.fillStyle = color('good-back');
  plot.ctx.fillRect(plot.bbox.left, top, plot.bbox.width, plot.valToPos(band.min, 'y', true) - top);
}

function drawLine(plot: uPlot, from: [number, number], to: [number, number], name: string, dash: number[]): void {
  const {ctx} = plot;
  ctx.save();
  ctx.beginPath();
  ctx.strokeStyle = color(name);
  ctx.lineWidth = uPlot.pxRatio;
  ctx.setLineDash(dash.map((length) => length * uPlot.pxRatio));
  ctx.moveTo(...from);
  ctx.lineTo(...to);
  ctx.stroke();
  ctx.restore();
}

function drawMarks(plot: uPlot, data: ChartData): void {
  const {left, top, width, height: depth} = plot.bbox;
  for (const time of data.restarts) {
    const x = plot.valToPos(time, 'x', true);
    if (x >= left && x <= left + width) drawLine(plot, [x, top], [x, top + depth], 'bad', [2, 3]);
  }
  if (data.limit === null) return;
  const y = plot.valToPos(data.limit, 'y', true);
  if (y >= top) drawLine(plot, [left, y], [left + width, y], 'warn', [6, 4]);
}

/** Draws into `place` in the colours of now; `onCursor` gets the index under the pointer of any chart, or null. */
export function drawChart(place: HTMLElement, first: ChartData, onCursor: (index: number | null) => void): Chart {
  let data = first;
  const axis = {
    stroke: color('quiet'),
    font: '11px system-ui, sans-serif',
    grid: {stroke: color('line'), width: 1},
    ticks: {show: false},
  };
  const plot = new uPlot(
    {
      width: place.clientWidth || 300,
      height,
      padding: [8, 8, 0, 0],
      legend: {show: false},
      cursor: {sync: {key: 'figures'}, y: false, drag: {x: false, y: false}},
      scales: {y: {range: () => [0, highest(data)]}},
      series: [
        {},
        {stroke: color('link'), width: 1.5, spanGaps: false, points: {show: false}, fill: `${color('link')}1c`},
      ],
      axes: [
        {...axis, size: 24, values: '{HH}:{mm}', space: 64},
        {...axis, size: 44, space: 32},
      ],
      hooks: {
        drawClear: [(drawn) => drawBand(drawn, data)],
        draw: [(drawn) => drawMarks(drawn, data)],
        setCursor: [(drawn) => onCursor(drawn.cursor.idx ?? null)],
      },
    },
    [data.times, data.values],
    place,
  );
  const resize = new ResizeObserver(() => plot.setSize({width: place.clientWidth, height}));
  resize.observe(place);
  return {
    show(next) {
      data = next;
      plot.setData([next.times, next.values]);
    },
    destroy() {
      resize.disconnect();
      plot.destroy();
    },
  };
}
