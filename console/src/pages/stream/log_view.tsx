import {useSignal} from '@preact/signals';
import {useEffect, useRef} from 'preact/hooks';
import {texts} from '../../texts';

const maxLines = 2000;

/** Reads a text that grows, line by line, until it is aborted. */
async function readLines(address: string, abort: AbortSignal, take: (lines: string[]) => void): Promise<void> {
  const response = await fetch(address, {signal: abort});
  if (!response.ok || !response.body) return;
  const reader = response.body.pipeThrough(new TextDecoderStream()).getReader();
  let rest = '';
  for (;;) {
    const {value, done} = await reader.read();
    if (done) return;
    const lines = (rest + value).split('\n');
    rest = lines.pop() ?? '';
    if (lines.length) take(lines);
  }
}

/** What the transcoder prints, as it comes. */
export function LogView({id}: {id: number}) {
  const lines = useSignal<string[]>([]);
  const paused = useSignal(false);
  const search = useSignal('');
  const box = useRef<HTMLPreElement>(null);
  useEffect(() => {
    if (paused.value) return;
    const abort = new AbortController();
    lines.value = [];
    readLines(`/api/streams/${id}/log?plain=1&tail=500&follow=1`, abort.signal, (more) => {
      lines.value = [...lines.value, ...more].slice(-maxLines);
    }).catch(() => {});
    return () => abort.abort();
  }, [id, paused.value, lines]);
  const shown = search.value
    ? lines.value.filter((line) => line.toLowerCase().includes(search.value.toLowerCase()))
    : lines.value;
  useEffect(() => {
    if (box.current) box.current.scrollTop = box.current.scrollHeight;
  }, [shown.length]);
  return (
    <section class="panel">
      <h2>{texts.stream.log}</h2>
      <div class="controls">
        <input
          type="search"
          placeholder={texts.stream.logSearch}
          aria-label={texts.stream.logSearch}
          onInput={(event) => (search.value = event.currentTarget.value)}
        />
        <button type="button" onClick={() => (paused.value = !paused.value)}>
          {paused.value ? texts.stream.resume : texts.stream.pause}
        </button>
        <a class="button" href={`/api/streams/${id}/log?plain=1&all=1`} download={`stream-${id}.log`}>
          {texts.stream.download}
        </a>
      </div>
      {/* biome-ignore lint/a11y/noNoninteractiveTabindex: keys scroll it */}
      <pre ref={box} class="log" tabIndex={0}>
        {shown.join('\n')}
      </pre>
    </section>
  );
}
