/** An address with the label that stood before it, or above it in an M3U list. */
export interface Pasted {
  label: string;
  url: string;
}

const byScheme = /^(.*?)[\s,;]*([a-z][a-z0-9+.-]*:\/\/.*)$/i;
const byPath = /^(?:(.*?)[\s,;]+)?(\/.*)$/;
const title = /^#EXTINF:[^\s,]*(?:\s+[\w-]+="[^"]*")*\s*,\s*(.*)$/i;
const longestLabel = 60;

/** What names a stream whose label nobody gave: its address without scheme, credentials and query. */
function labelOf(url: string): string {
  const address = url.replace(/^[a-z][a-z0-9+.-]*:\/\//i, '').replace(/[?#].*$/, '');
  return address.replace(/^[^/]*@/, '').slice(0, longestLabel);
}

/** Reads lines of "URL" or "label URL", or an M3U list. */
export function readPasted(text: string): Pasted[] {
  const found: Pasted[] = [];
  let above = '';
  for (const line of text.split(/\r?\n/).map((one) => one.trim())) {
    if (line.startsWith('#')) above = title.exec(line)?.[1] ?? above;
    if (!line || line.startsWith('#')) continue;
    const [, label = '', url = line] = byScheme.exec(line) ?? byPath.exec(line) ?? [];
    found.push({label: label || above || labelOf(url), url});
    above = '';
  }
  return found;
}

/** A line that is read as the same again. */
export const writePasted = ({label, url}: Pasted): string => (label === labelOf(url) ? url : `${label}, ${url}`);
