/** Lists of numbers as timetables have them: "0-4,6", "*". */

/** The numbers from 0 below `end` that the text names; null for a text that is no list. */
export function readList(text: string, end: number): Set<number> | null {
  const numbers = new Set<number>();
  for (const part of text.split(',').map((one) => one.trim()).filter((one) => one !== '')) {
    const range = /^(?:(\d+)(?:\s*-\s*(\d+))?|\*)$/.exec(part);
    if (!range) return null;
    const first = Number(range[1] ?? 0);
    const last = range[1] === undefined ? end - 1 : Number(range[2] ?? first);
    for (let number = first; number <= Math.min(last, end - 1); ++number) numbers.add(number);
  }
  return numbers;
}

/** The shortest text for the numbers; empty for none. */
export function writeList(numbers: ReadonlySet<number>, end: number): string {
  if (numbers.size === end) return '*';
  const parts: string[] = [];
  for (let first = 0; first < end; ++first) {
    if (!numbers.has(first)) continue;
    let last = first;
    while (numbers.has(last + 1)) ++last;
    if (last - first < 2) for (let number = first; number <= last; ++number) parts.push(String(number));
    else parts.push(`${first}-${last}`);
    first = last;
  }
  return parts.join(',');
}

/** A moment as the server's clock shows it: "Wed 25 Nov 03:00", with its offset where the browser's is another. */
export function formatServerTime(time: string): string {
  const offset = /([+-]\d\d:\d\d|Z)$/.exec(time)?.[0] ?? 'Z';
  const onServersClock = new Date(`${time.slice(0, 19)}Z`);
  const shown = onServersClock.toLocaleString('en-GB', {
    weekday: 'short',
    day: 'numeric',
    month: 'short',
    hour: '2-digit',
    minute: '2-digit',
    timeZone: 'UTC',
  });
  const browserMinutes = -new Date(time).getTimezoneOffset();
  const serverMinutes = (onServersClock.getTime() - Date.parse(time)) / 60_000;
  return browserMinutes === serverMinutes ? shown : `${shown} (UTC${offset === 'Z' ? '' : offset})`;
}
